# SPDX-License-Identifier: MIT
"""PGM files as libpanoval reads and writes them. Other formats are read by other packages, as arrays."""

from __future__ import annotations

import ctypes
import os
from ctypes import POINTER, byref, c_int32, c_uint8
from typing import Any, Union

import numpy as np

from . import _images, raw

__all__ = ["read_pgm", "write_pgm"]

_I16 = np.dtype(np.int16)


def _name(path: Union[str, "os.PathLike[str]"]) -> bytes:
    name = os.fspath(path)
    if not isinstance(name, str) or "\0" in name:
        raise TypeError(f"path is {path!r}, expected a file's name")
    return name.encode("utf-8", "surrogateescape")


def read_pgm(path: Union[str, "os.PathLike[str]"]) -> np.ndarray:
    """Reads a raw PGM file of one byte a pixel, its size on one line of the header.

    returns  (height, width) uint8, over a block of the library's; pixels that the file lacks are 0

    Raises the error of opening where the file does not open, ValueError where its header has no size.

    >>> import tempfile
    >>> with tempfile.NamedTemporaryFile(suffix=".pgm") as file:
    ...     file.write(bytes("P5 2 1 255", "ascii").replace(b" ", bytes([10]), 1).replace(b" 255", bytes([10]) + b"255")
    ...                + bytes([10, 7, 8]))
    ...     file.flush()
    ...     read_pgm(file.name).tolist()
    13
    [[7, 8]]
    """
    with open(path, "rb"):  # says why, which the library does not
        pass
    block, width, height = POINTER(c_uint8)(), c_int32(-1), c_int32(-1)
    raw.read_pgm(byref(block), byref(width), byref(height), _name(path))
    address = ctypes.cast(block, ctypes.c_void_p).value
    if width.value < 0 or height.value < 0 or (not address and width.value * height.value > 0):
        raw.free(address)
        raise ValueError(f"{os.fspath(path)} is no raw PGM file with its size on one line of the header")
    return _images.array_over(address, np.uint8, (height.value, width.value))


def write_pgm(path: Union[str, "os.PathLike[str]"], image: Any) -> None:
    """Writes a grey picture as a raw PGM file.

    path   a file's name; an existing file is replaced
    image  (height, width): uint8 as it is; int16 and float32 stretched from the smallest value to the largest

    Raises the error of opening where the file does not open, TypeError and ValueError for other arrays. The header has the
    size on two lines, which read_pgm does not understand.

    >>> import numpy as np, tempfile
    >>> with tempfile.NamedTemporaryFile(suffix=".pgm") as file:
    ...     write_pgm(file.name, np.array([[1, 2]], np.uint8))
    ...     file.read()[-2:]
    b'\\x01\\x02'
    """
    image = _images.samples_of(image, "image", (_images.U8, _I16, _images.F32), (2,))
    _images.check_size(image, "image")
    with open(path, "wb"):
        pass
    write = {_images.U8: raw.write_pgm, _I16: raw.write_pgm_short, _images.F32: raw.write_pgm_float}[image.dtype]
    write(image, image.shape[1], image.shape[0], _name(path))
