# SPDX-License-Identifier: MIT
"""The programs that docs/python.md and python/README.md show, and the figures' programs with little to do."""

import re
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest

ROOT = Path(__file__).resolve().parent.parent.parent


def blocks(file):
    return re.findall(r"^```python\n(.*?)^```", (ROOT / file).read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)


def run(block, names, instead=()):
    """What a block leaves, with other values in the places of what only its reader has."""
    for shown, other in instead:
        assert shown in block
        block = block.replace(shown, other)
    exec(compile(block, "block", "exec"), names)
    return names


@pytest.mark.parametrize("file, number", [("docs/python.md", 3), ("python/README.md", 1)])
def test_every_block_is_known_here(file, number):
    assert len(blocks(file)) == number


@pytest.mark.parametrize("file", ["docs/python.md", "python/README.md"])
def test_a_first_program(file, helpers):
    pytest.importorskip("pandas")
    scene = helpers.scene(1500, 620)
    names = {"left": scene[12:, :800], "right": scene[:600, 700:], "board": helpers.board()[0]}
    left = run(blocks(file)[0], names)
    assert left["result"].image.shape == (620, 1500, 3) and left["result"].verdict["verdict"] == "good"
    assert len(left["targets"]) == 12


def test_a_large_panorama(tmp_path, helpers):
    tifffile, zarr = pytest.importorskip("tifffile"), pytest.importorskip("zarr")
    scene = helpers.scene(1500, 400)
    for name, x in ((str(tmp_path / "a.tif"), 0), (str(tmp_path / "b.tif"), 500)):
        tifffile.imwrite(name, scene[:, x:x + 600], photometric="rgb")
    names = {"panoval": __import__("panoval"), "tifffile": tifffile, "zarr_array": zarr.zeros((400, 1500, 3), dtype="u1"),
             "places": [(str(tmp_path / "a.tif"), 0, 0), (str(tmp_path / "b.tif"), 500, 0)],
             "read_rows": lambda first, count: scene[first:first + count, 900:]}
    run(blocks("docs/python.md")[1], names, instead=[("9000", "900"), ("(4000, 6000, 3)", "(400, 600, 3)")])
    assert np.abs(names["zarr_array"][...].astype(int) - scene).max() <= 2


def test_many_machines(tmp_path, helpers):
    distributed = pytest.importorskip("distributed")
    pictures, positions = helpers.cuts(helpers.scene(480, 320))
    names = {"names": [str(tmp_path / f"{i}.npy") for i in range(len(pictures))], "positions": positions}
    for name, picture in zip(names["names"], pictures):
        np.save(name, picture)
    with distributed.LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None, memory_limit=0) as cluster:
        run(blocks("docs/python.md")[2], names, instead=[("scheduler:8786", cluster.scheduler_address),
                                                         ("/shared/", f"{tmp_path}/")])
    assert names["result"].kept and not names["result"].failed


@pytest.mark.parametrize("command", [["tasks.py", "0.2", "2", "512"], ["overhead.py"], ["threads.py", "1"]])
def test_the_figures_programs_run(command):
    if command[0] == "tasks.py":
        pytest.importorskip("distributed")
    done = subprocess.run([sys.executable, str(ROOT / "python" / "bench" / command[0]), *command[1:]], capture_output=True,
                          text=True, timeout=300)
    assert done.returncode == 0 and done.stdout, done.stderr
