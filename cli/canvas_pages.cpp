// SPDX-License-Identifier: MIT
#include "cli/canvas_pages.h"

#include "cli/system_info.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace panoval::cli
{

namespace
{

constexpr std::int64_t kParts = 8; // of the strip, judged by themselves

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

std::int64_t covered_columns(const PanoramaPlan& plan, std::int64_t first, std::int64_t end)
{
    std::vector<std::pair<std::int64_t, std::int64_t>> intervals;
    for (const PlacedLayer& layer : plan.layers)
        if (layer.corner.y < end && first < std::int64_t{layer.corner.y} + layer.info.height)
            intervals.emplace_back(layer.corner.x, std::int64_t{layer.corner.x} + layer.info.width);
    std::sort(intervals.begin(), intervals.end());
    std::int64_t covered = 0;
    std::int64_t reached = 0;
    for (const auto& [left, right] : intervals) {
        covered += std::max<std::int64_t>(right - std::max(left, reached), 0);
        reached = std::max(reached, right);
    }
    return covered;
}

void provide_canvas(const PanoramaPlan& plan, const CanvasStrip& strip, const MultiBandBlender& blender)
{
    for (std::int64_t part = 0; part < kParts; ++part) {
        const std::int64_t first = strip.first + strip.rows() * part / kParts;
        const std::int64_t end = strip.first + strip.rows() * (part + 1) / kParts;
        if (covered_columns(plan, first, end) < std::int64_t{plan.width} * 3 / 4)
            continue;
        for (std::int32_t i = 0; i <= blender.numBands; ++i)
            for (const Matf* const levels : {blender.dstPyrLaplace, blender.dstBandWeights})
                if (!provide_part(levels[i], part))
                    return;
    }
}

} // namespace panoval::cli
