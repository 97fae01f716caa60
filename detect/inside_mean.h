// SPDX-License-Identifier: MIT
// Mean grey level inside an ellipse that is given by its foci.
#pragma once

#include "detect/conic_residuals.h"

#include <cstdint>

namespace panoval
{

// The integer mean of the pixels inside, 0 where there is none. A pixel is inside when its distances to both foci minus
// foci.sum, truncated to an integer, are negative. That includes what leaves the integer range.
//
// image  width x height bytes
// foci   whole pixels; the sum is finite
std::int32_t mean_inside(const std::uint8_t* image, std::int32_t width, std::int32_t height, const Foci& foci);

} // namespace panoval
