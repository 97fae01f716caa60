// SPDX-License-Identifier: MIT
// The version and the texts of the codes.
#include "panoval_measure.h"

#include <cstddef>

static_assert(sizeof(PanovalMeasureImage) == 32 && offsetof(PanovalMeasureImage, stride) == 16);
static_assert(sizeof(PanovalMeasureEllipse) == 40);
static_assert(sizeof(PanovalMeasureTarget) == 400 && offsetof(PanovalMeasureTarget, polarity) == 376);
static_assert(sizeof(PanovalMeasureDetectOptions) == 72 && sizeof(PanovalMeasureDetection) == 40);
static_assert(sizeof(PanovalMeasurePoint) == 40 && sizeof(PanovalMeasureCirclePose) == 72);
static_assert(sizeof(PanovalMeasureGridCell) == 56 && sizeof(PanovalMeasureGrid) == 104);

extern "C" {

PANOVAL_MEASURE_API int32_t panoval_measure_version(void)
{
    return PANOVAL_MEASURE_VERSION_MAJOR * 10000 + PANOVAL_MEASURE_VERSION_MINOR * 100 + PANOVAL_MEASURE_VERSION_PATCH;
}

PANOVAL_MEASURE_API const char* panoval_measure_error_text(int32_t code)
{
    switch (code) {
    case PANOVAL_MEASURE_OK:
        return "no error";
    case PANOVAL_MEASURE_NULL_ARGUMENT:
        return "a pointer that must point somewhere is null";
    case PANOVAL_MEASURE_BAD_IMAGE:
        return "the picture has no pixels, or its stride is shorter than its rows";
    case PANOVAL_MEASURE_BAD_SAMPLE_TYPE:
        return "the sample type is none of 8-bit, 16-bit and float";
    case PANOVAL_MEASURE_BAD_COUNT:
        return "a count is negative or too small";
    case PANOVAL_MEASURE_NOT_A_NUMBER:
        return "an argument or a sample is not a finite number";
    case PANOVAL_MEASURE_BAD_START:
        return "an axis of the start is not positive";
    case PANOVAL_MEASURE_OUTSIDE:
        return "the start lies outside the picture";
    case PANOVAL_MEASURE_TOO_SMALL:
        return "the target is too small to be measured";
    case PANOVAL_MEASURE_TOO_LARGE:
        return "the target is larger than the picture";
    case PANOVAL_MEASURE_NO_EDGE:
        return "the picture shows no closed edge around the start";
    case PANOVAL_MEASURE_BAD_OPTION:
        return "an option is outside its range";
    case PANOVAL_MEASURE_NO_MEMORY:
        return "not enough memory";
    case PANOVAL_MEASURE_BAD_HOMOGRAPHY:
        return "the homography has no inverse, or the camera lies in the target's plane";
    case PANOVAL_MEASURE_BAD_ELLIPSE:
        return "the ellipse's axes are not positive, or it is the outline of no circle";
    case PANOVAL_MEASURE_NOT_CONCENTRIC:
        return "the outlines are no images of concentric circles";
    case PANOVAL_MEASURE_NO_GRID:
        return "the targets do not form a board of that many rows and columns";
    default:
        return "unknown code";
    }
}

PANOVAL_VERSION_API int32_t panoval_version(void)
{
    return PANOVAL_VERSION_NUMBER;
}

} // extern "C"
