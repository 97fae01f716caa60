// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_range.h"

#include "core/elementary.h"
#include "mosaic/gains/gain_blocks.h"

#include <algorithm>

namespace panoval::mosaic
{

void RatioRange::narrow(double a, double b)
{
    if (a - 0.5 > low * (b + 0.5))
        low = (a - 0.5) / (b + 0.5);
    if (b > 0 && a + 0.5 < high * (b - 0.5))
        high = (a + 0.5) / (b - 0.5);
}

RatioRange common_range(const RatioRange& a, const RatioRange& b)
{
    return {std::max(a.low, b.low), std::min(a.high, b.high)};
}

void narrow_by_row(const SharedRow& row, RatioRanges& ranges)
{
    const std::uint8_t* a = row.first;
    const std::uint8_t* b = row.second;
    const auto is_empty = [](const RatioRange& range) { return range.is_empty(); };
    for (std::int64_t x = 0; x < row.width; ++x, a += row.channels, b += row.channels) {
        if (std::all_of(ranges.data(), ranges.data() + row.channels, is_empty))
            return;
        if (row.first_mask[x] == 0 || row.second_mask[x] == 0)
            continue;
        for (std::size_t c = 0; c < row.channels; ++c)
            if (a[c] < saturation_bound(8) && b[c] < saturation_bound(8))
                ranges[c].narrow(a[c], b[c]);
    }
}

std::optional<RoundedRatio> nearest_inside(const RatioRange& range, double log_ratio)
{
    if (!range.is_known())
        return std::nullopt;
    const double low = log(range.low);
    const double high = log(range.high);
    const bool is_inside = log_ratio > low && log_ratio < high;
    return RoundedRatio{is_inside ? log_ratio : (low + high) / 2, kErrorOfWidth * (high - low)};
}

} // namespace panoval::mosaic
