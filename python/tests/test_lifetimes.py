# SPDX-License-Identifier: MIT
"""Blocks of the libraries behind arrays: there as long as a view is, given back when the last one goes."""

import gc
import weakref

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import panoval
from panoval import _images


@pytest.fixture
def freed(monkeypatch):
    """The addresses that were given back."""
    addresses = []

    class Watched(_images.Block):
        __slots__ = ()

        def __del__(self):
            if self._address:
                addresses.append(self._address)
            super().__del__()

    monkeypatch.setattr(_images, "Block", Watched)
    return addresses


def results(helpers):
    """One result of every kind that lies in a block of the library's."""
    image = helpers.scene(60, 40, 3)
    grey, mask = np.ascontiguousarray(image[:, :, 0]), np.zeros((40, 60), np.uint8)
    mask[10:14, 10:14] = 1
    return {
        "crop": panoval.crop(image, (0, 0, 20, 10)), "crop_mask": panoval.crop_mask(mask, (0, 0, 20, 10)),
        "common_mask": panoval.common_mask(mask, mask)[0], "gain": panoval.apply_gain(image, 1.5),
        "gains": panoval.gain_factors([image], [(0, 0)]), "feather": panoval.feather([image], [(0, 0)]).image,
        "multiband": panoval.multiband([image], [(0, 0)]).image, "inpaint": panoval.inpaint(image, mask),
        "distances": panoval.distance_transform(mask), "dx": panoval.canny(grey, differences=True).dx,
        "targets": panoval.measure(helpers.board()[0]),
    }


def test_each_result_is_given_back_once_when_its_last_view_goes(freed, helpers):
    for name, array in results(helpers).items():
        del freed[:]
        address, view = array.ctypes.data, array[1:][..., :3] if array.ndim > 1 else array[:1]
        expected = view.copy()
        base = array
        while isinstance(base, np.ndarray):
            base = base.base
        assert isinstance(base, _images.Block), name
        del array, base
        gc.collect()
        assert address not in freed, name
        assert np.array_equal(view, expected), name
    view = None


def test_nothing_waits_for_the_garbage_collector(freed, helpers):
    gc.collect()
    gc.disable()
    try:
        made = results(helpers)
        del freed[:]
        addresses = sorted(array.ctypes.data for array in made.values())
        made.clear()
        assert sorted(set(addresses)) == sorted(set(freed) & set(addresses))
        assert len(freed) == len(set(freed))
    finally:
        gc.enable()


@settings(max_examples=30, deadline=None)
@given(st.permutations(range(5)))
def test_views_may_go_in_any_order(order):
    array = panoval.crop(np.arange(100, dtype=np.uint8).reshape(10, 10), (0, 0, 10, 10))
    views = [array, array[2:], array[::2, ::3], array.T, array.reshape(-1)[5:]]
    expected = [view.copy() for view in views]
    del array
    for index in order:
        for i, view in enumerate(views):
            assert view is None or np.array_equal(view, expected[i])
        views[index] = None
        gc.collect()


def resident():
    with open("/proc/self/statm") as statm:
        return int(statm.read().split()[1]) * 4096


def test_memory_does_not_grow():
    image = np.zeros((2000, 3000), np.uint8)
    for _ in range(5):
        panoval.crop(image, (0, 0, 3000, 2000))[0, 0] = 1
    before = resident()
    for _ in range(100):  # 600 MB, were they kept
        panoval.crop(image, (0, 0, 3000, 2000))[0, 0] = 1
    assert resident() - before < 60e6


def test_a_mosaic_goes_with_its_last_reference_and_leaves_its_arrays(helpers):
    gc.collect()
    gc.disable()
    try:
        picture = helpers.scene(60, 40, 1)
        mosaic = panoval.Mosaic()
        mosaic.add(picture, (0, 0))
        mosaic.measure()
        pixels = mosaic.blend((0, 0, 60, 40)).samples
        gone = weakref.ref(mosaic)
        del mosaic
        assert gone() is None
        assert np.array_equal(pixels, picture)
    finally:
        gc.enable()


def test_a_closed_mosaic_says_so(helpers):
    with panoval.Mosaic() as mosaic:
        mosaic.add(helpers.scene(60, 40, 1), (0, 0))
    mosaic.close()
    with pytest.raises(ValueError, match="the mosaic is closed"):
        mosaic.layout


def test_a_run_keeps_no_reference_to_its_sink(helpers):
    gc.collect()
    gc.disable()
    try:
        with panoval.Mosaic() as mosaic:
            mosaic.add(helpers.scene(60, 40, 1), (0, 0))

            class Taker:
                def __call__(self, rect, samples, coverage):
                    pass

            taker = Taker()
            mosaic.run(taker)
            gone = weakref.ref(taker)
            del taker
            gc.collect()
            assert gone() is None
    finally:
        gc.enable()
