// SPDX-License-Identifier: MIT
// Marching squares over one level, from cell to cell. Samples above the level are bright, the others dark.
#include "measure/detect_outline.h"

#include "core/numbers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace panoval::measure
{

namespace
{

constexpr std::int32_t kLongestFlat = 10; // cells in a row

// Sides of a cell, whose corners are the pixels (x, y) to (x + 1, y + 1).
enum Side : std::int32_t { kTop = 0, kRight = 1, kBottom = 2, kLeft = 3 };

struct Place {
    std::int32_t x, y;
    Side side; // by which the cell is entered

    bool operator==(const Place&) const = default;
};

struct Cell {
    double corner[4]; // clockwise from the top left one
    bool is_bright[4];

    Cell(const Scale& scale, std::int32_t x, std::int32_t y, double level) noexcept
    {
        const std::uint16_t* const p = scale.samples.get() + scale.at(x, y);
        const std::uint16_t values[4] = {p[0], p[1], p[scale.width + 1], p[scale.width]};
        for (std::size_t i = 0; i < 4; ++i) {
            corner[i] = values[i];
            is_bright[i] = corner[i] > level;
        }
    }

    bool crosses(Side side) const noexcept { return is_bright[side] != is_bright[(side + 1) % 4]; }

    // Where the line that enters by a side leaves.
    Side exit_of(Side entry, double level) const noexcept
    {
        const auto turned = [&](int by) { return static_cast<Side>((entry + by) % 4); };
        if (!crosses(turned(1)))
            return turned(crosses(turned(2)) ? 2 : 3);
        if (!crosses(turned(2)))
            return turned(1);
        // All four sides: the mean decides whether the bright corners are connected.
        const bool is_middle_bright = (corner[0] + corner[1]) + (corner[2] + corner[3]) > 4 * level;
        // The line goes around the corner before the entry's or behind it, whichever differs from the middle.
        return is_bright[(entry + 1) % 4] != is_middle_bright ? turned(1) : turned(3);
    }

    double squared_gradient() const noexcept
    {
        const double gx = 0.5 * ((corner[1] - corner[0]) + (corner[2] - corner[3]));
        const double gy = 0.5 * ((corner[3] - corner[0]) + (corner[2] - corner[1]));
        return gx * gx + gy * gy;
    }

    OutlinePoint point_on(Side side, std::int32_t x, std::int32_t y, double level) const noexcept
    {
        const double from = corner[side];
        const double share = (level - from) / (corner[(side + 1) % 4] - from);
        switch (side) {
        case kTop:
            return {x + share, static_cast<double>(y)};
        case kRight:
            return {x + 1.0, y + share};
        case kBottom:
            return {x + 1 - share, y + 1.0};
        default:
            return {static_cast<double>(x), y + 1 - share};
        }
    }
};

Place neighbour(std::int32_t x, std::int32_t y, Side exit) noexcept
{
    switch (exit) {
    case kTop:
        return {x, y - 1, kBottom};
    case kRight:
        return {x + 1, y, kLeft};
    case kBottom:
        return {x, y + 1, kTop};
    default:
        return {x - 1, y, kRight};
    }
}

bool is_cell(const Scale& scale, const Place& place) noexcept
{
    return place.x >= 0 && place.y >= 0 && place.x < scale.width - 1 && place.y < scale.height - 1;
}

// The pair of neighbouring pixels around the edge pixel between which the level lies, as the entry into the cell
// towards which the brighter one lies to the left.
bool first_place(const Scale& scale, std::int32_t x, std::int32_t y, double level, Place& place) noexcept
{
    const Gradient g = gradient_at(scale, x, y);
    const bool is_along_x = std::fabs(g.x) >= std::fabs(g.y);
    for (const std::int32_t from : {-1, 0}) { // the pair before the pixel, and the one behind it
        const std::int32_t ax = is_along_x ? x + from : x;
        const std::int32_t ay = is_along_x ? y : y + from;
        const bool first = scale.samples[scale.at(ax, ay)] > level;
        const bool second = scale.samples[is_along_x ? scale.at(ax + 1, ay) : scale.at(ax, ay + 1)] > level;
        if (first == second)
            continue;
        if (is_along_x) // upward with the brighter one to the left, else downward
            place = first ? Place{ax, ay - 1, kBottom} : Place{ax, ay, kTop};
        else // to the right with the brighter one above, else to the left
            place = first ? Place{ax, ay, kLeft} : Place{ax - 1, ay, kRight};
        return true;
    }
    return false;
}

// Appends the points of entry from a place on. True when the line has come back to where it began.
bool walk(const Scale& scale, Place place, double level, double flat_squared, std::size_t most,
          std::vector<OutlinePoint>& points)
{
    const Place first = place;
    std::int32_t flat = 0;
    while (is_cell(scale, place) && points.size() < most) {
        const Cell cell(scale, place.x, place.y, level);
        points.push_back(cell.point_on(place.side, place.x, place.y, level));
        flat = cell.squared_gradient() < flat_squared ? flat + 1 : 0;
        if (flat > kLongestFlat) {
            points.resize(points.size() - std::min(points.size(), static_cast<std::size_t>(flat)));
            return false;
        }
        place = neighbour(place.x, place.y, cell.exit_of(place.side, level));
        if (place == first)
            return true;
    }
    return false;
}

// The same line the other way round begins in the cell on the other side of the entry.
Place opposite(const Place& place) noexcept
{
    return neighbour(place.x, place.y, place.side);
}

} // namespace

bool follow_level(const Scale& scale, std::int32_t x, std::int32_t y, double level, LevelLine& line)
{
    line.points.clear();
    line.is_closed = false;
    Place place = {};
    if (!first_place(scale, x, y, level, place))
        return false;
    const double flat = 0.4 * static_cast<double>(scale.edge_gradient);
    const auto most = static_cast<std::size_t>(4) * (to_count(scale.width) + to_count(scale.height));
    line.is_closed = walk(scale, place, level, flat * flat, most, line.points);
    if (line.is_closed)
        return true;
    std::vector<OutlinePoint> back;
    (void)walk(scale, opposite(place), level, flat * flat, most, back);
    std::reverse(back.begin(), back.end());
    if (!back.empty() && !line.points.empty())
        back.pop_back(); // both begin on the same side
    back.insert(back.end(), line.points.begin(), line.points.end());
    line.points.swap(back);
    return !line.points.empty();
}

void mark_seen(Scale& scale, const LevelLine& line, bool wide)
{
    const auto mark = [&](std::int32_t x, std::int32_t y) {
        if (x < 1 || y < 1 || x >= scale.width - 1 || y >= scale.height - 1)
            return;
        std::uint8_t& edge = scale.edges[scale.at(x, y)];
        if (edge == kEdge)
            edge = kSeen;
    };
    const std::size_t count = line.points.size();
    for (std::size_t i = 0; i < count; ++i) {
        const OutlinePoint& p = line.points[i];
        const auto x = truncate_to_int(p.x);
        const auto y = truncate_to_int(p.y);
        const std::int32_t right = p.x > x ? x + 1 : x; // a point lies between two pixels
        const std::int32_t below = p.y > y ? y + 1 : y;
        mark(x, y);
        mark(right, below);
        if (!wide)
            continue;
        const OutlinePoint& next = line.points[(i + 1) % count];
        const double dx = next.x - p.x;
        const double dy = next.y - p.y;
        for (std::int32_t v = std::max(1, y - 1); v <= std::min(scale.height - 2, below + 1); ++v)
            for (std::int32_t u = std::max(1, x - 1); u <= std::min(scale.width - 2, right + 1); ++u) {
                if (scale.edges[scale.at(u, v)] != kEdge)
                    continue;
                const Gradient g = gradient_at(scale, u, v);
                // Uphill is to the left: (dy, -dx) in a picture whose y grows downward.
                if (static_cast<double>(g.x) * dy - static_cast<double>(g.y) * dx > 0)
                    mark(u, v);
            }
    }
}

} // namespace panoval::measure
