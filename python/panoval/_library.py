# SPDX-License-Identifier: MIT
"""Finds and loads the shared libraries, and the C run-time library whose heap they use.

Looked for, in this order: the folder that PANOVAL_LIBRARY_DIR names, the package's own folder `_lib` (a wheel brings the
libraries along), and where the system keeps libraries. The first place that has libpanoval is the only one that counts, so
that libraries of two versions never meet.
"""

from __future__ import annotations

import ctypes
import os
import sys
from pathlib import Path
from typing import Callable, List, NamedTuple, Optional

MAJOR = 1
NAMES = ("panoval", "panoval_mosaic", "panoval_measure")
_IS_WINDOWS = sys.platform == "win32"


class Libraries(NamedTuple):
    """The loaded libraries and where they came from; None stands for the system's search path."""

    panoval: ctypes.CDLL
    mosaic: ctypes.CDLL
    measure: ctypes.CDLL
    folder: Optional[Path]


def file_name(name: str, windows: bool = _IS_WINDOWS) -> str:
    """The file of a library: panoval -> libpanoval.so.1, on Windows panoval.dll."""
    return f"{name}.dll" if windows else f"lib{name}.so.{MAJOR}"


def _folders() -> List[Path]:
    chosen = os.environ.get("PANOVAL_LIBRARY_DIR")
    if chosen:
        return [Path(chosen).resolve()]
    return [Path(__file__).resolve().parent / "_lib"]


def _open(path: str) -> ctypes.CDLL:
    # CDLL, unlike PyDLL, gives up the interpreter's lock for the time of each call.
    if _IS_WINDOWS:
        # The libraries beside the one that is opened are found by its full path; nothing else is searched for them.
        load_dll_dir_and_system32 = 0x100 | 0x800
        return ctypes.CDLL(path, winmode=load_dll_dir_and_system32 if os.path.isabs(path) else 0x1000)
    return ctypes.CDLL(path)


def _load_from(folder: Optional[Path]) -> Libraries:
    panoval, mosaic, measure = (_open(str(folder / file_name(name)) if folder else file_name(name)) for name in NAMES)
    return Libraries(panoval, mosaic, measure, folder)


def load() -> Libraries:
    """Loads the three libraries; ImportError says what was tried."""
    folders = [folder for folder in _folders() if (folder / file_name("panoval")).exists()]
    chosen = os.environ.get("PANOVAL_LIBRARY_DIR")
    if chosen and not folders:
        raise ImportError(f"PANOVAL_LIBRARY_DIR is {chosen!r}, which has no {file_name('panoval')}")
    folder = folders[0] if folders else None
    try:
        libraries = _load_from(folder)
    except OSError as error:
        place = str(folder) if folder else "the package's folder _lib nor where the system keeps libraries"
        raise ImportError(f"the Panoval libraries were not found in {place}: {error}") from error
    _check_version(libraries)
    return libraries


def _check_version(libraries: Libraries) -> None:
    for name in ("panoval_mosaic", "panoval_measure"):
        library = libraries.mosaic if name == "panoval_mosaic" else libraries.measure
        number = library[f"{name}_version"]()
        if number // 10000 != MAJOR:
            raise ImportError(f"lib{name} has version {number // 10000}.{number // 100 % 100}.{number % 100}; "
                              f"this package needs {MAJOR}.x")


def c_free() -> Callable[[int], None]:
    """The `free` of the C run-time library that the libraries allocate with. On Windows it is not Python's own."""
    free = ctypes.CDLL("msvcrt.dll").free if _IS_WINDOWS else ctypes.CDLL(None).free
    free.argtypes = [ctypes.c_void_p]
    free.restype = None
    return free
