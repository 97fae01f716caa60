#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes two RGBA TIFF layers of 3000 x 2000 pixels that overlap by half, for timing whole programs.

make_layers.py FOLDER writes FOLDER/layer0.tif and FOLDER/layer1.tif: uncompressed, unassociated alpha, with the tags
XPosition, YPosition, XResolution and YResolution that remapping programs write. The canvas is 4500 x 2000 pixels.
"""
import math
import random
import sys

from placed_tiff import write_tiff

WIDTH, HEIGHT, STEP = 3000, 2000, 1500


def row_of(layer, y):
    """One row of RGBA: smooth waves with grain, darker in the second layer; the corners are transparent."""
    grain = random.Random(layer * 100003 + y)
    noise = grain.randbytes(WIDTH)
    gain = (1.0, 0.8)[layer]
    tall = 40 * math.sin(y * 0.011)
    row = bytearray(4 * WIDTH)
    for x in range(WIDTH):
        level = 118 + WAVE[x + layer * STEP] + tall
        v = gain * level + noise[x] / 32
        row[4 * x] = int(v)
        row[4 * x + 1] = int(v * 0.9)
        row[4 * x + 2] = int(255 - v)
        row[4 * x + 3] = 255 if min(x, WIDTH - 1 - x) + min(y, HEIGHT - 1 - y) > 60 else 0
    return bytes(row)


WAVE = [50 * math.sin(x * 0.007) + 20 * math.sin(x * 0.13) for x in range(WIDTH + STEP)]


if __name__ == "__main__":
    for layer in range(2):
        pixels = b"".join(row_of(layer, y) for y in range(HEIGHT))
        write_tiff(f"{sys.argv[1]}/layer{layer}.tif", pixels, (WIDTH, HEIGHT, 4), (layer * STEP, 0))
