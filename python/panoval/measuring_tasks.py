# SPDX-License-Identifier: MIT
"""The first round of a panorama on many machines: what each picture is, and seams by regions, so that no machine needs all
pictures.

The canvas is cut into regions. A task takes the pictures that lie in its region, whole, and looks for the seams between them;
of the labels that it finds those of its region count. Seams are where the whole search would have put them but near the
borders of regions, where two searches may disagree: there a seam can go along the border for a stretch. Every pixel belongs to
a picture that covers it in any case, and the result depends on the regions alone, not on who works when.
"""

from __future__ import annotations

import zlib
from typing import Any, Dict, List, NamedTuple, Sequence, Tuple

import numpy as np

from ._opening import OpenPicture, lazy_parts
from .errors import PanovalError
from .mosaic import Mosaic, Rect

STRIP = 256  # rows of labels that are sent as one piece


class Known(NamedTuple):
    """What is known of a picture without its pixels."""

    number: int
    name: str
    x: int
    y: int
    shape: Tuple[int, ...]
    dtype: str
    has_mask: bool
    has_keep: bool

    def add_to(self, mosaic: Mosaic, open_picture: OpenPicture) -> None:
        """Adds it to a mosaic; it is opened when its rows are needed first."""
        lazy, readers = lazy_parts(self.number, self.name, open_picture)
        mosaic.add(readers[0], (self.x, self.y), mask=readers[1] if self.has_mask else None,
                   keep=readers[2] if self.has_keep else None, name=self.name, shape=self.shape, dtype=self.dtype,
                   release=lazy.release)


class MeasureError(PanovalError):
    """A part of the first round that failed; the text names it, and the picture where one is to blame."""


def know(open_picture: OpenPicture, index: int, name: str, x: int, y: int) -> Known:
    """Opens a picture and says what it is."""
    try:
        opened = open_picture(index, name)
        parts = opened if isinstance(opened, tuple) else (opened,)
        known = Known(index, name, x, y, tuple(int(size) for size in parts[0].shape), np.dtype(parts[0].dtype).str,
                      len(parts) > 1 and parts[1] is not None, len(parts) > 2 and parts[2] is not None)
        for part in parts:
            if hasattr(part, "close"):
                part.close()
        return known
    except Exception as failure:
        raise MeasureError(f"picture {name}: {type(failure).__name__}: {failure}") from failure


class GainJob(NamedTuple):
    """The gains of pictures that overlap within a region."""

    pictures: Tuple[Known, ...]
    options: Dict[str, Any]  #: of the mosaic
    open_picture: OpenPicture


def find_gains(job: GainJob) -> np.ndarray:
    """Gains of the pictures against each other, of GAIN_DTYPE."""
    try:
        with Mosaic(**dict(job.options, anchor=None)) as mosaic:
            for picture in job.pictures:
                picture.add_to(mosaic, job.open_picture)
            mosaic.measure("gains")
            return mosaic.gains
    except Exception as failure:
        raise _named(failure, f"gains of {len(job.pictures)} pictures from {job.pictures[0].name} on") from failure


def _named(failure: Exception, what: str) -> MeasureError:
    picture = getattr(failure, "picture", None)
    blamed = f"picture {picture}: " if picture else ""
    return MeasureError(f"{what}: {blamed}{type(failure).__name__}: {failure}")


class SeamJob(NamedTuple):
    """The seams of a region."""

    region: Rect  #: on the canvas
    origin: Tuple[int, int]  #: of the canvas in the frame of the positions
    pictures: Tuple[Known, ...]  #: those that lie in the region
    gains: np.ndarray  #: (pictures, 4)
    falloff: Tuple[float, float, float]
    options: Dict[str, Any]  #: of the mosaic
    open_picture: OpenPicture


def find_seams(job: SeamJob) -> List[bytes]:
    """Labels of a region: strips of rows, int32, compressed."""
    try:
        with Mosaic(**job.options) as mosaic:
            for picture in job.pictures:
                picture.add_to(mosaic, job.open_picture)
            mosaic.set_gains(job.gains, job.falloff)
            mosaic.measure("seams")
            layout = mosaic.layout
            numbers = np.array([picture.number for picture in job.pictures] + [-1], np.int32)  # -1 stays -1
            return [_strip(mosaic, job, layout.origin_x - job.origin[0], layout.origin_y - job.origin[1], first, numbers)
                    for first in range(job.region.y, job.region.y + job.region.height, STRIP)]
    except Exception as failure:
        raise _named(failure, f"seams of the region {tuple(job.region)}") from failure


def _strip(mosaic: Mosaic, job: SeamJob, left: int, top: int, first: int, numbers: np.ndarray) -> bytes:
    """Rows of the region, cut out of the part's own canvas, whose corner lies at (left, top) of the whole one."""
    region, layout = job.region, mosaic.layout
    count = min(STRIP, region.y + region.height - first)
    labels = np.full((count, region.width), -1, np.int32)
    y0, y1 = max(first, top), min(first + count, top + layout.height)
    x0, x1 = max(region.x, left), min(region.x + region.width, left + layout.width)
    if y0 < y1 and x0 < x1:
        found = mosaic.seam_rows(y0 - top, y1 - y0)[:, x0 - left:x1 - left]
        labels[y0 - first:y1 - first, x0 - region.x:x1 - region.x] = numbers[found]
    return zlib.compress(labels.tobytes(), 1)


class Labels:
    """All regions' labels, put together as rows are asked for."""

    def __init__(self, width: int, regions: Sequence[Rect], strips: Dict[int, List[bytes]]) -> None:
        self._width, self._regions, self._strips = width, regions, strips

    def __getitem__(self, rows: slice) -> np.ndarray:
        labels = np.full((rows.stop - rows.start, self._width), -1, np.int32)
        for number, region in enumerate(self._regions):
            if region.y <= rows.start < region.y + region.height and number in self._strips:
                strip = self._strips[number][(rows.start - region.y) // STRIP]
                part = np.frombuffer(zlib.decompress(strip), np.int32).reshape(-1, region.width)
                labels[:, region.x:region.x + region.width] = part
        return labels


def regions_of(width: int, height: int, side: int) -> List[Rect]:
    """Cuts a canvas into regions of about that side; their rows are whole strips."""
    side = max(STRIP, side // STRIP * STRIP)
    return [Rect(x, y, min(side, width - x), min(side, height - y)) for y in range(0, height, side)
            for x in range(0, width, side)]


def touches(picture: Known, origin: Tuple[int, int], rect: Rect) -> bool:
    """Whether a picture lies in a rectangle of the canvas."""
    x, y = picture.x - origin[0], picture.y - origin[1]
    return (x < rect.x + rect.width and rect.x < x + picture.shape[1] and y < rect.y + rect.height
            and rect.y < y + picture.shape[0])
