# SPDX-License-Identifier: MIT
"""The engine from Python: pictures of every kind, tiles, plans, progress, and what is raised in callables."""

import json
import signal
import threading
import time

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import panoval


def filled(mosaic, pictures, positions, **options):
    for picture, position in zip(pictures, positions):
        mosaic.add(picture, position, **options)
    return mosaic


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
@pytest.mark.parametrize("channels", [1, 3, 4])
def test_parts_of_a_picture_become_that_picture(helpers, dtype, channels):
    scene = helpers.scene(240, 160, channels, dtype)
    pictures, positions = helpers.cuts(scene)
    result = panoval.stitch(pictures, [(x - 50, y + 9) for x, y in positions], names=list("abcdef"))
    assert np.array_equal(result.image, scene) and result.origin == (-50, 9)
    assert (result.coverage == 255).all() and result.seams.shape == (160, 240)
    assert set(np.unique(result.seams)) <= set(range(6)) and (result.gains["gain"] == 1).all()
    assert result.verdict["verdict"] == "good" and not result.gains["is_outlier"].any()


def test_exposures_are_evened_out(helpers):
    scene = helpers.scene(240, 160, 3)
    pictures, positions = helpers.cuts(scene)
    factors = [1, 0.8, 1, 0.8, 1, 0.8]
    darker = [np.round(picture * factor).astype(np.uint8) for picture, factor in zip(pictures, factors)]
    result = panoval.stitch(darker, positions, anchor=0)
    assert np.allclose(result.gains["gain"][:, 0], 1 / np.array(factors), rtol=0.01)
    assert np.abs(result.image.astype(int) - scene).mean() < 1


def test_what_is_sliced_by_rows_is_a_picture(helpers, tmp_path):
    import tifffile
    import zarr

    scene = helpers.scene(240, 160, 3)
    pictures, positions = helpers.cuts(scene, 4, 1)
    tifffile.imwrite(tmp_path / "a.tif", pictures[0])
    mapped = tifffile.memmap(tmp_path / "a.tif", mode="r")
    chunked = zarr.array(pictures[1], chunks=(32, 32, 3))
    np.save(tmp_path / "c.npy", pictures[2])
    sources = [mapped, chunked, np.load(tmp_path / "c.npy", mmap_mode="r"), pictures[3][:, :, ::-1][:, :, ::-1]]
    assert np.array_equal(panoval.stitch(sources, positions).image, scene)


def test_callables_are_asked_for_rows_within_the_picture(helpers):
    scene = helpers.scene(240, 160, 1)
    pictures, positions = helpers.cuts(scene)
    asked = []
    with panoval.Mosaic(tile_size=64) as mosaic:
        for index, (picture, position) in enumerate(zip(pictures, positions)):
            def rows(first, count, picture=picture, index=index):
                asked.append(index)
                assert 0 <= first and first + count <= len(picture)
                return picture[first:first + count]
            mosaic.add(rows, position, shape=picture.shape, dtype=picture.dtype)
        image = np.zeros_like(scene)
        mosaic.run(image)
    assert np.array_equal(image, scene) and set(asked) == set(range(6))


def test_pictures_without_random_access_are_read_from_the_top(helpers):
    scene = helpers.scene(240, 160, 1)
    pictures, positions = helpers.cuts(scene)
    image, expected = np.zeros_like(scene), {}

    def reader(index, picture):
        def rows(first, count):
            assert first in (0, expected.get(index, 0))
            expected[index] = first + count
            return picture[first:first + count]
        return rows

    with panoval.Mosaic() as mosaic:
        for index, (picture, position) in enumerate(zip(pictures, positions)):
            mosaic.add(reader(index, picture), position, shape=picture.shape, dtype=np.uint8, random_access=False)
        mosaic.run(image)
    assert np.array_equal(image, scene)


def test_masks_and_keep_masks_count(helpers):
    scene = helpers.scene(100, 60, 3)
    left, right = scene[:, :70], scene[:, 30:].copy()
    right[20:40, 10:20] = 0  # a thing in the way
    mask = np.ones((60, 70), bool)
    mask[18:42, 8:22] = False
    keep = np.zeros((60, 70), np.uint8)
    keep[0:5, 0:10] = 1
    result = panoval.stitch([left, right], [(0, 0), (30, 0)], masks=[None, mask], keep=[None, keep])
    assert (result.seams[20:40, 40:50] == 0).all() and (result.seams[0:5, 30:40] == 1).all()
    assert np.array_equal(result.image[20:40, 40:50], scene[20:40, 40:50])
    holes = panoval.stitch([right], [(0, 0)], masks=[mask])
    assert np.array_equal(holes.coverage == 255, mask) and (holes.image[~mask] == 0).all()


def test_every_cut_gives_the_same_bits(helpers):
    scene = helpers.scene(240, 160, 3)
    pictures, positions = helpers.cuts(scene)
    pictures = [np.round(picture * (0.9 + 0.03 * i)).astype(np.uint8) for i, picture in enumerate(pictures)]
    whole = panoval.stitch(pictures, positions, bands=4).image
    for size in (64, 100, 256):
        with filled(panoval.Mosaic(tile_size=size, bands=4), pictures, positions) as mosaic:
            mosaic.measure("gains", "seams")
            image = np.zeros_like(whole)
            order = np.random.default_rng(size).permutation(mosaic.layout.tiles)
            for tile, pixels in mosaic.blend_tiles(order):
                image[tile.rect.slices] = pixels.samples
            assert np.array_equal(image, whole), size
            mosaic.blend((11, 7, 100, 90), out=image[7:97, 11:111])
            assert np.array_equal(image, whole)
            seen = []
            mosaic.run(lambda rect, samples, coverage: seen.append((rect, samples.copy())), by_tiles=True)
            assert [rect for rect, _ in seen] == [tile.rect for tile in mosaic.tiles()]
            assert all(np.array_equal(whole[rect.slices], samples) for rect, samples in seen)


@settings(max_examples=25, deadline=None)
@given(st.lists(st.tuples(st.integers(1, 40), st.integers(1, 40), st.integers(-20, 20), st.integers(-20, 20)), min_size=1,
                max_size=4), st.sampled_from(["optimal", "nearest", None]), st.sampled_from([16, 33, 0]))
def test_any_pictures_become_a_canvas_that_holds_them(placed, seams, tile):
    scene = np.arange(100 * 100, dtype=np.uint32).reshape(100, 100) % 251
    scene = scene.astype(np.uint8)
    pictures = [scene[30 + y:30 + y + h, 30 + x:30 + x + w] for w, h, x, y in placed]
    result = panoval.stitch(pictures, [(x, y) for _, _, x, y in placed], seams=seams, gains=None, tile_size=tile)
    left, top = min(p[2] for p in placed), min(p[3] for p in placed)
    assert result.origin == (left, top)
    covered = np.zeros(result.coverage.shape, bool)
    for w, h, x, y in placed:
        covered[y - top:y - top + h, x - left:x - left + w] = True
    assert np.array_equal(result.coverage == 255, covered)
    if seams is not None:
        expected = scene[30 + top:, 30 + left:][:covered.shape[0], :covered.shape[1]]
        assert np.array_equal(result.image[covered], expected[covered])
        assert np.array_equal(result.seams >= 0, covered)


def test_a_plan_makes_the_same_tiles_elsewhere(helpers):
    scene = helpers.scene(240, 160, 3)
    pictures, positions = helpers.cuts(scene)
    pictures = [np.round(picture * (0.9 + 0.03 * i)).astype(np.uint8) for i, picture in enumerate(pictures)]
    mask = np.ones(pictures[0].shape[:2], bool)
    mask[:9, :9] = False
    with panoval.Mosaic(tile_size=64) as mosaic:
        for index, (picture, position) in enumerate(zip(pictures, positions)):
            mosaic.add(picture, position, mask=mask if index == 0 else None, name=f"p{index}")
        mosaic.measure("gains", "seams")
        plan, whole = mosaic.plan(), mosaic.blend((0, 0, 240, 160))
    opened = []

    def open_picture(index, name):
        opened.append(name)
        return (pictures[index], mask) if index == 0 else pictures[index]

    other = panoval.Mosaic.from_plan(plan, open_picture)
    assert other.layout.tile_width == 64 and other.has_seams
    tile, pixels = next(other.blend_tiles([0]))
    assert np.array_equal(pixels.samples, whole.samples[tile.rect.slices])
    assert np.array_equal(pixels.coverage, whole.coverage[tile.rect.slices])
    assert "p0" in opened and "p5" not in opened
    with pytest.raises(panoval.PlanError):
        panoval.Mosaic.from_plan("{}")
    with pytest.raises(panoval.PlanError):
        panoval.Mosaic.from_plan(plan.replace('"panoval_plan": 1', '"panoval_plan": 999'))
    with pytest.raises(ValueError, match="p0 was opened without the mask"):
        panoval.Mosaic.from_plan(plan, lambda index, name: pictures[index]).blend(tile.rect)
    with pytest.raises(ValueError, match="no open_picture was given"):
        panoval.Mosaic.from_plan(plan).blend(tile.rect)


def test_gains_and_seams_may_be_set(helpers):
    scene = helpers.scene(100, 60, 1)
    with filled(panoval.Mosaic(), [scene[:, :60], scene[:, 40:]], [(0, 0), (40, 0)]) as mosaic:
        labels = np.where(np.arange(100) < 45, 0, 1).astype(np.int32)
        mosaic.set_gains([0.5, 0.5], falloff=(0, 0, 0))
        mosaic.set_seams(np.tile(labels, (60, 1)))
        assert np.array_equal(mosaic.seam_rows(10, 2), np.tile(labels, (2, 1)))
        assert mosaic.gains["gain"][1].tolist() == [0.5] * 4 and mosaic.falloff == (0, 0, 0)
        image = mosaic.blend((0, 0, 100, 60)).samples
        assert np.abs(image.astype(int) - scene / 2).max() <= 1
        with pytest.raises(ValueError, match="gains has the shape"):
            mosaic.set_gains(np.ones((2, 3)))
        with pytest.raises(panoval.ArgumentError):
            mosaic.set_gains([0.0, 1.0])


def test_statistics_give_the_gains_of_another_mosaic(helpers):
    scene = helpers.scene(100, 60, 1)
    parts, places = [scene[:, :60], scene[:, 40:] // 2], [(0, 0), (40, 0)]
    with filled(panoval.Mosaic(), parts, places) as first, filled(panoval.Mosaic(), parts, places) as second:
        first.measure("gains")
        found = first.statistics
        assert found["pixels"].tolist() == [20 * 60] and found["says"].tolist() == [1]
        assert abs(np.exp(found["all"]["value"][0]) - 2) < 0.02
        second.set_statistics(found, first.falloff)
        assert np.array_equal(second.gains, first.gains)
        assert panoval.Mosaic.from_plan(first.plan()).statistics.tobytes() == found.tobytes()
        with pytest.raises(panoval.ArgumentError, match="expected 1"):
            second.set_statistics(found[:0])


def test_what_is_known_without_pixels(helpers):
    def never(first, count):
        raise AssertionError("read")

    with panoval.Mosaic(tile_size=50, memory=1 << 28) as mosaic:
        mosaic.add(never, (0, 0), shape=(60, 80, 3), dtype=np.uint16)
        mosaic.add(never, (70, 10), shape=(60, 80, 3), dtype=np.uint16)
        layout = mosaic.layout
        assert (layout.width, layout.height, layout.channels, layout.bits) == (150, 70, 3, 16)
        assert [tile.rect for tile in mosaic.tiles()][-1] == (100, 50, 50, 20) and layout.tiles == 6
        overlap, = mosaic.overlaps
        assert overlap.region == (70, 10, 10, 50) and overlap.first_corner == (70, 10) and overlap.second_corner == (0, 0)
        estimate = mosaic.estimate()
        assert estimate.memory <= 1 << 28 and estimate.picture_bytes == 2 * 60 * 80 * 6
        assert mosaic.counts.rows == 0
        assert json.loads(mosaic.plan())["panoval_plan"] == 1
        with pytest.raises(panoval.ArgumentError):
            mosaic.add(never, (0, 0), shape=(6, 8, 3), dtype=np.uint16)


def test_progress_is_told_and_may_cancel(helpers):
    scene = helpers.scene(240, 160, 3)
    pictures, positions = helpers.cuts(scene)
    told = []
    panoval.stitch(pictures, positions, progress=lambda phase, fraction: told.append((phase, fraction)))
    assert {phase for phase, _ in told} == {"gains", "seams", "verdict", "blend"}
    assert all(0 <= fraction <= 1 for _, fraction in told)
    with pytest.raises(panoval.CancelledError):
        panoval.stitch(pictures, positions, progress=lambda phase, fraction: False)

    class Enough(Exception):
        pass

    def report(phase, fraction):
        if phase == "seams":
            raise Enough("of that")

    with pytest.raises(Enough, match="of that"):
        panoval.stitch(pictures, positions, progress=report)


def test_bars_are_drawn_where_tqdm_is_installed(helpers, capsys):
    pictures, positions = helpers.cuts(helpers.scene(240, 160, 3))
    panoval.stitch(pictures, positions, progress=True)
    assert "100%" in capsys.readouterr().err


class Lost(OSError):
    pass


@pytest.mark.parametrize("threads", [1, 2])
def test_what_a_callable_raises_comes_out_and_names_the_picture(helpers, threads):
    pictures, positions = helpers.cuts(helpers.scene(240, 160, 3))

    def broken(first, count):
        raise Lost("the disk is gone")

    with panoval.Mosaic(threads=threads) as mosaic:
        for index, (picture, position) in enumerate(zip(pictures, positions)):
            mosaic.add(broken if index == 3 else picture, position, shape=picture.shape, dtype=picture.dtype,
                       name=f"shot {index}")
        with pytest.raises(Lost, match="the disk is gone") as caught:
            mosaic.measure()
        assert caught.value.picture == "shot 3"
        assert isinstance(caught.value.__cause__, panoval.PictureError) and "shot 3" in str(caught.value.__cause__)
        assert any("shot 3" in note for note in getattr(caught.value, "__notes__", ["shot 3"]))
        with pytest.raises(Lost):  # again, and nothing else than that
            mosaic.measure()


def test_rows_of_another_shape_or_type_are_refused_by_name(helpers):
    picture = helpers.scene(40, 30, 1)
    cases = ((lambda first, count: picture[:1], ValueError, r"rows 0 to .* of odd came with the shape"),
             (lambda first, count: picture[first:first + count].astype(np.int32), TypeError, "of odd came as int32"),
             (lambda first, count: "rows", ValueError, "of odd came with the shape"))
    for rows, error, text in cases:
        with panoval.Mosaic() as mosaic:
            mosaic.add(rows, (0, 0), shape=picture.shape, dtype=np.uint8, name="odd")
            with pytest.raises(error, match=text):
                mosaic.run(np.zeros_like(picture))


def test_pictures_of_the_other_byte_order_are_understood(helpers):
    picture = helpers.scene(40, 30, 1, np.uint16)
    assert np.array_equal(panoval.stitch([picture.astype(">u2")], [(0, 0)]).image, picture)


def test_a_sink_that_fails_comes_out_as_it_is(helpers):
    with panoval.Mosaic() as mosaic:
        mosaic.add(helpers.scene(40, 30, 1), (0, 0))

        def full(rect, samples, coverage):
            raise OSError(28, "No space left on device")

        with pytest.raises(OSError, match="No space left"):
            mosaic.run(full)
        with pytest.raises(ValueError, match=r"sink has the shape \(3, 3\), expected \(30, 40\)"):
            mosaic.run(np.zeros((3, 3), np.uint8))
        with pytest.raises(TypeError, match="expected a callable"):
            mosaic.run(7)


@pytest.mark.parametrize("options, text", [
    ({"blend": "mean"}, "blend is 'mean', expected one of 'multiband', 'feather'"), ({"seams": "all"}, "seams is 'all'"),
    ({"gains": 2}, "gains is 2"), ({"bands": 99}, "99"), ({"tile_size": 3}, "3"), ({"output_bits": 12}, "12"),
    ({"memory": -1}, "memory is -1"), ({"anchor": 9}, "10|9"), ({"memory": 1000}, "1000|memory|bytes")])
def test_options_out_of_range_are_named(helpers, options, text):
    with pytest.raises((ValueError, MemoryError), match=text):
        panoval.stitch([helpers.scene(40, 30, 1)], [(0, 0)], **options)


def test_pictures_that_do_not_go_together_are_named(helpers):
    grey, colour = helpers.scene(40, 30, 1), helpers.scene(40, 30, 3)
    with pytest.raises(ValueError, match="second has 3 channels of uint8, expected 1 of uint8 as first"):
        panoval.stitch([grey, colour], [(0, 0), (0, 0)], names=["first", "second"])
    with pytest.raises(ValueError, match="positions has 1 elements, expected 2 as pictures"):
        panoval.stitch([grey, grey], [(0, 0)])
    with pytest.raises(ValueError, match=r"the mask of picture 1 has the shape \(2, 2\)"):
        panoval.stitch([grey], [(0, 0)], masks=[np.ones((2, 2), np.uint8)])
    with pytest.raises(TypeError, match="has no shape and dtype"):
        panoval.stitch([lambda first, count: grey], [(0, 0)])
    with pytest.raises(panoval.ArgumentError):
        panoval.stitch([], [])


@pytest.mark.parametrize("source, kind, text", [
    ("a.png", TypeError, r"picture 1 is the name 'a.png', expected an array"),
    (np.zeros((3, 20, 30), np.uint8), ValueError, r"picture 1 has the shape \(3, 20, 30\), expected .* 1, 3 or 4 channels"),
    (np.zeros((20, 30, 2), np.uint8), ValueError, "1, 3 or 4 channels"),
    (object(), TypeError, "picture 1 has no shape and dtype of its own")])
def test_what_is_no_picture_is_named(source, kind, text):
    with pytest.raises(kind, match=text):
        panoval.stitch([source], [(0, 0)])


def test_what_tells_its_array_is_a_picture(helpers):
    class Image:  # as Pillow's are
        def __init__(self, array):
            self.__array_interface__ = array.__array_interface__
            self.array = array

    scene = helpers.scene(240, 160, 3)
    pictures, positions = helpers.cuts(scene, 2, 1)
    assert np.array_equal(panoval.stitch([Image(picture) for picture in pictures], positions).image, scene)


def test_coverage_is_the_owners_mask():
    mask = np.ones((20, 30), np.uint8)
    mask[5:10, 5:10] = 0
    coverage = panoval.stitch([np.full((20, 30), 9, np.uint8)], [(0, 0)], masks=[mask]).coverage
    assert np.array_equal(coverage, mask)


@pytest.fixture
def usual_ctrl_c():
    """Python's own handler: a shell that starts the tests in the background has them ignore the signal."""
    before = signal.signal(signal.SIGINT, signal.default_int_handler)
    yield
    signal.signal(signal.SIGINT, before)


def test_ctrl_c_ends_a_run(helpers, usual_ctrl_c):
    picture = helpers.scene(200, 3000, 1)

    def slow(first, count):
        time.sleep(0.02)
        return picture[first:first + count]

    with panoval.Mosaic(threads=1) as mosaic:
        for index in range(4):
            mosaic.add(slow, (100 * index, 0), shape=picture.shape, dtype=np.uint8)
        timer = threading.Timer(0.3, signal.raise_signal, [signal.SIGINT])
        timer.start()
        with pytest.raises(KeyboardInterrupt):
            for _ in range(100):
                mosaic.run(lambda rect, samples, coverage: time.sleep(0.01))
        timer.join()
        mosaic.measure("gains")  # and the mosaic is as good as before
