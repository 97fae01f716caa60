# SPDX-License-Identifier: MIT
"""Filters of 8-bit grey pictures, edges, distances, and the repair of pictures. Nothing here changes its arguments."""

from __future__ import annotations

import ctypes
from ctypes import POINTER, c_int16
from typing import Any, NamedTuple, Tuple, Union

import numpy as np

from . import _images, raw
from ._records import Matf

__all__ = ["Gradients", "Edges", "smooth", "gradients", "gaussian_kernel", "distance_transform", "canny", "inpaint",
           "to_rgb8"]


class Gradients(NamedTuple):
    """Differences of a picture; arrays of its shape."""

    dx: np.ndarray  #: int16, right minus left neighbour
    dy: np.ndarray  #: int16, lower minus upper neighbour
    magnitude: np.ndarray  #: uint16, the root of dx * dx + dy * dy, truncated


class Edges(NamedTuple):
    """Edges of a picture; arrays of its shape."""

    edges: np.ndarray  #: bool, True on edges
    dx: np.ndarray  #: int16, differences of the smoothed picture to the right, 90 for each grey level
    dy: np.ndarray  #: int16, the same downward


def smooth(image: Any) -> np.ndarray:
    """Smooths with the 5 x 5 Gaussian kernel of sigma 1.

    image    (height, width) uint8
    returns  (height, width) uint8; values are floored, the outermost two rows and columns copied

    Raises TypeError and ValueError for other arrays.

    >>> import numpy as np
    >>> spot = np.zeros((5, 5), np.uint8); spot[2, 2] = 255
    >>> int(smooth(spot)[2, 2])
    41
    """
    image = _images.grey(image)
    result = np.empty_like(image)
    raw.smooth_image(image, image.shape[1], image.shape[0], result)
    return result


def gradients(image: Any) -> Gradients:
    """Differences to both sides and their magnitude.

    image    (height, width) uint8, at least 2 x 2
    returns  dx, dy (int16) and magnitude (uint16, at most 360); differences are not halved

    Raises TypeError and ValueError for other arrays.

    >>> import numpy as np
    >>> ramp = np.tile(np.arange(0, 50, 10, dtype=np.uint8), (4, 1))
    >>> gradients(ramp).dx[0].tolist()
    [10, 20, 20, 20, 10]
    """
    image = _images.grey(image, smallest=2)
    result = Gradients(np.empty(image.shape, np.int16), np.empty(image.shape, np.int16),
                       np.empty(image.shape, np.uint16))
    raw.gradient_image(image, image.shape[1], image.shape[0], *result)
    return result


def gaussian_kernel(size: int, sigma: float) -> np.ndarray:
    """A square Gaussian kernel whose sum is 1.

    size     1 to 10000 elements on each side
    sigma    standard deviation in pixels, above 0
    returns  (size, size) float64

    Raises ValueError for other numbers.

    >>> gaussian_kernel(3, 0.8).shape
    (3, 3)
    """
    size = _images.whole_number(size, "size", 1, 10000)
    if not _images.number(sigma, "sigma") > 0:
        raise ValueError(f"sigma is {sigma!r}, expected a number above 0")
    kernel = np.empty((size, size), np.float64)
    raw.GetGaussianKernel(kernel, size, sigma)
    return kernel


def distance_transform(mask: Any, metrics: Tuple[float, float] = (1.0, 1.4)) -> np.ndarray:
    """Chamfer distance of every pixel to the nearest zero.

    mask     (height, width) uint8 or bool
    metrics  the cost of a straight step and of a diagonal one, above 0 and at most 1000
    returns  (height, width) float32, pixels. The border counts as far away: without any zero distances grow from 8193

    Raises TypeError and ValueError for other arguments, MemoryError without memory.

    >>> import numpy as np
    >>> mask = np.ones((1, 4), np.uint8); mask[0, 0] = 0
    >>> distance_transform(mask)[0].tolist()
    [0.0, 1.0, 2.0, 3.0]
    """
    mask = _images.marks(mask)
    steps = np.array([_images.number(step, "metrics", 1 / 65536, 1000) for step in metrics], np.float32)
    if steps.shape != (2,):
        raise ValueError(f"metrics has {len(steps)} numbers, expected 2")
    scratch = Matf()
    distances = _images.owned_container(Matf, raw.MatfReset, mask.shape)
    result = _images.taken_container(distances, np.float32)
    view = Matf(mask.shape[1], mask.shape[0], 1, _images.address_of(result))
    try:
        raw.distanceTransform_3x3(_images.borrow_mask(mask), scratch, view, steps)
        if not scratch.data:
            raise MemoryError("no memory for the scratch of the distance transform")
    finally:
        raw.free(scratch.data)
    return result


def canny(image: Any, sigma: float = 1.0, low: float = 0.5, high: float = 0.8,
          differences: bool = False) -> Union[np.ndarray, Edges]:
    """Finds edges (Canny 1986).

    image        (height, width) uint8, at least 1 x 1; below 3 x 3 there is no edge
    sigma        standard deviation of the smoothing in pixels, 0 to 1000; at 0 there is no edge
    low          low threshold as a fraction of the high one, 0 to 1
    high         fraction of the candidate pixels that lie below the high threshold, 0 to 1
    differences  True: returns Edges, with the differences of the smoothed picture
    returns      (height, width) bool, True on edges

    Raises TypeError and ValueError for other arguments. The library ends the process where the heap is exhausted.

    >>> import numpy as np
    >>> step = np.zeros((20, 20), np.uint8); step[:, 10:] = 200
    >>> int(canny(step).any(axis=0).argmax())
    10
    """
    image = _images.grey(image)
    sigma = _images.number(sigma, "sigma", 0, 1000)
    low, high = _images.number(low, "low", 0, 1), _images.number(high, "high", 0, 1)
    rows, columns = image.shape
    edge = np.empty_like(image)
    blocks = (POINTER(c_int16)(), POINTER(c_int16)())
    targets = tuple(ctypes.pointer(block) for block in blocks) if differences else (None, None)
    raw.canny(image, rows, columns, edge, sigma, low, high, *targets)
    edges = np.equal(edge, 0)
    if not differences:
        return edges
    arrays = [_images.array_over(ctypes.cast(block, ctypes.c_void_p).value, np.int16, image.shape) for block in blocks]
    return Edges(edges, *arrays)


def inpaint(image: Any, mask: Any, radius: int = 5) -> np.ndarray:
    """Fills marked pixels inward from their edge (Telea 2004).

    image    (height, width, 3) uint8; or (height, width), which is filled as three equal channels
    mask     (height, width) uint8 or bool: not 0 = to be filled; grows by a pixel on every side
    radius   of the neighbourhood in pixels, 1 to 100
    returns  a new array of image's shape, over a block of the library's

    Raises TypeError and ValueError for other arguments, MemoryError without memory. Marks that touch the picture's border
    are not filled, nor are row 0 and column 0.

    >>> import numpy as np
    >>> flat = np.full((20, 20, 3), 90, np.uint8); flat[8:11, 8:11] = 0
    >>> marked = np.zeros((20, 20), bool); marked[8:11, 8:11] = True
    >>> int(inpaint(flat, marked).min()) >= 89
    True
    """
    image = _images.picture(image, "image", (_images.U8,))
    if image.ndim == 3 and image.shape[2] != 3:
        raise ValueError(f"image has {image.shape[2]} channels, expected 3, or a grey one of two dimensions")
    mask = _images.as_large_as(_images.marks(mask), image, "mask")
    radius = _images.whole_number(radius, "radius", 1, 100)
    is_grey = image.ndim == 2
    colour = np.repeat(image[:, :, np.newaxis], 3, axis=2) if is_grey else image
    _images.check_size(colour, "image")
    record, marks = _images.owned_copy(colour), None
    try:
        marks = _images.owned_copy(mask)
        raw.inpaint(record, marks, radius)
    finally:
        result = _images.taken(record, False)
        if marks is not None:
            raw.MatDestroy(marks)
    return np.ascontiguousarray(result[:, :, 0]) if is_grey else result


def to_rgb8(image: Any) -> np.ndarray:
    """Three channels of 8 bit, as screens want them.

    image    (height, width), or (height, width, 1 or 3), uint8 or uint16; of 16 bits the high byte is taken
    returns  (height, width, 3) uint8

    Raises TypeError and ValueError for other arrays.

    >>> import numpy as np
    >>> to_rgb8(np.full((1, 1), 0x1234, np.uint16)).tolist()
    [[[18, 18, 18]]]
    """
    image = _images.picture(image, "image")
    if _images.channels_of(image) not in (1, 3):
        raise ValueError(f"image has {image.shape[2]} channels, expected 1 or 3")
    result = np.empty(image.shape[:2] + (3,), np.uint8)
    raw.MatToImage(_images.borrow(image), result)
    return result
