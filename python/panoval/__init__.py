# SPDX-License-Identifier: MIT
"""Panoramas of overlapping pictures, and round targets measured with their uncertainty.

stitch, Mosaic              panoramas: all at once, or of any size within a fixed memory
measure, refine, grid ...   round targets with their covariance (panoval.measuring has all of it)
smooth, gradients, canny, distance_transform, inpaint, gaussian_kernel      filters and repair
histogram, threshold, oval_fit, find_ellipse, find_small_ellipse            shapes
feather, multiband, gain_factors ...                                        the plain blenders
panoval.raw                 every exported routine of the C libraries under its own name
panoval.dask                one panorama on many machines

Arrays: (height, width) or (height, width, channels). C-contiguous ones are used where they lie; others are copied once, and
those of another type are refused by name.
"""

from __future__ import annotations

from . import errors, raw
from .blending import Blended, apply_gain, common_mask, crop, crop_mask, feather, gain_factors, multiband, overlap
from .errors import *  # noqa: F401,F403
from .files import read_pgm, write_pgm
from .filters import (Edges, Gradients, canny, distance_transform, gaussian_kernel, gradients, inpaint, smooth, to_rgb8)
from .measuring import (CELL_DTYPE, FLAGS, TARGET_DTYPE, Centre, CirclePose, Grid, centre_by_focal_length,
                        centre_by_homography, centre_by_rings, error_text, grid, measure, measure_counts, refine,
                        to_pandas)
from .mosaic import GAIN_DTYPE, STATISTICS_DTYPE, Counts, Estimate, Layout, Mosaic, Overlap, Pixels, Rect, Tile
from .panorama import Panorama, stitch
from .shapes import Oval, Region, find_ellipse, find_small_ellipse, histogram, oval_fit, threshold

_number = raw.panoval_version()
__version__ = f"{_number // 10000}.{_number // 100 % 100}.{_number % 100}"

__all__ = [
    "Blended", "CELL_DTYPE", "Centre", "CirclePose", "Counts", "Edges", "Estimate", "FLAGS", "GAIN_DTYPE", "Gradients",
    "Grid", "Layout", "Mosaic", "Oval", "Overlap", "Panorama", "Pixels", "Rect", "Region", "STATISTICS_DTYPE", "TARGET_DTYPE", "Tile",
    "apply_gain", "canny", "centre_by_focal_length", "centre_by_homography", "centre_by_rings", "common_mask", "crop", "crop_mask",
    "distance_transform", "error_text", "feather", "find_ellipse", "find_small_ellipse", "gain_factors", "gaussian_kernel",
    "gradients", "grid", "histogram", "inpaint", "measure", "measure_counts", "multiband", "oval_fit", "overlap", "raw",
    "read_pgm", "refine", "smooth", "stitch", "threshold", "to_pandas", "to_rgb8", "write_pgm",
] + errors.__all__
