#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes two RGBA TIFF layers of 3000 x 2000 pixels that overlap by half, for timing whole programs.

make_layers.py FOLDER writes FOLDER/layer0.tif and FOLDER/layer1.tif: uncompressed, unassociated alpha, with the tags
XPosition, YPosition, XResolution and YResolution that remapping programs write. The canvas is 4500 x 2000 pixels.
"""
import math
import random
import struct
import sys

WIDTH, HEIGHT, STEP, DPI = 3000, 2000, 1500, 150


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


def write_tiff(name, layer):
    pixels = b"".join(row_of(layer, y) for y in range(HEIGHT))
    rational = struct.Struct("<II")
    data_at = 8
    extra_at = data_at + len(pixels)
    extra = struct.pack("<4H", 8, 8, 8, 8)
    extra += rational.pack(DPI, 1) + rational.pack(DPI, 1)
    extra += rational.pack(layer * STEP, DPI) + rational.pack(0, 1)
    tags = [
        (256, 4, 1, WIDTH), (257, 4, 1, HEIGHT), (258, 3, 4, extra_at), (259, 3, 1, 1), (262, 3, 1, 2),
        (273, 4, 1, data_at), (277, 3, 1, 4), (278, 4, 1, HEIGHT), (279, 4, 1, len(pixels)),
        (282, 5, 1, extra_at + 8), (283, 5, 1, extra_at + 16), (284, 3, 1, 1), (286, 5, 1, extra_at + 24),
        (287, 5, 1, extra_at + 32), (296, 3, 1, 2), (338, 3, 1, 2),
    ]
    with open(name, "wb") as out:
        out.write(struct.pack("<2sHI", b"II", 42, extra_at + len(extra)))
        out.write(pixels + extra)
        out.write(struct.pack("<H", len(tags)))
        for tag in tags:
            out.write(struct.pack("<HHII", *tag))
        out.write(struct.pack("<I", 0))


if __name__ == "__main__":
    for layer in range(2):
        write_tiff(f"{sys.argv[1]}/layer{layer}.tif", layer)
