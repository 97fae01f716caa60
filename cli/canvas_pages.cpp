// SPDX-License-Identifier: MIT
#include "cli/canvas_pages.h"

#include "cli/parallel.h"
#include "cli/system_info.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace panoval::cli
{

namespace
{

// The part-th of so many parts of a level, from the top.
bool provide_part(const Matf& level, std::int64_t part, std::int64_t parts)
{
    const std::int64_t row_floats = std::int64_t{level.width} * level.channels;
    const std::int64_t first = level.height * part / parts;
    const std::int64_t end = level.height * (part + 1) / parts;
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

// Where the pictures leave much of the canvas empty, its pages are better left to those who write them.
CanvasPages::CanvasPages(const PanoramaPlan& plan, const CanvasStrip& strip, const MultiBandBlender& blender)
    : blender_(blender)
{
    for (std::size_t i = 0; i < kParts; ++i) {
        const auto part = static_cast<std::int64_t>(i);
        const std::int64_t first = strip.first + strip.rows() * part / static_cast<std::int64_t>(kParts);
        const std::int64_t end = strip.first + strip.rows() * (part + 1) / static_cast<std::int64_t>(kParts);
        is_wanted_[i] = covered_columns(plan, first, end) >= std::int64_t{plan.width} * 3 / 4;
    }
    thread_ = start_beside([this] { provide(); });
}

CanvasPages::~CanvasPages()
{
    is_stopped_ = true;
    if (thread_.joinable())
        thread_.join();
}

void CanvasPages::provide() const
{
    for (std::size_t part = 0; part < kParts; ++part)
        for (std::int32_t i = 0; is_wanted_[part] && i <= blender_.numBands; ++i)
            for (const Matf* const levels : {blender_.dstPyrLaplace, blender_.dstBandWeights})
                if (is_stopped_ || !provide_part(levels[i], static_cast<std::int64_t>(part), kParts))
                    return;
}

} // namespace panoval::cli
