// SPDX-License-Identifier: MIT
// The ratio of brightness between two dark pictures whose samples are rounded and hardly noisy. There sums are biased:
// of a few levels, rounding errors do not cancel out. But where both pictures saw the same light, a sample a of the one
// and b of the other say that the light lies between a - 1/2 and a + 1/2 as well as between r (b - 1/2) and
// r (b + 1/2): few ratios r allow for all the pairs of samples that occur.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/gains/gain_range.h"
#include "mosaic/pictures/pixel_block.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace panoval::mosaic
{

// How often each pair of samples below kSide occurs.
struct SamplePairs {
    static constexpr std::size_t kSide = 64;
    std::vector<std::uint32_t> count = std::vector<std::uint32_t>(kSide * kSide); // [first * kSide + second]
};

// Of each channel, and of all together as the last one. 8-bit samples; at most some 2^16 pixels are looked at, in rows
// at equal distances.
std::vector<SamplePairs> count_sample_pairs(const Layout& layout, const Overlap& overlap, PictureReader& reader);

// Nothing where noise, or things that differ, make pairs that no ratio allows for. Where the range is known the ratio
// lies inside; it tells of brighter samples, too.
std::optional<RoundedRatio> find_rounded_ratio(const SamplePairs& pairs, const RatioRange& range = {});

} // namespace panoval::mosaic
