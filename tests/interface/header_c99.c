/* SPDX-License-Identifier: MIT */
/* The public headers alone must compile as C99. */
#include "panoval.h"
#include "panoval_measure.h"
#include "panoval_mosaic.h"

#include "libmath/libmath.h"

typedef char header_c99_sees_64_bit_records[sizeof(Mat) == 32 ? 1 : -1];
typedef char header_c99_sees_whole_targets[sizeof(PanovalMeasureTarget) == 400 ? 1 : -1];
typedef char header_c99_sees_whole_pictures[sizeof(PanovalMosaicPicture) == 72 ? 1 : -1];
typedef char header_c99_sees_whole_statistics[sizeof(PanovalMosaicStatistics) == 184 ? 1 : -1];
