# SPDX-License-Identifier: MIT
"""Gains of parts of a panorama put together: each part knows its pictures' brightness against each other, and pictures that lie
in several parts tie these to each other.
"""

from __future__ import annotations

from typing import Dict, Iterable, List, Optional, Sequence, Tuple

import numpy as np


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
          anchor: Optional[int], areas: Optional[Sequence[float]] = None) -> np.ndarray:
    """Gains of all pictures, (count, 4), from those of parts.

    parts   numbers of each part's pictures
    found   the gains of each part, of GAIN_DTYPE
    groups  pictures that overlaps connect: each has a mean (logarithmic) gain of 1, or the anchor's is 1
    anchor  number of the picture whose exposure stays, or None
    areas   what each picture counts in the mean, as in the engine; None: all the same

    Least squares of logarithms over pictures and one factor for each part. A picture that does not fit its part hardly counts.
    A part that is a whole group, without the anchor, keeps gains whose mean is 1 to the last bit.

    >>> from panoval import GAIN_DTYPE
    >>> one = np.array([([2.0] * 4, False), ([1.0] * 4, False)], GAIN_DTYPE)
    >>> two = np.array([([3.0] * 4, False), ([1.0] * 4, False)], GAIN_DTYPE)
    >>> gains = align(3, [[0, 1], [1, 2]], [one, two], [[0, 1, 2]], 2)
    >>> np.round(gains[:, 0], 6).tolist()
    [6.0, 3.0, 1.0]
    """
    shares = np.ones(count) if areas is None else np.asarray(areas, float)
    logs = np.zeros((count, 4))
    if parts:
        members = [np.array(part) for part in parts]
        says = [np.log(gains["gain"]) for gains in found]
        weights = [np.where(gains["is_outlier"], 1e-6, 1.0)[:, np.newaxis] for gains in found]
        logs = _solve(count, members, says, weights)
    for group in groups:
        chosen = list(group)
        logs[chosen] -= logs[anchor] if anchor in group else np.average(logs[chosen], axis=0, weights=shares[chosen])
    gains = np.exp(np.clip(logs, np.log(1e-6), np.log(1e6)))
    for part, own in zip(parts, found):
        is_group = list(part) in [list(group) for group in groups if anchor not in group]
        if is_group and np.abs(np.average(np.log(own["gain"]), axis=0, weights=shares[list(part)])).max() < 1e-9:
            gains[list(part)] = own["gain"]  # as it is to be already, but for rounding
    return gains


def _solve(count: int, members: List[np.ndarray], says: List[np.ndarray], weights: List[np.ndarray]) -> np.ndarray:
    """Logarithms of all pictures, up to one constant for each group that parts connect.

    Of the unknowns, pictures and parts' factors, the pictures are eliminated: each is the weighted mean of what its parts
    say less their factors. What is left has as many rows as there are parts.
    """
    total = np.zeros((count, 1))
    sums = np.zeros((count, 4))
    for member, said, weight in zip(members, says, weights):
        total[member] += weight
        sums[member] += weight * said
    total[total == 0] = 1  # of no part: its own
    mean = sums / total
    where: List[List[Tuple[int, float]]] = [[] for _ in range(count)]
    matrix, right = np.zeros((len(members), len(members))), np.zeros((len(members), 4))
    for part, (member, said, weight) in enumerate(zip(members, says, weights)):
        matrix[part, part] += weight.sum()
        right[part] = (weight * (said - mean[member])).sum(axis=0)
        for picture, own in zip(member, weight[:, 0]):
            where[picture].append((part, own))
    for picture, parts in enumerate(where):
        for part, own in parts:
            for other, others in parts:
                matrix[part, other] -= own * others / total[picture, 0]
    factors = np.linalg.lstsq(matrix, right, rcond=1e-12)[0]  # of the many solutions the smallest: constants are free
    logs = mean
    for part, (member, weight) in enumerate(zip(members, weights)):
        logs[member] -= weight / total[member] * factors[part]
    return logs
