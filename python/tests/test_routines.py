# SPDX-License-Identifier: MIT
"""Filters, shapes, files and the plain blenders: what they give, and what they refuse."""

import numpy as np
import pytest

import panoval


def test_smoothing_keeps_flat_areas_and_the_border(helpers):
    image = helpers.scene(40, 30, 1)
    smoothed = panoval.smooth(image)
    assert np.array_equal(smoothed[:2], image[:2]) and np.array_equal(smoothed[:, -2:], image[:, -2:])
    assert np.array_equal(panoval.smooth(np.full((9, 9), 77, np.uint8)), np.full((9, 9), 77, np.uint8))


def test_gradients_are_differences_of_the_neighbours(helpers):
    image = helpers.scene(40, 30, 1)
    found, wide = panoval.gradients(image), image.astype(int)
    assert np.array_equal(found.dx[:, 1:-1], wide[:, 2:] - wide[:, :-2])
    assert np.array_equal(found.dy[1:-1], wide[2:] - wide[:-2])
    inner = np.hypot(found.dx.astype(float), found.dy.astype(float))
    assert np.array_equal(found.magnitude, np.floor(inner).astype(np.uint16))


def test_a_kernel_is_symmetric_and_sums_to_one():
    kernel = panoval.gaussian_kernel(7, 1.3)
    assert abs(kernel.sum() - 1) < 1e-12 and np.array_equal(kernel, kernel.T)


def test_distances_of_a_point_are_chamfer_distances():
    mask = np.ones((7, 9), np.uint8)
    mask[3, 4] = 0
    distances = panoval.distance_transform(mask, (1, 2))
    y, x = np.mgrid[:7, :9]
    assert np.allclose(distances, abs(x - 4) + abs(y - 3))
    assert panoval.distance_transform(np.ones((3, 3), bool)).min() > 8000


def test_canny_finds_the_outline_of_a_square():
    image = np.zeros((60, 60), np.uint8)
    image[20:40, 20:40] = 200
    result = panoval.canny(image, 1.0, 0.5, 0.9, differences=True)
    assert result.edges.dtype == bool and 40 < result.edges.sum() < 120
    assert not result.edges[25:35, 25:35].any() and result.dx.shape == image.shape
    assert np.array_equal(result.edges, panoval.canny(image, 1.0, 0.5, 0.9))


def test_inpainting_fills_what_is_marked_and_leaves_the_rest(helpers):
    image = helpers.scene(60, 40, 3)
    mask = np.zeros((40, 60), bool)
    mask[15:20, 25:32] = True
    damaged = np.where(mask[:, :, np.newaxis], 0, image).astype(np.uint8)
    repaired = panoval.inpaint(damaged, mask)
    away = np.ones_like(mask)
    away[12:23, 22:35] = False
    assert np.array_equal(repaired[away], image[away])
    assert np.abs(repaired[mask].astype(int) - image[mask]).mean() < 40
    grey = panoval.inpaint(damaged[:, :, 0], mask)
    assert np.array_equal(grey, repaired[:, :, 0])


def test_a_threshold_separates_two_levels_and_there_may_be_none():
    image = np.array([[20] * 5 + [200] * 5] * 4, np.uint8)
    assert 20 <= panoval.threshold(image) < 200
    assert panoval.threshold(panoval.histogram(image)) == panoval.threshold(image)
    assert panoval.threshold(np.full((4, 4), 9, np.uint8)) is None


def test_an_ellipse_is_fitted_and_a_hyperbola_is_none():
    t = np.linspace(0, 2 * np.pi, 40, endpoint=False)
    points = np.stack([30 + 20 * np.cos(t) * np.cos(0.4) - 9 * np.sin(t) * np.sin(0.4),
                       50 + 20 * np.cos(t) * np.sin(0.4) + 9 * np.sin(t) * np.cos(0.4)], axis=1)
    oval = panoval.oval_fit(points)
    assert np.allclose([oval.x, oval.y, oval.semi_major, oval.semi_minor], [30, 50, 20, 9], atol=1e-6)
    u = np.linspace(-1.5, 1.5, 20)
    branch = np.stack([np.cosh(u), np.sinh(u)], axis=1)
    with pytest.raises(panoval.NoEllipseError, match="no ellipse fits the 40 points"):
        panoval.oval_fit(np.concatenate([branch, -branch]))
    with pytest.raises(ValueError, match="n at least 6"):
        panoval.oval_fit(points[:5])


def test_dark_discs_are_found_with_their_contours(helpers):
    image, centres = helpers.board()
    regions = panoval.find_ellipse(panoval.smooth(image))
    assert len(regions) == len(centres)
    found = np.array([(region.x, region.y) for region in regions])
    for centre in centres:
        assert np.hypot(*(found - centre).T).min() < 0.5
    for region in regions:
        away = np.hypot(region.contour[:, 0] - region.x, region.contour[:, 1] - region.y)
        assert abs(away.mean() - region.semi_major) < 2 and len(region.contour) > 60


def test_features_on_a_ring_are_found():
    y, x = np.mgrid[:200, :200]
    image = np.full((200, 200), 30, np.uint8)
    image[np.hypot(x - 160, y - 100) < 12] = 220  # at radius 60 of the ellipse's ring
    image[np.hypot(x - 100, y - 100) < 25] = 60
    found, painted = panoval.find_small_ellipse(image, 100, 100, 60, 60)
    assert len(found) == 1 and abs(found["x"][0] - 160) < 3 and abs(found["y"][0] - 100) < 3
    assert (painted != image).any() and found["size"][0] > 0


def test_files_are_written_and_read(tmp_path):
    image = np.arange(12, dtype=np.uint8).reshape(3, 4)
    file = tmp_path / "grün.pgm"
    panoval.write_pgm(file, image)
    assert file.read_bytes().endswith(image.tobytes())
    file.write_bytes(b"P5\n4 3\n255\n" + image.tobytes())
    assert np.array_equal(panoval.read_pgm(file), image)
    panoval.write_pgm(file, np.array([[-5, 0, 5]], np.int16))
    assert file.read_bytes()[-3:] == bytes([0, 127, 255])
    panoval.write_pgm(str(file), np.array([[0, 1]], np.float32))
    assert file.read_bytes()[-2:] in (bytes([0, 255]), bytes([0, 254]))
    with pytest.raises(FileNotFoundError):
        panoval.read_pgm(tmp_path / "none.pgm")
    file.write_bytes(b"hello")
    with pytest.raises(ValueError, match="no raw PGM file"):
        panoval.read_pgm(file)


def test_gains_even_out_exposures(helpers):
    scene = helpers.scene(120, 60, 3)
    pictures = [scene[:, :80], (scene[:, 40:] * 0.8).astype(np.uint8)]
    gains = panoval.gain_factors(pictures, [(0, 0), (40, 0)])
    assert gains.shape == (2,) and gains[0] < 1 < gains[1]
    brighter = panoval.apply_gain(pictures[1], gains[1])
    assert brighter.mean() > pictures[1].mean() and brighter.shape == pictures[1].shape


@pytest.mark.parametrize("dtype", [np.uint8, np.uint16])
def test_blenders_put_pictures_where_they_belong(helpers, dtype):
    scene = helpers.scene(120, 60, 3, dtype)
    pictures, positions = [scene[:, :80], scene[:, 40:]], [(-10, 5), (30, 5)]
    for blend in (panoval.feather, panoval.multiband):
        result = blend(pictures, positions)
        assert result.origin == (-10, 5) and result.image.shape == scene.shape and result.image.dtype == dtype
        assert np.abs(result.image.astype(int) - scene).mean() <= (1 if dtype == np.uint8 else 257)


def test_what_does_not_go_together_is_refused_by_name(helpers):
    a, b = helpers.scene(20, 20, 3), helpers.scene(20, 20, 1)
    with pytest.raises(ValueError, match=r"pictures\[1\] has 1 channels of uint8, expected 3 of uint8"):
        panoval.feather([a, b], [(0, 0), (0, 0)])
    with pytest.raises(ValueError, match="positions has 1 elements, expected 2"):
        panoval.multiband([a, a], [(0, 0)])
    with pytest.raises(ValueError, match=r"masks\[0\] has the shape \(20, 21\), expected \(20, 20\)"):
        panoval.feather([a], [(0, 0)], [np.zeros((20, 21), np.uint8)])
    with pytest.raises(ValueError, match="pictures is empty"):
        panoval.feather([], [])
    with pytest.raises(ValueError, match="too many for this blender"):
        panoval.feather([b, b], [(0, 0), (100000, 100000)])
    with pytest.raises(ValueError, match="mask has the shape"):
        panoval.inpaint(a, np.zeros((3, 3), np.uint8))


def test_rectangles_meet_or_do_not():
    assert panoval.overlap((0, 0), (10, 10), (10, 0), (10, 10)) is None
    assert panoval.overlap((0, 0), (10, 10), (-5, 3), (4, 7, 3)) == (0, 3, 2, 4)
