# SPDX-License-Identifier: MIT
"""Gains of parts, put together."""

import numpy as np
from hypothesis import given, settings
from hypothesis import strategies as st

from panoval import GAIN_DTYPE
from panoval.gain_parts import align, components


def parts_of(truth, parts, factors, noise=0.0, outliers=()):
    """What parts would say of gains that are known."""
    random = np.random.default_rng(1)
    found = []
    for part, factor in zip(parts, factors):
        gains = np.zeros(len(part), GAIN_DTYPE)
        gains["gain"] = (truth[part] * factor * np.exp(noise * random.normal(size=len(part))))[:, np.newaxis]
        gains["is_outlier"] = [picture in outliers for picture in part]
        found.append(gains)
    return found


@settings(max_examples=50, deadline=None)
@given(st.integers(2, 30), st.integers(2, 6), st.integers(0, 2**31 - 1))
def test_gains_of_a_chain_of_parts_come_back(count, width, seed):
    random = np.random.default_rng(seed)
    truth = np.exp(random.uniform(-0.5, 0.5, count))
    parts = [list(range(first, min(first + width, count))) for first in range(0, count - 1, width - 1)]
    found = parts_of(truth, parts, np.exp(random.uniform(-1, 1, len(parts))))
    gains = align(count, parts, found, [list(range(count))], None)
    expected = truth / np.exp(np.log(truth).mean())
    assert np.allclose(gains, expected[:, np.newaxis], rtol=1e-9)
    anchored = align(count, parts, found, [list(range(count))], count - 1)
    assert np.allclose(anchored[-1], 1) and np.allclose(anchored, (truth / truth[-1])[:, np.newaxis], rtol=1e-9)


def test_groups_that_nothing_connects_have_a_mean_of_their_own():
    truth = np.array([2.0, 4.0, 10.0, 1000.0, 5.0])
    parts = [[0, 1], [2, 3]]
    groups = components(range(5), [(0, 1), (2, 3)])
    gains = align(5, parts, parts_of(truth, parts, [1, 3]), groups, None)[:, 0]
    assert groups == [[0, 1], [2, 3], [4]]
    assert np.allclose(gains, [0.5**0.5, 2**0.5, 0.1, 10, 1])


def test_a_small_picture_counts_by_its_area():
    truth = np.array([1.0, 1.0, 8.0])
    gains = align(3, [[0, 1, 2]], parts_of(truth, [[0, 1, 2]], [1]), [[0, 1, 2]], None, [100, 99, 1])[:, 0]
    assert np.allclose(gains, truth / 8**0.005)
    parts, groups = [[0, 1], [1, 2]], [[0, 1, 2]]
    assert np.allclose(align(3, parts, parts_of(truth, parts, [2, 5]), groups, None, [100, 99, 1])[:, 0], gains)


def test_a_picture_that_does_not_fit_ties_nothing():
    truth = np.array([1.0, 1.0, 1.0, 1.0])
    parts = [[0, 1, 2], [1, 2, 3]]
    found = parts_of(truth, parts, [1, 2], outliers=(2,))
    found[0]["gain"][2] = 7  # nonsense in one part
    gains = align(4, parts, found, [[0, 1, 2, 3]], 0)[:, 0]
    assert np.allclose(gains[[0, 1, 3]], 1, rtol=1e-4) and 1 < gains[2] < 7


def test_noise_of_parts_does_not_add_up_beyond_a_walk():
    count = 200
    truth = np.ones(count)
    parts = [list(range(first, min(first + 20, count))) for first in range(0, count - 10, 10)]
    gains = align(count, parts, parts_of(truth, parts, np.ones(len(parts)), noise=0.001), [list(range(count))], None)
    assert np.abs(np.log(gains)).max() < 0.005
