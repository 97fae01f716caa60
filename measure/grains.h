// SPDX-License-Identifier: MIT
// Grains: where noise is smooth, as that of film, of colour filters or of a resized picture, neighbouring samples
// hardly differ, and a spot of a few pixels stands out of what is called noise there. It does not stand out of its
// surroundings.
#pragma once

#include "measure/neighbours.h"

#include <vector>

namespace panoval::measure
{

// Lowers the quality of small targets whose contrast is not far above what their surroundings spread by, without the
// targets that were found there. False: no memory.
bool doubt_grains(const PanovalMeasureImage& image, std::vector<MeasuredTarget>& targets);

} // namespace panoval::measure
