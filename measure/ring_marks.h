// SPDX-License-Identifier: MIT
// Marks of codes: a short piece of a ring around a target is, blurred, an ellipse itself. Others begin and end at the
// same distances from the target, and it is wider along the ring than across, by which the dots of a board beside each
// other differ.
#pragma once

#include "measure/neighbours.h"
#include "measure/silhouette.h"

#include <vector>

namespace panoval::measure
{

// Lowers the quality of targets that are marks on a ring about another one.
void doubt_ring_marks(const SilhouetteMap& silhouettes, std::vector<MeasuredTarget>& targets);

} // namespace panoval::measure
