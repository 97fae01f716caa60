// SPDX-License-Identifier: MIT
#include "mosaic/seams/label_runs.h"

#include <algorithm>

namespace panoval::mosaic
{

void LabelRuns::read(const SeamMap& seams, const Rect& rect, bool wraps)
{
    rect_ = rect;
    first_run_.assign(1, 0);
    runs_.clear();
    for (std::int64_t y = rect.y; y < rect.bottom(); ++y) {
        add_row(seams.runs(y), wraps ? seams.width() : rect.right());
        first_run_.push_back(runs_.size());
    }
}

// The canvas's row is laid beside itself until the rectangle's row is complete.
void LabelRuns::add_row(std::span<const SeamMap::Run> runs, std::int64_t width)
{
    std::int64_t x = rect_.x;
    while (x < rect_.right()) {
        const std::int64_t turn = x >= 0 ? x / width : -((width - 1 - x) / width);
        const std::int64_t column = x - turn * width;
        auto run = std::upper_bound(runs.begin(), runs.end(), column,
                                    [](std::int64_t at, const SeamMap::Run& r) { return at < r.end; });
        for (; run != runs.end() && x < rect_.right(); ++run) {
            const std::int64_t end = std::min(turn * width + run->end, rect_.right());
            runs_.push_back({x, end, run->label});
            x = end;
        }
    }
}

std::span<const LabelRun> LabelRuns::row(std::int64_t y, std::int64_t first, std::int64_t end) const
{
    const std::span<const LabelRun> all = row(y);
    const auto begin = std::upper_bound(all.begin(), all.end(), first,
                                        [](std::int64_t x, const LabelRun& run) { return x < run.end; });
    const auto behind =
        std::lower_bound(begin, all.end(), end, [](const LabelRun& run, std::int64_t x) { return run.first < x; });
    return {begin, behind};
}

} // namespace panoval::mosaic
