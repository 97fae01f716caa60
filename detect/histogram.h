// SPDX-License-Identifier: MIT
// Grey-level histograms and the threshold between two classes of levels.
#pragma once

#include "detect/level_counts.h"

#include <cstdint>

namespace panoval
{

// The level k that maximises the variance between the levels up to k and those above it, the lowest of equals; -1
// where none has a positive variance. bins: kGreyLevels fractions.
std::int32_t between_class_threshold(const double* bins);

} // namespace panoval
