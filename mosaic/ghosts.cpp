// SPDX-License-Identifier: MIT
// A cell is suspicious where one picture's value lies far outside the range of the other one's values around it.
// Suspicious cells that touch form a ghost if they are enough.
#include "mosaic/ghosts.h"

#include "core/numbers.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace panoval::mosaic
{

namespace
{

constexpr double kBeyond = 5;     // standard deviations of what usually remains
constexpr double kVisible = 4;    // levels of 255
constexpr double kArea = 90;      // pixels, at least
constexpr std::size_t kMost = 16; // of one overlap

using Plane = std::vector<float>;

// Extremes of known cells over windows of 2 reach + 1, in one direction: stride 1 across, the width down.
template <class Choose>
Plane extremes(const Plane& plane, std::size_t count, std::size_t stride, std::size_t lines, std::size_t line_stride,
               std::size_t reach, Choose choose)
{
    Plane result(plane.size());
    for (std::size_t line = 0; line < lines; ++line)
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t at = line * line_stride + i * stride;
            float value = plane[at];
            for (std::size_t k = i - std::min(i, reach); k <= std::min(i + reach, count - 1); ++k)
                value = choose(value, plane[line * line_stride + k * stride]);
            result[at] = value;
        }
    return result;
}

template <class Choose>
Plane extremes(const OverlapCells& cells, const Plane& plane, std::size_t reach, Choose choose)
{
    return extremes(extremes(plane, cells.width, 1, cells.height, cells.width, reach, choose), cells.height,
                    cells.width, cells.width, 1, reach, choose);
}

constexpr float kUnknown = 1e9f; // farther away than any level

// Both pictures' cells of one channel, the second one's moved back and its tone taken out.
struct Sides {
    Plane first;
    Plane second;
    std::vector<std::uint8_t> known;
};

Sides sides_of(const OverlapCells& cells, const ToneModel& tone, std::size_t c, std::ptrdiff_t dx, std::ptrdiff_t dy)
{
    Sides sides{Plane(cells.cells()), Plane(cells.cells()), std::vector<std::uint8_t>(cells.cells())};
    const auto width = static_cast<std::ptrdiff_t>(cells.width);
    const auto height = static_cast<std::ptrdiff_t>(cells.height);
    for (std::ptrdiff_t y = 0; y < height; ++y)
        for (std::ptrdiff_t x = 0; x < width; ++x) {
            const auto i = static_cast<std::size_t>(y * width + x);
            const bool is_inside = x + dx >= 0 && x + dx < width && y + dy >= 0 && y + dy < height;
            const auto j = is_inside ? static_cast<std::size_t>((y + dy) * width + x + dx) : i;
            if (!is_inside || cells.known[i] == 0 || cells.known[j] == 0)
                continue;
            sides.known[i] = 1;
            sides.first[i] = cells.first[i * cells.channels + c];
            sides.second[i] =
                static_cast<float>(static_cast<double>(cells.second[j * cells.channels + c]) - tone.at(i, c));
            if ((cells.clipped[i] & 1) != 0 || (cells.clipped[j] & 2) != 0) // as much as both agree on
                sides.second[i] = static_cast<float>(static_cast<double>(sides.first[i]) +
                                                     cells.difference(i, c) * (i == j ? 1.0 : 0.0));
        }
    return sides;
}

float outside(float value, float low, float high)
{
    return std::max(0.0f, std::max(low - value, value - high));
}

// How far the channel's values lie outside the other side's ranges, as a multiple of what is suspicious; and in levels.
void add_channel(const OverlapCells& cells, const ToneModel& tone, std::size_t c, const Sides& sides, Plane& suspicion,
                 Plane& levels)
{
    const std::size_t reach = cells.step <= 2 ? 2 : 1;
    const auto lowest = [](float a, float b) { return std::min(a, b); };
    const auto highest = [](float a, float b) { return std::max(a, b); };
    const auto with_unknown = [&](const Plane& plane, float value) {
        Plane result = plane;
        for (std::size_t i = 0; i < result.size(); ++i)
            if (sides.known[i] == 0)
                result[i] = value;
        return result;
    };
    const Plane first_low = extremes(cells, with_unknown(sides.first, kUnknown), reach, lowest);
    const Plane first_high = extremes(cells, with_unknown(sides.first, -kUnknown), reach, highest);
    const Plane second_low = extremes(cells, with_unknown(sides.second, kUnknown), reach, lowest);
    const Plane second_high = extremes(cells, with_unknown(sides.second, -kUnknown), reach, highest);
    const auto limit = static_cast<float>(std::max(kVisible, kBeyond * tone.spread(c)));
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        if (sides.known[i] == 0)
            continue;
        const float far = std::max(outside(sides.first[i], second_low[i], second_high[i]),
                                   outside(sides.second[i], first_low[i], first_high[i]));
        suspicion[i] = std::max(suspicion[i], far / limit);
        levels[i] = std::max(levels[i], far);
    }
}

struct Patchwork {
    Rect box; // cells
    double area = 0;
    double levels = 0; // sum
    float worst = 0;
    bool has_first = false; // owners inside
    bool has_second = false;
};

// Cells that touch, also over a gap of one.
Patchwork gather(const OverlapCells& cells, const Plane& suspicion, const Plane& levels,
                 const std::vector<std::uint8_t>& owners, std::size_t start, std::vector<std::uint8_t>& seen)
{
    Patchwork result;
    std::vector<std::size_t> open{start};
    seen[start] = 1;
    while (!open.empty()) {
        const std::size_t i = open.back();
        open.pop_back();
        const std::size_t x = i % cells.width;
        const std::size_t y = i / cells.width;
        result.box = bounding(result.box, {static_cast<std::int64_t>(x), static_cast<std::int64_t>(y), 1, 1});
        result.area += 1;
        result.levels += static_cast<double>(levels[i]);
        result.worst = std::max(result.worst, suspicion[i]);
        result.has_first = result.has_first || owners[i] == 1;
        result.has_second = result.has_second || owners[i] == 2;
        for (std::size_t v = y - std::min<std::size_t>(y, 2); v <= std::min(y + 2, cells.height - 1); ++v)
            for (std::size_t u = x - std::min<std::size_t>(x, 2); u <= std::min(x + 2, cells.width - 1); ++u) {
                const std::size_t j = v * cells.width + u;
                if (seen[j] == 0 && suspicion[j] > 1) {
                    seen[j] = 1;
                    open.push_back(j);
                }
            }
    }
    return result;
}

Ghost to_canvas(const OverlapCells& cells, const Patchwork& found, const Layout& layout)
{
    const Rect& region = cells.overlap.region;
    Ghost ghost;
    ghost.box = intersect({region.x + found.box.x * cells.step, region.y + found.box.y * cells.step,
                           found.box.width * cells.step, found.box.height * cells.step},
                          region);
    if (layout.wraps && ghost.box.x >= layout.width)
        ghost.box.x -= layout.width;
    ghost.levels = found.levels / found.area;
    ghost.is_cut = found.has_first && found.has_second;
    return ghost;
}

} // namespace

std::vector<Ghost> find_ghosts(const OverlapCells& cells, const ToneModel& tone,
                               const std::vector<std::uint8_t>& owners, const Displacement& displacement,
                               const Layout& layout)
{
    const auto in_cells = [&](double pixels) {
        return static_cast<std::ptrdiff_t>(truncate_to_int(std::floor(pixels / static_cast<double>(cells.step) + 0.5)));
    };
    Plane suspicion(cells.cells());
    Plane levels(cells.cells());
    for (std::size_t c = 0; c < cells.channels; ++c)
        add_channel(cells, tone, c, sides_of(cells, tone, c, in_cells(displacement.x), in_cells(displacement.y)),
                    suspicion, levels);
    std::vector<std::uint8_t> seen(cells.cells());
    std::vector<Patchwork> found;
    const auto pixels_of_cell = static_cast<double>(cells.step * cells.step);
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        if (seen[i] != 0 || suspicion[i] <= 1)
            continue;
        const Patchwork patchwork = gather(cells, suspicion, levels, owners, i, seen);
        if (patchwork.area * pixels_of_cell >= kArea && patchwork.area > 1 && patchwork.worst > 1.5f)
            found.push_back(patchwork);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Patchwork& a, const Patchwork& b) { return a.levels > b.levels; });
    std::vector<Ghost> ghosts;
    for (std::size_t i = 0; i < std::min(found.size(), kMost); ++i)
        ghosts.push_back(to_canvas(cells, found[i], layout));
    return ghosts;
}

} // namespace panoval::mosaic
