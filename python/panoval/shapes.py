# SPDX-License-Identifier: MIT
"""Histograms, thresholds, and the finders of elliptical shapes in 8-bit grey pictures.

For targets that are to be measured as well as the noise allows, see panoval.measure and panoval.refine.
"""

from __future__ import annotations

import ctypes
from ctypes import POINTER, byref, c_double
from typing import Any, List, NamedTuple, Optional, Tuple

import numpy as np

from . import _images, raw
from ._records import EllipseRegion, OvalFit
from .errors import NoEllipseError

__all__ = ["Region", "Oval", "histogram", "threshold", "oval_fit", "find_ellipse", "find_small_ellipse", "SMALL_DTYPE"]

#: One bright feature on a ring: its place in pixels and its size in ring samples.
SMALL_DTYPE = np.dtype([("x", np.float64), ("y", np.float64), ("size", np.float64)])


class Region(NamedTuple):
    """A found shape."""

    x: float  #: centre, pixels
    y: float  #: centre, pixels
    semi_major: float  #: pixels
    semi_minor: float  #: pixels
    angle: float  #: of the major axis, radians
    pixel_count: int  #: interior pixels
    rms: float  #: of the fit, pixels
    contour: np.ndarray  #: (n, 2) int32: x, y of the outline's pixels in tracing order


class Oval(NamedTuple):
    """A fitted ellipse."""

    x: float  #: centre
    y: float  #: centre
    semi_major: float
    semi_minor: float
    angle: float  #: of the major axis, radians
    coefficients: Tuple[float, ...]  #: A to F of A x x + B x y + C y y + D x + E y + F = 0; A is 1
    rms: float  #: root mean square of the residuals
    max_residual: float


def histogram(image: Any) -> np.ndarray:
    """Fractions of the pixels at each of the 256 grey levels.

    image    (height, width) uint8
    returns  (256,) float64, of sum 1

    Raises TypeError and ValueError for other arrays.

    >>> import numpy as np
    >>> float(histogram(np.array([[3, 3], [3, 9]], np.uint8))[3])
    0.75
    """
    image = _images.grey(image)
    bins = np.empty(256, np.float64)
    raw.histogram_count(image, image.shape[1], image.shape[0], byref(bins.ctypes.data_as(POINTER(c_double))))
    return bins


def threshold(image_or_bins: Any) -> Optional[int]:
    """The threshold with the largest variance between the two classes (Otsu 1979).

    image_or_bins  (height, width) uint8, or 256 fractions, float64
    returns        k: levels 0 to k are one class, the rest the other; None where no level separates two

    Raises TypeError and ValueError for other arrays.

    >>> import numpy as np
    >>> threshold(np.array([[10, 10], [200, 200]], np.uint8))
    10
    """
    given = np.asarray(image_or_bins)
    bins = _images.samples_of(given, "bins", (np.dtype(np.float64),), (1,)) if given.ndim == 1 else histogram(given)
    if bins.shape != (256,):
        raise ValueError(f"bins has {bins.size} elements, expected 256")
    level = raw.find_threshold(bins)
    return level if level >= 0 else None


def oval_fit(points: Any) -> Oval:
    """Fits an ellipse to points by iteratively reweighted least squares.

    points   (n, 2) float64: x, y; at least 6, finite
    returns  an Oval, in the points' unit

    Raises NoEllipseError where the fit is no ellipse, TypeError and ValueError for other arrays.

    >>> import numpy as np
    >>> t = np.linspace(0, 6, 30)
    >>> oval = oval_fit(np.stack([50 + 20 * np.cos(t), 40 + 10 * np.sin(t)], axis=1))
    >>> round(oval.x, 6), round(oval.semi_major, 6)
    (50.0, 20.0)
    """
    points = _images.samples_of(points, "points", (np.dtype(np.float64),), (2,))
    if points.shape[1] != 2 or not 6 <= points.shape[0] < 2**31:
        raise ValueError(f"points has the shape {points.shape}, expected (n, 2) with n at least 6")
    if not np.isfinite(points).all():
        raise ValueError("points has elements that are not finite")
    fit = OvalFit()
    if raw.oval_fit(points.shape[0], points, fit) != 1:
        raise NoEllipseError(f"no ellipse fits the {points.shape[0]} points")
    coefficients = (fit.coef_a, fit.coef_b, fit.coef_c, fit.coef_d, fit.coef_e, fit.coef_f)
    return Oval(fit.x0, fit.y0, fit.semi_major, fit.semi_minor, fit.theta, coefficients, fit.rms, fit.max_residual)


def find_ellipse(image: Any, min_pixels: int = 50, max_rms: int = 2, divisions: int = 1) -> List[Region]:
    """Finds dark, closed, roughly elliptical shapes.

    image       (height, width) uint8; below 3 x 3 nothing is found
    min_pixels  outlines of fewer labelled pixels are ignored; at least 0
    max_rms     fits whose rms is not below it are rejected; the library prints a line "rms=..." for each
    divisions   tiles across each dimension for the local threshold, 1 to the smaller side
    returns     the regions in raster order, each with its contour

    Raises TypeError and ValueError for other arguments.

    >>> import numpy as np
    >>> y, x = np.mgrid[:80, :100]
    >>> dark = np.where((x - 50) ** 2 + (y - 40) ** 2 < 400, 20, 220).astype(np.uint8)
    >>> [(round(found.x), round(found.y)) for found in find_ellipse(dark)]
    [(50, 40)]
    """
    image = _images.grey(image)
    height, width = image.shape
    min_pixels = _images.whole_number(min_pixels, "min_pixels", 0)
    max_rms = _images.whole_number(max_rms, "max_rms", 0)
    divisions = _images.whole_number(divisions, "divisions", 1, min(image.shape))
    regions = POINTER(EllipseRegion)()
    count = raw.find_ellipse(image, width, height, byref(regions), min_pixels, max_rms, divisions)
    try:
        return [_region(regions[index], width) for index in range(count)]
    finally:
        raw.free(ctypes.cast(regions, ctypes.c_void_p))


def _region(record: EllipseRegion, width: int) -> Region:
    flat = _images.array_over(record.points, np.int32, (record.point_count,))
    contour = np.stack([flat % width, flat // width], axis=1)
    return Region(record.cx, record.cy, record.major, record.minor, record.angle, record.pixel_count, record.rms, contour)


def find_small_ellipse(image: Any, x: float, y: float, axis_a: float, axis_b: float,
                       angle: float = 0.0) -> Tuple[np.ndarray, np.ndarray]:
    """Finds bright features on a ring of twice an ellipse's size.

    image           (height, width) uint8
    x, y            centre of the ellipse, pixels
    axis_a, axis_b  its full axes in pixels, 0 to 100000; they are the ring's semi-axes
    angle           of axis_a, radians
    returns         features of SMALL_DTYPE along the ring, and a copy of image with the ring painted into it (0 = bright,
                    255 = not)

    Raises TypeError and ValueError for other arguments.

    >>> import numpy as np
    >>> found, painted = find_small_ellipse(np.zeros((50, 50), np.uint8), 25, 25, 10, 10)
    >>> len(found)
    0
    """
    image = np.array(_images.grey(image), order="C")
    ellipse = np.array([_images.number(x, "x", -1e6, 1e6), _images.number(y, "y", -1e6, 1e6),
                        _images.number(axis_a, "axis_a", 0, 1e5), _images.number(axis_b, "axis_b", 0, 1e5),
                        _images.number(angle, "angle")])
    regions = POINTER(EllipseRegion)()
    count = raw.find_small_ellipse(image, image.shape[1], image.shape[0], ellipse, byref(regions))
    try:
        found = [(regions[i].cx, regions[i].cy, regions[i].major) for i in range(count)]
    finally:
        raw.free(ctypes.cast(regions, ctypes.c_void_p))
    return np.array(found, SMALL_DTYPE), image
