# SPDX-License-Identifier: MIT
"""Every exported routine of the three libraries under its own name, as the headers declare it.

Nothing is checked here beyond the types of the arguments: include/panoval.h, panoval_mosaic.h and panoval_measure.h say what
each routine expects. Blocks that a routine hands over are freed with `free`.

>>> import numpy as np
>>> grey = np.full((4, 5), 7, np.uint8)
>>> smoothed = np.empty_like(grey)
>>> smooth_image(grey, 5, 4, smoothed)
>>> int(smoothed[2, 2])
7
"""

from __future__ import annotations

from ctypes import POINTER, c_char_p, c_double, c_float, c_int16, c_int32, c_int64, c_size_t, c_uint8, c_uint16
from ctypes import c_uint32, c_void_p

from . import _library
from ._arguments import record, samples
from ._records import *  # noqa: F401,F403 - the records belong to this interface
from ._records import (EllipseRegion, FeatherBlender, GainCompensator, Mat, Matb, Matd, Matf, Mati, Mats,
                       MultiBandBlender, OvalFit, PanovalMeasureCirclePose, PanovalMeasureDetection,
                       PanovalMeasureDetectOptions, PanovalMeasureEllipse, PanovalMeasureGrid, PanovalMeasureGridCell,
                       PanovalMeasureImage, PanovalMeasurePoint, PanovalMeasureTarget, PanovalMosaicCounts,
                       PanovalMosaicEstimate, PanovalMosaicHost, PanovalMosaicLayout, PanovalMosaicNeeds,
                       PanovalMosaicOptions, PanovalMosaicOverlap, PanovalMosaicPicture, PanovalMosaicRect,
                       PanovalMosaicSink, Point, Roi, Size)

libraries = _library.load()
free = _library.c_free()


def _in(kind: type) -> type:
    return record(kind, True) if hasattr(kind, "_fields_") else samples(kind, True)


def _out(kind: type) -> type:
    return record(kind, False) if hasattr(kind, "_fields_") else samples(kind, False)


def _declared(library, name, result, *arguments):
    routine = library[name]
    routine.restype = result
    routine.argtypes = list(arguments)
    routine.__name__ = name
    return routine


def _core(name, result, *arguments):
    return _declared(libraries.panoval, name, result, *arguments)


def _mosaic(name, result, *arguments):
    return _declared(libraries.mosaic, f"panoval_mosaic_{name}", result, *arguments)


def _measure(name, result, *arguments):
    return _declared(libraries.measure, f"panoval_measure_{name}", result, *arguments)


_INT = c_int32
_SIZE3 = (c_int32, c_int32, c_int32)

# ---- panoval.h: containers -------------------------------------------------------------------------------------------

MatInit = _core("MatInit", None, _out(Mat))
MatReset = _core("MatReset", None, _out(Mat), *_SIZE3, _INT)
MatDestroy = _core("MatDestroy", None, _out(Mat))
MatToImage = _core("MatToImage", _INT, _in(Mat), _out(c_uint8))
MatbReset = _core("MatbReset", None, _out(Matb), *_SIZE3)
MatsReset = _core("MatsReset", None, _out(Mats), *_SIZE3)
MatfReset = _core("MatfReset", None, _out(Matf), *_SIZE3)
MatiReset = _core("MatiReset", None, _out(Mati), *_SIZE3)
MatdReset = _core("MatdReset", None, _out(Matd), *_SIZE3)

# ---- panoval.h: PGM files --------------------------------------------------------------------------------------------

read_pgm = _core("read_pgm", None, POINTER(POINTER(c_uint8)), _out(_INT), _out(_INT), c_char_p)
write_pgm = _core("write_pgm", None, _in(c_uint8), _INT, _INT, c_char_p)
write_pgm_float = _core("write_pgm_float", None, _in(c_float), _INT, _INT, c_char_p)
write_pgm_short = _core("write_pgm_short", None, _in(c_int16), _INT, _INT, c_char_p)
write_fpgm = _core("write_fpgm", None, _in(Matf), c_char_p)

# ---- panoval.h: regions, masks, gains --------------------------------------------------------------------------------

overlapRoi = _core("overlapRoi", _INT, Point, Point, Size, Size, _out(Roi))
get_sub_image = _core("get_sub_image", None, _in(Mat), _in(Roi), _out(Mat))
get_sub_mask = _core("get_sub_mask", None, _in(Matb), _in(Roi), _out(Matb))
get_mask_intersect = _core("get_mask_intersect", _INT, _in(Matb), _in(Matb), _out(Matb))
gain_compensator_init = _core("gain_compensator_init", None, _out(GainCompensator), _INT, _in(Point), _in(Mat),
                              _in(Matb))
gain_compensator_apply = _core("gain_compensator_apply", None, _in(GainCompensator), _INT, _out(Mat))
gain_compensator_free = _core("gain_compensator_free", None, _out(GainCompensator))
gain_compensator_init_start = _core("gain_compensator_init_start", None, _out(GainCompensator), _INT)
gain_compensator_init_step = _core("gain_compensator_init_step", None, _out(GainCompensator), _INT, _INT, Point,
                                   _in(Mat), _in(Matb), Point, _in(Mat), _in(Matb))
gain_compensator_init_end = _core("gain_compensator_init_end", None, _out(GainCompensator))

# ---- panoval.h: blending ---------------------------------------------------------------------------------------------

feather_blender_prepare = _core("feather_blender_prepare", None, _out(FeatherBlender), _INT, _in(Roi))
feather_blender_feed = _core("feather_blender_feed", None, _out(FeatherBlender), _in(Mat), _in(Matb), Point)
feather_blender_blend = _core("feather_blender_blend", None, _out(FeatherBlender), _out(Mat), _INT)
multi_band_blender_setbands = _core("multi_band_blender_setbands", None, _out(MultiBandBlender), _INT)
multi_band_blender_prepare = _core("multi_band_blender_prepare", None, _out(MultiBandBlender), _INT, _out(Roi))
multi_band_blender_feed = _core("multi_band_blender_feed", None, _out(MultiBandBlender), _in(Mat), _in(Matb), Point)
multi_band_blender_blend = _core("multi_band_blender_blend", None, _out(MultiBandBlender), _out(Mat), _INT)

# ---- panoval.h: filters, inpainting, shapes --------------------------------------------------------------------------

GetGaussianKernel = _core("GetGaussianKernel", None, _out(c_double), _INT, c_double)
smooth_image = _core("smooth_image", None, _in(c_uint8), _INT, _INT, _out(c_uint8))
gradient_image = _core("gradient_image", None, _in(c_uint8), _INT, _INT, _out(c_int16), _out(c_int16), _out(c_uint16))
distanceTransform_3x3 = _core("distanceTransform_3x3", None, _in(Matb), _out(Matf), _out(Matf), _in(c_float))
canny = _core("canny", None, _in(c_uint8), _INT, _INT, _out(c_uint8), c_double, c_double, c_double,
              POINTER(POINTER(c_int16)), POINTER(POINTER(c_int16)))
inpaint = _core("inpaint", None, _out(Mat), _out(Mat), _INT)
histogram_count = _core("histogram_count", _INT, _in(c_uint8), _INT, _INT, POINTER(POINTER(c_double)))
find_threshold = _core("find_threshold", _INT, _in(c_double))
find_trough = _core("find_trough", _INT, POINTER(POINTER(c_double)))
oval_fit = _core("oval_fit", _INT, _INT, _in(c_double), _out(OvalFit))
find_ellipse = _core("find_ellipse", _INT, _in(c_uint8), _INT, _INT, POINTER(POINTER(EllipseRegion)), _INT, _INT, _INT)
find_small_ellipse = _core("find_small_ellipse", c_uint32, _out(c_uint8), _INT, _INT, _in(c_double),
                           POINTER(POINTER(EllipseRegion)))

# ---- panoval_version.h and panoval_mosaic.h --------------------------------------------------------------------------

panoval_version = _declared(libraries.mosaic, "panoval_version", _INT)
panoval_mosaic_version = _mosaic("version", _INT)
panoval_mosaic_create = _mosaic("create", _INT, POINTER(c_void_p))
panoval_mosaic_destroy = _mosaic("destroy", None, c_void_p)
panoval_mosaic_error = _mosaic("error", c_size_t, c_void_p, c_char_p, c_size_t)
panoval_mosaic_set_options = _mosaic("set_options", _INT, c_void_p, _in(PanovalMosaicOptions))
panoval_mosaic_set_host = _mosaic("set_host", _INT, c_void_p, _in(PanovalMosaicHost))
panoval_mosaic_add_picture = _mosaic("add_picture", _INT, c_void_p, _in(PanovalMosaicPicture))
panoval_mosaic_layout = _mosaic("layout", _INT, c_void_p, _out(PanovalMosaicLayout))
panoval_mosaic_picture = _mosaic("picture", _INT, c_void_p, c_int64, _out(PanovalMosaicPicture))
panoval_mosaic_overlap = _mosaic("overlap", _INT, c_void_p, c_int64, _out(PanovalMosaicOverlap))
panoval_mosaic_estimate = _mosaic("estimate", _INT, c_void_p, _out(PanovalMosaicEstimate))
panoval_mosaic_needs = _mosaic("needs", _INT, c_void_p, _out(PanovalMosaicNeeds))
panoval_mosaic_reach = _mosaic("reach", c_int64, _INT)
panoval_mosaic_save_plan = _mosaic("save_plan", _INT, c_void_p, POINTER(c_char_p), _out(c_size_t))
panoval_mosaic_load_plan = _mosaic("load_plan", _INT, c_void_p, c_char_p, c_size_t)
panoval_mosaic_measure = _mosaic("measure", _INT, c_void_p, _INT)
panoval_mosaic_gains = _mosaic("gains", _INT, c_void_p, c_int64, _out(c_double), _out(c_double), _out(_INT), _out(_INT))
panoval_mosaic_set_gains = _mosaic("set_gains", _INT, c_void_p, _in(c_double), c_int64, _in(c_double))
panoval_mosaic_statistics = _mosaic("statistics", _INT, c_void_p, c_int64, _out(PanovalMosaicStatistics))
panoval_mosaic_set_statistics = _mosaic("set_statistics", _INT, c_void_p, _in(PanovalMosaicStatistics), c_int64,
                                        _in(c_double))
panoval_mosaic_seam_row = _mosaic("seam_row", _INT, c_void_p, c_int64, _out(_INT))
panoval_mosaic_set_seam_rows = _mosaic("set_seam_rows", _INT, c_void_p, c_int64, c_int64, _in(_INT), c_size_t)
panoval_mosaic_verdict = _mosaic("verdict", _INT, c_void_p, _INT, POINTER(c_char_p), _out(c_size_t))
panoval_mosaic_tile = _mosaic("tile", _INT, c_void_p, c_int64, _out(PanovalMosaicRect))
panoval_mosaic_blend = _mosaic("blend", _INT, c_void_p, _in(PanovalMosaicRect), c_void_p, c_size_t, _out(c_uint8),
                               c_size_t)
panoval_mosaic_run = _mosaic("run", _INT, c_void_p, _in(PanovalMosaicSink))
panoval_mosaic_counts = _mosaic("counts", _INT, c_void_p, _out(PanovalMosaicCounts))

# ---- panoval_measure.h -----------------------------------------------------------------------------------------------

panoval_measure_version = _measure("version", _INT)
panoval_measure_error_text = _measure("error_text", c_char_p, _INT)
panoval_measure_detect = _measure("detect", _INT, _in(PanovalMeasureImage), _in(PanovalMeasureDetectOptions),
                                  _out(PanovalMeasureDetection))
panoval_measure_free = _measure("free", None, _out(PanovalMeasureDetection))
panoval_measure_refine = _measure("refine", _INT, _in(PanovalMeasureImage), _in(PanovalMeasureEllipse), _INT,
                                  _out(PanovalMeasureTarget))
panoval_measure_centre_by_homography = _measure("centre_by_homography", _INT, _in(PanovalMeasureEllipse),
                                                _in(c_double), _in(c_double), _out(PanovalMeasurePoint))
panoval_measure_centre_by_focal_length = _measure("centre_by_focal_length", _INT, _in(PanovalMeasureEllipse),
                                                  _in(c_double), c_double, c_double, c_double,
                                                  _out(PanovalMeasureCirclePose))
panoval_measure_centre_by_rings = _measure("centre_by_rings", _INT, _in(PanovalMeasureEllipse), _in(c_double),
                                           _in(PanovalMeasureEllipse), _in(c_double), _out(PanovalMeasurePoint))
panoval_measure_grid = _measure("grid", _INT, _in(PanovalMeasureTarget), _INT, _INT, _INT, _out(PanovalMeasureGrid),
                                _out(PanovalMeasureGridCell))
