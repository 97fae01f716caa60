// SPDX-License-Identifier: MIT
// The public headers alone must compile as C++20.
#include "panoval.h"
#include "panoval_measure.h"
#include "panoval_mosaic.h"

#include "libmath/libmath.h"

static_assert(sizeof(Mat) == 32);
static_assert(sizeof(PanovalMeasureTarget) == 400);
static_assert(sizeof(PanovalMosaicPicture) == 72);
