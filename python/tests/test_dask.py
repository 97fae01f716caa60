# SPDX-License-Identifier: MIT
"""One panorama by many processes: the same bytes, whoever made them and whatever died."""

import json
import os
import signal
import subprocess
import sys
from collections import Counter
from pathlib import Path

import numpy as np
import pytest

import panoval
import panoval.dask
from on_workers import Broken, MissingOnOne, Pictures, log_writes, restore_writes
from panoval.store import Store, StoreError

@pytest.fixture
def plan(tmp_path, helpers):
    """A folder of pictures, and a function that gives their plan and the panorama for a size of tiles."""
    scene = helpers.scene(480, 320, 3)
    pictures, positions = helpers.cuts(scene, 4, 3)
    pictures = [np.round(picture * (0.85 + 0.02 * i)).astype(np.uint8) for i, picture in enumerate(pictures)]
    for index, picture in enumerate(pictures):
        np.save(tmp_path / f"p{index}.npy", picture)

    def make(tile_size=64):
        mosaic = panoval.Mosaic(tile_size=tile_size, bands=4)
        for index, (picture, position) in enumerate(zip(pictures, positions)):
            mosaic.add(picture, position, name=f"p{index}")
        mosaic.measure("gains", "seams")
        whole = mosaic.blend((0, 0, 480, 320))
        return mosaic.plan(), np.moveaxis(whole.samples, 2, 0)

    return make


@pytest.fixture(scope="module")
def cluster():
    """Four worker processes on this machine."""
    from distributed import LocalCluster

    here = os.pathsep.join(filter(None, [str(Path(__file__).parent), os.environ.get("PYTHONPATH")]))
    with LocalCluster(env={"PYTHONPATH": here}, n_workers=4, threads_per_worker=1, processes=True, dashboard_address=None,
                      memory_limit=0) as made:
        yield made


@pytest.fixture
def client(cluster):
    from distributed import Client

    with Client(cluster) as made:
        yield made


def files(folder):
    """Every file of a store but the marks and the plan, with its bytes."""
    return {str(file.relative_to(folder)): file.read_bytes() for file in sorted(Path(folder).rglob("*"))
            if file.is_file() and ".panoval" not in file.parts}


@pytest.mark.parametrize("tile_size", [64, 100, 256])
def test_workers_write_the_bytes_of_the_single_run(client, plan, tmp_path, tile_size):
    text, whole = plan(tile_size)
    order = np.random.default_rng(tile_size).permutation(panoval.Mosaic.from_plan(text).layout.tiles)
    alone = panoval.dask.blend(None, text, tmp_path / "alone.zarr", Pictures(tmp_path))
    told = []
    many = panoval.dask.blend(client, text, tmp_path / "many.zarr", Pictures(tmp_path), tiles=order,
                              progress=lambda phase, fraction: told.append(fraction))
    assert sorted(many.made) == alone.made == sorted(order) and not many.kept and not many.failed
    assert files(tmp_path / "alone.zarr") == files(tmp_path / "many.zarr")
    assert told[-1] == 1 and told == sorted(told)
    import zarr

    assert np.array_equal(zarr.open(str(tmp_path / "many.zarr"), mode="r")["0"][...], whole)


def test_a_worker_that_dies_costs_only_what_it_was_at(cluster, client, plan, tmp_path):
    text, whole = plan(64)
    log = tmp_path / "log"
    pids = list(client.run(os.getpid).values())
    client.run(log_writes, str(log))
    killed = []

    def kill_one(phase, fraction):
        if fraction > 0.3 and not killed:
            killed.append(pids[0])
            os.kill(pids[0], signal.SIGKILL)

    tiles = panoval.Mosaic.from_plan(text).layout.tiles
    order = np.random.default_rng(8).permutation(tiles)
    result = panoval.dask.blend(client, text, tmp_path / "p.zarr", Pictures(tmp_path), tiles=order, progress=kill_one)
    layout = panoval.Mosaic.from_plan(text).layout
    assert np.array_equal(Store.begin(tmp_path / "p.zarr", layout, panoval.dask.name_of_plan(text)).read(), whole)
    assert killed and not result.failed
    assert sorted(result.made + result.kept) == list(range(tiles))
    # A tile is done by one process once; begun twice is only what the dead one had not done. The worker that takes the
    # dead one's place writes no log.
    lines = [line.split() for line in log.read_text().splitlines()]
    begun = Counter(int(tile) for word, tile, _ in lines if word == "begun")
    done = Counter(int(tile) for word, tile, _ in lines if word == "done")
    assert max(done.values()) == 1
    lost = {int(tile) for word, tile, pid in lines if word == "begun" and int(pid) == killed[0]} - {
        int(tile) for word, tile, pid in lines if word == "done" and int(pid) == killed[0]}
    assert len(lost) <= 1 and {tile for tile, count in begun.items() if count > 1} <= lost
    client.wait_for_workers(4, timeout=60)
    client.run(restore_writes)


def test_only_what_is_missing_is_made(client, plan, tmp_path):
    text, whole = plan(64)
    folder = tmp_path / "p.zarr"
    panoval.dask.blend(None, text, folder, Pictures(tmp_path), tiles=[0, 1, 2, 3])
    (folder / ".panoval" / "tiles" / "1").unlink()  # died before its mark
    chunk = next(file for file in (folder / "0" / "0" / "0").iterdir() if file.name == "2")
    chunk.write_bytes(chunk.read_bytes()[:-7])  # cut off
    (folder / ".panoval" / "tiles" / "3").write_text("{")  # no mark at all
    result = panoval.dask.blend(client, text, folder, Pictures(tmp_path))
    assert result.kept == [0] and {1, 2, 3} <= set(result.made)
    again = panoval.dask.blend(client, text, folder, Pictures(tmp_path))
    assert not again.made and len(again.kept) == panoval.Mosaic.from_plan(text).layout.tiles
    layout = panoval.Mosaic.from_plan(text).layout
    assert np.array_equal(Store.begin(folder, layout, panoval.dask.name_of_plan(text)).read(), whole)


@pytest.mark.parametrize("is_alone", [True, False])
def test_a_missing_picture_fails_its_tiles_and_no_other(client, plan, tmp_path, is_alone):
    text, whole = plan(64)
    (tmp_path / "p5.npy").rename(tmp_path / "away.npy")
    with pytest.raises(panoval.dask.TilesError, match=r"tile \d+: picture p5: FileNotFoundError") as caught:
        panoval.dask.blend(None if is_alone else client, text, tmp_path / "p.zarr", Pictures(tmp_path), retries=1)
    result = caught.value.result
    assert result.failed and result.made
    for tile, failure in result.failed.items():
        assert failure.tile == tile and failure.picture == "p5" and "p5.npy" in str(failure)
    (tmp_path / "away.npy").rename(tmp_path / "p5.npy")
    repaired = panoval.dask.blend(client, text, tmp_path / "p.zarr", Pictures(tmp_path))
    assert sorted(repaired.made) == sorted(result.failed) and sorted(repaired.kept) == sorted(result.made)
    layout = panoval.Mosaic.from_plan(text).layout
    assert np.array_equal(Store.begin(tmp_path / "p.zarr", layout, panoval.dask.name_of_plan(text)).read(), whole)


def test_a_picture_that_one_worker_misses_is_read_by_another(client, plan, tmp_path):
    text, whole = plan(64)
    blind = list(client.run(os.getpid).values())[1]
    result = panoval.dask.blend(client, text, tmp_path / "p.zarr", MissingOnOne(tmp_path, blind), retries=1)
    tiles = panoval.Mosaic.from_plan(text).layout.tiles
    assert sorted(result.made) == list(range(tiles)) and not result.failed
    alone = panoval.dask.blend(None, text, tmp_path / "q.zarr", MissingOnOne(tmp_path, os.getpid()), errors="keep")
    assert alone.failed and all("picture p5: FileNotFoundError" in str(failure) for failure in alone.failed.values())


def test_a_callable_that_raises_is_named_with_picture_and_tile(client, plan, tmp_path):
    text, _ = plan(64)
    result = panoval.dask.blend(client, text, tmp_path / "p.zarr", Broken(tmp_path), errors="keep", retries=0)
    assert 0 in result.failed and result.made
    assert str(result.failed[0]) == "tile 0: picture p0: RuntimeError: the tape is torn"


def test_a_plan_of_another_version_is_refused_before_anything_is_written(plan, tmp_path):
    text, _ = plan(64)
    with pytest.raises(panoval.PlanError):
        panoval.dask.blend(None, text.replace('"panoval_plan": 1', '"panoval_plan": 9'), tmp_path / "p.zarr")
    assert not (tmp_path / "p.zarr").exists()


def test_a_store_of_another_plan_or_a_folder_of_others_is_left_alone(plan, tmp_path):
    text, _ = plan(64)
    other, _ = plan(100)
    panoval.dask.blend(None, text, tmp_path / "p.zarr", Pictures(tmp_path), tiles=[0])
    before = files(tmp_path / "p.zarr")
    with pytest.raises(StoreError, match="another plan began"):
        panoval.dask.blend(None, other, tmp_path / "p.zarr", Pictures(tmp_path))
    assert files(tmp_path / "p.zarr") == before
    with pytest.raises(StoreError, match="is a folder with p0.npy in it|is a folder with"):
        panoval.dask.blend(None, text, tmp_path, Pictures(tmp_path))
    (tmp_path / "file.zarr").write_text("x")
    with pytest.raises(StoreError, match="file.zarr"):
        panoval.dask.blend(None, text, tmp_path / "file.zarr", Pictures(tmp_path))


def test_a_full_disk_fails_the_tile_and_leaves_nothing_half_written(plan, tmp_path, monkeypatch):
    text, _ = plan(64)
    real = os.replace
    count = [0]

    def full(source, target):
        if "tiles" not in str(target) and "/0/0/" in str(target):
            count[0] += 1
            if count[0] == 3:
                raise OSError(28, "No space left on device")
        return real(source, target)

    monkeypatch.setattr(os, "replace", full)
    result = panoval.dask.blend(None, text, tmp_path / "p.zarr", Pictures(tmp_path), errors="keep")
    assert len(result.failed) == 1 and "No space left on device" in str(next(iter(result.failed.values())))
    assert not list((tmp_path / "p.zarr").rglob("*.part"))
    monkeypatch.undo()
    again = panoval.dask.blend(None, text, tmp_path / "p.zarr", Pictures(tmp_path))
    assert again.made == list(result.failed)


def test_a_limit_of_the_files_size_names_the_tile_and_leaves_nothing_half_written(plan, tmp_path):
    text, _ = plan(64)
    (tmp_path / "plan.json").write_text(text)
    code = ("import resource, signal, sys; sys.path.insert(0, sys.argv[2]); signal.signal(signal.SIGXFSZ, signal.SIG_IGN)\n"
            "import panoval.dask; from pathlib import Path; from on_workers import Pictures\n"
            "folder = Path(sys.argv[1]); plan = (folder / 'plan.json').read_text()\n"
            "panoval.dask.blend(None, plan, folder / 'p.zarr', Pictures(folder), tiles=[0, 1])\n"
            "resource.setrlimit(resource.RLIMIT_FSIZE, (4000, resource.RLIM_INFINITY))\n"
            "result = panoval.dask.blend(None, plan, folder / 'p.zarr', Pictures(folder), errors='keep')\n"
            "assert result.kept == [0, 1] and not result.made, result\n"
            "assert len(result.failed) == panoval.Mosaic.from_plan(plan).layout.tiles - 2\n"
            "assert all(f'tile {tile}: OSError: [Errno 27]' in str(failure) for tile, failure in result.failed.items())\n")
    environment = dict(os.environ, PYTHONPATH=os.pathsep.join(filter(None, sys.path)))
    subprocess.run([sys.executable, "-c", code, str(tmp_path), str(Path(__file__).parent)], env=environment, check=True)
    assert not list((tmp_path / "p.zarr").rglob("*.part"))
    again = panoval.dask.blend(None, text, tmp_path / "p.zarr", Pictures(tmp_path))
    assert again.kept == [0, 1]


def test_coverage_is_the_last_channel(plan, tmp_path, helpers):
    picture = helpers.scene(100, 80, 1, np.uint16)
    mask = np.ones((80, 100), bool)
    mask[:20, :30] = False
    with panoval.Mosaic(tile_size=64) as mosaic:
        mosaic.add(picture, (5, 7), mask=mask)
        mosaic.measure("gains", "seams")
        text = mosaic.plan()
    panoval.dask.blend(None, text, tmp_path / "p.zarr", lambda index, name: (picture, mask), coverage=True)
    import zarr

    store = zarr.open(str(tmp_path / "p.zarr"), mode="r")
    assert np.array_equal(store["0"][1], mask * np.uint16(65535))
    assert np.array_equal(store["0"][0], np.where(mask, picture, 0))
    assert store.attrs["multiscales"][0]["version"] == "0.4" and store.attrs["panoval"]["x"] == 5


@pytest.fixture
def shots(tmp_path, helpers):
    """Pictures of a scene with exposures of their own, as files; their names and places; the scene."""
    scene = helpers.scene(700, 420, 3)
    pictures, positions = helpers.cuts(scene, 5, 3)
    for index, picture in enumerate(pictures):
        gain = 0.8 + 0.05 * (index * 7 % 5)
        np.save(tmp_path / f"p{index}.npy", np.round(picture * gain).astype(np.uint8))
    return [f"p{index}" for index in range(15)], [(x - 30, y + 12) for x, y in positions], scene


@pytest.mark.parametrize("region", [256, 0, 1024])
def test_gains_and_seams_are_measured_in_parts(client, shots, tmp_path, region):
    names, positions, scene = shots
    plan = panoval.dask.measure(client, names, positions, Pictures(tmp_path), region=region, tile_size=128)
    assert plan == panoval.dask.measure(None, names, positions, Pictures(tmp_path), region=region, tile_size=128)
    mosaic = panoval.Mosaic.from_plan(plan, Pictures(tmp_path))
    whole = panoval.Mosaic(tile_size=128)
    for name, place in zip(names, positions):
        whole.add(np.load(tmp_path / f"{name}.npy"), place, name=name)
    whole.measure("gains", "seams")
    ratio = mosaic.gains["gain"][:, :3] / whole.gains["gain"][:, :3]
    assert np.abs(ratio - 1).max() < 0.002
    image = mosaic.blend((0, 0, 700, 420)).samples.astype(int)
    alone = whole.blend((0, 0, 700, 420)).samples
    assert np.abs(image - alone).mean() < 0.5 and (mosaic.seam_rows() >= 0).all()
    same = (mosaic.seam_rows() == whole.seam_rows()).mean()
    print(f"regions of {region}: gains within {np.abs(ratio - 1).max():.2e}, {same:.1%} of the labels as alone")
    assert same > 0.9


def test_what_lies_in_one_region_is_measured_as_by_one_search(shots, tmp_path):
    names, positions, _ = shots
    whole = panoval.Mosaic(tile_size=128)
    for name, place in zip(names, positions):
        whole.add(np.load(tmp_path / f"{name}.npy"), place, name=name)
    whole.measure("gains", "seams")
    plan = panoval.dask.measure(None, names, positions, Pictures(tmp_path), region=10**6, tile_size=128)
    expected = json.loads(whole.plan())
    del expected["statistics"]  # gains put together of regions have none
    assert json.loads(plan) == expected


def test_a_first_round_needs_no_machine_with_all_pictures(shots, tmp_path, monkeypatch):
    names, positions, _ = shots
    counts = []

    def counted(work):
        return lambda job: counts.append(len(job.pictures)) or work(job)

    for name in ("find_gains", "find_seams"):
        monkeypatch.setattr(panoval.dask, name, counted(getattr(panoval.dask, name)))
    panoval.dask.measure(None, names, positions, Pictures(tmp_path), region=256)
    assert len(counts) == 12 and max(counts) < 15


def test_all_of_it_in_one_call(client, shots, tmp_path):
    names, positions, scene = shots
    result = panoval.dask.stitch(client, names, positions, tmp_path / "p.zarr", Pictures(tmp_path), tile_size=128, anchor=0)
    assert not result.failed and len(result.made) == 24
    again = panoval.dask.stitch(client, names, positions, tmp_path / "p.zarr", Pictures(tmp_path), tile_size=128, anchor=0)
    assert not again.made
    import zarr

    image = np.moveaxis(zarr.open(str(tmp_path / "p.zarr"), mode="r")["0"][...], 0, 2)
    assert np.abs(image.astype(int) - scene * 0.8).mean() < 1


def test_a_picture_that_is_not_there_is_named_in_the_first_round(client, shots, tmp_path):
    names, positions, _ = shots
    (tmp_path / "p7.npy").unlink()
    for chosen in (None, client):
        with pytest.raises(panoval.PanovalError, match="picture p7: FileNotFoundError"):
            panoval.dask.measure(chosen, names, positions, Pictures(tmp_path), retries=0)
    with pytest.raises(ValueError, match="wrap is not possible here"):
        panoval.dask.measure(None, names, positions, Pictures(tmp_path), wrap=700)
