#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""How much faster two threads of Python are than one: threads.py [ROUNDS]

Smooths pictures in one thread, in two at once, and in two processes at once, in turns; prints the ratios of pictures a second.
It takes two free cores to say anything: what two processes reach is what the machine has to give at the time.
"""

import multiprocessing
import os
import statistics
import sys
import threading
import time

import numpy as np

import panoval

CALLS = 40


def work(image):
    """Of one thread or process."""
    for _ in range(CALLS):
        panoval.smooth(image)


def pictures_a_second(kind, count, image):
    """Of all threads or processes together."""
    workers = [kind(target=work, args=(image,)) for _ in range(count)]
    started = time.perf_counter()
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    return count * CALLS / (time.perf_counter() - started)


def main(rounds=7):
    """Prints the ratios."""
    picture = np.random.default_rng(1).integers(0, 256, (2000, 3000), np.uint8)
    process = multiprocessing.get_context("fork").Process  # smoothing starts no threads that a fork would lose
    for name, kind in (("threads", threading.Thread), ("processes", process)):
        ratios = sorted(pictures_a_second(kind, 2, picture) / pictures_a_second(kind, 1, picture) for _ in range(rounds))
        print(f"two {name}: {statistics.median(ratios):.2f} x one ({ratios[0]:.2f} to {ratios[-1]:.2f})")
    print(f"{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f}")


if __name__ == "__main__":
    main(*(int(value) for value in sys.argv[1:2]))
