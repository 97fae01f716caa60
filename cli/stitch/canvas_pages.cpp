// SPDX-License-Identifier: MIT
#include "cli/stitch/canvas_pages.h"

#include "cli/base/system_info.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace panoval::cli
{

namespace
{

constexpr std::int64_t kParts = 8; // of the tile, judged by themselves

// One part of a level, from the top.
bool provide_part(const Matf& level, std::int64_t part)
{
    const std::int64_t row_floats = std::int64_t{level.width} * level.channels;
    const std::int64_t first = level.height * part / kParts;
    const std::int64_t end = level.height * (part + 1) / kParts;
    return provide_pages(level.data + first * row_floats,
                         static_cast<std::size_t>((end - first) * row_floats) * sizeof(float));
}

} // namespace

std::int64_t covered_columns(const PanoramaPlan& plan, const CanvasSpan& columns, std::int64_t first, std::int64_t end)
{
    std::vector<std::pair<std::int64_t, std::int64_t>> intervals;
    for (const PlacedLayer& layer : plan.layers)
        if (layer.corner.y < end && first < std::int64_t{layer.corner.y} + layer.info.height)
            intervals.emplace_back(layer.corner.x, std::int64_t{layer.corner.x} + layer.info.width);
    std::sort(intervals.begin(), intervals.end());
    std::int64_t covered = 0;
    std::int64_t reached = columns.first;
    for (const auto& [left, right] : intervals) {
        const std::int64_t last = std::min<std::int64_t>(right, columns.end);
        covered += std::max<std::int64_t>(last - std::max(left, reached), 0);
        reached = std::max(reached, last);
    }
    return covered;
}

void provide_canvas(const PanoramaPlan& plan, const CanvasTile& tile, const MultiBandBlender& blender)
{
    for (std::int64_t part = 0; part < kParts; ++part) {
        const std::int64_t first = tile.rows.first + tile.rows.length() * part / kParts;
        const std::int64_t end = tile.rows.first + tile.rows.length() * (part + 1) / kParts;
        if (covered_columns(plan, tile.columns, first, end) < std::int64_t{tile.columns.length()} * 3 / 4)
            continue;
        for (std::int32_t i = 0; i <= blender.numBands; ++i)
            for (const Matf* const levels : {blender.dstPyrLaplace, blender.dstBandWeights})
                if (!provide_part(levels[i], part))
                    return;
    }
}

} // namespace panoval::cli
