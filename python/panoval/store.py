# SPDX-License-Identifier: MIT
"""A panorama as OME-Zarr (NGFF 0.4 on Zarr version 2), filled by any number of processes at once; the same stores as
`panoval stitch --tile` makes, so that either may go on with what the other began.

  .zgroup .zattrs     what the store is
  0/.zarray           an array c, y, x; with coverage the last channel is it
  0/0/ROW/COLUMN      chunks of all channels; one that is all 0 has no file
  .panoval/tiles/K    the mark of tile K: the plan, and how long the file of each of its chunks is

A chunk is written beside its place and renamed, a mark is written when all chunks of its tile are there. Nothing is locked, the
order does not matter, and nothing half-written counts.
"""

from __future__ import annotations

import itertools
import json
import os
import threading
import zlib
from pathlib import Path
from typing import Any, Dict, List, NamedTuple, Optional, Union

import numpy as np

from .errors import PanovalError
from .mosaic import Layout, Pixels, Tile

__all__ = ["Store", "StoreError"]

_VERSION = 1
_LEVEL = 1  # of zlib: photographs gain little from a higher one
_COUNTER = itertools.count()
_COUNTER_LOCK = threading.Lock()


class StoreError(PanovalError, OSError):
    """A folder that is no store, or one of another plan."""


def chunk_side(tile: int, whole: int) -> int:
    """The side of chunks that divide tiles."""
    if tile >= whole:
        return min(whole, 512)
    for side in (512, 256):
        if tile % side == 0:
            return side
    return next((side for side in range(min(tile, 1024), 63, -1) if tile % side == 0), tile)


class Picture(NamedTuple):
    """What a store is made for."""

    shape: List[int]  #: channels (with the coverage), height, width
    chunks: List[int]  #: the same of a chunk
    bits: int
    has_coverage: bool
    plan: str  #: names what the pixels follow from
    tiles: int
    x: int  #: of the panorama's corner
    y: int
    metadata: Dict[str, Any] = {}  #: profile, resolution, exif, as the plan of panoval's program has it

    @classmethod
    def of(cls, layout: Layout, plan: str, coverage: bool, metadata: Optional[Dict[str, Any]] = None) -> "Picture":
        """The store for a panorama."""
        if layout.channels == 4:
            raise ValueError("a store takes pictures of 1 or 3 channels, these have 4")
        channels = layout.channels + int(coverage)
        chunks = [channels, chunk_side(layout.tile_height, layout.height), chunk_side(layout.tile_width, layout.width)]
        return cls([channels, layout.height, layout.width], chunks, layout.bits, coverage, plan, layout.tiles,
                   layout.origin_x, layout.origin_y, dict(metadata or {}))

    @property
    def dtype(self) -> np.dtype:
        return np.dtype("<u2" if self.bits == 16 else "|u1")

    def array_text(self) -> str:
        """.zarray"""
        return _text({"chunks": self.chunks, "compressor": {"id": "zlib", "level": _LEVEL}, "dimension_separator": "/",
                      "dtype": self.dtype.str, "fill_value": 0, "filters": None, "order": "C", "shape": self.shape,
                      "zarr_format": 2})

    def attributes_text(self) -> str:
        """.zattrs"""
        transformations = [{"type": "scale", "scale": [1.0, 1.0, 1.0]},
                           {"type": "translation", "translation": [0.0, float(self.y), float(self.x)]}]
        axes = [{"name": "c", "type": "channel"}, {"name": "y", "type": "space"}, {"name": "x", "type": "space"}]
        datasets = [{"path": "0", "coordinateTransformations": transformations}]
        is_grey = self.shape[0] < 3
        own = {"version": _VERSION, "plan": self.plan, "tiles": self.tiles, "x": self.x, "y": self.y}
        if self.metadata:
            own["metadata"] = self.metadata
        return _text({
            "multiscales": [{"version": "0.4", "name": "panorama", "axes": axes, "datasets": datasets, "type": "mean"}],
            "omero": {"version": "0.4", "name": "panorama", "channels": self._channels(is_grey),
                      "rdefs": {"model": "greyscale" if is_grey else "color"}},
            "panoval": own})

    def _channels(self, is_grey: bool) -> List[Dict[str, Any]]:
        most = 65535 if self.bits == 16 else 255
        names = ["grey"] if is_grey else ["red", "green", "blue"]
        colours = ["FFFFFF"] if is_grey else ["FF0000", "00FF00", "0000FF"]
        if self.has_coverage:
            names, colours = names + ["coverage"], colours + ["FFFFFF"]
        window = {"min": 0, "max": most, "start": 0, "end": most}
        return [{"active": name != "coverage", "color": colour, "label": name, "window": window}
                for name, colour in zip(names, colours)]


def _text(value: Any) -> str:
    return json.dumps(value, indent=1, ensure_ascii=False) + "\n"


def write_whole(place: Path, data: bytes) -> None:
    """Writes a file beside its place and renames it; where that fails nothing is left behind."""
    with _COUNTER_LOCK:
        number = next(_COUNTER)
    part = place.with_name(f"{place.name}.{os.getpid()}-py{number}.part")
    try:
        with open(part, "wb") as file:
            file.write(data)
        os.replace(part, place)
    except BaseException:
        part.unlink(missing_ok=True)
        raise


class Store:
    """A store that is being filled.

    >>> import numpy as np, tempfile
    >>> from panoval import Mosaic
    >>> mosaic = Mosaic(); mosaic.add(np.full((4, 6), 9, np.uint8), (0, 0)); mosaic.measure("gains", "seams")
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     store = Store.begin(folder + "/p.zarr", mosaic.layout, "a plan's name")
    ...     for tile, pixels in mosaic.blend_tiles():
    ...         store.write(tile, pixels)
    ...     store.missing(), int(store.read().min())
    ([], 9)
    """

    def __init__(self, folder: Path, picture: Picture) -> None:
        self.folder, self.picture = folder, picture

    @classmethod
    def begin(cls, folder: Union[str, "os.PathLike[str]"], layout: Layout, plan: str, coverage: bool = False,
              metadata: Optional[Dict[str, Any]] = None) -> "Store":
        """Makes a store, or goes on with one that the same plan began.

        folder, layout  where, and of what
        plan            a name of the plan, which no other plan has
        coverage        True: the last channel is the coverage
        metadata        what the pictures made of the store are to tell, as plans of panoval's program have it

        Raises StoreError where the folder is something else.
        """
        store = cls(Path(folder), Picture.of(layout, plan, coverage, metadata))
        if store._goes_on():
            return store
        store._check_place()
        (store.folder / ".panoval" / "tiles").mkdir(parents=True, exist_ok=True)
        (store.folder / "0").mkdir(exist_ok=True)
        write_whole(store.folder / ".zgroup", _text({"zarr_format": 2}).encode())
        write_whole(store.folder / "0" / ".zarray", store.picture.array_text().encode())
        write_whole(store.folder / ".zattrs", store.picture.attributes_text().encode())
        return store

    def _goes_on(self) -> bool:
        try:
            own = json.loads((self.folder / ".zattrs").read_text()).get("panoval", {})
            array = json.loads((self.folder / "0" / ".zarray").read_text())
        except FileNotFoundError:
            return False
        except (ValueError, AttributeError, NotADirectoryError) as error:
            raise StoreError(f"{self.folder} is no store: {error}") from error
        if own.get("version") != _VERSION or own.get("plan") != self.picture.plan:
            raise StoreError(f"{self.folder} is a store that another plan began ({own.get('plan')}); expected one of this "
                             f"plan ({self.picture.plan}), or another name")
        if array != json.loads(self.picture.array_text()):
            raise StoreError(f"{self.folder} is a store of other channels, chunks or compression")
        return True

    def _check_place(self) -> None:
        if self.folder.exists() and not self.folder.is_dir():
            raise StoreError(f"{self.folder} is a file; expected a folder, or a name that is not there yet")
        if self.folder.is_dir():
            others = [entry.name for entry in self.folder.iterdir()
                      if entry.name not in (".zgroup", "0", ".panoval") and ".part" not in entry.name]
            if others:
                raise StoreError(f"{self.folder} is a folder with {others[0]} in it; expected a store, or a name that is "
                                 "not there yet")

    def _mark(self, index: int) -> Path:
        return self.folder / ".panoval" / "tiles" / str(index)

    def has(self, index: int) -> bool:
        """Whether this plan's tile is there as a whole."""
        try:
            mark = json.loads(self._mark(index).read_text())
            if mark["plan"] != self.picture.plan:
                return False
            return all(_size(self.folder / "0" / name) == size for name, size in mark["chunks"].items())
        except (FileNotFoundError, ValueError, KeyError, TypeError, AttributeError):
            return False

    def missing(self) -> List[int]:
        """The tiles that are not there."""
        return [index for index in range(self.picture.tiles) if not self.has(index)]

    def write(self, tile: Tile, pixels: Pixels) -> None:
        """Writes a tile's chunks, then its mark."""
        planes = self._planes(pixels)
        _, height, width = self.picture.chunks
        sizes: Dict[str, int] = {}
        for v in range(0, tile.rect.height, height):
            for u in range(0, tile.rect.width, width):
                chunk = np.zeros(self.picture.chunks, self.picture.dtype)
                part = planes[:, v:v + height, u:u + width]
                chunk[:, :part.shape[1], :part.shape[2]] = part
                name = f"0/{(tile.rect.y + v) // height}/{(tile.rect.x + u) // width}"
                sizes[name] = self._write_chunk(name, chunk)
        mark = {"plan": self.picture.plan, "tile": tile.number, "chunks": sizes}
        write_whole(self._mark(tile.number), (json.dumps(mark, separators=(",", ":")) + "\n").encode())

    def _planes(self, pixels: Pixels) -> np.ndarray:
        samples = pixels.samples if pixels.samples.ndim == 3 else pixels.samples[:, :, np.newaxis]
        planes = np.moveaxis(samples, 2, 0)
        if not self.picture.has_coverage:
            return planes
        coverage = pixels.coverage.astype(self.picture.dtype) * (257 if self.picture.bits == 16 else 1)
        return np.concatenate([planes, coverage[np.newaxis].astype(planes.dtype)])

    def _write_chunk(self, name: str, chunk: np.ndarray) -> int:
        place = self.folder / "0" / name
        if not chunk.any():
            place.unlink(missing_ok=True)
            return 0
        data = zlib.compress(chunk.tobytes(), _LEVEL)
        place.parent.mkdir(parents=True, exist_ok=True)
        write_whole(place, data)
        return len(data)

    def read(self) -> np.ndarray:
        """The whole array, (channels, height, width); for stores that fit in memory."""
        whole = np.zeros(self.picture.shape, self.picture.dtype)
        _, height, width = self.picture.chunks
        for v in range(0, self.picture.shape[1], height):
            for u in range(0, self.picture.shape[2], width):
                place = self.folder / "0" / "0" / str(v // height) / str(u // width)
                if place.exists():
                    chunk = np.frombuffer(zlib.decompress(place.read_bytes()), self.picture.dtype)
                    part = whole[:, v:v + height, u:u + width]
                    part[...] = chunk.reshape(self.picture.chunks)[:, :part.shape[1], :part.shape[2]]
        return whole


def _size(place: Path) -> int:
    try:
        return place.stat().st_size
    except FileNotFoundError:
        return 0
