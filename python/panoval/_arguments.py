# SPDX-License-Identifier: MIT
"""How arguments of the raw routines are converted: what a C pointer accepts, and what it refuses by name.

A pointer to samples accepts an array of that type, C-contiguous and, where the routine writes, writable; or an address, or
None. A pointer to a record accepts the record; where the routine may write to it, not a record that borrows an array's
memory: the library would free a block that it never allocated.
"""

from __future__ import annotations

import ctypes
from functools import lru_cache
from typing import Any, Type

import numpy as np

_POINTER_LIKE = (int, type(None), ctypes.c_void_p, ctypes.Array, ctypes._Pointer, type(ctypes.byref(ctypes.c_int())))


def address_of(array: np.ndarray) -> int:
    """The address of an array's first element."""
    return array.__array_interface__["data"][0]


@lru_cache(maxsize=None)
def samples(ctype: type, const: bool) -> Type:
    """The argument type of `const ctype*` or `ctype*`."""
    dtype: np.dtype = np.dtype(ctype)

    class Samples(ctypes.c_void_p):
        element = ctype
        is_const = const

        @classmethod
        def from_param(cls, value: Any) -> Any:
            if isinstance(value, np.ndarray):
                if value.dtype != dtype:
                    raise TypeError(f"an array of {value.dtype} was given where {dtype} is expected")
                if not value.flags.c_contiguous:
                    raise TypeError("an array that is not C-contiguous was given")
                if not const and not value.flags.writeable:
                    raise TypeError("a read-only array was given where the routine writes")
                return ctypes.c_void_p(address_of(value))
            if isinstance(value, _POINTER_LIKE):
                return ctypes.c_void_p.from_param(value)
            raise TypeError(f"expected an array of {dtype}, an address or None, not {type(value).__name__}")

    Samples.__name__ = f"{'const ' if const else ''}{ctype.__name__}*"
    return Samples


@lru_cache(maxsize=None)
def record(struct: Type[ctypes.Structure], const: bool) -> Type:
    """The argument type of `const Record*` or `Record*`."""
    pointer = ctypes.POINTER(struct)

    class Record:
        element = struct
        is_const = const

        @classmethod
        def from_param(cls, value: Any) -> Any:
            if not const and getattr(getattr(value, "_obj", value), "is_borrowed", False):
                raise TypeError(f"a {struct.__name__} that borrows an array's memory was given where the routine writes")
            return pointer.from_param(value)

    Record.__name__ = f"{'const ' if const else ''}{struct.__name__}*"
    return Record
