// SPDX-License-Identifier: MIT
// The sizes and offsets of every record that crosses the interface. Hosts in other languages spell them out again, so
// they never change.
#include "panoval.h"

#include <cstddef>

static_assert(sizeof(void*) == 8, "the interface is defined for 64-bit systems");

static_assert(sizeof(Mat) == 32 && offsetof(Mat, width) == 0 && offsetof(Mat, height) == 4);
static_assert(offsetof(Mat, channels) == 8 && offsetof(Mat, elemSize) == 12 && offsetof(Mat, size) == 16);
static_assert(offsetof(Mat, capacity) == 20 && offsetof(Mat, data) == 24);

template <class T>
constexpr bool is_typed_container = sizeof(T) == 24 && offsetof(T, width) == 0 && offsetof(T, height) == 4 &&
                                    offsetof(T, channels) == 8 && offsetof(T, data) == 16;
static_assert(is_typed_container<Matb> && is_typed_container<Mats> && is_typed_container<Matf>);
static_assert(is_typed_container<Mati> && is_typed_container<Matd>);

static_assert(sizeof(Roi) == 16 && offsetof(Roi, x) == 0 && offsetof(Roi, y) == 4);
static_assert(offsetof(Roi, width) == 8 && offsetof(Roi, height) == 12);
static_assert(sizeof(Point) == 8 && offsetof(Point, x) == 0 && offsetof(Point, y) == 4);
static_assert(sizeof(Size) == 8 && offsetof(Size, width) == 0 && offsetof(Size, height) == 4);

static_assert(sizeof(GainCompensator) == 72 && offsetof(GainCompensator, counts) == 0);
static_assert(offsetof(GainCompensator, intensities) == 24 && offsetof(GainCompensator, gains) == 48);

static_assert(sizeof(FeatherBlender) == 144 && offsetof(FeatherBlender, dst) == 0);
static_assert(offsetof(FeatherBlender, spare) == 24 && offsetof(FeatherBlender, dstRoi) == 48);
static_assert(offsetof(FeatherBlender, distScratch) == 64 && offsetof(FeatherBlender, sharpness) == 88);
static_assert(offsetof(FeatherBlender, weightMap) == 96 && offsetof(FeatherBlender, dstWeightMap) == 120);

static_assert(sizeof(MultiBandBlender) == 56 && offsetof(MultiBandBlender, dstRoi) == 0);
static_assert(offsetof(MultiBandBlender, numBands) == 16 && offsetof(MultiBandBlender, requestedBands) == 20);
static_assert(offsetof(MultiBandBlender, dstPyrLaplace) == 24 && offsetof(MultiBandBlender, dstBandWeights) == 32);
static_assert(offsetof(MultiBandBlender, dstRoiFinal) == 40);

static_assert(sizeof(EllipseRegion) == 80 && offsetof(EllipseRegion, cx) == 0 && offsetof(EllipseRegion, cy) == 8);
static_assert(offsetof(EllipseRegion, major) == 16 && offsetof(EllipseRegion, minor) == 24);
static_assert(offsetof(EllipseRegion, angle) == 32 && offsetof(EllipseRegion, pixel_count) == 40);
static_assert(offsetof(EllipseRegion, point_count) == 44 && offsetof(EllipseRegion, points) == 48);
static_assert(offsetof(EllipseRegion, reserved) == 56 && offsetof(EllipseRegion, rms) == 72);

static_assert(sizeof(OvalFit) == 104 && offsetof(OvalFit, coef_a) == 0 && offsetof(OvalFit, coef_b) == 8);
static_assert(offsetof(OvalFit, coef_c) == 16 && offsetof(OvalFit, coef_d) == 24 && offsetof(OvalFit, coef_e) == 32);
static_assert(offsetof(OvalFit, coef_f) == 40 && offsetof(OvalFit, x0) == 48 && offsetof(OvalFit, y0) == 56);
static_assert(offsetof(OvalFit, semi_major) == 64 && offsetof(OvalFit, semi_minor) == 72);
static_assert(offsetof(OvalFit, theta) == 80 && offsetof(OvalFit, rms) == 88 && offsetof(OvalFit, max_residual) == 96);
