// SPDX-License-Identifier: MIT
// The five routines on Eigen.
#include "libmath/libmath.h"
