# SPDX-License-Identifier: MIT
"""libpanoval's own blenders and gains, for pictures that fit in memory whole. `stitch` does more: seams, robust gains, a
verdict, any size.

Everywhere: `pictures` is a sequence of (height, width) or (height, width, channels) arrays, uint8 or uint16, all of the same
type and channels; `positions` has each one's top-left corner as whole numbers x, y, pixels, in a frame of its own; `masks` is
None, or has an (height, width) array of uint8 or bool, or None, for each: 0 = not covered, 255 or True = covered; `multiband`
takes values between as weights.
"""

from __future__ import annotations

import ctypes
from typing import Any, List, NamedTuple, Optional, Sequence, Tuple

import numpy as np

from . import _images, raw
from ._records import FeatherBlender, GainCompensator, Mat, Matb, MultiBandBlender, Point, Roi, Size

__all__ = ["Placed", "Blended", "overlap", "crop", "crop_mask", "common_mask", "gain_factors", "apply_gain", "feather",
           "multiband"]

Rect = Tuple[int, int, int, int]


class Placed(NamedTuple):
    """Checked pictures with their places and masks."""

    pictures: List[np.ndarray]
    positions: List[Tuple[int, int]]
    masks: List[np.ndarray]

    def canvas(self) -> Rect:
        """The smallest rectangle around all pictures: x, y, width, height."""
        left = min(x for x, _ in self.positions)
        top = min(y for _, y in self.positions)
        right = max(x + image.shape[1] for image, (x, _) in zip(self.pictures, self.positions))
        bottom = max(y + image.shape[0] for image, (_, y) in zip(self.pictures, self.positions))
        return left, top, right - left, bottom - top


class Blended(NamedTuple):
    """A panorama and where it lies in the pictures' frame."""

    image: np.ndarray  #: (height, width) or (height, width, channels), over a block of the library's
    origin: Tuple[int, int]  #: x, y of its top-left corner


def placed(pictures: Sequence[Any], positions: Sequence[Any], masks: Optional[Sequence[Any]]) -> Placed:
    """Checks pictures, positions and masks together."""
    count = len(pictures)
    if count < 1:
        raise ValueError("pictures is empty, expected at least one")
    if len(positions) != count:
        raise ValueError(f"positions has {len(positions)} elements, expected {count} as pictures")
    if masks is not None and len(masks) != count:
        raise ValueError(f"masks has {len(masks)} elements, expected {count} as pictures")
    images = [_images.picture(image, f"pictures[{i}]") for i, image in enumerate(pictures)]
    for i, image in enumerate(images):
        if image.dtype != images[0].dtype or image.shape[2:] != images[0].shape[2:]:
            raise ValueError(f"pictures[{i}] has {_images.channels_of(image)} channels of {image.dtype}, expected "
                             f"{_images.channels_of(images[0])} of {images[0].dtype} as pictures[0]")
    places = [_images.position(place, f"positions[{i}]") for i, place in enumerate(positions)]
    covers = [_images.mask_for(masks[i] if masks is not None else None, image, f"masks[{i}]")
              for i, image in enumerate(images)]
    return Placed(images, places, covers)


def overlap(position_a: Any, shape_a: Any, position_b: Any, shape_b: Any) -> Optional[Rect]:
    """The rectangle that two placed pictures share.

    position_a, position_b  x, y of their top-left corners
    shape_a, shape_b        their shapes: height, width, any more is ignored
    returns                 x, y, width, height; None where they share no pixel

    >>> overlap((0, 0), (10, 20), (15, 4), (10, 20))
    (15, 4, 5, 6)
    """
    first, second = (Point(*_images.position(p, n)) for p, n in ((position_a, "position_a"), (position_b, "position_b")))
    roi = Roi()
    if raw.overlapRoi(first, second, _size(shape_a, "shape_a"), _size(shape_b, "shape_b"), roi):
        return roi.x, roi.y, roi.width, roi.height
    return None


def _size(shape: Any, name: str) -> Size:
    height, width = tuple(shape)[:2]
    return Size(_images.whole_number(width, name, 0, 2**30), _images.whole_number(height, name, 0, 2**30))


def _roi(rect: Any, bytes_per_pixel: int) -> Roi:
    x, y, width, height = (_images.whole_number(value, "rect", -2**30, 2**30) for value in rect)
    if width < 1 or height < 1 or width * height * bytes_per_pixel > 2**31 - 1:
        raise ValueError(f"rect has {width} x {height} pixels, expected at least one, and at most 2 GiB of samples")
    return Roi(x, y, width, height)


def crop(image: Any, rect: Any) -> np.ndarray:
    """Cuts a rectangle out of a picture; what lies outside the picture is 0.

    image    (height, width[, channels]) uint8 or uint16
    rect     x, y, width, height in the picture's coordinates
    returns  a new array over a block of the library's

    >>> import numpy as np
    >>> crop(np.full((2, 2), 7, np.uint8), (1, 1, 2, 1)).tolist()
    [[7, 0]]
    """
    image = _images.picture(image, "image")
    roi = _roi(rect, _images.channels_of(image) * image.itemsize)
    result = Mat()
    raw.get_sub_image(_images.borrow(image), roi, result)
    return _owned(result, image.ndim == 2)


def _owned(record: Mat, is_grey: bool) -> np.ndarray:
    if not record.data:
        raise MemoryError("the library had no memory for its result")
    return _images.taken(record, is_grey)


def crop_mask(mask: Any, rect: Any) -> np.ndarray:
    """The same for a mask: (height, width) uint8 or bool; values are kept.

    >>> import numpy as np
    >>> crop_mask(np.full((2, 2), 3, np.uint8), (-1, 0, 2, 2)).tolist()
    [[0, 3], [0, 3]]
    """
    mask = _images.marks(mask)
    result = Matb()
    raw.get_sub_mask(_images.borrow_mask(mask), _roi(rect, 1), result)
    return _images.taken_container(result, np.uint8)


def common_mask(mask_a: Any, mask_b: Any) -> Tuple[np.ndarray, int]:
    """Marks the pixels that two masks of one shape cover both.

    returns  (height, width) uint8, 255 where both do; and how many these are

    >>> import numpy as np
    >>> common_mask(np.array([[1, 0]], np.uint8), np.array([[9, 9]], np.uint8))[1]
    1
    """
    mask_a, mask_b = _images.marks(mask_a, "mask_a"), _images.marks(mask_b, "mask_b")
    if mask_a.shape != mask_b.shape:
        raise ValueError(f"mask_b has the shape {mask_b.shape}, expected {mask_a.shape} as mask_a")
    result = Matb()
    count = raw.get_mask_intersect(_images.borrow_mask(mask_a), _images.borrow_mask(mask_b), result)
    return _images.taken_container(result, np.uint8), count


def gain_factors(pictures: Sequence[Any], positions: Sequence[Any], masks: Optional[Sequence[Any]] = None) -> np.ndarray:
    """One factor for each picture, so that overlapping ones agree in brightness; the library's own, damped ones.

    returns  (n,) float64

    Raises TypeError and ValueError for other arguments, MemoryError without memory.

    >>> import numpy as np
    >>> dark, bright = np.full((20, 40), 80, np.uint8), np.full((20, 40), 100, np.uint8)
    >>> gains = gain_factors([dark, bright], [(0, 0), (20, 0)])
    >>> bool(gains[0] > 1 > gains[1])
    True
    """
    given = placed(pictures, positions, masks)
    count = len(given.pictures)
    compensator = GainCompensator()
    raw.gain_compensator_init_start(compensator, count)
    images = [_images.borrow(image) for image in given.pictures]
    covers = [_images.borrow_mask(mask) for mask in given.masks]
    corners = [Point(*place) for place in given.positions]
    for i in range(count):
        for j in range(i, count):
            raw.gain_compensator_init_step(compensator, i, j, corners[i], images[i], covers[i], corners[j], images[j],
                                           covers[j])
    raw.gain_compensator_init_end(compensator)
    if not compensator.gains.data:
        raise MemoryError(f"no memory for the gains of {count} pictures")
    return _images.array_over(compensator.gains.data, np.float64, (count,))


def apply_gain(image: Any, gain: float) -> np.ndarray:
    """A copy of a picture, multiplied: floor(v * gain + 0.5), clamped to the samples' range.

    image    (height, width[, channels]) uint8 or uint16
    gain     0 to 1e6
    returns  a new array over a block of the library's

    >>> import numpy as np
    >>> apply_gain(np.array([[100, 200]], np.uint8), 1.5).tolist()
    [[150, 255]]
    """
    image = _images.picture(image, "image")
    factor = np.array([_images.number(gain, "gain", 0, 1e6)])
    record = _images.owned_copy(image)
    compensator = GainCompensator()
    compensator.gains.width, compensator.gains.height, compensator.gains.channels = 1, 1, 1
    compensator.gains.data = _images.address_of(factor)
    raw.gain_compensator_apply(compensator, 0, record)
    return _images.taken(record, image.ndim == 2)


def _canvas(given: Placed) -> Roi:
    x, y, width, height = given.canvas()
    channels = _images.channels_of(given.pictures[0])
    if width * height * channels * 4 > 2**31 - 1:
        raise ValueError(f"the panorama has {width} x {height} pixels, too many for this blender; see stitch")
    return Roi(x, y, width, height)


def feather(pictures: Sequence[Any], positions: Sequence[Any], masks: Optional[Sequence[Any]] = None) -> Blended:
    """The weighted mean of all pictures at each pixel; weights grow from each mask's edge inward.

    returns  the panorama around all pictures; 0 where none is

    Raises TypeError and ValueError for other arguments, MemoryError without memory.

    >>> import numpy as np
    >>> left, right = np.full((4, 6), 10, np.uint8), np.full((4, 6), 30, np.uint8)
    >>> feather([left, right], [(0, 0), (4, 0)]).image[0].tolist()
    [10, 10, 10, 10, 20, 20, 30, 30, 30, 30]
    """
    given = placed(pictures, positions, masks)
    canvas, blender, result = _canvas(given), FeatherBlender(), Mat()
    first = given.pictures[0]
    raw.feather_blender_prepare(blender, _images.channels_of(first), canvas)
    for image, mask, place in zip(*_borrowed(given)):
        raw.feather_blender_feed(blender, image, mask, place)
    raw.feather_blender_blend(blender, result, first.itemsize)
    return Blended(_owned(result, first.ndim == 2), (canvas.x, canvas.y))


def _borrowed(given: Placed) -> Tuple[List[Mat], List[Matb], List[Point]]:
    return ([_images.borrow(image) for image in given.pictures], [_images.borrow_mask(mask) for mask in given.masks],
            [Point(*place) for place in given.positions])


def multiband(pictures: Sequence[Any], positions: Sequence[Any], masks: Optional[Sequence[Any]] = None,
              bands: int = 5) -> Blended:
    """Blends each band of spatial frequencies by itself: wide transitions for low ones, narrow ones for high ones.

    bands    at most so many, 1 to 30
    returns  the panorama around all pictures

    Raises TypeError and ValueError for other arguments, MemoryError without memory.

    >>> import numpy as np
    >>> both = multiband([np.full((8, 8), 50, np.uint8)] * 2, [(-4, 0), (0, 0)])
    >>> both.image.shape, both.origin
    ((8, 12), (-4, 0))
    """
    given = placed(pictures, positions, masks)
    bands = _images.whole_number(bands, "bands", 1, 30)
    canvas, blender, result = _canvas(given), MultiBandBlender(), Mat()
    origin, first = (canvas.x, canvas.y), given.pictures[0]
    raw.multi_band_blender_setbands(blender, bands)
    raw.multi_band_blender_prepare(blender, _images.channels_of(first), ctypes.byref(canvas))
    for image, mask, place in zip(*_borrowed(given)):
        raw.multi_band_blender_feed(blender, image, mask, place)
    raw.multi_band_blender_blend(blender, result, first.itemsize)
    return Blended(_owned(result, first.ndim == 2), origin)
