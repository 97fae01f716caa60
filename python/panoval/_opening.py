# SPDX-License-Identifier: MIT
"""Pictures that are opened when their rows are needed first, and closed when they are not needed for a while."""

from __future__ import annotations

import threading
from typing import Any, Callable, List, Optional, Tuple

from . import _images
from ._pictures import Picture
from ._records import PanovalMosaicPicture

OpenPicture = Callable[[int, str], Any]


class Lazy:
    """A picture of a plan: opened when its rows are needed first."""

    def __init__(self, index: int, name: str, open_picture: OpenPicture) -> None:
        self._index, self._name, self._open = index, name, open_picture
        self._opened: Any = None
        self._lock = threading.Lock()

    def reader(self, part: int) -> Callable[[int, int], Any]:
        """Reads the picture (0), its mask (1) or its keep mask (2)."""
        return lambda first, count: self._sources(part)[first:first + count]

    def _sources(self, part: int) -> Any:
        with self._lock:
            if self._opened is None:
                opened = self._open(self._index, self._name)
                self._opened = opened if isinstance(opened, tuple) else (opened,)
            if part >= len(self._opened) or self._opened[part] is None:
                raise ValueError(f"{self._name} was opened without {_PART_NAMES[part]}, which the plan says it has")
            return self._opened[part]

    def release(self) -> None:
        with self._lock:
            opened, self._opened = self._opened, None
        for source in opened or ():
            if hasattr(source, "close"):
                source.close()


_PART_NAMES = ("pixels", "the mask", "the keep mask")


def planned(index: int, record: PanovalMosaicPicture, open_picture: Optional[OpenPicture]) -> Picture:
    name = (record.name or b"").decode("utf-8", "surrogateescape") or f"picture {index + 1}"
    shape: Tuple[int, ...] = (record.height, record.width)
    if record.channels != 1:
        shape += (record.channels,)

    def missing(first: int, count: int) -> Any:
        raise ValueError(f"no open_picture was given that could read {name}")

    lazy, readers = (None, [missing] * 3) if open_picture is None else lazy_parts(index, name, open_picture)
    return Picture(name, record.x, record.y, shape, _images.U8 if record.bits == 8 else _images.U16, readers[0],
                   readers[1] if record.has_mask else None, readers[2] if record.has_keep else None,
                   bool(record.random_access), lazy.release if lazy else None)


def lazy_parts(index: int, name: str, open_picture: OpenPicture) -> Tuple[Lazy, List[Any]]:
    """A picture that is opened when it is needed first, and readers of its samples, its mask and its keep mask."""
    lazy = Lazy(index, name, open_picture)
    return lazy, [lazy.reader(part) for part in range(3)]
