// SPDX-License-Identifier: MIT
// Whether the two pictures of an overlap show the same things at all.
#pragma once

#include "mosaic/gains/gain_pair.h"

namespace panoval::mosaic
{

struct PairAgreement {
    double correlation =
        0; // of the logarithms of the two pictures' brightness over parts of the overlap, planes taken out
    double unevenness = 0; // of their ratio from part to part, robust standard deviation
    bool agrees = false;
};

PairAgreement judge_agreement(const BlockLevels& levels, const RatioEstimate& ratio);

} // namespace panoval::mosaic
