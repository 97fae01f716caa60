# SPDX-License-Identifier: MIT
"""Pictures of a mosaic, and how their rows get into the engine's buffers.

A picture is anything that is sliced by rows and has a shape and a dtype (an array, numpy.memmap, a zarr array, a tifffile
page's memmap), or a callable (first_row, row_count) -> rows together with a shape and a dtype.
"""

from __future__ import annotations

import os
from typing import Any, Callable, NamedTuple, Optional, Tuple

import numpy as np

from . import _images
from ._records import PanovalMosaicRows

Reader = Callable[[int, int], Any]
_NATIVE = (_images.U8, _images.U16)


class Picture(NamedTuple):
    """A picture as the engine asks for it."""

    name: str
    x: int
    y: int
    shape: Tuple[int, ...]  #: (height, width) or (height, width, channels)
    dtype: np.dtype
    read: Reader
    read_mask: Optional[Reader]
    read_keep: Optional[Reader]
    random_access: bool
    release: Optional[Callable[[], None]]

    @property
    def channels(self) -> int:
        return 1 if len(self.shape) == 2 else self.shape[2]


def _slicer(source: Any) -> Reader:
    return lambda first, count: source[first:first + count]


def _shape_of(source: Any, name: str, shape: Any, dtype: Any) -> Tuple[Tuple[int, ...], np.dtype]:
    if shape is None:
        shape = getattr(source, "shape", None)
    if dtype is None:
        dtype = getattr(source, "dtype", None)
    if shape is None or dtype is None:
        raise TypeError(f"{name} has no shape and dtype of its own: give shape=(height, width[, channels]) and dtype=")
    shape = tuple(_images.whole_number(size, f"the shape of {name}", 1) for size in shape)
    dtype = np.dtype(dtype)
    if dtype.newbyteorder("=") not in _NATIVE:
        raise TypeError(f"{name} has samples of {dtype}, expected uint8 or uint16")
    if len(shape) not in (2, 3):
        raise ValueError(f"{name} has the shape {shape}, expected (height, width) or (height, width, channels)")
    if len(shape) == 3 and shape[2] not in (1, 3, 4):
        raise ValueError(f"{name} has the shape {shape}, expected (height, width, channels) with 1, 3 or 4 channels")
    return shape, dtype.newbyteorder("=")


def _mask_reader(mask: Any, shape: Tuple[int, ...], name: str) -> Optional[Reader]:
    if mask is None:
        return None
    if callable(mask) and not hasattr(mask, "__getitem__"):
        return mask
    if tuple(np.shape(mask)) != shape[:2]:
        raise ValueError(f"the mask of {name} has the shape {tuple(np.shape(mask))}, expected {shape[:2]}")
    kind = getattr(mask, "dtype", None)
    if kind is not None and kind not in (np.bool_, np.uint8):
        raise TypeError(f"the mask of {name} has elements of {kind}, expected uint8 or bool")
    return _slicer(mask)


def picture_of(source: Any, position: Any, mask: Any, keep: Any, name: str, shape: Any, dtype: Any, random_access: bool,
               release: Optional[Callable[[], None]]) -> Picture:
    """Checks what was said about a picture; reads no pixels."""
    if isinstance(source, np.ma.MaskedArray):
        raise TypeError(f"{name} is a masked array; give its data, and its mask as mask=")
    if isinstance(source, (str, bytes, os.PathLike)):
        raise TypeError(f"{name} is the name {source!r}, expected an array or something sliced by rows; "
                        "panoval.tasks.open_file and other packages read files")
    if isinstance(source, (list, tuple)) or (hasattr(source, "__array_interface__") and not hasattr(source, "dtype")):
        source = np.asarray(source)  # of Pillow's images, too
    shape, dtype = _shape_of(source, name, shape, dtype)
    if hasattr(source, "__getitem__"):
        reader = _slicer(source)
    elif callable(source):
        reader = source
    else:
        raise TypeError(f"{name} is a {type(source).__name__}, expected something sliced by rows or a callable")
    x, y = _images.position(position, f"the position of {name}", 2**40)
    return Picture(name, x, y, shape, dtype, reader, _mask_reader(mask, shape, name), _mask_reader(keep, shape, name),
                   bool(random_access), release)


def window(address: int, shape: Tuple[int, ...], dtype: np.dtype, stride: int) -> np.ndarray:
    """An array over the engine's memory, rows `stride` bytes apart; valid during a callback only."""
    interface = {"data": (address, False), "typestr": dtype.str, "shape": shape, "version": 3,
                 "strides": (stride,) + _inner_strides(shape, dtype)}
    return np.asarray(_Window(interface))


class _Window:
    __slots__ = ("__array_interface__",)

    def __init__(self, interface: dict) -> None:
        self.__array_interface__ = interface


def _inner_strides(shape: Tuple[int, ...], dtype: np.dtype) -> Tuple[int, ...]:
    if len(shape) == 2:
        return (dtype.itemsize,)
    return (shape[2] * dtype.itemsize, dtype.itemsize)


def _checked(rows: Any, shape: Tuple[int, ...], what: str) -> np.ndarray:
    rows = np.asarray(rows)
    if rows.shape != shape:
        raise ValueError(f"{what} came with the shape {rows.shape}, expected {shape}")
    return rows


def give_rows(picture: Picture, rows: PanovalMosaicRows) -> None:
    """Fills the engine's buffers."""
    first, count = rows.first_row, rows.row_count
    what = f"rows {first} to {first + count - 1} of {picture.name}"
    shape = (count,) + picture.shape[1:]
    samples = _checked(picture.read(first, count), shape, what)
    if samples.dtype.newbyteorder("=") != picture.dtype:
        raise TypeError(f"{what} came as {samples.dtype}, expected {picture.dtype}")
    window(rows.samples, shape, picture.dtype, rows.samples_stride)[...] = samples
    for address, stride, reader in ((rows.mask, rows.mask_stride, picture.read_mask),
                                    (rows.keep, rows.keep_stride, picture.read_keep)):
        if address and reader is not None:
            covered = _checked(reader(first, count), shape[:2], f"the mask for {what}")
            if covered.dtype not in (np.bool_, np.uint8):
                raise TypeError(f"the mask for {what} came as {covered.dtype}, expected uint8 or bool")
            target = window(address, shape[:2], _images.U8, stride)
            np.multiply(covered, 255 if covered.dtype == np.bool_ else 1, out=target, casting="unsafe")
