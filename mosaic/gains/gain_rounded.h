// SPDX-License-Identifier: MIT
// The ratio of brightness between two dark pictures whose samples are rounded and hardly noisy. There sums are biased:
// of a few levels, rounding errors do not cancel out. But where both pictures saw the same light, a sample a of the one
// and b of the other say that the light lies between a - 1/2 and a + 1/2 as well as between r (b - 1/2) and
// r (b + 1/2): few ratios r allow for all the pairs of samples that occur.
#pragma once

#include "mosaic/gains/gain_range.h"
#include "mosaic/gains/gain_samples.h"

#include <optional>

namespace panoval::mosaic
{

// Nothing where noise, or things that differ, make pairs that no ratio allows for. Where the range is known the ratio
// lies inside; it tells of brighter samples, too.
std::optional<RoundedRatio> find_rounded_ratio(const SamplePairs& pairs, const RatioRange& range = {});

} // namespace panoval::mosaic
