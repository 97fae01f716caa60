# SPDX-License-Identifier: MIT
"""The exceptions of this package. Each carries the library's own sentence.

Wrong arguments that are seen before the library is called raise TypeError and ValueError; those that the library sees raise
one of these, which are kinds of ValueError, OSError or MemoryError where Python's own would be meant.
"""

from __future__ import annotations

from typing import Any, Dict, Optional, Type

__all__ = ["PanovalError", "ArgumentError", "PictureError", "OutOfMemoryError", "CancelledError", "PlanError", "SinkError",
           "InternalError", "MeasureError", "NoEllipseError"]


class PanovalError(Exception):
    """Anything that a library refused. `code` is the number that it gave."""

    def __init__(self, text: str, code: int = 0) -> None:
        super().__init__(text)
        self.code = code

    def __reduce__(self) -> Any:
        return type(self), (str(self), self.code), self.__dict__


class ArgumentError(PanovalError, ValueError):
    """An argument, or a call out of order."""


class PictureError(PanovalError):
    """A picture's rows could not be had. What a callable raised comes out itself, not this."""


class OutOfMemoryError(PanovalError, MemoryError):
    """The heap is exhausted, or the budget is too small; then the text names the least that would do."""


class CancelledError(PanovalError):
    """The progress callback asked for it."""


class PlanError(PanovalError, ValueError):
    """A stored plan that does not parse, or that another version wrote."""


class SinkError(PanovalError):
    """The sink could not take pixels."""


class InternalError(PanovalError, RuntimeError):
    """A defect of the engine."""


class MeasureError(PanovalError, ValueError):
    """A measurement that could not be made. `index` is the target's number where one is to blame, and `targets` has all
    records then, each with its own code."""

    def __init__(self, text: str, code: int = 0, index: Optional[int] = None, targets: Any = None) -> None:
        super().__init__(text, code)
        self.index = index
        self.targets = targets

    def __reduce__(self) -> Any:
        return type(self), (str(self), self.code, self.index, self.targets), self.__dict__


class NoEllipseError(PanovalError, ValueError):
    """Points that no ellipse fits."""


MOSAIC_ERRORS: Dict[int, Type[PanovalError]] = {
    1: ArgumentError, 2: PictureError, 3: OutOfMemoryError, 4: CancelledError, 5: PlanError, 6: SinkError,
    7: InternalError,
}
