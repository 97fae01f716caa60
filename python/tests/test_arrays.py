# SPDX-License-Identifier: MIT
"""Arrays on the way in: which are used where they lie, which are copied once, which are refused, and by what name."""

import ctypes

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st
from hypothesis.extra import numpy as hnp

import panoval
from panoval import _images, raw

SHAPES = hnp.array_shapes(min_dims=2, max_dims=2, min_side=1, max_side=24)
PICTURES = hnp.arrays(np.uint8, SHAPES)


class Spy:
    """A raw routine that notes the addresses of the arrays and records that it gets."""

    def __init__(self, routine):
        self.routine, self.addresses = routine, []

    def __call__(self, *arguments):
        for argument in arguments:
            if isinstance(argument, np.ndarray):
                self.addresses.append(argument.ctypes.data)
            elif isinstance(getattr(argument, "data", None), int):
                self.addresses.append(argument.data)
        return self.routine(*arguments)


def spied(monkeypatch, name):
    spy = Spy(getattr(raw, name))
    monkeypatch.setattr(raw, name, spy)
    return spy


def test_filters_read_a_contiguous_picture_where_it_lies(monkeypatch, helpers):
    image = helpers.scene(40, 30, 1)
    for name, call in (("smooth_image", panoval.smooth), ("gradient_image", panoval.gradients), ("canny", panoval.canny),
                       ("histogram_count", panoval.histogram), ("find_ellipse", panoval.find_ellipse),
                       ("distanceTransform_3x3", panoval.distance_transform)):
        spy = spied(monkeypatch, name)
        call(image)
        assert spy.addresses[0] == image.ctypes.data, name


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
def test_blenders_read_contiguous_pictures_and_masks_where_they_lie(monkeypatch, helpers, dtype):
    image, mask = helpers.scene(40, 30, 3, dtype), np.full((30, 40), 255, np.uint8)
    for name, call in (("feather_blender_feed", panoval.feather), ("multi_band_blender_feed", panoval.multiband),
                       ("gain_compensator_init_step", panoval.gain_factors)):
        spy = spied(monkeypatch, name)
        call([image], [(0, 0)], [mask])
        assert spy.addresses[:2] == [image.ctypes.data, mask.ctypes.data], name


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
def test_measurement_reads_pictures_and_parts_of_them_where_they_lie(monkeypatch, helpers, dtype):
    image = helpers.board()[0].astype(dtype)
    for part in (image, image[10:80, 20:150]):
        spy = spied(monkeypatch, "panoval_measure_detect")
        panoval.measure(part)
        assert spy.addresses == [part.ctypes.data]


def test_bool_masks_are_read_where_they_lie_or_become_255(monkeypatch):
    mask = np.ones((5, 6), bool)
    spy = spied(monkeypatch, "distanceTransform_3x3")
    panoval.distance_transform(mask)
    assert spy.addresses[0] == mask.ctypes.data
    assert _images.mask_for(mask, np.zeros((5, 6), np.uint8), "mask").tolist() == [[255] * 6] * 5
    with pytest.raises(TypeError, match="image has samples of bool"):
        panoval.smooth(mask)


def test_other_strides_are_copied_once(monkeypatch, helpers):
    image = helpers.scene(40, 30, 1)
    copies = []
    original = np.ascontiguousarray
    monkeypatch.setattr(np, "ascontiguousarray", lambda *a, **k: copies.append(1) or original(*a, **k))
    for part in (image[::2], image[:, ::-1], image.T, np.asfortranarray(image), image[3:, 5:]):
        copies.clear()
        panoval.smooth(part)
        assert len(copies) == 1


@settings(max_examples=60, deadline=None)
@given(PICTURES, st.sampled_from([slice(None), slice(None, None, -1), slice(None, None, 2), slice(1, None)]),
       st.sampled_from([slice(None), slice(None, None, -1), slice(None, None, 3)]), st.booleans())
def test_strides_do_not_change_a_result(image, rows, columns, is_turned):
    part = image[rows, columns]
    part = part.T if is_turned else part
    if 0 in part.shape:
        with pytest.raises(ValueError, match="expected at least 1 x 1"):
            panoval.smooth(part)
        return
    copied = np.array(part, order="C")
    assert np.array_equal(panoval.smooth(part), panoval.smooth(copied))
    assert np.array_equal(panoval.distance_transform(part), panoval.distance_transform(copied))
    assert np.array_equal(panoval.canny(part), panoval.canny(copied))
    assert np.array_equal(panoval.histogram(part), panoval.histogram(copied))


@settings(max_examples=40, deadline=None)
@given(hnp.arrays(st.sampled_from([np.uint8, np.uint16]), hnp.array_shapes(min_dims=2, max_dims=3, min_side=1, max_side=9)))
def test_a_record_tells_the_shape_of_its_array(image):
    checked = _images.picture(image, "image")
    record = _images.borrow(checked)
    assert (record.height, record.width) == image.shape[:2]
    assert record.channels == (image.shape[2] if image.ndim == 3 else 1)
    assert (record.elemSize, record.size) == (image.itemsize, image.nbytes)
    assert record.data == image.ctypes.data
    assert np.array_equal(panoval.crop(image, (0, 0, image.shape[1], image.shape[0])), image)


@settings(max_examples=40, deadline=None)
@given(st.sampled_from([np.int8, np.int16, np.int32, np.int64, np.uint32, np.float16, np.float64, np.complex64, ">u2", "S3"]))
def test_other_types_are_refused_by_name(dtype):
    image = np.zeros((8, 8), dtype)
    with pytest.raises(TypeError, match="image has samples of"):
        panoval.smooth(image)
    with pytest.raises(TypeError, match=r"pictures\[1\] has samples of"):
        panoval.feather([np.zeros((8, 8), np.uint8), image], [(0, 0), (0, 0)])
    with pytest.raises(TypeError, match="image has samples of"):
        panoval.measure(image)
    with pytest.raises(TypeError, match="left has samples of"):
        panoval.Mosaic().add(np.zeros((8, 8), np.float64), (0, 0), name="left")


@settings(max_examples=30, deadline=None)
@given(hnp.array_shapes(min_dims=0, max_dims=5, min_side=0, max_side=3).filter(lambda shape: len(shape) not in (2, 3)))
def test_other_dimensions_are_refused_by_name(shape):
    with pytest.raises(ValueError, match="image has the shape"):
        panoval.crop(np.zeros(shape, np.uint8), (0, 0, 1, 1))
    with pytest.raises(ValueError, match="image has the shape"):
        panoval.measure(np.zeros(shape, np.uint8))


def test_masked_arrays_are_refused_for_their_mask_would_be_lost():
    image = np.ma.zeros((8, 8), np.uint8)
    for call in (panoval.smooth, panoval.measure, lambda a: panoval.stitch([a], [(0, 0)])):
        with pytest.raises(TypeError, match="masked array"):
            call(image)


def test_read_only_arrays_are_read_and_never_written(helpers):
    image, mask = helpers.scene(40, 30, 3), np.zeros((30, 40), np.uint8)
    mask[10:14, 10:14] = 255
    before = image.copy(), mask.copy()
    image.flags.writeable = mask.flags.writeable = False
    panoval.inpaint(image, mask)
    panoval.apply_gain(image, 2)
    panoval.find_small_ellipse(np.ascontiguousarray(image[:, :, 0]), 20, 15, 8, 8)
    assert np.array_equal(image, before[0]) and np.array_equal(mask, before[1])


def test_a_borrowed_record_is_never_an_output(helpers):
    image = helpers.scene(40, 30, 3)
    borrowed, mask = _images.borrow(image), _images.borrow_mask(np.zeros((30, 40), np.uint8))
    for call in (lambda: raw.MatReset(borrowed, 1, 1, 1, 1), lambda: raw.MatDestroy(borrowed),
                 lambda: raw.MatInit(ctypes.byref(borrowed)), lambda: raw.inpaint(borrowed, _images.borrow(image), 3),
                 lambda: raw.MatbReset(mask, 1, 1, 1), lambda: raw.get_sub_image(borrowed, raw.Roi(0, 0, 1, 1), borrowed)):
        with pytest.raises(ctypes.ArgumentError, match="borrows an array's memory"):
            call()
    assert np.array_equal(image, helpers.scene(40, 30, 3))


def test_raw_routines_refuse_arrays_that_they_would_misread(helpers):
    image = helpers.scene(40, 30, 1)
    out = np.empty_like(image)
    for source, target, text in ((image.astype(np.int16), out, "an array of int16"), (image[::2], out, "not C-contiguous"),
                                 ("text", out, "expected an array of uint8")):
        with pytest.raises(ctypes.ArgumentError, match=text):
            raw.smooth_image(source, 40, 30, target)
    out.flags.writeable = False
    with pytest.raises(ctypes.ArgumentError, match="read-only"):
        raw.smooth_image(image, 40, 30, out)


@pytest.mark.parametrize("value", [1.5, "3", None, True, float("nan"), float("inf"), 2**40])
def test_what_is_no_whole_number_is_refused_by_name(value):
    with pytest.raises((TypeError, ValueError), match="radius is"):
        panoval.inpaint(np.zeros((8, 8, 3), np.uint8), np.zeros((8, 8), np.uint8), value)
    with pytest.raises((TypeError, ValueError), match=r"positions\[0\]"):
        panoval.feather([np.zeros((8, 8), np.uint8)], [(0, value)])


def test_sigmas_that_would_end_the_process_are_refused():
    for sigma in (-1, float("nan"), float("inf"), 1e9):
        with pytest.raises(ValueError, match="sigma is"):
            panoval.canny(np.zeros((8, 8), np.uint8), sigma=sigma)
