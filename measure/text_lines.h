// SPDX-License-Identifier: MIT
// Letters, their dots and what they enclose: one alone may be as good an ellipse as any, but it stands in a line of
// others of different forms that end on one straight line. A target with a label beside it does not: it stands apart,
// or does not end where the label does.
#pragma once

#include "measure/neighbours.h"
#include "measure/silhouette.h"

#include <vector>

namespace panoval::measure
{

// Lowers the quality of targets that are part of a line of text.
void doubt_letters(const SilhouetteMap& silhouettes, std::vector<MeasuredTarget>& targets);

} // namespace panoval::measure
