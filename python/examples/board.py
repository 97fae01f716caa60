#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""A board of round targets, measured, with error ellipses: board.py [FILE]

Paints a board seen in perspective, with blur, shading and grain; finds and measures its targets; orders them; and draws each
one's outline and the ellipse of its centre's error, enlarged, to FILE (board.png). Needs matplotlib.
"""

import sys

import matplotlib
import numpy as np

import panoval

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
from matplotlib.patches import Ellipse  # noqa: E402

ROWS, COLUMNS = 5, 7
ENLARGED = 1000


def board(width=560, height=420, fine=4):
    """A picture of the board: discs on a plane, through a homography."""
    matrix = np.array([[64, 6, 60], [-5, 60, 70], [-0.012, 0.03, 1.0]])
    y, x = np.mgrid[:height * fine, :width * fine] / fine - 0.5 + 0.5 / fine
    points = np.linalg.inv(matrix) @ np.stack([x.ravel(), y.ravel(), np.ones(x.size)])
    u, v = (points[0] / points[2]).reshape(x.shape), (points[1] / points[2]).reshape(x.shape)
    inside = np.hypot(u - np.round(u), v - np.round(v)) < 0.28
    inside &= (np.round(u) >= 0) & (np.round(u) < COLUMNS) & (np.round(v) >= 0) & (np.round(v) < ROWS)
    light = np.where(inside, 45.0, 205.0).reshape(height, fine, width, fine).mean(axis=(1, 3))
    random = np.random.default_rng(2)
    shade = 1 - 0.35 * (np.arange(width) / width)
    grain = 1 + 5 * (np.arange(height) / height)[:, np.newaxis]  # more of it towards the bottom
    return np.clip(np.round(light * shade + grain * random.normal(0, 1, light.shape)), 0, 255).astype(np.uint8)


def error_ellipse(target):
    """Centre, axes and direction of the one-sigma ellipse of a target's centre, enlarged."""
    values, vectors = np.linalg.eigh(target["covariance"][:2, :2])
    width, height = 2 * ENLARGED * np.sqrt(values[::-1])
    angle = np.degrees(np.arctan2(vectors[1, 1], vectors[0, 1]))
    return Ellipse((target["x"], target["y"]), width, height, angle=angle, fill=False, color="red", lw=1.5)


def draw(image, targets, grid, file):
    """The picture with outlines, errors and the board's numbers."""
    figure, axis = plt.subplots(figsize=(9, 7))
    axis.imshow(image, cmap="gray", vmin=0, vmax=255)
    for target in targets:
        axis.add_patch(Ellipse((target["x"], target["y"]), 2 * target["semi_major"], 2 * target["semi_minor"],
                               angle=np.degrees(target["angle"]), fill=False, color="deepskyblue", lw=1))
        axis.add_patch(error_ellipse(target))
    for (row, column), cell in np.ndenumerate(grid.cells):
        if cell["target"] >= 0:
            axis.text(cell["centre_x"] + 18, cell["centre_y"] - 18, f"{row},{column}", fontsize=8)
    axis.set_title(f"{grid.found} targets, residuals {grid.rms:.3f} pixels rms; errors (red) {ENLARGED} times enlarged")
    axis.axis("off")
    figure.tight_layout()
    figure.savefig(file, dpi=80)
    plt.close(figure)


def main(file="board.png"):
    """Makes the picture; returns targets and board."""
    image = board()
    targets = panoval.measure(image, polarity="dark")
    grid = panoval.grid(targets, ROWS, COLUMNS)
    draw(image, targets, grid, file)
    print(f"{len(targets)} targets, sigma of x {targets['sigma_x'].min():.4f} to {targets['sigma_x'].max():.4f} pixels, "
          f"residuals {grid.rms:.4f} pixels rms: {file}")
    return targets, grid


if __name__ == "__main__":
    main(*sys.argv[1:2])
