#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Builds the wheel of a platform, offline: build_wheel.py LIBRARIES OUT

LIBRARIES  the folder with libpanoval.so.1 or panoval.dll and those beside it, as cmake --install leaves them
OUT        the folder for the wheel

Copies the package and the libraries to a folder of their own and runs python3 -m build there, without isolation: Debian's
python3-build, python3-setuptools and python3-wheel are all that it takes.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
NAMES = ("math", "panoval", "panoval_mosaic", "panoval_measure")
GOMP_LICENCE = Path("/usr/share/doc/gcc-12-base/copyright")


def newest_symbol(libraries) -> str:
    """The newest version of glibc that a library asks for, e.g. 2_36."""
    versions = set()
    for library in libraries:
        table = subprocess.run(["objdump", "-T", str(library)], check=True, capture_output=True, text=True).stdout
        versions.update(tuple(map(int, found)) for found in re.findall(r"GLIBC_(\d+)\.(\d+)", table))
    return "_".join(map(str, max(versions)))


def system_library(name) -> Path:
    """Where the loader finds a library of the compiler."""
    table = subprocess.run(["/sbin/ldconfig", "-p"], check=True, capture_output=True, text=True).stdout
    return Path(re.search(rf"{re.escape(name)} \(libc6,x86-64\) => (\S+)", table).group(1)).resolve()


def collect(source: Path, target: Path) -> str:
    """Copies the libraries; returns the tag of their platform."""
    target.mkdir()
    if (source / "panoval.dll").exists():
        for name in NAMES:
            file = "libmath.dll" if name == "math" else f"{name}.dll"
            shutil.copy(source / file, target / file)
        return "win_amd64"
    for name in NAMES:
        shutil.copy((source / f"lib{name}.so.1").resolve(), target / f"lib{name}.so.1")
    # The run-time library of OpenMP is on no list of what every system has.
    shutil.copy(system_library("libgomp.so.1"), target / "libgomp.so.1")
    shutil.copy(GOMP_LICENCE, target / "libgomp.LICENSE")
    return f"manylinux_{newest_symbol(target.glob('*.so.1'))}_x86_64"


def build(source: Path, out: Path) -> None:
    with tempfile.TemporaryDirectory() as work:
        stage = Path(work) / "panoval"
        stage.mkdir()
        ignored = shutil.ignore_patterns("__pycache__", "_lib")
        shutil.copytree(ROOT / "python" / "panoval", stage / "panoval", ignore=ignored)
        for file in ("pyproject.toml", "setup.py", "README.md"):
            shutil.copy(ROOT / "python" / file, stage / file)
        shutil.copy(ROOT / "include" / "panoval_version.h", stage)
        shutil.copy(ROOT / "LICENSE", stage)
        platform = collect(source, stage / "panoval" / "_lib")
        out.mkdir(parents=True, exist_ok=True)
        environment = dict(os.environ, PANOVAL_WHEEL_PLATFORM=platform, SOURCE_DATE_EPOCH="1700000000",
                           PYTHONWARNINGS="ignore")
        subprocess.run([sys.executable, "-m", "build", "--wheel", "--no-isolation", "--outdir", str(out.resolve())],
                       cwd=stage, env=environment, check=True, stdout=subprocess.DEVNULL)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    build(Path(sys.argv[1]), Path(sys.argv[2]))
