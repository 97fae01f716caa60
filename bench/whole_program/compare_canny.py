#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Times canny beside the edge detector of libvips on the same grey picture.

compare_canny.py LIBPANOVAL [WIDTH HEIGHT SIGMA] prints processor time per call and the ratio for each precision that
libvips offers. Both run in one thread. The program `vips` (package libvips-tools) runs as a child; from its time goes
that of `vips copy` of its own result, which is start-up and the reading and writing of files at least as large. Of the
library only the call is timed. All times are the least of several rounds that take turns.
"""
import ctypes
import math
import os
import random
import subprocess
import sys
import tempfile
import time

ROUNDS = 7
PRECISIONS = ("integer", "float", "approximate")


def make_picture(width, height):
    """Waves, hard edges and grain, as bytes."""
    wave = [60 * math.sin(x * 0.021) + (40 if x // 97 % 2 else 0) for x in range(width)]
    rows = []
    for y in range(height):
        grain = random.Random(y).randbytes(width)
        tall = 100 + 40 * math.sin(y * 0.013)
        rows.append(bytes(max(0, min(255, int(tall + w + g / 32))) for w, g in zip(wave, grain)))
    return b"".join(rows)


def child_seconds(arguments):
    """User and system time of a child that runs in one thread."""
    environment = dict(os.environ, VIPS_CONCURRENCY="1")
    child = subprocess.Popen(arguments, env=environment)
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"{' '.join(arguments)}: exit code {child.returncode}")
    return usage.ru_utime + usage.ru_stime


def library_call(path, picture, width, height, sigma):
    """A function that runs canny once and gives its processor time."""
    library = ctypes.CDLL(path)
    library.canny.restype = None
    library.canny.argtypes = [ctypes.c_char_p, ctypes.c_int32, ctypes.c_int32, ctypes.c_void_p, ctypes.c_double,
                              ctypes.c_double, ctypes.c_double, ctypes.c_void_p, ctypes.c_void_p]
    edges = ctypes.create_string_buffer(width * height)

    def run():
        start = time.thread_time()
        library.canny(picture, height, width, edges, sigma, 0.4, 0.9, None, None)
        return time.thread_time() - start

    return run


def main(library, width=4000, height=3000, sigma=1.4):
    picture = make_picture(width, height)
    run_library = library_call(library, picture, width, height, sigma)
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
        source, result, copy = (os.path.join(folder, name) for name in ("in.v", "out.v", "copy.v"))
        pgm = os.path.join(folder, "in.pgm")
        with open(pgm, "wb") as file:
            file.write(b"P5\n%d %d\n255\n" % (width, height) + picture)
        subprocess.run(["vips", "copy", pgm, source], check=True)
        print(f"{width}x{height}, sigma {sigma}: processor time of one thread, least of {ROUNDS}")
        for precision in PRECISIONS:
            ours, theirs, copies = [], [], []
            command = ["vips", "canny", source, result, "--sigma", str(sigma), "--precision", precision]
            for _ in range(ROUNDS):
                ours.append(run_library())
                theirs.append(child_seconds(command))
                copies.append(child_seconds(["vips", "copy", result, copy]))
            net = min(theirs) - min(copies)
            print(f"{precision:12s} vips {min(theirs) * 1e3:7.1f} ms - copy {min(copies) * 1e3:6.1f} ms = "
                  f"{net * 1e3:7.1f} ms; canny {min(ours) * 1e3:6.1f} ms; ratio {net / min(ours):5.2f}")


if __name__ == "__main__":
    main(sys.argv[1], *(int(size) for size in sys.argv[2:4]), *(float(sigma) for sigma in sys.argv[4:5]))
