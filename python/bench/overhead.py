#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""What a call from Python costs beside the work: overhead.py [LIMIT]

Each routine works on a picture so small that next to nothing is left to do. Prints microseconds of processor time, the median of 15 runs; with
LIMIT, ends with 1 where one of the raw or filter calls takes longer.
"""

import statistics
import sys
import time
import timeit

import numpy as np

import panoval
from panoval import raw


def cases():
    """Name, call."""
    grey = np.full((4, 4), 90, np.uint8)
    colour = np.full((4, 4, 3), 90, np.uint8)
    mask = np.full((4, 4), 255, np.uint8)
    out = np.empty_like(grey)
    points = np.stack([np.cos(np.arange(8)), np.sin(np.arange(8))], axis=1)
    bins = panoval.histogram(grey)
    return {
        "raw.panoval_version": lambda: raw.panoval_version(),
        "raw.smooth_image": lambda: raw.smooth_image(grey, 4, 4, out),
        "smooth": lambda: panoval.smooth(grey),
        "gradients": lambda: panoval.gradients(grey),
        "distance_transform": lambda: panoval.distance_transform(mask),
        "histogram": lambda: panoval.histogram(grey),
        "threshold": lambda: panoval.threshold(bins),
        "oval_fit": lambda: panoval.oval_fit(points),
        "crop": lambda: panoval.crop(colour, (0, 0, 2, 2)),
        "apply_gain": lambda: panoval.apply_gain(colour, 1.5),
        "overlap": lambda: panoval.overlap((0, 0), (4, 4), (2, 2), (4, 4)),
        "measure (no target)": lambda: panoval.measure(grey),
    }


def microseconds(call):
    """The median of 15 runs of 500 calls."""
    return statistics.median(timeit.repeat(call, timer=time.process_time, number=500, repeat=15)) / 500 * 1e6


if __name__ == "__main__":
    times = {name: microseconds(call) for name, call in cases().items()}
    for name, time in times.items():
        print(f"{name:24} {time:8.1f} us")
    if len(sys.argv) > 1 and max(times.values()) > float(sys.argv[1]):
        sys.exit(1)
