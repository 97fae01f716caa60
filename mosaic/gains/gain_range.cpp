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

void narrow_by_row(const PixelBlock& first, const PixelBlock& second, std::int64_t row, RatioRanges& ranges)
{
    const auto channels = static_cast<std::size_t>(first.channels);
    const std::uint8_t* a = first.row(row);
    const std::uint8_t* b = second.row(row);
    const auto is_empty = [](const RatioRange& range) { return range.is_empty(); };
    for (std::int64_t x = 0; x < first.rect.width; ++x, a += channels, b += channels) {
        if (std::all_of(ranges.begin(), ranges.begin() + first.channels, is_empty))
            return;
        if (first.mask_row(row)[x] == 0 || second.mask_row(row)[x] == 0)
            continue;
        for (std::size_t c = 0; c < channels; ++c)
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
