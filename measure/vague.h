// SPDX-License-Identifier: MIT
// Vague targets: in strong noise a small mesh of hatching, or a piece of a letter, is as round as a dot. Dots that
// stand out of the noise by eight deviations are known better than such things are.
#pragma once

#include "measure/neighbours.h"

#include <vector>

namespace panoval::measure
{

// Lowers the quality of targets whose smaller axis may be anything, and of the smallest whose contrast is little above
// what noise leaves of it.
//
// picture_noise  standard deviation of samples where nothing is
void doubt_vague(double picture_noise, std::vector<MeasuredTarget>& targets);

} // namespace panoval::measure
