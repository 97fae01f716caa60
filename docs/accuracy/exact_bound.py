#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What a small, blurred ellipse's centre cannot be known better than: the inverse of the information that every pixel of
the rendered picture holds, with axes, angle, blur and both levels unknown, over the bound of a straight edge.

    docs/accuracy/exact_bound.py            prints a table
"""
import math

import numpy as np
from scipy.ndimage import gaussian_filter1d
from scipy.special import ndtr

ROWS = 24  # a pixel is cut into so many rows; in x everything is integrated exactly
CELLS = ((4, 0.4, 0.4), (4, 0.4, 1), (4, 0.7, 1), (4, 1, 1), (5, 0.5, 1.2), (6, 0.4, 1), (6, 0.4, 1.5), (6, 1, 1.5),
         (8, 0.4, 2), (8, 1, 2), (10, 0.4, 2))
PLACES = ((0.2, -0.3, 0.5), (-0.4, 0.1, 1.2), (0.05, 0.45, -0.3))  # x and y within the pixel, angle


def integral_of_step(distance, blur):
    z = distance / blur
    return distance * ndtr(z) + blur * np.exp(-z * z / 2) / math.sqrt(2 * math.pi)


def coverage(side, x, y, a, b, angle, blur):
    margin = math.ceil(6 * blur) + 1
    dy = (np.arange((side + 2 * margin) * ROWS) + 0.5) / ROWS - 0.5 - margin - y
    c, s = math.cos(angle), math.sin(angle)
    xx, yy = c * c / a ** 2 + s * s / b ** 2, s * s / a ** 2 + c * c / b ** 2
    xy = c * s * (1 / a ** 2 - 1 / b ** 2) * dy
    half = np.sqrt(np.maximum(0, xy * xy - xx * (yy * dy * dy - 1))) / xx
    ends = (np.arange(side + 1) - 0.5 - x)[None, :] + (xy / xx)[:, None]
    summed = integral_of_step(ends + half[:, None], blur) - integral_of_step(ends - half[:, None], blur)
    rows = gaussian_filter1d(np.diff(summed, axis=1), blur * ROWS, axis=0, truncate=6, mode="constant")
    return rows.reshape(-1, ROWS, side).mean(1)[margin:-margin]


def straight_bound(a, b, angle, blur):
    """Inverse covariance of the centre, for noise of the contrast's size."""
    t = (np.arange(4000) + 0.5) * 2 * math.pi / 4000
    normal = np.c_[b * np.cos(t), a * np.sin(t)] @ np.array([[math.cos(angle), math.sin(angle)],
                                                             [-math.sin(angle), math.cos(angle)]])
    length = np.hypot(*normal.T)[:, None]
    return normal.T @ (normal / length) * (2 * math.pi / 4000) / (2 * math.sqrt(math.pi * (blur * blur + 1 / 12)))


def exact_over_straight(radius, aspect, blur, place):
    reach = math.ceil(radius + 6 * blur + 3)
    at = np.array([reach + place[0], reach + place[1], radius, aspect * radius, place[2], blur])
    step = np.array([1, 1, 1, 1, 1 / radius, 1]) / ROWS
    side = 2 * reach + 1
    columns = []
    for unknown in range(6):
        if unknown == 4 and aspect == 1:
            continue  # a circle has no angle
        off = step * (np.arange(6) == unknown)
        columns.append((coverage(side, *(at + off)) - coverage(side, *(at - off))) / (2 * step[unknown]))
    inside = coverage(side, *at)
    derivatives = np.array([c.ravel() for c in columns + [inside, 1 - inside]])
    covariance = np.linalg.inv(derivatives @ derivatives.T)[:2, :2]
    return np.trace(covariance @ straight_bound(radius, aspect * radius, place[2], blur)) / 2


def main():
    print("| semi-axes | blur | exact over straight edge |\n|---|---|---|")
    for radius, aspect, blur in CELLS:
        squares = [exact_over_straight(radius, aspect, blur, place) for place in PLACES]
        print(f"| {radius:g}, {aspect * radius:g} | {blur:g} | {math.sqrt(np.mean(squares)):.3f} |", flush=True)


if __name__ == "__main__":
    main()
