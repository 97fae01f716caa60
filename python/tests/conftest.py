# SPDX-License-Identifier: MIT
"""What the tests share. They run against the package that Python finds: an installed wheel, or the sources beside them with
the libraries of build/release."""

import os
import sys
from pathlib import Path

import numpy as np
import pytest

PYTHON = Path(__file__).resolve().parent.parent
ROOT = PYTHON.parent
sys.path[:0] = [str(PYTHON / "tools"), str(PYTHON / "tests")]

try:
    import panoval
except ImportError:
    if os.environ.get("PANOVAL_TEST_INSTALLED"):
        raise
    sys.path.insert(0, str(PYTHON))
    os.environ.setdefault("PANOVAL_LIBRARY_DIR", str(ROOT / "build" / "release" / "lib"))
    import panoval


def pytest_report_header(config):
    return f"panoval {panoval.__version__} of {Path(panoval.__file__).parent}, libraries of {panoval.raw.libraries.folder}"


def scene(width=240, height=160, channels=3, dtype=np.uint8, seed=5):
    """A picture with smooth light, texture and edges."""
    random = np.random.default_rng(seed)
    y, x = np.mgrid[:height, :width]
    light = 110 + 40 * np.sin(x / 37) * np.cos(y / 29)
    blocks = np.kron(random.uniform(-30, 30, (height // 16 + 1, width // 16 + 1)), np.ones((16, 16)))[:height, :width]
    grey = light + blocks + random.normal(0, 4, (height, width))
    image = np.stack([grey * (1 - 0.1 * c) for c in range(channels)], axis=2) if channels > 1 else grey
    image = np.clip(np.round(image), 0, 255)
    return (image * (257 if dtype == np.uint16 else 1)).astype(dtype)


def cuts(picture, columns=3, rows=2, overlap=40):
    """Overlapping parts of a picture and their places."""
    height, width = picture.shape[:2]
    pictures, positions = [], []
    step_x, step_y = (width - overlap) // columns, (height - overlap) // rows
    for row in range(rows):
        for column in range(columns):
            x, y = column * step_x, row * step_y
            right = width if column == columns - 1 else x + step_x + overlap
            bottom = height if row == rows - 1 else y + step_y + overlap
            pictures.append(np.ascontiguousarray(picture[y:bottom, x:right]))
            positions.append((x, y))
    return pictures, positions


def board(rows=3, columns=4, pitch=60.0, radius=14.0, seed=1):
    """A board of dark discs on light ground, with noise; and its centres, row by row."""
    y, x = np.mgrid[:int(rows * pitch), :int(columns * pitch)].astype(float)
    image = np.full(y.shape, 200.0)
    centres = []
    for row in range(rows):
        for column in range(columns):
            cx, cy = pitch * (column + 0.5) + 0.3 * row, pitch * (row + 0.5) - 0.2 * column
            image -= 150 * np.clip(radius + 0.5 - np.hypot(x - cx, y - cy), 0, 1)
            centres.append((cx, cy))
    noise = np.random.default_rng(seed).normal(0, 1.5, image.shape)
    return np.clip(np.round(image + noise), 0, 255).astype(np.uint8), np.array(centres)


@pytest.fixture
def helpers():
    """scene, cuts and board."""
    class Helpers:
        pass

    Helpers.scene, Helpers.cuts, Helpers.board = staticmethod(scene), staticmethod(cuts), staticmethod(board)
    return Helpers
