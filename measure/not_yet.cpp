// SPDX-License-Identifier: MIT
// Routines that are about to move into files of their own.
#include "panoval_measure.h"

extern "C" {
PANOVAL_MEASURE_API int32_t panoval_measure_grid(const PanovalMeasureTarget*, int32_t, int32_t, int32_t,
                                                 PanovalMeasureGrid*, PanovalMeasureGridCell*)
{
    return PANOVAL_MEASURE_NO_MEMORY;
}
}
