// SPDX-License-Identifier: MIT
// Counters: what a letter's strokes enclose may be as good an ellipse as any, but what is around it tells. All around
// it a line of some width ends at once, on no outline that was found, unevenly and not alike on opposite sides, of the
// hole and of themselves: bowls hang on stems, and have tails. Rings are even, plates are wider, frames and cells
// symmetric even where the target is not in their middle, and marks beside a target leave gaps, through which other
// marks are seen that lie on one ring, too.
#pragma once

#include "measure/neighbours.h"

#include <vector>

namespace panoval::measure
{

// Whether what is around a target, as the marks of a code, begins on one or two circles about its centre.
bool has_rings_of_marks(const PanovalMeasureImage& image, const MeasuredTarget& target) noexcept;

// Lowers the quality of targets that strokes enclose.
void doubt_counters(const PanovalMeasureImage& image, std::vector<MeasuredTarget>& targets);

} // namespace panoval::measure
