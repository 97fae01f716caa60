# SPDX-License-Identifier: MIT
"""What a call costs beside the work of the library."""

import sys
import time
import timeit
from pathlib import Path

import pytest

sys.path.append(str(Path(__file__).resolve().parent.parent / "bench"))
import overhead  # noqa: E402

LIMIT = 20.0  # microseconds


@pytest.mark.parametrize("name", list(overhead.cases()))
def test_a_call_costs_less_than_20_microseconds(name):
    call = overhead.cases()[name]
    # The processor's time of this thread: what others do at the time does not count, and the least of some runs is what
    # the call takes with a warm cache.
    least = min(timeit.repeat(call, timer=time.thread_time, number=200, repeat=12)) / 200 * 1e6
    assert least < LIMIT, f"{name} takes {least:.1f} microseconds"
