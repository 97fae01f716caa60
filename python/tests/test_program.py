# SPDX-License-Identifier: MIT
"""The package and the program panoval: one goes on where the other stopped."""

import json
import os
import subprocess
from pathlib import Path

import numpy as np
import pytest
import tifffile

import panoval
import panoval.dask

PROGRAM = os.environ.get("PANOVAL_PROGRAM") or str(Path(__file__).resolve().parents[2] / "build/release/bin/panoval")


def run(*arguments, cwd):
    done = subprocess.run([PROGRAM, *map(str, arguments)], cwd=cwd, capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return done.stdout


def chunks(folder):
    """The files of a store that readers see, with their bytes."""
    return {str(file.relative_to(folder)): file.read_bytes() for file in Path(folder).rglob("*")
            if file.is_file() and ".panoval" not in file.parts}


@pytest.fixture
def folder(tmp_path, helpers):
    """Pictures as files of 16 bit, and the program's plan of them."""
    scene = helpers.scene(700, 500, 3, np.uint16)
    pictures, positions = helpers.cuts(scene, 3, 2)
    names = []
    for index, (picture, (x, y)) in enumerate(zip(pictures, positions)):
        tifffile.imwrite(tmp_path / f"p{index}.tif", picture, photometric="rgb", resolution=(300, 299.5))
        names.append(f"p{index}.tif@{x},{y}")
    run("stitch", "--plan-only", "-o", "plan.json", "--tile-size", 256, "--quiet", *names, cwd=tmp_path)
    run("stitch", "--plan", "plan.json", "-o", "whole.zarr", "--quiet", cwd=tmp_path)
    return tmp_path


def test_each_goes_on_with_the_others_store(folder, monkeypatch):
    monkeypatch.chdir(folder)  # the plan has names without a folder
    plan = Path("plan.json").read_text()
    begun = panoval.dask.blend(None, plan, "mixed.zarr", tiles=[0, 2, 4])
    assert begun.made == [0, 2, 4]
    told = json.loads(run("stitch", "--plan", "plan.json", "--tile", "0-3", "--resume", "-o", "mixed.zarr", "--quiet", "--json",
                          cwd=folder))
    assert (told["tiles_made"], told["tiles_kept"], told["tiles_failed"]) == (2, 2, [])
    ended = panoval.dask.blend(None, plan, "mixed.zarr")
    assert ended.kept == [0, 1, 2, 3, 4] and ended.made == [5]
    assert chunks("mixed.zarr") == chunks("whole.zarr")
    assert json.loads(Path("mixed.zarr/.zattrs").read_text())["panoval"]["metadata"]["resolution"] == [300, 299.5]


def test_a_plan_whose_seams_are_elsewhere_is_refused(folder):
    names = [f"p{index}.tif@{index * 200},0" for index in range(3)]
    run("stitch", "--plan-only", "-o", "split.json", "--split-seams", "--quiet", *names, cwd=folder)
    with pytest.raises(panoval.PlanError, match="seams are in a file beside it"):
        panoval.Mosaic.from_plan((folder / "split.json").read_text())


def test_the_program_makes_the_pixels_of_stitch(folder, helpers):
    import zarr

    pictures, positions = helpers.cuts(helpers.scene(700, 500, 3, np.uint16), 3, 2)
    image = np.moveaxis(zarr.open(str(folder / "whole.zarr"), mode="r")["0"][...], 0, 2)
    assert np.array_equal(panoval.stitch(pictures, positions).image, image)


def test_the_program_adds_levels_to_a_store_of_the_package(folder, monkeypatch):
    import zarr

    monkeypatch.chdir(folder)
    panoval.dask.blend(None, Path("plan.json").read_text(), "p.zarr")
    run("pyramid", "p.zarr", cwd=folder)
    store = zarr.open("p.zarr", mode="r")
    assert store["1"].shape == (3, 250, 350)
    assert np.abs(store["1"][...].mean() - store["0"][...].mean()) < 30
