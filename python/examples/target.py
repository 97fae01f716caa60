#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""One round target, measured: target.py [FILE]

Paints a slanted disc with blur and noise 300 times, measures it in each picture, and draws to FILE (target.png): the outline
that was found in the first; its samples over their distance from that outline, with the edge that the model puts there; and
the centres of all pictures, with the 95 % ellipse of the first one's reported covariance. Needs matplotlib.
"""

import math
import sys

import matplotlib
import numpy as np

import panoval

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
from matplotlib.patches import Ellipse  # noqa: E402

SIZE, PICTURES = 40, 300
X, Y, MAJOR, MINOR, ANGLE, BLUR, NOISE = 19.3, 20.6, 10.0, 7.0, 0.5, 1.0, 6.0


def disc(fine=8):
    """The picture without noise: the disc sampled finely, blurred, averaged over pixels."""
    at = (np.arange(SIZE * fine) + 0.5) / fine - 0.5
    x, y = np.meshgrid(at - X, at - Y)
    along, across = x * math.cos(ANGLE) + y * math.sin(ANGLE), y * math.cos(ANGLE) - x * math.sin(ANGLE)
    inside = np.where((along / MAJOR)**2 + (across / MINOR)**2 < 1, 50.0, 200.0)
    reach = np.arange(-4 * fine, 4 * fine + 1) / fine
    bell = np.exp(-reach**2 / (2 * BLUR**2))
    for axis in (0, 1):
        padded = np.pad(inside, [(4 * fine, 4 * fine) if axis == i else (0, 0) for i in (0, 1)], mode="edge")
        inside = np.apply_along_axis(np.convolve, axis, padded, bell / bell.sum(), mode="valid")
    return inside.reshape(SIZE, fine, SIZE, fine).mean(axis=(1, 3))


def distances(target):
    """Of every pixel from the outline, outward; to first order, which serves near it."""
    y, x = np.mgrid[:SIZE, :SIZE].astype(float)
    x, y = x - target["x"], y - target["y"]
    c, s = math.cos(target["angle"]), math.sin(target["angle"])
    u, v = (x * c + y * s) / target["semi_major"], (y * c - x * s) / target["semi_minor"]
    value = u * u + v * v - 1
    slope = 2 * np.hypot(u / target["semi_major"], v / target["semi_minor"])
    return value / np.maximum(slope, 1e-9) / (0.5 + 0.5 * np.sqrt(np.maximum(value + 1, 0)))


def draw(image, targets, file):
    """The three drawings."""
    first = targets[0]
    figure, (picture, edge, centres) = plt.subplots(1, 3, figsize=(12, 4))
    picture.imshow(image, cmap="gray", vmin=0, vmax=255)
    picture.add_patch(Ellipse((first["x"], first["y"]), 2 * first["semi_major"], 2 * first["semi_minor"],
                              angle=math.degrees(first["angle"]), fill=False, color="deepskyblue", lw=1.5))
    picture.plot(first["x"], first["y"], "+", color="deepskyblue")
    picture.set_title("samples and outline")
    distance = distances(first)
    near = np.abs(distance) < 5
    edge.plot(distance[near], image[near], ".", color="gray", ms=3)
    at = np.linspace(-5, 5, 201)
    spread = math.sqrt(2 * (first["blur"]**2 + 1 / 12))
    share = np.array([0.5 - 0.5 * math.erf(value / spread) for value in at])
    edge.plot(at, first["level_outside"] + (first["level_inside"] - first["level_outside"]) * share, color="deepskyblue")
    edge.set_title(f"samples over the distance from it\nblur {first['blur']:.2f}, noise {first['noise']:.1f} levels")
    centres.plot(targets["x"] - X, targets["y"] - Y, ".", color="gray", ms=3)
    values, vectors = np.linalg.eigh(first["covariance"][:2, :2])
    width, height = 2 * np.sqrt(5.991 * values[::-1])
    centres.add_patch(Ellipse((0, 0), width, height, angle=math.degrees(math.atan2(vectors[1, 1], vectors[0, 1])),
                              fill=False, color="red"))
    centres.set_aspect("equal")
    centres.set_title(f"{len(targets)} pictures: errors of the centre, pixels\nreported: 95 % inside the ellipse")
    figure.tight_layout()
    figure.savefig(file, dpi=80)
    plt.close(figure)


def main(file="target.png"):
    """Makes the drawings; returns the targets and the share of their centres inside the first one's 95 % ellipse."""
    clean, random = disc(), np.random.default_rng(4)
    images = [np.clip(np.round(clean + random.normal(0, NOISE, clean.shape)), 0, 255).astype(np.uint8)
              for _ in range(PICTURES)]
    start = [(X + 0.3, Y - 0.2, MAJOR + 0.2, MINOR - 0.2, ANGLE)]
    targets = np.concatenate([panoval.refine(image, start) for image in images])
    off = np.stack([targets["x"] - X, targets["y"] - Y], axis=1)
    inverse = np.linalg.inv(targets[0]["covariance"][:2, :2])
    inside = float(np.mean(np.einsum("ni,ij,nj->n", off, inverse, off) < 5.991))
    draw(images[0], targets, file)
    print(f"sigma of x {targets[0]['sigma_x']:.4f}, of {PICTURES} errors {off[:, 0].std():.4f} pixels; "
          f"{100 * inside:.1f} % inside the 95 % ellipse: {file}")
    return targets, inside


if __name__ == "__main__":
    main(*sys.argv[1:2])
