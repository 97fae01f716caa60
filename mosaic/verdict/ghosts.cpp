// SPDX-License-Identifier: MIT
// A cell is suspicious where one picture's value lies far outside the range of the other one's values around it.
// Suspicious cells that touch form a ghost if they are enough.
#include "mosaic/verdict/ghosts.h"

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
    std::vector<double> tones(cells.width);
    for (std::ptrdiff_t y = 0; y < height; ++y) {
        tone.at_row(static_cast<std::size_t>(y), c, tones);
        for (std::ptrdiff_t x = 0; x < width; ++x) {
            const auto i = static_cast<std::size_t>(y * width + x);
            const bool is_inside = x + dx >= 0 && x + dx < width && y + dy >= 0 && y + dy < height;
            const auto j = is_inside ? static_cast<std::size_t>((y + dy) * width + x + dx) : i;
            if (!is_inside || cells.known[i] == 0 || cells.known[j] == 0)
                continue;
            sides.known[i] = 1;
            sides.first[i] = cells.first[i * cells.channels + c];
            sides.second[i] = static_cast<float>(static_cast<double>(cells.second[j * cells.channels + c]) -
                                                 tones[static_cast<std::size_t>(x)]);
            if ((cells.clipped[i] & 1) != 0 || (cells.clipped[j] & 2) != 0) // as much as both agree on
                sides.second[i] = static_cast<float>(static_cast<double>(sides.first[i]) +
                                                     cells.difference(i, c) * (i == j ? 1.0 : 0.0));
        }
    }
    return sides;
}

// How far a value lies outside the range of the other side's known values around a cell.
float outside(float value, const Plane& other, const std::vector<std::uint8_t>& known, const OverlapCells& cells,
              std::size_t cell)
{
    const std::size_t reach = cells.step <= 2 ? 2 : 1;
    const std::size_t x = cell % cells.width;
    const std::size_t y = cell / cells.width;
    float low = other[cell];
    float high = other[cell];
    for (std::size_t v = y - std::min(y, reach); v <= std::min(y + reach, cells.height - 1); ++v)
        for (std::size_t u = x - std::min(x, reach); u <= std::min(x + reach, cells.width - 1); ++u) {
            const std::size_t i = v * cells.width + u;
            if (known[i] == 0)
                continue;
            low = std::min(low, other[i]);
            high = std::max(high, other[i]);
        }
    return std::max(0.0f, std::max(low - value, value - high));
}

struct Suspicion {
    Plane times;  // how far values lie outside the other side's ranges, as a multiple of what is suspicious
    Plane levels; // the same in levels
};

// Whether the sides differ by more than the limit there: no value lies farther outside a range than from the value in
// its middle, so elsewhere nothing can be suspicious.
bool differs(const Sides& sides, std::size_t cell, float limit)
{
    return sides.known[cell] != 0 && std::fabs(sides.first[cell] - sides.second[cell]) > limit;
}

Suspicion suspect(const OverlapCells& cells, const ToneModel& tone, const std::vector<Sides>& channels)
{
    Suspicion result{Plane(cells.cells()), Plane(cells.cells())};
    std::vector<float> limits;
    for (std::size_t c = 0; c < channels.size(); ++c)
        limits.push_back(static_cast<float>(std::max(kVisible, kBeyond * tone.spread(c))));
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        bool is_near = true;
        for (std::size_t c = 0; c < channels.size(); ++c)
            is_near = is_near && !differs(channels[c], i, limits[c]);
        if (is_near)
            continue;
        for (std::size_t c = 0; c < channels.size(); ++c) {
            const Sides& sides = channels[c];
            const float far = std::max(outside(sides.first[i], sides.second, sides.known, cells, i),
                                       outside(sides.second[i], sides.first, sides.known, cells, i));
            result.times[i] = std::max(result.times[i], far / limits[c]);
            result.levels[i] = std::max(result.levels[i], far);
        }
    }
    return result;
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
Patchwork gather(const OverlapCells& cells, const Suspicion& suspicion, const std::vector<std::uint8_t>& owners,
                 std::size_t start, std::vector<std::uint8_t>& seen)
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
        result.levels += static_cast<double>(suspicion.levels[i]);
        result.worst = std::max(result.worst, suspicion.times[i]);
        result.has_first = result.has_first || owners[i] == 1;
        result.has_second = result.has_second || owners[i] == 2;
        for (std::size_t v = y - std::min<std::size_t>(y, 2); v <= std::min(y + 2, cells.height - 1); ++v)
            for (std::size_t u = x - std::min<std::size_t>(x, 2); u <= std::min(x + 2, cells.width - 1); ++u) {
                const std::size_t j = v * cells.width + u;
                if (seen[j] == 0 && suspicion.times[j] > 1) {
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
    std::vector<Sides> channels;
    for (std::size_t c = 0; c < cells.channels; ++c)
        channels.push_back(sides_of(cells, tone, c, in_cells(displacement.x), in_cells(displacement.y)));
    const Suspicion suspicion = suspect(cells, tone, channels);
    std::vector<std::uint8_t> seen(cells.cells());
    std::vector<Patchwork> found;
    const auto pixels_of_cell = static_cast<double>(cells.step * cells.step);
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        if (seen[i] != 0 || suspicion.times[i] <= 1)
            continue;
        const Patchwork patchwork = gather(cells, suspicion, owners, i, seen);
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
