# SPDX-License-Identifier: MIT
"""`stitch`: placed pictures in, one panorama out, with all that was found out about it."""

from __future__ import annotations

from typing import Any, Dict, NamedTuple, Optional, Sequence, Tuple

import numpy as np

from ._callbacks import Progress
from .mosaic import Mosaic, Rect

__all__ = ["Panorama", "stitch"]


class Panorama(NamedTuple):
    """What stitching gives."""

    image: np.ndarray  #: (height, width) or (height, width, channels), uint8 or uint16; 0 where no picture is
    coverage: np.ndarray  #: (height, width) uint8: 0 = no picture, else the owner's mask there, 255 where it has none
    gains: np.ndarray  #: (pictures,) of GAIN_DTYPE
    seams: Optional[np.ndarray]  #: (height, width) int32: number of the picture a pixel belongs to, -1: none. None without
    verdict: Dict[str, Any]  #: what was found out; verdict["verdict"] is 'good', 'look' or 'bad'
    origin: Tuple[int, int]  #: x, y of the panorama's top-left corner in the frame of the positions


def stitch(pictures: Sequence[Any], positions: Sequence[Any], masks: Optional[Sequence[Any]] = None, *,
           keep: Optional[Sequence[Any]] = None, names: Optional[Sequence[str]] = None, progress: Progress = None,
           **options: Any) -> Panorama:
    """Makes one picture of overlapping ones that are aligned already.

    pictures   (height, width) or (height, width, 1, 3 or 4), uint8 or uint16, all of the same type and channels: arrays or
               anything else that is sliced by rows
    positions  x, y of each one's top-left corner, whole numbers, pixels
    masks      None, or for each picture None or (height, width) uint8 or bool: 0 = not covered
    keep       the same: what is not 0 belongs to that picture
    names      for messages and the verdict; else "picture 1" ...
    progress   a callable (phase, fraction), or True for bars of tqdm
    options    of panoval.Mosaic: memory, wrap, threads, bands, blend, seams, gains, vignetting, anchor, tile_size, output_bits

    Raises TypeError and ValueError for wrong arguments, panoval.PanovalError with the engine's text for what it refuses.

    >>> import numpy as np
    >>> scene = np.random.default_rng(7).integers(60, 180, (40, 90), np.uint8)
    >>> result = stitch([scene[:, :60], scene[:, 30:]], [(0, 0), (30, 0)])
    >>> bool((result.image == scene).all()), result.seams.shape, result.verdict["verdict"]
    (True, (40, 90), 'good')
    """
    count = len(pictures)
    for name, values in (("positions", positions), ("masks", masks), ("keep", keep), ("names", names)):
        if values is not None and len(values) != count:
            raise ValueError(f"{name} has {len(values)} elements, expected {count} as pictures")
    with Mosaic(**options) as mosaic:
        for index, picture in enumerate(pictures):
            mosaic.add(picture, positions[index], mask=masks[index] if masks is not None else None,
                       keep=keep[index] if keep is not None else None, name=names[index] if names is not None else None)
        return _made(mosaic, progress)


def _made(mosaic: Mosaic, progress: Progress) -> Panorama:
    layout = mosaic.layout
    mosaic.measure(progress=progress)
    image, coverage = np.empty(layout.shape(), layout.dtype), np.empty(layout.shape()[:2], np.uint8)

    def take(rect: Rect, samples: np.ndarray, covered: np.ndarray) -> None:
        image[rect.slices] = samples
        coverage[rect.slices] = covered

    mosaic.run(take, progress=progress)
    has_seams = mosaic.has_seams
    return Panorama(image, coverage, mosaic.gains, mosaic.seam_rows() if has_seams else None, mosaic.verdict(),
                    (layout.origin_x, layout.origin_y))
