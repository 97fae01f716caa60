// SPDX-License-Identifier: MIT
// The ratios of brightness that two overlapping pictures' rounded samples allow for. Without noise they are few, and
// the ratio of sums may lie beside them where surfaces of one value each leave rounding errors that do not cancel out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

namespace panoval::mosaic
{

// A ratio of a picture's brightness to another one's that was found from their single samples.
struct RoundedRatio {
    double log_ratio = 0; // of the first picture's brightness to the second's
    double error = 0;     // standard, about
};

struct RatioRange {
    double low = 0;
    double high = std::numeric_limits<double>::infinity();

    // Only ratios r that can make b of a: some light between b - 1/2 and b + 1/2, times r, rounds to a.
    void narrow(double a, double b);
    bool is_empty() const { return low >= high; }
    // False, too, where any smaller or any larger ratio would do.
    bool is_known() const { return low > 0 && !is_empty() && high < std::numeric_limits<double>::infinity(); }
};

inline constexpr double kErrorOfWidth = 0.3; // standard error of a ratio that may lie anywhere in a range, of its width

RatioRange common_range(const RatioRange& a, const RatioRange& b);

using RatioRanges = std::array<RatioRange, 4>; // of each channel

// A row that two pictures have in common: 8-bit samples, channels interleaved, and the masks (0 = not covered).
struct SharedRow {
    const std::uint8_t* first;
    const std::uint8_t* second;
    const std::uint8_t* first_mask;
    const std::uint8_t* second_mask;
    std::int64_t width; // pixels
    std::size_t channels;
};

// Takes in a row's samples, but saturated ones. Noise leaves nothing after a few samples; then this returns at once.
void narrow_by_row(const SharedRow& row, RatioRanges& ranges);

// The ratio if it lies inside a known range, else the middle of that.
std::optional<RoundedRatio> nearest_inside(const RatioRange& range, double log_ratio);

} // namespace panoval::mosaic
