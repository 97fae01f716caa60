# SPDX-License-Identifier: MIT
"""Arrays and the libraries' records: borrowed on the way in, owned on the way out.

In: a C-contiguous array is used where it lies, for the time of the call. One with other strides is copied once. Another
type of samples, number of dimensions or byte order is refused, and the message names the argument. A masked array is
refused as well, for its mask would be lost.

Out: a block that the library allocated becomes the memory of an array. The last view that goes gives it back to the C
run-time library that it came from.
"""

from __future__ import annotations

import ctypes
from typing import Any, Callable, Optional, Sequence, Tuple, Type

import numpy as np

from . import raw
from ._arguments import address_of
from ._records import Mat, Matb

U8: np.dtype = np.dtype(np.uint8)
U16: np.dtype = np.dtype(np.uint16)
F32: np.dtype = np.dtype(np.float32)
_LARGEST = 2**31 - 1


class BorrowedMat(Mat):
    """A Mat over an array's memory; never an output."""

    is_borrowed = True


class BorrowedMatb(Matb):
    """A Matb over an array's memory; never an output."""

    is_borrowed = True


class Block:
    """A block of the C heap, freed when the last array over it goes."""

    __slots__ = ("__array_interface__", "_address", "_free", "__weakref__")

    def __init__(self, address: int, dtype: np.dtype, shape: Tuple[int, ...],
                 free: Callable[[int], None] = raw.free) -> None:
        self._address, self._free = address, free
        self.__array_interface__ = {"data": (address, False), "typestr": dtype.str, "shape": shape, "version": 3,
                                    "descr": dtype.descr}

    def __del__(self) -> None:
        address, self._address = self._address, 0
        if address:
            self._free(address)


def array_over(address: Optional[int], dtype: Any, shape: Tuple[int, ...]) -> np.ndarray:
    """An array over a block that the library allocated, and that is now the array's."""
    if not address:
        if all(shape):
            raise MemoryError(f"the library had no memory for an array of the shape {shape}")
        return np.empty(shape, dtype)
    return np.asarray(Block(address, np.dtype(dtype), shape))


def samples_of(array: Any, name: str, dtypes: Sequence[np.dtype], dimensions: Sequence[int]) -> np.ndarray:
    """A C-contiguous array of one of the types: the same one where possible, else one copy."""
    if isinstance(array, np.ma.MaskedArray):
        raise TypeError(f"{name} is a masked array; give its data, and its mask where masks go")
    array = np.asarray(array)
    if array.dtype not in dtypes:
        expected = " or ".join(str(dtype) for dtype in dtypes)
        raise TypeError(f"{name} has samples of {array.dtype}, expected {expected}")
    if array.ndim not in dimensions:
        expected = " or ".join(str(count) for count in dimensions)
        raise ValueError(f"{name} has the shape {array.shape}, expected {expected} dimensions")
    if not array.flags.c_contiguous:
        array = np.ascontiguousarray(array)
    return array


def grey(image: Any, name: str = "image", smallest: int = 1) -> np.ndarray:
    """An 8-bit grey image, as the filters want it."""
    image = samples_of(image, name, (U8,), (2,))
    check_size(image, name, smallest)
    return image


def check_size(image: np.ndarray, name: str, smallest: int = 1) -> None:
    """Refuses what 32-bit sizes cannot hold, and what is too small."""
    if image.ndim > 1 and min(image.shape[:2]) < smallest:
        raise ValueError(f"{name} has {image.shape[1]} x {image.shape[0]} pixels, expected at least "
                         f"{smallest} x {smallest}")
    if image.nbytes > _LARGEST:
        raise ValueError(f"{name} has {image.nbytes} bytes, expected at most {_LARGEST}; see Mosaic for larger ones")


def picture(image: Any, name: str, dtypes: Sequence[np.dtype] = (U8, U16)) -> np.ndarray:
    """A picture of one or more channels."""
    image = samples_of(image, name, dtypes, (2, 3))
    if image.ndim == 3 and image.shape[2] < 1:
        raise ValueError(f"{name} has the shape {image.shape}, expected at least one channel")
    check_size(image, name)
    return image


def marks(mask: Any, name: str = "mask") -> np.ndarray:
    """A mask of which only zero or not counts; bool is read where it lies."""
    if isinstance(mask, np.ndarray) and mask.dtype == np.bool_ and not isinstance(mask, np.ma.MaskedArray):
        mask = mask.view(np.uint8)
    return grey(mask, name)


def mask_for(mask: Any, image: np.ndarray, name: str) -> np.ndarray:
    """A mask of the picture's size whose values may count as weights: None covers everything, True is 255."""
    if mask is None:
        return np.full(image.shape[:2], 255, np.uint8)
    if isinstance(mask, np.ndarray) and mask.dtype == np.bool_ and not isinstance(mask, np.ma.MaskedArray):
        mask = mask * np.uint8(255)
    return as_large_as(samples_of(mask, name, (U8,), (2,)), image, name)


def as_large_as(mask: np.ndarray, image: np.ndarray, name: str) -> np.ndarray:
    """Refuses a mask of another size than its picture's."""
    if mask.shape != image.shape[:2]:
        raise ValueError(f"{name} has the shape {mask.shape}, expected {image.shape[:2]} as its picture")
    return mask


def channels_of(image: np.ndarray) -> int:
    return 1 if image.ndim == 2 else image.shape[2]


def borrow(image: np.ndarray) -> BorrowedMat:
    """A record over the array's own memory. It keeps the array alive."""
    record = BorrowedMat(image.shape[1], image.shape[0], channels_of(image), image.itemsize, image.nbytes, image.nbytes,
                         address_of(image))
    record.array = image
    return record


def borrow_mask(mask: np.ndarray) -> BorrowedMatb:
    """The same for a mask."""
    record = BorrowedMatb(mask.shape[1], mask.shape[0], 1, address_of(mask))
    record.array = mask
    return record


def owned_copy(image: np.ndarray) -> Mat:
    """A record with a block of the library's, filled with the array's samples: for routines that work in place."""
    record = Mat()
    raw.MatReset(record, image.shape[1], image.shape[0], channels_of(image), image.itemsize)
    if not record.data:
        raise MemoryError(f"no memory for a picture of {image.nbytes} bytes")
    ctypes.memmove(record.data, address_of(image), image.nbytes)
    return record


def taken(record: Mat, is_grey: bool) -> np.ndarray:
    """The array over what a record owns; the record is empty afterwards."""
    dtype = U8 if record.elemSize == 1 else U16
    shape = (record.height, record.width) if is_grey else (record.height, record.width, record.channels)
    array = array_over(record.data, dtype, shape)
    raw.MatInit(record)
    return array


def taken_container(record: ctypes.Structure, dtype: Any) -> np.ndarray:
    """The same for a typed container of one channel."""
    array = array_over(record.data, dtype, (record.height, record.width))
    record.data = None
    return array


def owned_container(kind: Type[ctypes.Structure], reset: Callable[..., None], shape: Tuple[int, int]) -> Any:
    """A typed container of one channel with a zeroed block of the library's."""
    record = kind()
    reset(record, shape[1], shape[0], 1)
    if not record.data and shape[0] * shape[1] > 0:
        raise MemoryError(f"no memory for {shape[1]} x {shape[0]} elements")
    return record


def whole_number(value: Any, name: str, least: int = -2**31, most: int = _LARGEST) -> int:
    """An integer within bounds; 3.0 is one, 3.5 and True are none."""
    if isinstance(value, (bool, np.bool_)) or not isinstance(value, (int, float, np.integer, np.floating)) \
            or value != value or value in (float("inf"), float("-inf")) or int(value) != value:
        raise TypeError(f"{name} is {value!r}, expected a whole number")
    if not least <= value <= most:
        raise ValueError(f"{name} is {value}, expected {least} to {most}")
    return int(value)


def position(value: Any, name: str, most: int = 2**30) -> Tuple[int, int]:
    """A pair of whole numbers x, y."""
    try:
        x, y = value
    except (TypeError, ValueError):
        raise TypeError(f"{name} is {value!r}, expected a pair x, y") from None
    return whole_number(x, f"{name}[0]", -most, most), whole_number(y, f"{name}[1]", -most, most)


def number(value: Any, name: str, least: float = float("-inf"), most: float = float("inf")) -> float:
    """A finite number within bounds."""
    result = float(value)
    if not np.isfinite(result) or not least <= result <= most:
        raise ValueError(f"{name} is {value!r}, expected a number from {least} to {most}")
    return result
