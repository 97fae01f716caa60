# SPDX-License-Identifier: MIT
"""Gains of parts of a panorama put together: each part knows its pictures' brightness against each other, and pictures that lie
in several parts tie these to each other.
"""

from __future__ import annotations

from typing import Dict, Iterable, List, Optional, Sequence, Tuple

import numpy as np

_ROUNDS = 200
_SETTLED = 1e-12


def components(pictures: Iterable[int], overlaps: Sequence[Tuple[int, int]]) -> List[List[int]]:
    """Pictures in groups that overlaps connect, each ascending, in the order of their first pictures.

    >>> components([0, 1, 2, 5], [(0, 2), (2, 3), (1, 5)])
    [[0, 2], [1, 5]]
    """
    leader: Dict[int, int] = {picture: picture for picture in pictures}

    def find(picture: int) -> int:
        while leader[picture] != picture:
            leader[picture] = leader[leader[picture]]
            picture = leader[picture]
        return picture

    for first, second in overlaps:
        if first in leader and second in leader:
            low, high = sorted((find(first), find(second)))
            leader[high] = low
    groups: Dict[int, List[int]] = {}
    for picture in sorted(leader):
        groups.setdefault(find(picture), []).append(picture)
    return [groups[key] for key in sorted(groups)]


def align(count: int, parts: Sequence[Sequence[int]], found: Sequence[np.ndarray], groups: Sequence[Sequence[int]],
          anchor: Optional[int]) -> np.ndarray:
    """Gains of all pictures, (count, 4), from those of parts.

    parts   numbers of each part's pictures
    found   the gains of each part, of GAIN_DTYPE
    groups  pictures that overlaps connect: each has a mean (logarithmic) gain of 1, or the anchor's is 1
    anchor  number of the picture whose exposure stays, or None

    Least squares of logarithms: a picture's gain is the mean of what its parts say, and a part's factor the mean of what its
    pictures say, until nothing changes. A picture that fits no part of its own counts for no factor.

    >>> from panoval import GAIN_DTYPE
    >>> one = np.array([([2.0] * 4, False), ([1.0] * 4, False)], GAIN_DTYPE)
    >>> two = np.array([([3.0] * 4, False), ([1.0] * 4, False)], GAIN_DTYPE)
    >>> gains = align(3, [[0, 1], [1, 2]], [one, two], [[0, 1, 2]], 2)
    >>> np.round(gains[:, 0], 6).tolist()
    [6.0, 3.0, 1.0]
    """
    logs = np.zeros((count, 4))
    if parts:
        members = [np.array(part) for part in parts]
        says = [np.log(gains["gain"]) for gains in found]
        weights = [np.where(gains["is_outlier"], 1e-6, 1.0)[:, np.newaxis] for gains in found]
        logs = _solve(count, members, says, weights)
    for group in groups:
        chosen = list(group)
        logs[chosen] -= logs[anchor] if anchor in group else logs[chosen].mean(axis=0)
    return np.exp(np.clip(logs, np.log(1e-6), np.log(1e6)))


def _solve(count: int, members: List[np.ndarray], says: List[np.ndarray], weights: List[np.ndarray]) -> np.ndarray:
    """Means in turns; parts that share pictures come to agree. One part, or parts that share none, need one round."""
    logs = np.zeros((count, 4))
    total = np.full((count, 1), 1e-300)
    for member, weight in zip(members, weights):
        np.add.at(total, member, weight)
    for _ in range(_ROUNDS * max(1, len(members))):
        sums = np.zeros((count, 4))
        for member, said, weight in zip(members, says, weights):
            factor = (weight * (said - logs[member])).sum(axis=0) / weight.sum()
            np.add.at(sums, member, weight * (said - factor))
        following = sums / total
        change = np.abs(following - logs).max()
        logs = following
        if change < _SETTLED:
            break
    return logs
