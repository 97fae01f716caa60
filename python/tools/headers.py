# SPDX-License-Identifier: MIT
"""Reads the C headers: prototypes and records, and what each C type is in ctypes and in the stub.

Only what these headers use is understood; anything else is an error, so that nothing goes unseen.
"""

import ctypes
import re
from pathlib import Path
from typing import Dict, List, NamedTuple, Tuple

INCLUDE = Path(__file__).resolve().parent.parent.parent / "include"
FILES = ("panoval.h", "panoval_version.h", "panoval_mosaic.h", "panoval_measure.h")
OPAQUE = ("void", "PanovalMosaic")
SCALARS = {"int16_t": ctypes.c_int16, "uint8_t": ctypes.c_uint8, "uint16_t": ctypes.c_uint16, "int32_t": ctypes.c_int32,
           "uint32_t": ctypes.c_uint32, "int64_t": ctypes.c_int64, "uint64_t": ctypes.c_uint64, "size_t": ctypes.c_size_t,
           "float": ctypes.c_float, "double": ctypes.c_double}


class CType(NamedTuple):
    """A type as written: const uint8_t* -> base uint8_t, 1 star, const."""

    base: str
    stars: int
    is_const: bool


class Parameter(NamedTuple):
    name: str
    type: CType


class Prototype(NamedTuple):
    name: str
    result: CType
    parameters: List[Parameter]


def text_of(file: str) -> str:
    """A header without comments and preprocessor lines."""
    text = re.sub(r"/\*.*?\*/|//[^\n]*", " ", (INCLUDE / file).read_text(), flags=re.S)
    return re.sub(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", "", text, flags=re.M)


def declared(text: str) -> Parameter:
    """`const double* bins` or `double gains[4]` -> name and type."""
    match = re.fullmatch(r"\s*(const\s+)?(\w+)\s*(\*\*?|)\s*(\w+)\s*(\[\d+\])?\s*", text)
    if not match:
        raise ValueError(f"not understood: {text!r}")
    const, base, stars, name, extent = match.groups()
    return Parameter(name, CType(base, len(stars) + bool(extent), bool(const)))


def prototypes() -> List[Prototype]:
    """Every exported routine in the order of the headers."""
    found = []
    for file in FILES:
        for declaration in re.findall(r"\bPANOVAL\w*_API\s+([^;{]+);", text_of(file)):
            head, arguments = re.fullmatch(r"(.*?)\((.*)\)\s*", declaration, flags=re.S).groups()
            name, result = declared(head)
            parts = [] if arguments.strip() == "void" else [declared(part) for part in arguments.split(",")]
            found.append(Prototype(name, result, parts))
    return found


def records() -> Dict[str, List[Tuple[str, object]]]:
    """Every record: its fields as (name, CType), (name, (CType, count)) for arrays, (name, None) for functions."""
    found = {}
    for file in FILES:
        for name, body in re.findall(r"typedef struct (\w+)\s*\{(.*?)\}\s*\1\s*;", text_of(file), flags=re.S):
            found[name] = [field for part in body.split(";") if part.strip() for field in fields_of(part)]
    return found


def fields_of(declaration: str) -> List[Tuple[str, object]]:
    function = re.match(r"\s*\w+\s*\(\*(\w+)\)", declaration)
    if function:
        return [(function.group(1), None)]
    head, *others = declaration.split(",")
    array = re.fullmatch(r"\s*(\w+)\s+(\w+)\[(\d+)\]\s*", head)
    if array:
        return [(array.group(2), (CType(array.group(1), 0, False), int(array.group(3))))]
    first = declared(head)
    return [(first.name, first.type)] + [(name.strip(), first.type) for name in others]
