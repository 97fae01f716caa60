#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes panoval/raw.pyi, the types of the raw routines, from the C headers. A test says when it is to be run again."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import headers  # noqa: E402

STUB = Path(__file__).resolve().parent.parent / "panoval" / "raw.pyi"

HEAD = '''# SPDX-License-Identifier: MIT
# Written by tools/write_stub.py from the C headers.
# A pointer to samples takes an array of that type, an address, something of ctypes, or None; a pointer to a record takes
# the record, an array of records, a pointer, or None. The libraries say what each routine makes of it.
import ctypes
from typing import Any, Optional, TypeVar, Union

import numpy as np
import numpy.typing as npt

from ._library import Libraries
from ._records import *

libraries: Libraries

_T = TypeVar("_T")
_Address = Union[int, None, ctypes.c_void_p, "ctypes.Array[Any]", "ctypes._Pointer[Any]", "ctypes._CArgObject"]
_To = Union[_T, "ctypes.Array[_T]", "ctypes._Pointer[_T]", "ctypes._CArgObject", None]

def free(address: _Address) -> None: ...

'''
ARRAYS = {"int16_t": "np.int16", "uint8_t": "np.uint8", "uint16_t": "np.uint16", "int32_t": "np.int32",
          "float": "np.float32", "double": "np.float64", "size_t": "np.uint64"}


def annotation(kind: headers.CType) -> str:
    """A C type as a type of Python."""
    if kind.base == "char" and kind.stars == 1:
        return "Optional[bytes]" if kind.is_const else "Optional[Union[bytes, ctypes.Array[ctypes.c_char]]]"
    if kind.base in headers.OPAQUE and kind.stars:
        return "_Address"
    if kind.stars == 0:
        return {"float": "float", "double": "float", "void": "None"}.get(
            kind.base, "int" if kind.base in headers.SCALARS else kind.base)
    if kind.stars == 2:
        return "Any"
    if kind.base in ARRAYS:
        return f"Union[npt.NDArray[{ARRAYS[kind.base]}], _Address]"
    return f"_To[{kind.base}]"


def stub() -> str:
    """The whole text."""
    lines = []
    for routine in headers.prototypes():
        arguments = ", ".join(f"{name}: {annotation(kind)}" for name, kind in routine.parameters)
        result = "bytes" if routine.result.base == "char" else annotation(routine.result)
        lines.append(f"def {routine.name}({arguments}) -> {result}: ...\n")
    return HEAD + "".join(lines)


if __name__ == "__main__":
    STUB.write_text(stub())
