# SPDX-License-Identifier: MIT
"""What the engine calls back: rows of pictures, progress, the sink. Python's exceptions wait here until the call returns."""

from __future__ import annotations

import contextlib
import ctypes
import threading
from typing import Any, Callable, Iterator, List, Optional, Union

from . import _images
from ._pictures import Picture, give_rows, window
from ._records import (PanovalMosaicHost, PanovalMosaicSink, ReadRows, ReleasePicture, ReportProgress, WritePixels)
from .errors import PanovalError

PHASES = ("gains", "seams", "verdict", "blend")
MESSAGE_SIZE = 512

Report = Callable[[str, float], Any]
Progress = Union[None, bool, Report]
SinkCallable = Any


def leave_message(address: Optional[int], failure: BaseException) -> None:
    """Puts an exception's text where the engine looks for it."""
    if address:
        text = f"{type(failure).__name__}: {failure}".encode("utf-8", "replace")[:MESSAGE_SIZE - 1]
        text = text.decode("utf-8", "ignore").encode()  # no half character at the end
        ctypes.memmove(address, text + b"\0", len(text) + 1)


class Host:
    """The host of one mosaic."""

    def __init__(self, pictures: List[Picture]) -> None:
        self._pictures = pictures
        self._lock = threading.Lock()
        self._failure: Optional[BaseException] = None
        self._cancelled = False
        self.report: Optional[Report] = None
        self.sink: Optional["Sink"] = None
        # The functions must live as long as the mosaic; they must not keep it, or the pictures, alive in a circle.
        self.record = PanovalMosaicHost(None, ReadRows(_reading(self)), ReleasePicture(_releasing(self)),
                                        ReportProgress(_reporting(self)))

    def cancel(self) -> None:
        self._cancelled = True

    def keep(self, failure: BaseException, picture: Optional[Picture] = None) -> None:
        """Remembers the first exception; names the picture in it."""
        if picture is not None:
            with contextlib.suppress(Exception):
                failure.picture = picture.name  # type: ignore[attr-defined]
                if hasattr(failure, "add_note"):
                    failure.add_note(f"while reading {picture.name}")
        with self._lock:
            if self._failure is None:
                self._failure = failure

    def forget(self) -> None:
        with self._lock:
            self._failure, self._cancelled = None, False

    def raise_own(self, code: int, failure: PanovalError) -> None:
        """Raises what a callable raised, where that is why the call failed."""
        with self._lock:
            own, self._failure, self._cancelled = self._failure, None, False
        if self.sink is not None and self.sink.failure is not None:
            own = own or self.sink.failure
        if own is not None and code in (2, 4, 6):
            raise own from failure

    def read(self, record: Any) -> int:
        rows = record.contents
        try:
            give_rows(self._pictures[rows.picture], rows)
            return 0
        except BaseException as failure:
            self.keep(failure, self._pictures[rows.picture])
            leave_message(rows.message, failure)
            return 1

    def release(self, index: int) -> None:
        try:
            release = self._pictures[index].release
            if release is not None:
                release()
        except BaseException as failure:
            self.keep(failure)
            self.cancel()

    def tell(self, phase: int, fraction: float) -> int:
        try:
            report = self.report
            if report is not None and not self._cancelled and report(PHASES[phase], fraction) is False:
                self.cancel()
        except BaseException as failure:
            self.keep(failure)
            self.cancel()
        return int(self._cancelled)


def _weak(host: Host) -> Callable[[], Host]:
    import weakref

    return weakref.ref(host)  # type: ignore[return-value]


def _reading(host: Host) -> Callable[..., int]:
    target = _weak(host)
    return lambda _user, rows: target().read(rows)


def _releasing(host: Host) -> Callable[..., None]:
    target = _weak(host)
    return lambda _user, index: target().release(index) if target() is not None else None


def _reporting(host: Host) -> Callable[..., int]:
    target = _weak(host)
    return lambda _user, phase, fraction: target().tell(phase, fraction)


class Sink:
    """Who takes the pixels of a run."""

    def __init__(self, taker: SinkCallable, layout: Any, by_tiles: bool, coverage: bool) -> None:
        if not hasattr(taker, "__setitem__") and not callable(taker):
            raise TypeError(f"sink is a {type(taker).__name__}, expected a callable or an array of the panorama's shape")
        if hasattr(taker, "__setitem__") and tuple(getattr(taker, "shape", ())) != layout.shape():
            raise ValueError(f"sink has the shape {tuple(getattr(taker, 'shape', ()))}, expected {layout.shape()}")
        self._taker, self._layout = taker, layout
        self.failure: Optional[BaseException] = None
        self.record = PanovalMosaicSink(None, WritePixels(self._write), int(by_tiles), int(coverage))

    def end(self) -> None:
        """No circle of references keeps the taker."""
        del self.record

    def _write(self, _user: Any, rect: Any, samples: int, stride: int, coverage: Optional[int], coverage_stride: int,
               message: int) -> int:
        from .mosaic import Rect

        try:
            place = Rect(rect.contents.x, rect.contents.y, rect.contents.width, rect.contents.height)
            shape = self._layout.shape(place.height, place.width)
            pixels = window(samples, shape, self._layout.dtype, stride)
            if hasattr(self._taker, "__setitem__"):
                self._taker[place.slices] = pixels
                return 0
            covered = window(coverage, shape[:2], _images.U8, coverage_stride) if coverage else None
            self._taker(place, pixels, covered)
            return 0
        except BaseException as failure:
            self.failure = self.failure or failure
            leave_message(message, failure)
            return 1


@contextlib.contextmanager
def progress_of(progress: Progress) -> Iterator[Optional[Report]]:
    """A callable as it is; True as bars of tqdm."""
    if progress is None or progress is False:
        yield None
    elif progress is True:
        with _Bars() as bars:
            yield bars
    elif callable(progress):
        yield progress
    else:
        raise TypeError(f"progress is a {type(progress).__name__}, expected a callable or True")


class _Bars:
    """One bar of tqdm for each phase."""

    def __init__(self) -> None:
        from tqdm.auto import tqdm  # ImportError says what is missing

        self._make, self._phase = tqdm, ""
        self._bar: Any = None

    def __enter__(self) -> "_Bars":
        return self

    def __exit__(self, *_: Any) -> None:
        self._close()

    def _close(self) -> None:
        if self._bar is not None:
            self._bar.close()
            self._bar = None

    def __call__(self, phase: str, fraction: float) -> None:
        if phase != self._phase:
            self._close()
            self._bar, self._phase = self._make(total=1000, desc=phase, bar_format="{desc}: {percentage:3.0f}%|{bar}|"), phase
        self._bar.update(round(1000 * fraction) - self._bar.n)
