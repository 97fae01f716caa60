// SPDX-License-Identifier: MIT
// Rectangles of pixels in 64 bit: canvases may be wider than a 32-bit area can tell.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

// A size or an index that is known not to be negative.
inline std::size_t to_size(std::int64_t value)
{
    return static_cast<std::size_t>(value);
}

// Columns x to right() - 1, rows y to bottom() - 1.
struct Rect {
    std::int64_t x = 0;
    std::int64_t y = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;

    std::int64_t right() const { return x + width; }
    std::int64_t bottom() const { return y + height; }
    bool is_empty() const { return width <= 0 || height <= 0; }
    std::int64_t pixels() const { return is_empty() ? 0 : width * height; }
    bool contains(std::int64_t px, std::int64_t py) const
    {
        return px >= x && px < right() && py >= y && py < bottom();
    }
    bool contains(const Rect& other) const
    {
        return other.x >= x && other.right() <= right() && other.y >= y && other.bottom() <= bottom();
    }
    Rect moved(std::int64_t dx, std::int64_t dy) const { return {x + dx, y + dy, width, height}; }
    Rect grown(std::int64_t by) const { return {x - by, y - by, width + 2 * by, height + 2 * by}; }
    friend bool operator==(const Rect&, const Rect&) = default;
};

// The common part; empty, with a width and height of 0, where there is none.
inline Rect intersect(const Rect& a, const Rect& b)
{
    const std::int64_t x = std::max(a.x, b.x);
    const std::int64_t y = std::max(a.y, b.y);
    const std::int64_t right = std::min(a.right(), b.right());
    const std::int64_t bottom = std::min(a.bottom(), b.bottom());
    if (right <= x || bottom <= y)
        return {};
    return {x, y, right - x, bottom - y};
}

// The smallest rectangle that holds both; the other one where one is empty.
inline Rect bounding(const Rect& a, const Rect& b)
{
    if (a.is_empty())
        return b;
    if (b.is_empty())
        return a;
    const std::int64_t x = std::min(a.x, b.x);
    const std::int64_t y = std::min(a.y, b.y);
    return {x, y, std::max(a.right(), b.right()) - x, std::max(a.bottom(), b.bottom()) - y};
}

} // namespace panoval::mosaic
