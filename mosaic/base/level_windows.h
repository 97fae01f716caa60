// SPDX-License-Identifier: MIT
// Which pixels of each pyramid level a tile needs. Level i has half the pixels of level i - 1 in both directions; pixel
// x of a level is made of pixels 2 x - 2 to 2 x + 2 of the finer one (reduction), and goes into pixels 2 x - 2 to 2 x +
// 2 of it (expansion).
#pragma once

#include "blend/border.h"
#include "mosaic/base/rect.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// Columns or rows first to end - 1 of a level.
struct Interval {
    std::int64_t first = 0;
    std::int64_t end = 0;

    std::int64_t length() const { return std::max<std::int64_t>(end - first, 0); }
    bool is_empty() const { return end <= first; }
    bool contains(std::int64_t at) const { return first <= at && at < end; }
    friend bool operator==(const Interval&, const Interval&) = default;
};

inline Interval intersect(Interval a, Interval b)
{
    const Interval common{std::max(a.first, b.first), std::min(a.end, b.end)};
    return common.is_empty() ? Interval{} : common;
}

inline Interval bounding(Interval a, Interval b)
{
    if (a.is_empty() || b.is_empty())
        return a.is_empty() ? b : a;
    return {std::min(a.first, b.first), std::max(a.end, b.end)};
}

// A part of a level.
struct Window {
    Interval columns;
    Interval rows;

    bool is_empty() const { return columns.is_empty() || rows.is_empty(); }
    Rect rect() const { return {columns.first, rows.first, columns.length(), rows.length()}; }
};

inline Window window_of(const Rect& rect)
{
    return {{rect.x, rect.right()}, {rect.y, rect.bottom()}};
}

inline Window intersect(const Window& a, const Window& b)
{
    return {intersect(a.columns, b.columns), intersect(a.rows, b.rows)};
}

// The index inside a level of that length of which what stands at `at` is the mirror image.
inline std::int64_t mirrored(std::int64_t at, std::int64_t length)
{
    return border_interpolate(static_cast<std::int32_t>(at), static_cast<std::int32_t>(length), kBorderMirrorInner);
}

// ---- what one level is to the next ----

inline std::int64_t half(std::int64_t at)
{
    return at >= 0 ? at / 2 : -((1 - at) / 2);
}

// Of the coarser level, what pixels of a level are expanded from.
inline Interval expanded_from(Interval fine)
{
    return fine.is_empty() ? Interval{} : Interval{half(fine.first) - 1, half(fine.end - 1) + 2};
}

// Of the finer level, what pixels of a level are reduced from; what they are expanded into as well.
inline Interval reduced_from(Interval coarse)
{
    return coarse.is_empty() ? Interval{} : Interval{2 * coarse.first - 2, 2 * coarse.end + 1};
}

inline Interval to_even(Interval interval)
{
    return interval.is_empty() ? Interval{} : Interval{2 * half(interval.first), 2 * half(interval.end + 1)};
}

// Windows count from a corner whose position is a multiple of the coarsest level's pixel.

// What has to be collapsed on every level, 0 to bands, so that the tile's pixels come out. size: of level 0.
std::vector<Window> collapse_windows(const Window& tile, int bands, std::int64_t width, std::int64_t height);

// What has to be known of a picture on every level, so that its bands can be told where `products` wants them. Begins
// and ends on even pixels on all levels but the coarsest. size: of level 0, multiples of 2 to the power of bands.
std::vector<Window> picture_windows(const std::vector<Window>& products, std::int64_t width, std::int64_t height);

// How far what has to be known of pictures goes beyond a tile, for the least fortunate place of it.
constexpr std::int64_t farthest_reach(int bands)
{
    return 5 * ((std::int64_t{1} << bands) - 1);
}

} // namespace panoval::mosaic
