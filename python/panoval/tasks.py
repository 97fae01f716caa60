# SPDX-License-Identifier: MIT
"""What workers do, whoever starts them: nothing here knows of an engine for tasks. panoval.dask hands these out; any other
way to run a function on another machine serves as well.
"""

from __future__ import annotations

import hashlib
import json
import os
import threading
from pathlib import Path
from typing import Any, NamedTuple, Optional, Tuple

from ._opening import OpenPicture
from .errors import PanovalError
from .mosaic import Mosaic
from .store import Store

__all__ = ["Run", "TileError", "blend_tile", "name_of_plan", "open_file"]


class TileError(PanovalError):
    """A tile that could not be made; `tile` is its number, `picture` the name of the picture that is to blame, if one is."""

    def __init__(self, text: str, code: int = 0, tile: int = -1, picture: Optional[str] = None) -> None:
        super().__init__(text, code)
        self.tile, self.picture = tile, picture

    def __reduce__(self) -> Any:
        return type(self), (str(self), self.code, self.tile, self.picture), self.__dict__


class Run(NamedTuple):
    """What all tasks of a run share: small, for it goes with each of them."""

    plan: str  #: name of the file with the plan, on a file system that all workers see
    plan_name: str  #: what the plan's text comes to
    store: str
    open_picture: OpenPicture
    coverage: bool
    memory: int
    threads: int
    token: str  #: of this run, so that a worker opens a plan once


def name_of_plan(plan: str) -> str:
    """A name that another plan does not have: its "id" where panoval's program wrote it.

    >>> name_of_plan('{"id": "4bb4d7c124189ede"}')
    '4bb4d7c124189ede'
    """
    own = json.loads(plan).get("id")
    if isinstance(own, str) and own:
        return own
    return hashlib.sha256(plan.encode("utf-8", "surrogateescape")).hexdigest()[:32]


def metadata_of_plan(plan: str) -> Any:
    """What a plan of panoval's program says that pictures made of it tell; None where it says nothing."""
    told = json.loads(plan).get("metadata")
    return told if isinstance(told, dict) else None


def open_file(index: int, name: str) -> Any:
    """Opens a picture by its file's ending: .npy (mapped), .tif or .tiff (with tifffile), .zarr (with zarr).

    >>> import numpy as np, tempfile
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     np.save(folder + "/a.npy", np.zeros((4, 6), np.uint8))
    ...     open_file(0, folder + "/a.npy").shape
    (4, 6)
    """
    ending = os.path.splitext(name)[1].lower()
    if ending == ".npy":
        import numpy as np

        return np.load(name, mmap_mode="r")
    if ending in (".tif", ".tiff"):
        import tifffile

        try:
            return tifffile.memmap(name, mode="r")
        except ValueError:  # compressed
            return tifffile.imread(name)
    if ending == ".zarr":
        import zarr

        return zarr.open(name, mode="r")
    raise ValueError(f"{name}: expected a file .npy, .tif, .tiff or .zarr; for others give an open_picture of your own")


_lock = threading.Lock()
_opened: Tuple[str, Optional[Mosaic], Optional[Store]] = ("", None, None)


def _open_run(run: Run) -> Tuple[Mosaic, Store]:
    """The run's mosaic and store in this process; those of an earlier run are given up."""
    global _opened
    with _lock:
        token, mosaic, store = _opened
        if token != run.token or mosaic is None or store is None:
            text = Path(run.plan).read_text(encoding="utf-8", errors="surrogateescape")
            if name_of_plan(text) != run.plan_name:
                raise PanovalError(f"{run.plan} is not the plan of this run: another one has been written there")
            mosaic = Mosaic.from_plan(text, run.open_picture, memory=run.memory, threads=run.threads)
            store = Store.begin(run.store, mosaic.layout, run.plan_name, run.coverage, metadata_of_plan(text))
            _opened = (run.token, mosaic, store)
        return mosaic, store


def blend_tile(run: Run, index: int) -> str:
    """Makes a tile and writes it, unless it is there. Returns "made" or "kept".

    Raises TileError, whose text names the tile, and the picture where one is to blame.

    >>> import tempfile
    >>> import numpy as np
    >>> mosaic = Mosaic(tile_size=16); mosaic.add(np.full((8, 30), 9, np.uint8), (0, 0)); mosaic.measure("seams")
    >>> with tempfile.TemporaryDirectory() as folder:
    ...     size = Path(folder, "plan.json").write_text(mosaic.plan())
    ...     run = Run(folder + "/plan.json", name_of_plan(mosaic.plan()), folder + "/p.zarr",
    ...               lambda index, name: np.full((8, 30), 9, np.uint8), False, 0, 1, "one run")
    ...     blend_tile(run, 1), blend_tile(run, 1)
    ('made', 'kept')
    """
    try:
        mosaic, store = _open_run(run)
        if store.has(index):
            return "kept"
        tile = mosaic.tile(index)
        store.write(tile, mosaic.blend(tile.rect))
        return "made"
    except Exception as failure:
        picture = getattr(failure, "picture", None)
        blamed = f"picture {picture}: " if picture else ""
        raise TileError(f"tile {index}: {blamed}{type(failure).__name__}: {failure}", getattr(failure, "code", 0), index,
                        picture) from failure
