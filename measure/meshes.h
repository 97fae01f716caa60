// SPDX-License-Identifier: MIT
// Meshes: what shows between crossing lines is as round as a dot once blur and noise have rounded its corners. One mesh
// alone cannot be told from a dot, but its neighbours have the same corners in the same directions.
#pragma once

#include "measure/neighbours.h"

#include <vector>

namespace panoval::measure
{

// Lowers the quality of targets whose outlines share the lobes of those beside them that are like them.
//
// picture_noise  standard deviation of samples where nothing is
void doubt_meshes(double picture_noise, std::vector<MeasuredTarget>& targets);

} // namespace panoval::measure
