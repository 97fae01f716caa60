# SPDX-License-Identifier: MIT
"""The panorama engine: pictures whose places are known become one picture of any size within a fixed memory."""

from __future__ import annotations

import ctypes
import json
from typing import Any, Callable, Dict, Iterator, List, NamedTuple, Optional, Sequence, Tuple

import numpy as np

from . import _images, raw
from ._callbacks import Host, Progress, Sink, SinkCallable, progress_of
from ._interrupt import interruptible
from ._opening import planned
from ._pictures import Picture, picture_of
from ._records import (PanovalMosaicCounts, PanovalMosaicEstimate, PanovalMosaicLayout, PanovalMosaicOptions,
                       PanovalMosaicOverlap, PanovalMosaicPicture, PanovalMosaicRect, PanovalMosaicStatistics)
from .errors import MOSAIC_ERRORS, PanovalError, PlanError

__all__ = ["Mosaic", "Rect", "Tile", "Layout", "Overlap", "Estimate", "Counts", "Pixels", "GAIN_DTYPE",
           "STATISTICS_DTYPE"]

_BLENDS = {"multiband": 0, "feather": 1}
_SEAMS = {"optimal": 0, "nearest": 1, "none": 2, None: 2}
_GAINS = {"automatic": 0, "picture": 1, "channel": 2, "off": 3, None: 3}
_PARTS = {"gains": 1, "seams": 2, "verdict": 4}

#: What a picture's samples are multiplied with: one number a channel (1 where there is none), and whether it fits the others.
GAIN_DTYPE = np.dtype([("gain", np.float64, (4,)), ("is_outlier", np.bool_)])
_RATIO_DTYPE = np.dtype([("value", np.float64), ("error", np.float64), ("is_known", np.int32), ("reserved", np.int32)])
#: What an overlap says about brightness: the record PanovalMosaicStatistics of panoval_mosaic.h.
STATISTICS_DTYPE = np.dtype([("pixels", np.int64), ("says", np.int32), ("reserved", np.int32),
                             ("channels", _RATIO_DTYPE, (4,)), ("all", _RATIO_DTYPE), ("seen", _RATIO_DTYPE),
                             ("spread", np.float64), ("correlation", np.float64), ("unevenness", np.float64)])


def _lens(falloff: Any) -> Optional[np.ndarray]:
    """The three numbers of a falloff, where there is one."""
    lens = None if falloff is None else np.ascontiguousarray(falloff, np.float64)
    if lens is not None and lens.shape != (3,):
        raise ValueError(f"falloff has the shape {lens.shape}, expected (3,)")
    return lens


class Rect(NamedTuple):
    """Columns x to x + width - 1, rows y to y + height - 1 of the canvas."""

    x: int
    y: int
    width: int
    height: int

    @property
    def slices(self) -> Tuple[slice, slice]:
        """Rows and columns, to index an array of the canvas with."""
        return slice(self.y, self.y + self.height), slice(self.x, self.x + self.width)


class Tile(NamedTuple):
    """A tile of the canvas."""

    number: int  #: counted from 0 row by row
    rect: Rect


class Layout(NamedTuple):
    """The panorama and its tiles; fields as in include/panoval_mosaic.h."""

    width: int
    height: int
    origin_x: int
    origin_y: int
    pictures: int
    overlaps: int
    tiles: int
    tile_columns: int
    tile_rows: int
    tile_width: int
    tile_height: int
    channels: int
    bits: int
    bands: int
    wraps: bool

    @property
    def dtype(self) -> np.dtype:
        return _images.U8 if self.bits == 8 else _images.U16

    def shape(self, height: Optional[int] = None, width: Optional[int] = None) -> Tuple[int, ...]:
        """The shape of the panorama's array, or of a part of that size."""
        extent = (self.height if height is None else height, self.width if width is None else width)
        return extent if self.channels == 1 else extent + (self.channels,)


class Overlap(NamedTuple):
    """Two pictures whose rectangles share pixels."""

    first: int
    second: int
    region: Rect
    first_corner: Tuple[int, int]  #: of the region in the first picture
    second_corner: Tuple[int, int]  #: of the region in the second picture


class Estimate(NamedTuple):
    """What a run is going to take: bytes, how often each picture is read, seconds of one processor, threads."""

    memory: int
    least_memory: int
    scratch_file: int
    picture_bytes: int
    panorama_bytes: int
    decodes: float
    seconds: float
    threads: int


class Counts(NamedTuple):
    """What has been asked for so far."""

    rows: int
    pictures: float
    scratch_bytes: int
    largest_memory: int


class Pixels(NamedTuple):
    """A part of the panorama."""

    samples: np.ndarray  #: (height, width) or (height, width, channels); 0 where no picture is
    coverage: np.ndarray  #: (height, width) uint8: 0 = no picture, else the owner's mask there, 255 where it has none


class Mosaic:
    """A panorama in the making.

    memory       bytes for pictures, tiles and output together; 0: 512 MiB
    wrap         width of the canvas in pixels where its left and right edge meet; 0: they do not
    threads      at most so many; 0: one for each processor
    bands        of multi-band blending, 1 to 30; 0: chosen from the overlaps
    blend        'multiband' or 'feather'
    seams        'optimal', 'nearest' or None
    gains        'automatic', 'picture', 'channel' or None
    vignetting   True: one falloff of the lens is taken out of all pictures
    anchor       number of the picture whose exposure stays, from 0; None: none in particular
    tile_size    width and height of tiles in pixels, 16 or more; 0: chosen from the memory
    output_bits  of each sample of the panorama, 8 or 16; 0: as the pictures have

    Errors of the engine are panoval.PanovalError; what a callable of yours raises comes out as it is, with `picture` set to
    the picture's name where it was one that read rows. Ctrl-C ends measuring and running. Blending may go on in several
    threads at once; nothing else may.

    >>> import numpy as np
    >>> with Mosaic(seams="nearest") as mosaic:
    ...     mosaic.add(np.full((20, 30), 90, np.uint8), (0, 0))
    ...     mosaic.add(np.full((20, 30), 90, np.uint8), (20, 0))
    ...     mosaic.measure("gains", "seams")
    ...     sum(int(pixels.samples.sum()) for tile, pixels in mosaic.blend_tiles()) == 90 * 20 * 50
    True
    """

    def __init__(self, memory: int = 0, wrap: int = 0, threads: int = 0, bands: int = 0, blend: str = "multiband",
                 seams: Optional[str] = "optimal", gains: Optional[str] = "automatic", vignetting: bool = False,
                 anchor: Optional[int] = None, tile_size: int = 0, output_bits: int = 0) -> None:
        self._handle = ctypes.c_void_p()
        self._pictures: List[Picture] = []
        self._host = Host(self._pictures)
        self._options = PanovalMosaicOptions(
            _images.whole_number(memory, "memory", 0, 2**62), _images.whole_number(wrap, "wrap", 0, 2**31 - 1),
            _images.whole_number(threads, "threads", 0), _images.whole_number(bands, "bands", 0),
            _choice(blend, "blend", _BLENDS), _choice(seams, "seams", _SEAMS), _choice(gains, "gains", _GAINS),
            int(bool(vignetting)), 0 if anchor is None else _images.whole_number(anchor, "anchor", 0) + 1,
            _images.whole_number(tile_size, "tile_size", 0), _images.whole_number(output_bits, "output_bits", 0))
        if raw.panoval_mosaic_create(ctypes.byref(self._handle)) or not self._handle:
            raise MemoryError("no memory for a mosaic")
        self._check(raw.panoval_mosaic_set_options(self._handle, self._options))
        self._check(raw.panoval_mosaic_set_host(self._handle, self._host.record))

    # ---- life and errors ---------------------------------------------------------------------------------------------

    def close(self) -> None:
        """Frees the mosaic. Arrays that came from it stay.

        >>> import numpy as np
        >>> mosaic = Mosaic(); mosaic.close(); mosaic.close()
        """
        handle, self._handle = self._handle, ctypes.c_void_p()
        if handle:
            raw.panoval_mosaic_destroy(handle)

    def __enter__(self) -> "Mosaic":
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None):
            self.close()

    def _check(self, code: int) -> None:
        if not code:
            self._host.forget()
            return
        text = ctypes.create_string_buffer(4096)
        raw.panoval_mosaic_error(self._handle, text, len(text))
        failure = MOSAIC_ERRORS.get(code, PanovalError)(text.value.decode("utf-8", "replace"), code)
        self._host.raise_own(code, failure)
        raise failure

    def _open(self) -> ctypes.c_void_p:
        if not self._handle:
            raise ValueError("the mosaic is closed")
        return self._handle

    # ---- pictures and the plan ---------------------------------------------------------------------------------------

    def add(self, picture: Any, position: Any, mask: Any = None, keep: Any = None, name: Optional[str] = None,
            shape: Any = None, dtype: Any = None, random_access: bool = True,
            release: Optional[Callable[[], None]] = None) -> None:
        """Adds a picture.

        picture   (height, width) or (height, width, 1, 3 or 4), uint8 or uint16: anything that is sliced by rows, or a
                  callable (first_row, row_count) -> rows, with shape and dtype given. It is read when it is needed, possibly
                  from several threads, never twice at once for one picture
        position  x, y of its top-left corner, whole numbers
        mask      (height, width) uint8 or bool, sliced by rows or a callable: 0 = not covered
        keep      the same: what is not 0 belongs to this picture
        random_access  False: rows come only from the first on, one after the other
        release   called when the picture is not needed for a while

        >>> import numpy as np
        >>> mosaic = Mosaic()
        >>> mosaic.add(lambda first, count: np.zeros((count, 8), np.uint8), (0, 0), shape=(6, 8), dtype=np.uint8)
        >>> mosaic.layout.width, mosaic.layout.height
        (8, 6)
        """
        label = f"picture {len(self._pictures) + 1}" if name is None else str(name)
        added = picture_of(picture, position, mask, keep, label, shape, dtype, random_access, release)
        if self._pictures and (added.channels, added.dtype) != (self._pictures[0].channels, self._pictures[0].dtype):
            first = self._pictures[0]
            raise ValueError(f"{added.name} has {added.channels} channels of {added.dtype}, expected {first.channels} of "
                             f"{first.dtype} as {first.name}")
        record = PanovalMosaicPicture(added.x, added.y, added.shape[1], added.shape[0], added.channels,
                                      8 * added.dtype.itemsize, int(added.read_mask is not None),
                                      int(added.read_keep is not None), int(added.random_access))
        record.name = label.encode("utf-8", "surrogateescape")
        self._check(raw.panoval_mosaic_add_picture(self._open(), record))
        self._pictures.append(added)

    @property
    def layout(self) -> Layout:
        """Size, tiles and bands of the panorama. The first look fixes the pictures.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.layout.shape(), mosaic.layout.tiles
        ((8, 50), 4)
        """
        record = PanovalMosaicLayout()
        self._check(raw.panoval_mosaic_layout(self._open(), record))
        values = {name: getattr(record, name) for name in Layout._fields}
        return Layout(**dict(values, wraps=bool(record.wraps)))

    @property
    def overlaps(self) -> List[Overlap]:
        """Which pictures meet where.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.overlaps[0].region
        Rect(x=20, y=0, width=10, height=8)
        """
        record, found = PanovalMosaicOverlap(), []
        for index in range(self.layout.overlaps):
            self._check(raw.panoval_mosaic_overlap(self._open(), index, record))
            found.append(Overlap(record.first, record.second, _rect(record.region), (record.first_x, record.first_y),
                                 (record.second_x, record.second_y)))
        return found

    def estimate(self) -> Estimate:
        """What a run is going to take. Reads no pixels.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.estimate().panorama_bytes
        400
        """
        record = PanovalMosaicEstimate()
        self._check(raw.panoval_mosaic_estimate(self._open(), record))
        return Estimate(*(getattr(record, name) for name in Estimate._fields))

    def plan(self) -> str:
        """Options, pictures, tiles, and the statistics, gains and seams that are known: JSON text for `Mosaic.from_plan`.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> json.loads(mosaic.plan())["tiles"]
        {'width': 16, 'height': 8, 'columns': 4, 'rows': 1}
        """
        text, size = ctypes.c_char_p(), ctypes.c_size_t()
        self._check(raw.panoval_mosaic_save_plan(self._open(), ctypes.byref(text), ctypes.byref(size)))
        return ctypes.string_at(text, size.value).decode("utf-8", "surrogateescape")

    @classmethod
    def from_plan(cls, plan: str, open_picture: Optional[Callable[[int, str], Any]] = None, memory: int = 0,
                  threads: int = 0) -> "Mosaic":
        """A mosaic from a plan, in this process or another.

        plan          what `plan` gave
        open_picture  (index, name) -> something sliced by rows with the picture's shape, or a tuple of it, its mask and its
                      keep mask, as many as the plan says it has; called when the picture is needed first,
                      closed (its `close`, if it has one) when it is not needed for a while. None: nothing can be read

        Raises PlanError for a text that is no plan, or one of another version.

        >>> import numpy as np
        >>> first = Mosaic(); first.add(np.full((4, 6), 9, np.uint8), (0, 0)); first.measure("gains", "seams")
        >>> second = Mosaic.from_plan(first.plan(), lambda index, name: np.full((4, 6), 9, np.uint8))
        >>> int(second.blend((0, 0, 6, 4)).samples.max())
        9
        """
        if _has_seam_file(plan):
            raise PlanError("the plan's seams are in a file beside it, which only panoval's program reads; "
                            "make tiles with it, or a plan without --split-seams")
        mosaic = cls(memory=memory, threads=threads)
        text = plan.encode("utf-8", "surrogateescape")
        mosaic._check(raw.panoval_mosaic_load_plan(mosaic._handle, text, len(text)))
        chosen = json.loads(plan)["options"]
        mosaic._options.seams, mosaic._options.blend = _SEAMS[chosen["seams"]], _BLENDS[chosen["blend"]]
        record = PanovalMosaicPicture()
        for index in range(mosaic.layout.pictures):
            mosaic._check(raw.panoval_mosaic_picture(mosaic._handle, index, record))
            mosaic._pictures.append(planned(index, record, open_picture))
        return mosaic

    # ---- measuring ---------------------------------------------------------------------------------------------------

    def measure(self, *parts: str, progress: Progress = None) -> None:
        """Measures what is not known yet.

        parts     'gains', 'seams', 'verdict', each with what it needs; none: all of them
        progress  a callable (phase, fraction), phase 'gains', 'seams', 'verdict' or 'blend'; True: a bar of tqdm. A callable
                  that returns False, and nothing else, cancels: CancelledError

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.measure(progress=lambda phase, fraction: None)
        >>> mosaic.verdict()["verdict"]
        'good'
        """
        total = 0
        for part in parts or _PARTS:
            total |= _choice(part, "parts", _PARTS)
        self._long(progress, lambda: raw.panoval_mosaic_measure(self._open(), total))

    def _long(self, progress: Progress, call: Callable[[], int]) -> None:
        with progress_of(progress) as report:
            self._host.report = report
            try:
                code, interruption = interruptible(call, self._host)
            finally:
                self._host.report = None
        if interruption is not None:
            self._host.forget()
            raise interruption
        self._check(code)

    @property
    def gains(self) -> np.ndarray:
        """(pictures,) of GAIN_DTYPE.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.measure("gains")
        >>> mosaic.gains["gain"].shape
        (2, 4)
        """
        result = np.zeros(self.layout.pictures, GAIN_DTYPE)
        numbers, outlier = np.empty(4), ctypes.c_int32()
        for index in range(len(result)):
            self._check(raw.panoval_mosaic_gains(self._open(), index, numbers, None, None, ctypes.byref(outlier)))
            result[index] = (numbers, bool(outlier.value))
        return result

    @property
    def falloff(self) -> Tuple[float, float, float]:
        """c of the lens: samples are divided by 1 + c[0] q + c[1] q^2 + c[2] q^3, q = (r / R)^2, R to the corner.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.measure("gains")
        >>> mosaic.falloff
        (0.0, 0.0, 0.0)
        """
        numbers, falloff = np.empty(4), np.empty(3)
        self._check(raw.panoval_mosaic_gains(self._open(), 0, numbers, falloff, None, None))
        return tuple(float(value) for value in falloff)  # type: ignore[return-value]

    def set_gains(self, gains: Any, falloff: Any = None) -> None:
        """Sets gains in place of measuring: (pictures,), (pictures, 4) or of GAIN_DTYPE, 1e-6 to 1e6.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.set_gains([1, 2]); mosaic.measure("seams")
        >>> mosaic.blend((0, 0, 50, 8)).samples[0, [0, 49]].tolist()
        [90, 180]
        """
        values = np.asarray(gains)
        values = np.asarray(values["gain"] if values.dtype.names else values, np.float64)
        if values.ndim == 1:
            values = np.repeat(values[:, np.newaxis], 4, axis=1)
        if values.ndim != 2 or values.shape[1] != 4:
            raise ValueError(f"gains has the shape {values.shape}, expected (pictures,) or (pictures, 4)")
        values = np.ascontiguousarray(values)
        self._check(raw.panoval_mosaic_set_gains(self._open(), values, len(values), _lens(falloff)))

    @property
    def statistics(self) -> np.ndarray:
        """What each overlap says about brightness, the gains follow from it: (overlaps,) of STATISTICS_DTYPE.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 45, np.uint8), (20, 0))
        >>> mosaic.measure("gains")
        >>> np.exp(mosaic.statistics["all"]["value"]).round(6).tolist()
        [2.0]
        """
        found = (PanovalMosaicStatistics * self.layout.overlaps)()
        for index, record in enumerate(found):
            self._check(raw.panoval_mosaic_statistics(self._open(), index, record))
        return np.frombuffer(found, STATISTICS_DTYPE).copy() if len(found) else np.zeros(0, STATISTICS_DTYPE)

    def set_statistics(self, statistics: Any, falloff: Any = None) -> None:
        """Sets what the overlaps say in place of measuring, and solves for the gains: (overlaps,) of STATISTICS_DTYPE.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 45, np.uint8), (20, 0))
        >>> mosaic.measure("gains"); before = mosaic.gains
        >>> mosaic.set_statistics(mosaic.statistics)
        >>> bool((mosaic.gains == before).all())
        True
        """
        values = np.ascontiguousarray(statistics, STATISTICS_DTYPE)
        if values.ndim != 1:
            raise ValueError(f"statistics has the shape {values.shape}, expected (overlaps,)")
        records = (PanovalMosaicStatistics * len(values)).from_buffer_copy(values.tobytes())
        self._check(raw.panoval_mosaic_set_statistics(self._open(), records, len(values), _lens(falloff)))

    @property
    def has_seams(self) -> bool:
        """Whether pixels belong to one picture each: not with seams=None, nor with blend='feather'.

        >>> import numpy as np
        >>> Mosaic().has_seams, Mosaic(blend="feather").has_seams
        (True, False)
        """
        return self._options.seams != _SEAMS["none"] and self._options.blend != _BLENDS["feather"]

    def seam_rows(self, first: int = 0, count: Optional[int] = None) -> np.ndarray:
        """(count, width) int32: which picture each pixel belongs to, -1 where none is; `count` None: to the last row.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.measure("seams")
        >>> mosaic.seam_rows(0, 1)[0, [0, 49]].tolist()
        [0, 1]
        """
        layout = self.layout
        first = _images.whole_number(first, "first", 0, layout.height)
        count = layout.height - first if count is None else _images.whole_number(count, "count", 0, layout.height - first)
        labels = np.empty((count, layout.width), np.int32)
        for row in range(count):
            self._check(raw.panoval_mosaic_seam_row(self._open(), first + row, labels[row]))
        return labels

    def set_seams(self, labels: Any) -> None:
        """Sets which picture each pixel belongs to, in place of measuring.

        labels  (height, width) int32, sliced by rows: picture numbers or -1

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.set_gains([1, 1]); mosaic.set_seams(np.repeat(np.repeat([[0, 1]], [30, 20], axis=1), 8, axis=0).astype(np.int32))
        >>> int(mosaic.seam_rows()[:, 29].max())
        0
        """
        layout, step = self.layout, 256
        for first in range(0, layout.height, step):
            count = min(step, layout.height - first)
            rows = _images.samples_of(labels[first:first + count], "labels", (np.dtype(np.int32),), (2,))
            if rows.shape != (count, layout.width):
                raise ValueError(f"rows {first} of labels have the shape {rows.shape}, expected {(count, layout.width)}")
            self._check(raw.panoval_mosaic_set_seam_rows(self._open(), first, count, rows, rows.strides[0]))

    def verdict(self, distributions: bool = False) -> Dict[str, Any]:
        """What was found out about the panorama; see docs/panoramas.md.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.measure()
        >>> mosaic.verdict()["verdict"]
        'good'
        """
        text, size = ctypes.c_char_p(), ctypes.c_size_t()
        self._check(raw.panoval_mosaic_verdict(self._open(), int(bool(distributions)), ctypes.byref(text),
                                               ctypes.byref(size)))
        return json.loads(ctypes.string_at(text, size.value))

    # ---- pixels ------------------------------------------------------------------------------------------------------

    def tile(self, number: int) -> Tile:
        """Where a tile lies; they are counted from 0 row by row.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.tile(3)
        Tile(number=3, rect=Rect(x=48, y=0, width=2, height=8))
        """
        rect = PanovalMosaicRect()
        self._check(raw.panoval_mosaic_tile(self._open(), _images.whole_number(number, "number", 0, 2**62), rect))
        return Tile(int(number), _rect(rect))

    def tiles(self) -> Iterator[Tile]:
        """All tiles in their order.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> [tile.rect.x for tile in mosaic.tiles()]
        [0, 16, 32, 48]
        """
        for index in range(self.layout.tiles):
            yield self.tile(index)

    def blend(self, rect: Any, out: Optional[np.ndarray] = None) -> Pixels:
        """Blends a rectangle of the canvas, with gains and seams that are known. The same bits as any other cut gives.

        rect  x, y, width, height
        out   (height, width[, channels]) of the panorama's dtype with whole rows of samples side by side, e.g. a part of a
              larger array: takes the samples in place

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.measure("seams")
        >>> canvas = np.zeros((8, 50), np.uint8)
        >>> pixels = mosaic.blend((18, 2, 9, 5), out=canvas[2:7, 18:27])
        >>> int(canvas.sum()), int(pixels.coverage.min())
        (4050, 255)
        """
        layout = self.layout
        wanted = PanovalMosaicRect(*(_images.whole_number(value, "rect", 0, 2**31 - 1) for value in rect))
        shape = layout.shape(wanted.height, wanted.width)
        samples = np.empty(shape, layout.dtype) if out is None else _out_array(out, shape, layout.dtype)
        coverage = np.empty(shape[:2], np.uint8)
        self._check(raw.panoval_mosaic_blend(self._open(), wanted, _images.address_of(samples), samples.strides[0],
                                             coverage, wanted.width))
        return Pixels(samples, coverage)

    def blend_tiles(self, tiles: Optional[Sequence[int]] = None) -> Iterator[Tuple[Tile, Pixels]]:
        """Tiles with their pixels, one after the other: all of them, or those of the numbers given, in that order.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.measure("seams")
        >>> [(tile.number, int(pixels.samples.max())) for tile, pixels in mosaic.blend_tiles([3, 0])]
        [(3, 90), (0, 90)]
        """
        for index in range(self.layout.tiles) if tiles is None else tiles:
            tile = self.tile(index)
            yield tile, self.blend(tile.rect)

    def run(self, sink: SinkCallable, by_tiles: bool = False, coverage: bool = True, progress: Progress = None) -> None:
        """Makes the whole panorama on all threads; measures gains and seams first where they are not known.

        sink      a callable (rect, samples, coverage), or anything that takes sink[rows, columns] = samples, e.g. an array,
                  numpy.memmap or zarr array of the panorama's shape. The arrays that a callable gets are the engine's: copy
                  what is to be kept
        by_tiles  True: a tile at a time, in their order; False: whole rows from the top downward
        progress  as for `measure`

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> canvas = np.zeros(mosaic.layout.shape(), mosaic.layout.dtype)
        >>> mosaic.run(canvas)
        >>> int(canvas.min())
        90
        """
        taker = Sink(sink, self.layout, bool(by_tiles), bool(coverage))
        self._host.sink = taker
        try:
            self._long(progress, lambda: raw.panoval_mosaic_run(self._open(), taker.record))
        finally:
            self._host.sink = None
            taker.end()

    @property
    def counts(self) -> Counts:
        """What the mosaic has asked for since it was made.

        >>> import numpy as np
        >>> mosaic = Mosaic(tile_size=16)
        >>> mosaic.add(np.full((8, 30), 90, np.uint8), (0, 0)); mosaic.add(np.full((8, 30), 90, np.uint8), (20, 0))
        >>> mosaic.run(lambda rect, samples, coverage: None)
        >>> mosaic.counts.pictures >= 2
        True
        """
        record = PanovalMosaicCounts()
        self._check(raw.panoval_mosaic_counts(self._open(), record))
        return Counts(*(getattr(record, name) for name in Counts._fields))


def _has_seam_file(plan: str) -> bool:
    """Whether a plan of panoval's program has its seams elsewhere. What is no plan is refused by the engine."""
    if '"seam_file"' not in plan:
        return False
    try:
        return "seam_file" in json.loads(plan)
    except ValueError:
        return False


def _choice(value: Any, name: str, choices: Dict[Any, int]) -> int:
    if value not in choices:
        expected = ", ".join(repr(key) for key in choices)
        raise ValueError(f"{name} is {value!r}, expected one of {expected}")
    return choices[value]


def _rect(record: PanovalMosaicRect) -> Rect:
    return Rect(record.x, record.y, record.width, record.height)


def _out_array(out: np.ndarray, shape: Tuple[int, ...], dtype: np.dtype) -> np.ndarray:
    if not isinstance(out, np.ndarray) or out.shape != shape or out.dtype != dtype or not out.flags.writeable:
        raise ValueError(f"out is no writable array of the shape {shape} and {dtype}")
    inner = np.empty((1,) + shape[1:], dtype).strides[1:]
    if out.strides[1:] != inner or out.strides[0] < shape[1] * inner[0]:
        raise ValueError("out does not have the samples of a row side by side")
    return out
