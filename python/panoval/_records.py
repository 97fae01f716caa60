# SPDX-License-Identifier: MIT
"""The records of the three C interfaces as ctypes structures, field by field as in the headers.

Their sizes are checked on import: a record that grew by a padding byte would read the neighbour's memory.
"""

from __future__ import annotations

import ctypes
from ctypes import CFUNCTYPE, POINTER, Structure, c_char_p, c_double, c_float, c_int32, c_int64, c_size_t
from ctypes import c_uint64, c_void_p
from typing import Dict, Type

# ---- panoval.h -------------------------------------------------------------------------------------------------------


class Mat(Structure):
    """A generic image; MatInit once, MatReset any number of times, MatDestroy."""

    _fields_ = [("width", c_int32), ("height", c_int32), ("channels", c_int32), ("elemSize", c_int32),
                ("size", c_int32), ("capacity", c_int32), ("data", c_void_p)]


_CONTAINER = [("width", c_int32), ("height", c_int32), ("channels", c_int32), ("data", c_void_p)]


class Matb(Structure):
    """A container of unsigned 8-bit elements: masks."""

    _fields_ = _CONTAINER


class Mats(Structure):
    """A container of 16-bit elements."""

    _fields_ = _CONTAINER


class Matf(Structure):
    """A container of 32-bit floats."""

    _fields_ = _CONTAINER


class Mati(Structure):
    """A container of signed 32-bit elements."""

    _fields_ = _CONTAINER


class Matd(Structure):
    """A container of doubles."""

    _fields_ = _CONTAINER


class Roi(Structure):
    """A rectangle of the panorama's frame, in pixels."""

    _fields_ = [("x", c_int32), ("y", c_int32), ("width", c_int32), ("height", c_int32)]


class Point(Structure):
    """A picture's top-left corner in the panorama's frame, in pixels."""

    _fields_ = [("x", c_int32), ("y", c_int32)]


class Size(Structure):
    """A picture's extent in pixels."""

    _fields_ = [("width", c_int32), ("height", c_int32)]


class GainCompensator(Structure):
    _fields_ = [("counts", Mati), ("intensities", Matd), ("gains", Matd)]


class FeatherBlender(Structure):
    _fields_ = [("dst", Matf), ("spare", Matf), ("dstRoi", Roi), ("distScratch", Matf), ("sharpness", c_float),
                ("weightMap", Matf), ("dstWeightMap", Matf)]


class MultiBandBlender(Structure):
    _fields_ = [("dstRoi", Roi), ("numBands", c_int32), ("requestedBands", c_int32), ("dstPyrLaplace", POINTER(Matf)),
                ("dstBandWeights", POINTER(Matf)), ("dstRoiFinal", Roi)]


class EllipseRegion(Structure):
    _fields_ = [("cx", c_double), ("cy", c_double), ("major", c_double), ("minor", c_double), ("angle", c_double),
                ("pixel_count", c_int32), ("point_count", c_int32), ("points", c_void_p), ("reserved", c_double * 2),
                ("rms", c_double)]


class OvalFit(Structure):
    _fields_ = [(name, c_double) for name in ("coef_a", "coef_b", "coef_c", "coef_d", "coef_e", "coef_f", "x0", "y0",
                                              "semi_major", "semi_minor", "theta", "rms", "max_residual")]


# ---- panoval_mosaic.h ------------------------------------------------------------------------------------------------


class PanovalMosaicOptions(Structure):
    _fields_ = [("memory", c_uint64), ("wrap", c_int64)] + [
        (name, c_int32) for name in ("threads", "bands", "blend", "seams", "gains", "vignetting", "anchor", "tile_size",
                                     "output_bits")] + [("reserved", c_int32 * 11)]


class PanovalMosaicPicture(Structure):
    _fields_ = [("x", c_int64), ("y", c_int64)] + [
        (name, c_int32) for name in ("width", "height", "channels", "bits", "has_mask", "has_keep", "random_access")
    ] + [("reserved", c_int32 * 5), ("name", c_char_p)]


class PanovalMosaicRows(Structure):
    _fields_ = [("picture", c_int32), ("first_row", c_int32), ("row_count", c_int32), ("reserved", c_int32),
                ("samples", c_void_p), ("samples_stride", c_size_t), ("mask", c_void_p), ("mask_stride", c_size_t),
                ("keep", c_void_p), ("keep_stride", c_size_t), ("message", c_void_p)]


class PanovalMosaicRect(Structure):
    _fields_ = [("x", c_int64), ("y", c_int64), ("width", c_int64), ("height", c_int64)]


ReadRows = CFUNCTYPE(c_int32, c_void_p, POINTER(PanovalMosaicRows))
ReleasePicture = CFUNCTYPE(None, c_void_p, c_int32)
ReportProgress = CFUNCTYPE(c_int32, c_void_p, c_int32, c_double)
WritePixels = CFUNCTYPE(c_int32, c_void_p, POINTER(PanovalMosaicRect), c_void_p, c_size_t, c_void_p, c_size_t, c_void_p)


class PanovalMosaicHost(Structure):
    _fields_ = [("user", c_void_p), ("read_rows", ReadRows), ("release_picture", ReleasePicture),
                ("progress", ReportProgress)]


class PanovalMosaicLayout(Structure):
    _fields_ = [(name, c_int64) for name in ("width", "height", "origin_x", "origin_y", "pictures", "overlaps", "tiles",
                                             "tile_columns", "tile_rows", "tile_width", "tile_height")] + [
        (name, c_int32) for name in ("channels", "bits", "bands", "wraps")]


class PanovalMosaicOverlap(Structure):
    _fields_ = [("first", c_int64), ("second", c_int64), ("region", PanovalMosaicRect), ("first_x", c_int64),
                ("first_y", c_int64), ("second_x", c_int64), ("second_y", c_int64)]


class PanovalMosaicEstimate(Structure):
    _fields_ = [(name, c_uint64) for name in ("memory", "least_memory", "scratch_file", "picture_bytes",
                                              "panorama_bytes")] + [
        ("decodes", c_double), ("seconds", c_double), ("threads", c_int32), ("reserved", c_int32)]


class PanovalMosaicNeeds(Structure):
    _fields_ = [(name, c_uint64) for name in ("least_memory", "least_memory_of_tiles", "seam_memory", "reserved")]


class PanovalMosaicRatio(Structure):
    _fields_ = [("value", c_double), ("error", c_double), ("is_known", c_int32), ("reserved", c_int32)]


class PanovalMosaicStatistics(Structure):
    _fields_ = [("pixels", c_int64), ("says", c_int32), ("reserved", c_int32), ("channels", PanovalMosaicRatio * 4),
                ("all", PanovalMosaicRatio), ("seen", PanovalMosaicRatio), ("spread", c_double),
                ("correlation", c_double), ("unevenness", c_double)]


class PanovalMosaicSink(Structure):
    _fields_ = [("user", c_void_p), ("write", WritePixels), ("by_tiles", c_int32), ("wants_coverage", c_int32),
                ("reserved", c_int32 * 6)]


class PanovalMosaicCounts(Structure):
    _fields_ = [("rows", c_uint64), ("pictures", c_double), ("scratch_bytes", c_uint64), ("largest_memory", c_uint64)]


# ---- panoval_measure.h -----------------------------------------------------------------------------------------------


class PanovalMeasureImage(Structure):
    _fields_ = [("data", c_void_p), ("width", c_int32), ("height", c_int32), ("stride", c_int64),
                ("sample_type", c_int32), ("reserved", c_int32)]


class PanovalMeasureEllipse(Structure):
    _fields_ = [(name, c_double) for name in ("x", "y", "semi_major", "semi_minor", "angle")]


class PanovalMeasureTarget(Structure):
    _fields_ = [("ellipse", PanovalMeasureEllipse), ("covariance", c_double * 25)] + [
        (name, c_double) for name in ("sigma_x", "sigma_y", "sigma_major", "sigma_minor", "sigma_angle", "level_inside",
                                      "level_outside", "slope_inside_x", "slope_inside_y", "slope_outside_x",
                                      "slope_outside_y", "blur", "sigma_blur", "noise", "edge_share", "chi_square",
                                      "quality")] + [
        (name, c_int32) for name in ("polarity", "flags", "iterations", "pixels", "code", "reserved")]


class PanovalMeasureDetectOptions(Structure):
    _fields_ = [("polarity", c_int32), ("max_count", c_int32), ("min_radius", c_double), ("max_radius", c_double),
                ("min_aspect", c_double), ("min_quality", c_double), ("reserved", c_double * 4)]


class PanovalMeasureDetection(Structure):
    _fields_ = [("targets", POINTER(PanovalMeasureTarget))] + [
        (name, c_int32) for name in ("count", "candidates", "too_small", "too_large", "too_faint", "not_oval",
                                     "other_polarity", "below_quality")]


class PanovalMeasurePoint(Structure):
    _fields_ = [(name, c_double) for name in ("x", "y", "var_x", "cov_xy", "var_y")]


class PanovalMeasureCirclePose(Structure):
    _fields_ = [("centre", PanovalMeasurePoint), ("normal", c_double * 3), ("distance", c_double)]


class PanovalMeasureGridCell(Structure):
    _fields_ = [("target", c_int32), ("reserved", c_int32)] + [
        (name, c_double) for name in ("x", "y", "centre_x", "centre_y", "residual_x", "residual_y")]


class PanovalMeasureGrid(Structure):
    _fields_ = [("homography", c_double * 9), ("rms", c_double), ("max_residual", c_double), ("found", c_int32),
                ("missing", c_int32), ("extra", c_int32), ("reserved", c_int32)]


# Bytes of each record on 64-bit systems, as the headers' records have them.
SIZES: Dict[Type[Structure], int] = {
    Mat: 32, Matb: 24, Mats: 24, Matf: 24, Mati: 24, Matd: 24, Roi: 16, Point: 8, Size: 8, GainCompensator: 72,
    FeatherBlender: 144, MultiBandBlender: 56, EllipseRegion: 80, OvalFit: 104, PanovalMosaicOptions: 96,
    PanovalMosaicPicture: 72, PanovalMosaicRows: 72, PanovalMosaicRect: 32, PanovalMosaicHost: 32,
    PanovalMosaicLayout: 104, PanovalMosaicOverlap: 80, PanovalMosaicEstimate: 64, PanovalMosaicNeeds: 32,
    PanovalMosaicSink: 48, PanovalMosaicCounts: 32, PanovalMosaicRatio: 24, PanovalMosaicStatistics: 184,
    PanovalMeasureImage: 32, PanovalMeasureEllipse: 40, PanovalMeasureTarget: 400,
    PanovalMeasureDetectOptions: 72, PanovalMeasureDetection: 40, PanovalMeasurePoint: 40, PanovalMeasureCirclePose: 72,
    PanovalMeasureGridCell: 56, PanovalMeasureGrid: 104,
}

for _record, _size in SIZES.items():
    if ctypes.sizeof(_record) != _size:
        raise ImportError(f"the record {_record.__name__} has {ctypes.sizeof(_record)} bytes here and {_size} in the "
                          "libraries; this package needs a 64-bit Python")
