#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes a grid of RGB TIFF pictures of 3000 x 2000 pixels that overlap by a quarter, for timing whole programs.

make_grid.py FOLDER COLUMNS ROWS writes FOLDER/COLUMN_ROW.tif: uncompressed, in strips of 64 rows, with the tags
XPosition, YPosition, XResolution and YResolution that remapping programs write. 10 x 6 pictures make a canvas of
23250 x 9500 pixels, 20 x 6 one of 45750 x 9500. A picture sees a scene of waves, texture and edges through an exposure
and noise of its own. Needs numpy.
"""
import struct
import sys

import numpy

WIDTH, HEIGHT, STEP_X, STEP_Y, DPI, STRIP = 3000, 2000, 2250, 1500, 150, 64


def texture(side, seed):
    """Noise of three scales that repeats itself after `side` pixels."""
    random = numpy.random.default_rng(seed)
    sum_ = numpy.zeros((side, side), numpy.float32)
    for block, height in ((2, 6), (8, 10), (64, 16)):
        coarse = random.standard_normal((side // block, side // block)).astype(numpy.float32) * height
        sum_ += numpy.kron(coarse, numpy.ones((block, block), numpy.float32))
    return sum_


TEXTURES = (texture(1024, 1), texture(1472, 2))


def scene(x0, y0):
    """The scene's brightness in a picture's pixels, and one that the channels mix in."""
    x = numpy.arange(x0, x0 + WIDTH)
    y = numpy.arange(y0, y0 + HEIGHT)
    level = (118 + 40 * numpy.sin(x * 0.0021))[None, :] + (20 * numpy.sin(y * 0.0053))[:, None]
    tints = []
    for sample in TEXTURES:
        side = sample.shape[0]
        tints.append(sample[numpy.ix_(y % side, x % side)])
    level = level + tints[0] + tints[1]
    level += 25 * (((x // 311)[None, :] + (y // 253)[:, None]) % 2)  # edges
    return level.astype(numpy.float32), tints[0]


def picture(column, row):
    random = numpy.random.default_rng(1000 * row + column)
    gain = 0.8 + 0.4 * random.random()
    level, tint = scene(column * STEP_X, row * STEP_Y)
    pixels = numpy.empty((HEIGHT, WIDTH, 3), numpy.uint8)
    for channel, share in enumerate((0.0, 0.4, -0.4)):
        noise = random.integers(-2, 3, (HEIGHT, WIDTH), numpy.int8)
        pixels[:, :, channel] = numpy.clip(gain * (level + share * tint) + noise + 0.5, 0, 255)
    return pixels


def write_tiff(name, pixels, x, y):
    data = pixels.tobytes()
    rational = struct.Struct("<II")
    strips = [(8 + first * WIDTH * 3, min(STRIP, HEIGHT - first) * WIDTH * 3) for first in range(0, HEIGHT, STRIP)]
    extra_at = 8 + len(data)
    extra = struct.pack("<4H", 8, 8, 8, 0)
    extra += rational.pack(DPI, 1) + rational.pack(DPI, 1) + rational.pack(x, DPI) + rational.pack(y, DPI)
    offsets_at = extra_at + len(extra)
    extra += struct.pack(f"<{len(strips)}I", *(at for at, _ in strips))
    counts_at = extra_at + len(extra)
    extra += struct.pack(f"<{len(strips)}I", *(size for _, size in strips))
    tags = [
        (256, 4, 1, WIDTH), (257, 4, 1, HEIGHT), (258, 3, 3, extra_at), (259, 3, 1, 1), (262, 3, 1, 2),
        (273, 4, len(strips), offsets_at), (277, 3, 1, 3), (278, 4, 1, STRIP), (279, 4, len(strips), counts_at),
        (282, 5, 1, extra_at + 8), (283, 5, 1, extra_at + 16), (284, 3, 1, 1), (286, 5, 1, extra_at + 24),
        (287, 5, 1, extra_at + 32), (296, 3, 1, 2),
    ]
    with open(name, "wb") as out:
        out.write(struct.pack("<2sHI", b"II", 42, extra_at + len(extra)))
        out.write(data + extra)
        out.write(struct.pack("<H", len(tags)))
        for tag in tags:
            out.write(struct.pack("<HHII", *tag))
        out.write(struct.pack("<I", 0))


if __name__ == "__main__":
    folder, columns, rows = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    for row in range(rows):
        for column in range(columns):
            write_tiff(f"{folder}/{column:02}_{row:02}.tif", picture(column, row), column * STEP_X, row * STEP_Y)
