# SPDX-License-Identifier: MIT
"""Targets: found, measured, ordered; covariances; what is refused and with which text."""

import numpy as np
import pytest

import panoval
from panoval import TARGET_DTYPE, raw


def test_the_fields_are_those_of_the_record():
    assert TARGET_DTYPE.itemsize == 400
    for name in TARGET_DTYPE.names[6:]:
        assert TARGET_DTYPE.fields[name][1] == getattr(raw.PanovalMeasureTarget, name).offset
    assert TARGET_DTYPE.fields["covariance"][1] == raw.PanovalMeasureTarget.covariance.offset


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16, np.float32])
def test_a_board_is_found_and_ordered(helpers, dtype):
    image, centres = helpers.board()
    targets, counts = panoval.measure_counts(image.astype(dtype), polarity="dark")
    assert len(targets) == 12 and counts.candidates >= 12
    assert (targets["polarity"] == 1).all() and (targets["code"] == 0).all()
    grid = panoval.grid(targets, 3, 4)
    assert (grid.found, grid.missing, grid.extra) == (12, 0, 0) and grid.homography.shape == (3, 3)
    ordered = targets[grid.cells["target"].ravel()]
    distance = np.hypot(ordered["x"] - centres[:, 0], ordered["y"] - centres[:, 1])
    assert distance.max() < 0.1 and (distance < 6 * ordered["sigma_x"]).all()


def test_covariances_are_symmetric_and_agree_with_the_sigmas(helpers):
    targets = panoval.measure(helpers.board()[0])
    covariance = targets["covariance"]
    assert covariance.shape == (12, 5, 5) and np.allclose(covariance, covariance.transpose(0, 2, 1))
    for i, name in enumerate(("sigma_x", "sigma_y", "sigma_major", "sigma_minor", "sigma_angle")):
        assert np.allclose(np.sqrt(covariance[:, i, i]), targets[name])
    assert (np.linalg.eigvalsh(covariance) > 0).all()


def test_a_part_of_a_picture_gives_the_same_numbers(helpers):
    image = helpers.board()[0]
    whole, part = panoval.measure(image), panoval.measure(image[5:, 10:])
    copied = panoval.measure(image[5:, 10:].copy())
    assert np.array_equal(part, copied)
    assert len(part) == len(whole) and np.allclose(part["x"] + 10, whole["x"], atol=0.01)


def test_refining_starts_from_ellipses_or_from_targets(helpers):
    image, centres = helpers.board()
    starts = np.column_stack([centres + 0.7, np.full((12, 2), 13.0), np.zeros(12)])
    targets = panoval.refine(image, starts)
    assert np.allclose(targets["x"], centres[:, 0], atol=0.1)
    again = panoval.refine(image, targets)
    assert np.allclose(again["x"], targets["x"], atol=0.01)
    assert len(panoval.refine(image, np.empty((0, 5)))) == 0


def test_a_target_that_cannot_be_measured_is_named(helpers):
    image, centres = helpers.board()
    starts = [[*centres[0], 14, 14, 0], [-500, 10, 14, 14, 0]]
    with pytest.raises(panoval.MeasureError, match="target 1: ") as caught:
        panoval.refine(image, starts)
    assert caught.value.index == 1 and caught.value.code == 7 and caught.value.targets["code"].tolist() == [0, 7]
    assert str(caught.value).endswith(panoval.error_text(7))
    kept = panoval.refine(image, starts, errors="keep")
    assert kept["code"].tolist() == [0, 7] and kept["x"][1] == 0


def test_options_out_of_range_come_back_with_the_librarys_text(helpers):
    image = helpers.board()[0]
    with pytest.raises(panoval.MeasureError, match=panoval.error_text(11)):
        panoval.measure(image, min_aspect=2)
    with pytest.raises(ValueError, match="polarity is 'grey'"):
        panoval.measure(image, polarity="grey")
    with pytest.raises(panoval.MeasureError) as caught:
        panoval.grid(panoval.measure(image), 7, 9)
    assert caught.value.code == 16


def test_tables_have_a_row_a_target(helpers):
    targets = panoval.measure(helpers.board()[0])
    frame = panoval.to_pandas(targets)
    assert len(frame) == 12 and np.array_equal(frame["x"], targets["x"])
    assert np.array_equal(frame["cov_x_semi_minor"], targets["covariance"][:, 0, 3])
    assert "reserved" not in frame and sum(name.startswith("cov_") for name in frame) == 15
    with pytest.raises(TypeError, match="TARGET_DTYPE"):
        panoval.to_pandas(np.zeros(3))


def test_centres_of_circles_in_perspective(helpers):
    target = panoval.measure(helpers.board()[0])[0]
    centre = panoval.centre_by_homography(target, np.eye(3))
    assert np.allclose([centre.x, centre.y], [target["x"], target["y"]])
    assert np.allclose(centre.covariance, target["covariance"][:2, :2])
    first, second = panoval.centre_by_focal_length(target, 800, (120, 90))
    assert abs(np.linalg.norm(first.normal) - 1) < 1e-12 and first.distance > 1 and second.normal[2] < 0
    with pytest.raises(panoval.MeasureError, match=panoval.error_text(15)):
        panoval.centre_by_rings([30, 20, 10, 10, 0], [90, 20, 5, 5, 0])
    with pytest.raises(ValueError, match="homography has the shape"):
        panoval.centre_by_homography(target, np.eye(2))
