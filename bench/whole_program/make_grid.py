#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes a grid of RGB TIFF pictures of 3000 x 2000 pixels that overlap by a quarter, for timing whole programs.

make_grid.py FOLDER COLUMNS ROWS writes FOLDER/COLUMN_ROW.tif: uncompressed, in strips of 64 rows, with the tags
XPosition, YPosition, XResolution and YResolution that remapping programs write. 10 x 6 pictures make a canvas of
23250 x 9500 pixels, 20 x 6 one of 45750 x 9500. A picture sees a scene of waves, texture and edges through an exposure
and noise of its own. Needs numpy.
"""
import sys

import numpy

from placed_tiff import write_tiff

WIDTH, HEIGHT, STEP_X, STEP_Y, STRIP = 3000, 2000, 2250, 1500, 64


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


if __name__ == "__main__":
    folder, columns, rows = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    for row in range(rows):
        for column in range(columns):
            write_tiff(f"{folder}/{column:02}_{row:02}.tif", picture(column, row).tobytes(), (WIDTH, HEIGHT, 3),
                       (column * STEP_X, row * STEP_Y), STRIP)
