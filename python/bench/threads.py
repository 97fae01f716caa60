#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How much faster two threads of Python are than one: threads.py [ROUNDS]

Smooths pictures in one thread, then in two at once, in turns; prints the ratios of pictures a second. It takes two free
cores to say anything: the load of the machine is printed, too.
"""

import os
import statistics
import sys
import threading
import time

import numpy as np

import panoval

CALLS = 40


def pictures_a_second(threads, image):
    """Of all threads together."""
    def work():
        for _ in range(CALLS):
            panoval.smooth(image)

    started = time.perf_counter()
    workers = [threading.Thread(target=work) for _ in range(threads)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    return threads * CALLS / (time.perf_counter() - started)


if __name__ == "__main__":
    picture = np.random.default_rng(1).integers(0, 256, (2000, 3000), np.uint8)
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 7
    ratios = sorted(pictures_a_second(2, picture) / pictures_a_second(1, picture) for _ in range(rounds))
    print(f"two threads: {statistics.median(ratios):.2f} x one ({ratios[0]:.2f} to {ratios[-1]:.2f}), {os.cpu_count()} cores, "
          f"load {os.getloadavg()[0]:.1f}")
