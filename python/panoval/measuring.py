# SPDX-License-Identifier: MIT
"""Round targets in grey pictures, measured as well as the noise allows, each with its covariance.

x grows to the right, y downward; a pixel's centre has whole coordinates; angles are in radians, from +x towards +y.
"""

from __future__ import annotations

import ctypes
from typing import Any, Dict, List, NamedTuple, Optional, Tuple

import numpy as np

from . import _images, raw
from ._records import (PanovalMeasureCirclePose, PanovalMeasureDetection, PanovalMeasureDetectOptions,
                       PanovalMeasureEllipse, PanovalMeasureGrid, PanovalMeasureGridCell, PanovalMeasureImage,
                       PanovalMeasurePoint, PanovalMeasureTarget)
from .errors import MeasureError

__all__ = ["TARGET_DTYPE", "CELL_DTYPE", "FLAGS", "Counts", "CirclePose", "Centre", "Grid", "measure", "refine",
           "measure_counts", "to_pandas", "error_text", "centre_by_homography", "centre_by_focal_length",
           "centre_by_rings", "grid"]

_ELLIPSE = ("x", "y", "semi_major", "semi_minor", "angle")
_KINDS: Dict[Any, np.dtype] = {ctypes.c_double: np.dtype(np.float64), ctypes.c_int32: np.dtype(np.int32)}
_SCALARS: List[Any] = [(name, _KINDS[kind]) for name, kind in PanovalMeasureTarget._fields_[2:]]  # type: ignore[misc]

#: One target: the outline, its covariance in the order (x, y, semi_major, semi_minor, angle), and all that goes with it;
#: units and meaning of each field as in include/panoval_measure.h.
TARGET_DTYPE = np.dtype([(name, np.float64) for name in _ELLIPSE] + [("covariance", np.float64, (5, 5))] + _SCALARS)

#: One place of a board: the number of the target there, or -1; see panoval_measure.h.
CELL_DTYPE = np.dtype([(name, _KINDS[kind]) for name, kind in PanovalMeasureGridCell._fields_])  # type: ignore[misc]

#: What a target's flags may say.
FLAGS = {"border": 1, "neighbour": 2, "saturated": 4, "blurred": 8, "not_converged": 16, "round": 32, "ring": 64}

_POLARITIES = {"both": 0, "dark": 1, "bright": 2}
_SAMPLE_TYPES = {_images.U8: 1, _images.U16: 2, _images.F32: 3}


class Counts(NamedTuple):
    """What a detection looked at, and why it did not take more."""

    candidates: int  #: closed outlines that were looked at
    too_small: int
    too_large: int
    too_faint: int
    not_oval: int
    other_polarity: int
    below_quality: int


class Centre(NamedTuple):
    """The image of a circle's centre, pixels."""

    x: float
    y: float
    covariance: np.ndarray  #: (2, 2), pixels squared; 0 without a covariance of the ellipse


class CirclePose(NamedTuple):
    """One of the two ways in which a circle may lie in space to give the same outline."""

    centre: Centre
    normal: Tuple[float, float, float]  #: of its plane, towards the camera (z < 0)
    distance: float  #: from the camera to the circle's centre, in radii of the circle


class Grid(NamedTuple):
    """A board."""

    homography: np.ndarray  #: (3, 3), maps (column, row, 1) to the picture
    cells: np.ndarray  #: (rows, columns) of CELL_DTYPE
    rms: float  #: of the residuals, pixels
    max_residual: float  #: pixels
    found: int
    missing: int
    extra: int


def error_text(code: int) -> str:
    """The library's sentence for a code of its own.

    >>> error_text(12)
    'not enough memory'
    """
    return raw.panoval_measure_error_text(_images.whole_number(code, "code")).decode()


def _image_record(image: Any) -> PanovalMeasureImage:
    if isinstance(image, np.ma.MaskedArray):
        raise TypeError("image is a masked array; give its data")
    image = np.asarray(image)
    if image.dtype not in _SAMPLE_TYPES:
        raise TypeError(f"image has samples of {image.dtype}, expected uint8, uint16 or float32")
    if image.ndim != 2 or 0 in image.shape or max(image.shape) > 2**31 - 1:
        raise ValueError(f"image has the shape {image.shape}, expected (height, width), each at least 1")
    width_bytes = image.shape[1] * image.itemsize
    # Rows may lie apart, as those of a part of a larger picture do.
    if (image.shape[1] > 1 and image.strides[1] != image.itemsize) or (
            image.shape[0] > 1 and image.strides[0] < width_bytes):
        image = np.ascontiguousarray(image)
    stride = image.strides[0] if image.shape[0] > 1 else width_bytes
    record = PanovalMeasureImage(_images.address_of(image), image.shape[1], image.shape[0], stride,
                                 _SAMPLE_TYPES[image.dtype])
    record.array = image
    return record


def _check(code: int, index: Optional[int] = None, targets: Optional[np.ndarray] = None, what: str = "") -> None:
    if code == 12:
        raise MemoryError(error_text(code))
    if code:
        raise MeasureError(what + error_text(code), code, index, targets)


def _taken(detection: PanovalMeasureDetection) -> np.ndarray:
    """The records of a detection as an array, given back through the library's own routine when its last view goes."""
    def give_back(_address: int, routine=raw.panoval_measure_free) -> None:
        routine(detection)

    address = ctypes.cast(detection.targets, ctypes.c_void_p).value or 0
    return np.asarray(_images.Block(address, TARGET_DTYPE, (detection.count,), give_back))


def measure_counts(image: Any, polarity: str = "both", max_count: int = 0, min_radius: float = 0.0,
                   max_radius: float = 0.0, min_aspect: float = 0.0, min_quality: float = 0.0) -> Tuple[np.ndarray, Counts]:
    """As `measure`, and says what was looked at and why it was not taken.

    >>> import numpy as np
    >>> targets, counts = measure_counts(np.zeros((30, 40), np.uint8))
    >>> len(targets), counts.candidates
    (0, 0)
    """
    record = _image_record(image)
    if polarity not in _POLARITIES:
        raise ValueError(f"polarity is {polarity!r}, expected 'both', 'dark' or 'bright'")
    options = PanovalMeasureDetectOptions(_POLARITIES[polarity], _images.whole_number(max_count, "max_count", 0),
                                          float(min_radius), float(max_radius), float(min_aspect), float(min_quality))
    detection = PanovalMeasureDetection()
    _check(raw.panoval_measure_detect(record, options, detection))
    counts = Counts(*(getattr(detection, name) for name in Counts._fields))
    if not detection.count:
        raw.panoval_measure_free(detection)
        return np.empty(0, TARGET_DTYPE), counts
    return _taken(detection), counts


def measure(image: Any, polarity: str = "both", max_count: int = 0, min_radius: float = 0.0, max_radius: float = 0.0,
            min_aspect: float = 0.0, min_quality: float = 0.0) -> np.ndarray:
    """Finds and measures every round target of a picture.

    image        (height, width) uint8, uint16 or float32. Rows may lie apart: a part of a larger picture is not copied
    polarity     'dark' or 'bright' targets, or 'both'
    max_count    at most so many, those of the best quality; 0: all
    min_radius   smallest semi-minor axis, pixels; 0: 2.5
    max_radius   largest semi-major axis, pixels; 0: a third of the longer side
    min_aspect   smallest quotient of the axes, 0 to 1; 0: 0.3
    min_quality  0 to 1; 0: 0.5; negative: every record
    returns      an array of TARGET_DTYPE, from the top downward, over a block of the library's

    Raises MeasureError with the library's text for options out of range, TypeError and ValueError for other arrays,
    MemoryError without memory.

    >>> import numpy as np
    >>> y, x = np.mgrid[:60, :80]
    >>> disc = np.clip(10 + 0.5 - np.hypot(x - 40.3, y - 30.1), 0, 1)
    >>> noise = np.random.default_rng(1).normal(0, 1, disc.shape)
    >>> targets = measure(np.round(200 - 150 * disc + noise).astype(np.uint8))
    >>> len(targets), round(float(targets["x"][0]), 1), round(float(targets["semi_major"][0]), 1)
    (1, 40.3, 10.0)
    """
    return measure_counts(image, polarity, max_count, min_radius, max_radius, min_aspect, min_quality)[0]


def refine(image: Any, starts: Any, errors: str = "raise") -> np.ndarray:
    """Measures targets whose places are known to 2 pixels or a fifth of the radius.

    image    as for `measure`
    starts   (n, 5) float64: x, y, semi_major, semi_minor, angle, pixels and radians; or targets of an earlier measurement
    errors   'raise', or 'keep': a target that could not be measured keeps its code, and its numbers are 0
    returns  an array of TARGET_DTYPE; element i belongs to start i

    Raises MeasureError with the library's text, the target's index and all targets; TypeError and ValueError for other
    arrays, MemoryError without memory.

    >>> import numpy as np
    >>> y, x = np.mgrid[:60, :80]
    >>> disc = np.clip(10 + 0.5 - np.hypot(x - 40.3, y - 30.1), 0, 1)
    >>> target = refine((50 + 150 * disc).astype(np.float32), [[41, 30, 10, 10, 0]])
    >>> round(float(target["y"][0]), 1), target["covariance"].shape
    (30.1, (1, 5, 5))
    """
    if errors not in ("raise", "keep"):
        raise ValueError(f"errors is {errors!r}, expected 'raise' or 'keep'")
    record = _image_record(image)
    ellipses = _ellipses(starts, "starts")
    targets = np.zeros(len(ellipses), TARGET_DTYPE)
    code = raw.panoval_measure_refine(record, _pointer(ellipses, PanovalMeasureEllipse), len(ellipses),
                                      _pointer(targets, PanovalMeasureTarget))
    failed = np.flatnonzero(targets["code"])
    if code and not len(failed):
        _check(code)
    if len(failed) and errors == "raise":
        index = int(failed[0])
        _check(int(targets["code"][index]), index, targets, f"target {index}: ")
    return targets


def _pointer(array: np.ndarray, kind: type) -> Any:
    return ctypes.cast(_images.address_of(array), ctypes.POINTER(kind))


def _ellipses(values: Any, name: str) -> np.ndarray:
    """(n, 5) doubles, from such or from targets."""
    values = np.asarray(values)
    if values.dtype.names:
        missing = [field for field in _ELLIPSE if field not in values.dtype.names]
        if missing:
            raise TypeError(f"{name} has no field {missing[0]!r}")
        values = np.stack([np.atleast_1d(values[field]) for field in _ELLIPSE], axis=-1)
    elif values.dtype.kind not in "fiu":
        raise TypeError(f"{name} has elements of {values.dtype}, expected numbers")
    values = np.ascontiguousarray(values, np.float64)
    if values.size == 0 and values.ndim < 2:
        values = values.reshape(0, 5)
    if values.ndim != 2 or values.shape[1] != 5 or len(values) >= 2**31:
        raise ValueError(f"{name} has the shape {values.shape}, expected (n, 5)")
    return values


def to_pandas(targets: np.ndarray) -> Any:
    """Targets as a pandas DataFrame, one row each; the covariance becomes 15 columns cov_x_x, cov_x_y, ...

    Raises ImportError where pandas is not installed.

    >>> import numpy as np
    >>> frame = to_pandas(np.zeros(2, TARGET_DTYPE))        # doctest: +SKIP
    """
    import pandas

    targets = _targets(targets)
    columns = {}
    for name in TARGET_DTYPE.names or ():
        if name == "covariance":
            columns.update(_covariance_columns(targets[name]))
        elif name != "reserved":
            columns[name] = np.ascontiguousarray(targets[name])
    return pandas.DataFrame(columns)


def _covariance_columns(covariance: np.ndarray) -> dict:
    return {f"cov_{_ELLIPSE[i]}_{_ELLIPSE[j]}": covariance[:, i, j] for i in range(5) for j in range(i, 5)}


def _targets(targets: Any) -> np.ndarray:
    targets = np.asarray(targets)
    if targets.dtype != TARGET_DTYPE or targets.ndim != 1:
        raise TypeError("targets is not a one-dimensional array of TARGET_DTYPE, as measure and refine return")
    return np.ascontiguousarray(targets)


def _outline(ellipse: Any, name: str) -> Tuple[PanovalMeasureEllipse, Optional[np.ndarray]]:
    """An ellipse and, where it is a target, its covariance."""
    value = np.asarray(ellipse)
    if value.dtype.names:
        if value.size != 1:
            raise ValueError(f"{name} has {value.size} targets, expected one")
        value = value.reshape(1)
        covariance = None
        if "covariance" in (value.dtype.names or ()):
            covariance = np.ascontiguousarray(value["covariance"][0], np.float64)
        return PanovalMeasureEllipse(*_ellipses(value, name)[0]), covariance
    return PanovalMeasureEllipse(*_ellipses(value.reshape(1, -1), name)[0]), None


def _centre(point: PanovalMeasurePoint) -> Centre:
    return Centre(point.x, point.y, np.array([[point.var_x, point.cov_xy], [point.cov_xy, point.var_y]]))


def centre_by_homography(ellipse: Any, homography: Any) -> Centre:
    """The image of a circle's centre from a homography of its plane.

    ellipse     a target, or x, y, semi_major, semi_minor, angle
    homography  (3, 3): maps (X, Y, 1) of the plane to the picture, up to a factor

    Raises MeasureError with the library's text.

    >>> import numpy as np
    >>> centre_by_homography([30, 20, 5, 5, 0], np.eye(3))[:2]
    (30.0, 20.0)
    """
    matrix = np.ascontiguousarray(homography, np.float64)
    if matrix.shape != (3, 3):
        raise ValueError(f"homography has the shape {matrix.shape}, expected (3, 3)")
    outline, covariance = _outline(ellipse, "ellipse")
    point = PanovalMeasurePoint()
    _check(raw.panoval_measure_centre_by_homography(outline, covariance, matrix, point))
    return _centre(point)


def centre_by_focal_length(ellipse: Any, focal_length: float, principal: Any) -> Tuple[CirclePose, CirclePose]:
    """The image of a circle's centre from the camera's focal length: two answers, the less turned one first.

    ellipse       a target, or x, y, semi_major, semi_minor, angle
    focal_length  pixels, above 0
    principal     x, y: where the optical axis meets the picture, pixels

    Raises MeasureError with the library's text.

    >>> first, second = centre_by_focal_length([100, 100, 20, 15, 0], 1000, (320, 240))
    >>> first.normal[2] < 0
    True
    """
    outline, covariance = _outline(ellipse, "ellipse")
    x, y = principal
    poses = (PanovalMeasureCirclePose * 2)()
    _check(raw.panoval_measure_centre_by_focal_length(outline, covariance, float(focal_length), float(x), float(y),
                                                      poses))
    return _pose(poses[0]), _pose(poses[1])


def _pose(pose: PanovalMeasureCirclePose) -> CirclePose:
    return CirclePose(_centre(pose.centre), (pose.normal[0], pose.normal[1], pose.normal[2]), pose.distance)


def centre_by_rings(outer: Any, inner: Any) -> Centre:
    """The image of the common centre of two concentric circles; nothing about the camera is needed.

    outer, inner  targets, or x, y, semi_major, semi_minor, angle; the inner one at most 0.95 of the outer

    Raises MeasureError with the library's text.

    >>> centre_by_rings([30, 20, 10, 10, 0], [30, 20, 5, 5, 0])[:2]
    (30.0, 20.0)
    """
    (first, first_covariance), (second, second_covariance) = _outline(outer, "outer"), _outline(inner, "inner")
    point = PanovalMeasurePoint()
    _check(raw.panoval_measure_centre_by_rings(first, first_covariance, second, second_covariance, point))
    return _centre(point)


def grid(targets: Any, rows: int, columns: int) -> Grid:
    """Orders the targets of a board of rows and columns seen in perspective.

    targets  array of TARGET_DTYPE, in any order; others than the board's may be among them
    rows, columns  of the board, at least 2

    Raises MeasureError with the library's text, e.g. where there is no such board.

    >>> import numpy as np
    >>> targets = np.zeros(6, TARGET_DTYPE)
    >>> targets["x"], targets["y"] = np.tile([10, 30, 50], 2), np.repeat([10, 30], 3)
    >>> targets["semi_major"] = targets["semi_minor"] = 5
    >>> grid(targets, 2, 3).cells["target"].tolist()
    [[0, 1, 2], [3, 4, 5]]
    """
    targets = _targets(targets)
    rows = _images.whole_number(rows, "rows", 2, 10000)
    columns = _images.whole_number(columns, "columns", 2, 10000)
    record = PanovalMeasureGrid()
    cells = np.zeros((rows, columns), CELL_DTYPE)
    _check(raw.panoval_measure_grid(_pointer(targets, PanovalMeasureTarget), len(targets), rows, columns, record,
                                    _pointer(cells, PanovalMeasureGridCell)))
    return Grid(np.array(record.homography).reshape(3, 3), cells, record.rms, record.max_residual, record.found,
                record.missing, record.extra)
