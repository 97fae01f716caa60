// SPDX-License-Identifier: MIT
#include "cli/canvas_strips.h"

#include <algorithm>

namespace panoval::cli
{

namespace
{

constexpr std::size_t kMostStrips = 16;

// How far a row of the panorama sees, in units of the coarsest band's pixel, `unit` rows each. Collapsing a row reaches
// coarse rows less than 2 units away, and each of these is made of rows less than 2 units away from it.
constexpr std::int32_t kReach = 4;
// A picture that begins less than that beyond the row goes on as its mirror image, whose rows come from as far behind
// the picture's edge.
constexpr std::int32_t kReachOfMirror = 8;

bool has_edge_between(const PanoramaPlan& plan, std::int64_t first, std::int64_t last)
{
    const auto is_between = [&](std::int64_t y) { return first <= y && y <= last; };
    return std::any_of(plan.layers.begin(), plan.layers.end(), [&](const PlacedLayer& layer) {
        return is_between(layer.corner.y) || is_between(layer.corner.y + layer.info.height);
    });
}

} // namespace

std::vector<CanvasStrip> cut_canvas(const PanoramaPlan& plan, int bands, std::size_t most)
{
    const std::int64_t unit = std::int64_t{1} << std::min(bands, 30);
    const std::int64_t near = kReach * unit;
    const std::int64_t far = kReachOfMirror * unit;
    // At least three times the overlap each; the library finds room for all bands in them, too.
    const std::int64_t fitting = std::max<std::int64_t>(plan.height / (3 * near), 1);
    const std::int64_t count = std::min<std::int64_t>(fitting, static_cast<std::int64_t>(most));
    // All have the same number of rows to blend, but the last, which may have fewer: a strip fits where the memory of
    // another was. The first and the last one overlap on one side only.
    const std::int64_t rows = (plan.height + 2 * near * (count - 1) + count * unit - 1) / (count * unit) * unit;
    const auto border = [&](std::int64_t i) {
        return i == 0 ? 0 : i == count ? plan.height : i * rows - (2 * i - 1) * near;
    };
    std::vector<CanvasStrip> strips;
    for (std::int64_t i = 0; i < count; ++i) {
        const std::int64_t first = border(i);
        const std::int64_t end = border(i + 1);
        const bool sees_mirror_above = has_edge_between(plan, first - near, first);
        const bool sees_mirror_below = has_edge_between(plan, end, end + near);
        CanvasStrip strip;
        strip.first_kept = static_cast<std::int32_t>(first);
        strip.end_kept = static_cast<std::int32_t>(end);
        strip.first = static_cast<std::int32_t>(std::max<std::int64_t>(first - (sees_mirror_above ? far : near), 0));
        strip.end =
            static_cast<std::int32_t>(std::min<std::int64_t>(end + (sees_mirror_below ? far : near), plan.height));
        strips.push_back(strip);
    }
    return strips;
}

std::uint64_t multi_band_bytes(const PanoramaPlan& plan, std::int32_t rows)
{
    // Sums and weights on the canvas, and a third more for the smaller levels.
    const auto pixels = static_cast<std::uint64_t>(plan.width) * static_cast<std::uint64_t>(rows);
    return 16 * pixels * static_cast<std::uint64_t>(plan.channels + 1) / 3;
}

std::uint64_t memory_budget(const PanoramaPlan& plan)
{
    return multi_band_bytes(plan, plan.height) / 12 * 13;
}

std::vector<CanvasStrip> strips_within_budget(const PanoramaPlan& plan, int bands, int bits, std::uint64_t other_bytes,
                                              std::size_t at_once)
{
    const std::uint64_t row_bytes = static_cast<std::uint64_t>(plan.width) * static_cast<std::uint64_t>(plan.channels) *
                                    static_cast<std::uint64_t>(bits / 8);
    std::vector<CanvasStrip> fewer;
    for (std::size_t count = 1; count <= kMostStrips; ++count) {
        std::vector<CanvasStrip> strips = cut_canvas(plan, bands, count);
        if (strips.size() < count)
            break;
        std::int32_t most_rows = 0;
        for (const CanvasStrip& strip : strips)
            most_rows = std::max(most_rows, strip.rows());
        const std::uint64_t strip_bytes =
            multi_band_bytes(plan, most_rows) + row_bytes * static_cast<std::uint64_t>(most_rows);
        if (std::min(count, at_once) * strip_bytes + other_bytes > memory_budget(plan))
            continue;
        if (count >= at_once)
            return strips;
        fewer = strips;
    }
    return fewer;
}

} // namespace panoval::cli
