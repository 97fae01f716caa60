#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A panorama of overlapping pictures, with its seams and what the engine says about it: panorama.py [FILE]

Paints a landscape, takes six pictures of it with exposures of their own, something that moved and grain, stitches them, and
draws the result to FILE (panorama.png). Needs matplotlib.
"""

import sys

import matplotlib
import numpy as np

import panoval

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402


def landscape(width=900, height=420):
    """Hills under a sky, float32 in levels of 8 bit."""
    random = np.random.default_rng(3)
    y, x = np.mgrid[:height, :width].astype(np.float32)
    image = np.stack([120 + 60 * y / height, 160 + 30 * y / height, 225 - 30 * y / height], axis=2)
    for hill, (base, colour) in enumerate(((190, (110, 140, 120)), (260, (80, 120, 70)), (330, (60, 90, 40)))):
        ridge = base + sum(18 / k * np.sin(k * x[0] / (60 + 25 * hill) + random.uniform(0, 6)) for k in (1, 2, 3, 5))
        texture = random.normal(0, 9, (height, width, 1)).astype(np.float32)
        image = np.where((y > ridge)[:, :, np.newaxis], np.array(colour, np.float32) + texture, image)
    sun = np.hypot(x - 640, y - 90) < 34
    return np.where(sun[:, :, np.newaxis], np.array([250, 235, 170], np.float32), image)


def photographs(scene):
    """Six overlapping pictures and their places."""
    random = np.random.default_rng(4)
    pictures, positions = [], []
    for index, gain in enumerate((1.0, 0.8, 1.1, 0.9, 1.05, 0.85)):
        x, y = 280 * (index % 3), 190 * (index // 3)
        part = scene[y:y + 230, x:x + 340] * gain
        part = part + random.normal(0, 1.5, part.shape)
        if index == 4:  # a bird that the other pictures do not have
            part[12:26, 150:176] = 20
        pictures.append(np.clip(np.round(part), 0, 255).astype(np.uint8))
        positions.append((x, y))
    return pictures, positions


def draw(result, file):
    """Panorama, seams, gains and verdict on one page."""
    edges = np.zeros(result.seams.shape, bool)
    edges[:, 1:] |= result.seams[:, 1:] != result.seams[:, :-1]
    edges[1:] |= result.seams[1:] != result.seams[:-1]
    edges[:-1] |= edges[1:]
    edges[:, :-1] |= edges[:, 1:]
    marked = result.image.copy()
    marked[edges] = (255, 40, 40)
    lines = [f"verdict: {result.verdict['verdict']}"]
    for overlap in result.verdict["overlaps"]:
        if overlap["verdict"] != "good":
            lines.append(f"pictures {overlap['first'] + 1} and {overlap['second'] + 1}: {overlap['explanation']}")
    figure = plt.figure(figsize=(10, 9.6), constrained_layout=True)
    grid = figure.add_gridspec(3, 2, height_ratios=(4, 4, 1.6))
    for row, (image, title) in enumerate(((result.image, "panorama of six pictures"), (marked, "with its seams"))):
        axis = figure.add_subplot(grid[row, :])
        axis.imshow(image)
        axis.set_title(title)
        axis.axis("off")
    bars = figure.add_subplot(grid[2, 0])
    bars.bar(range(1, len(result.gains) + 1), result.gains["gain"][:, 0])
    bars.set_title("gains")
    text = figure.add_subplot(grid[2, 1])
    text.axis("off")
    text.text(0, 1, "\n".join(lines), va="top")
    figure.savefig(file, dpi=72)
    plt.close(figure)


def main(file="panorama.png"):
    """Makes the picture; returns the panorama."""
    pictures, positions = photographs(landscape())
    result = panoval.stitch(pictures, positions)
    draw(result, file)
    print(f"{result.image.shape[1]} x {result.image.shape[0]} pixels, gains "
          f"{np.round(result.gains['gain'][:, 0], 3).tolist()}, verdict {result.verdict['verdict']}: {file}")
    return result


if __name__ == "__main__":
    main(*sys.argv[1:2])
