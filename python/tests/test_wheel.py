# SPDX-License-Identifier: MIT
"""The wheels: their names, what lies in them, and that they need nothing else."""

import os
import re
import subprocess
import sys
import zipfile
from pathlib import Path

import pytest

import build_wheel
from panoval import raw

ROOT = Path(__file__).resolve().parent.parent.parent
# What every Linux system has beside glibc's own libraries, by the rules of manylinux wheels.
SYSTEM = {"libc.so.6", "libm.so.6", "libdl.so.2", "libpthread.so.0", "librt.so.1", "ld-linux-x86-64.so.2", "libgcc_s.so.1",
          "libstdc++.so.6"}


def folders():
    """Libraries that wheels can be made of here: those that were loaded, and the Windows build where it was made."""
    found = {"linux": raw.libraries.folder}
    windows = ROOT / "build" / "windows" / "bin"
    if (windows / "panoval.dll").exists():
        found["windows"] = windows
    return found


@pytest.fixture(scope="module", params=sorted(folders()))
def wheel(request, tmp_path_factory):
    out = tmp_path_factory.mktemp("wheel")
    build_wheel.build(folders()[request.param], out)
    made, = out.iterdir()
    return made


def names(wheel):
    return set(zipfile.ZipFile(wheel).namelist())


def is_windows(wheel):
    return wheel.name.endswith("-win_amd64.whl")


def imports(file):
    table = subprocess.run(["objdump", "-p", str(file)], check=True, capture_output=True, text=True).stdout
    return {a or b for a, b in re.findall(r"NEEDED\s+(\S+)|DLL Name: (\S+)", table)}


def test_one_wheel_serves_every_python_of_a_platform(wheel):
    tag = re.fullmatch(r"panoval-\d+\.\d+\.\d+-(py3-none-(win_amd64|manylinux_2_\d+_x86_64))\.whl", wheel.name)
    assert tag, wheel.name
    text = zipfile.ZipFile(wheel).read(f"{wheel.name.split('-py3')[0]}.dist-info/WHEEL").decode()
    assert f"Tag: {tag.group(1)}\n" in text and "Root-Is-Purelib: false" in text


def test_a_wheel_has_the_package_and_the_libraries_and_nothing_else(wheel):
    sources = {f"panoval/{file.name}" for file in (ROOT / "python" / "panoval").iterdir() if file.is_file()}
    if is_windows(wheel):
        libraries = {"libmath.dll", "panoval.dll", "panoval_mosaic.dll", "panoval_measure.dll"}
    else:
        libraries = {"libmath.so.1", "libpanoval.so.1", "libpanoval_mosaic.so.1", "libpanoval_measure.so.1", "libgomp.so.1",
                     "libgomp.LICENSE"}
    info = {f"{wheel.name.split('-py3')[0]}.dist-info/{file}" for file in ("LICENSE", "METADATA", "RECORD", "WHEEL",
                                                                          "top_level.txt")}
    assert names(wheel) == sources | {f"panoval/_lib/{file}" for file in libraries} | info
    assert {"panoval/py.typed", "panoval/raw.pyi"} <= sources


def test_the_libraries_need_each_other_and_the_system_alone(wheel, tmp_path):
    zipfile.ZipFile(wheel).extractall(tmp_path)
    files = [file for file in (tmp_path / "panoval" / "_lib").iterdir() if not file.name.endswith("LICENSE")]
    own = {file.name for file in files}
    for file in files:
        needed = imports(file) - own
        if is_windows(wheel):
            assert {name.lower() for name in needed} <= {"kernel32.dll", "msvcrt.dll"}, file.name
            continue
        assert needed <= SYSTEM, file.name
        dynamic = subprocess.run(["objdump", "-p", str(file)], check=True, capture_output=True, text=True).stdout
        assert re.findall(r"R(?:UN)?PATH\s+(\S+)", dynamic) in ([], ["$ORIGIN"]) or folders()["linux"].name != "_lib"
        newest = tuple(map(int, build_wheel.newest_symbol([file]).split("_")))
        assert newest <= tuple(map(int, re.search(r"manylinux_(\d+)_(\d+)", wheel.name).groups())), file.name


def test_the_same_tree_gives_the_same_wheel(wheel, tmp_path):
    folder = folders()["windows" if is_windows(wheel) else "linux"]
    build_wheel.build(folder, tmp_path)
    assert next(tmp_path.iterdir()).read_bytes() == wheel.read_bytes()


def test_an_unpacked_wheel_works_with_numpy_alone(wheel, tmp_path):
    if is_windows(wheel):
        return  # nothing here runs Python for Windows
    zipfile.ZipFile(wheel).extractall(tmp_path)
    code = ("import numpy as np, panoval, sys\n"
            "image = panoval.stitch([np.full((9, 9), 7, np.uint8)] * 2, [(0, 0), (5, 0)]).image\n"
            "assert image.shape == (9, 14) and len(panoval.measure(image)) == 0\n"
            "for name in ('pandas', 'tqdm', 'distributed', 'matplotlib'): assert name not in sys.modules, name\n"
            "for line in open('/proc/self/maps'):\n"
            "    if 'libpanoval' in line or 'libgomp' in line or 'libmath' in line: print(line.split()[-1])\n")
    environment = {name: value for name, value in os.environ.items() if not name.startswith("PANOVAL")}
    environment["PYTHONPATH"] = str(tmp_path)
    run = subprocess.run([sys.executable, "-c", code], env=environment, cwd="/", capture_output=True, text=True)
    assert run.returncode == 0, run.stderr
    loaded = set(run.stdout.split())
    assert {Path(path).parent for path in loaded} == {tmp_path / "panoval" / "_lib"}
    assert len(loaded) == 5


def test_the_systems_libraries_serve_where_the_package_has_none(tmp_path):
    """As a distribution's package is laid out: sources here, libraries where the loader looks."""
    import shutil

    source = Path(build_wheel.__file__).resolve().parent.parent / "panoval"
    shutil.copytree(source, tmp_path / "panoval", ignore=shutil.ignore_patterns("_lib", "__pycache__"))
    environment = {name: value for name, value in os.environ.items() if not name.startswith("PANOVAL")}
    environment.update(PYTHONPATH=str(tmp_path), LD_LIBRARY_PATH=str(raw.libraries.folder))
    code = "import panoval; assert panoval.raw.libraries.folder is None; print(panoval.__version__)"
    run = subprocess.run([sys.executable, "-c", code], env=environment, cwd="/", capture_output=True, text=True)
    assert run.returncode == 0 and run.stdout.strip() == panoval_version(), run.stderr
    environment["LD_LIBRARY_PATH"] = ""
    run = subprocess.run([sys.executable, "-c", "import panoval"], env=environment, cwd="/", capture_output=True, text=True)
    if run.returncode:  # no libraries are installed on this machine
        assert "the Panoval libraries were not found" in run.stderr


def panoval_version():
    import panoval

    return panoval.__version__
