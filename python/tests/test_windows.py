# SPDX-License-Identifier: MIT
"""The Windows wheel without a Python for Windows: a program in C does under Wine what the package does there. It loads the
wheel's own libraries by their full paths, as ctypes is told to, finds every routine that raw declares, compares the layout of the
records, and gives a library's block back through the C run-time library that the package names."""

import ctypes
import subprocess
import zipfile
from pathlib import Path

import pytest

import build_wheel
import headers
from panoval import _library, _records

ROOT = Path(__file__).resolve().parent.parent.parent
BUILT = [folder for folder in [ROOT / "build" / "windows" / "bin"] if (folder / "panoval.dll").exists()]
COMPILER = "x86_64-w64-mingw32-gcc-posix"

PROGRAM = r"""
#include <panoval.h>
#include <panoval_mosaic.h>
#include <panoval_measure.h>
#include <stddef.h>
#include <stdio.h>
#include <windows.h>

/* The flags of panoval._library: the folder of the library itself, and the system's. */
static HMODULE load(const char* folder, const char* name)
{
    char path[1024];
    snprintf(path, sizeof path, "%s\\%s", folder, name);
    HMODULE library = LoadLibraryExA(path, NULL, 0x100 | 0x800);
    if (library == NULL)
        printf("error: found no %s: %lu\n", path, GetLastError());
    return library;
}

static void* find(HMODULE library, const char* name)
{
    void* routine = (void*)GetProcAddress(library, name);
    if (routine == NULL)
        printf("error: found no %s\n", name);
    return routine;
}

static void check_heap(HMODULE panoval)
{
    HMODULE runtime = LoadLibraryA("msvcrt.dll");
    size_t (*size_of)(void*) = (size_t(*)(void*))find(runtime, "_msize");
    void (*give_back)(void*) = (void (*)(void*))find(runtime, "free");
    void (*reset)(Mat*, int32_t, int32_t, int32_t, int32_t) =
        (void (*)(Mat*, int32_t, int32_t, int32_t, int32_t))find(panoval, "MatReset");
    for (int i = 0; i < 1000; ++i) {
        Mat image = {0};
        reset(&image, 300, 200, 3, 2);
        if (image.data == NULL || size_of(image.data) != 360000)
            printf("error: found another heap\n");
        give_back(image.data);
    }
}

int main(int argc, char** argv)
{
    (void)argc;
    HMODULE panoval = load(argv[1], "panoval.dll");
    HMODULE panoval_mosaic = load(argv[1], "panoval_mosaic.dll");
    HMODULE panoval_measure = load(argv[1], "panoval_measure.dll");
    if (panoval == NULL || panoval_mosaic == NULL || panoval_measure == NULL)
        return 1;
    @LINES@
    check_heap(panoval);
    return 0;
}
"""


def owner(name):
    """The library that has a routine."""
    if name.startswith("panoval_measure_"):
        return "panoval_measure"
    return "panoval_mosaic" if name.startswith("panoval_") else "panoval"


@pytest.mark.parametrize("folder", BUILT, ids=["wine"] * len(BUILT))
def test_the_wheels_libraries_are_what_the_package_expects(folder, tmp_path):
    build_wheel.build(folder, tmp_path)
    wheel, = tmp_path.glob("*-win_amd64.whl")
    zipfile.ZipFile(wheel).extractall(tmp_path / "site")
    place = tmp_path / "site" / "panoval" / "_lib"
    assert all((place / _library.file_name(name, windows=True)).exists() for name in _library.NAMES)

    lines = [f'find({owner(routine.name)}, "{routine.name}");' for routine in headers.prototypes()]
    for name, fields in headers.records().items():
        lines += [f'printf("{name}.{field} %u\\n", (unsigned)offsetof({name}, {field}));' for field, _ in fields]
        lines.append(f'printf("{name} %u\\n", (unsigned)sizeof({name}));')
    source, program = tmp_path / "loads.c", tmp_path / "loads.exe"
    source.write_text(PROGRAM.replace("@LINES@", "\n    ".join(lines)))
    subprocess.run([COMPILER, f"-I{headers.INCLUDE}", "-w", str(source), "-o", str(program)], check=True)
    run = subprocess.run(["sh", str(ROOT / "cmake" / "run_under_wine.sh"), str(program), f"Z:{place}".replace("/", "\\")],
                         capture_output=True, text=True, cwd=tmp_path, timeout=120)
    assert run.returncode == 0 and "error:" not in run.stdout, run.stdout + run.stderr
    printed = [line for line in run.stdout.split("\n") if line.strip()]
    assert len(printed) == len([line for line in lines if line.startswith("printf")])
    for line in printed:
        what, number = line.split()
        name, _, field = what.partition(".")
        struct = getattr(_records, name)
        assert (getattr(struct, field).offset if field else ctypes.sizeof(struct)) == int(number), what
