# SPDX-License-Identifier: MIT
"""The examples in the descriptions, and those with pictures."""

import doctest
import importlib
import runpy
from pathlib import Path

import pytest

MODULES = ("raw", "filters", "shapes", "files", "blending", "measuring", "mosaic", "panorama", "store", "tasks",
           "gain_parts", "dask")


@pytest.mark.parametrize("name", MODULES)
def test_examples_in_descriptions_give_what_they_say(name):
    module = importlib.import_module(f"panoval.{name}")
    result = doctest.testmod(module)
    assert result.attempted > 0 and result.failed == 0


def example(name):
    """What an example calls main."""
    return runpy.run_path(str(Path(__file__).resolve().parent.parent / "examples" / f"{name}.py"))["main"]


def test_the_panorama_is_drawn(tmp_path):
    result = example("panorama")(str(tmp_path / "panorama.png"))
    assert (tmp_path / "panorama.png").read_bytes().startswith(b"\x89PNG")
    assert result.image.shape == (420, 900, 3) and result.verdict["verdict"] == "look"
    brightness = result.gains["gain"][:, 0] * [1.0, 0.8, 1.1, 0.9, 1.05, 0.85]
    assert brightness.max() / brightness.min() < 1.01
    bird = result.image[202:216, 430:456]
    assert bird.min() > 40  # the seam leaves it out


def test_the_board_is_drawn(tmp_path):
    targets, grid = example("board")(str(tmp_path / "board.png"))
    assert (tmp_path / "board.png").read_bytes().startswith(b"\x89PNG")
    assert len(targets) == 35 and (grid.found, grid.missing, grid.extra) == (35, 0, 0) and grid.rms < 0.02
    assert targets["sigma_x"][targets["y"] > 230].mean() > targets["sigma_x"][targets["y"] < 80].mean()


def test_the_target_is_drawn_and_its_errors_are_those_reported(tmp_path):
    targets, inside = example("target")(str(tmp_path / "target.png"))
    assert (tmp_path / "target.png").read_bytes().startswith(b"\x89PNG")
    assert len(targets) == 300 and abs(targets["x"].mean() - 19.3) < 0.004 and 0.91 < inside < 0.98
