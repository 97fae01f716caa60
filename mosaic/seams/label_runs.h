// SPDX-License-Identifier: MIT
// Whose the pixels of a rectangle are, as runs along its rows.
#pragma once

#include "mosaic/base/rect.h"
#include "mosaic/seams/seam_map.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace panoval::mosaic
{

// Columns first to end - 1; on a canvas that wraps they may lie beside it.
struct LabelRun {
    std::int64_t first;
    std::int64_t end;
    std::int32_t label; // number of a picture, or kNobody
};

class LabelRuns
{
public:
    // Rows of the rectangle lie on the canvas, and its columns, too, unless it wraps.
    void read(const SeamMap& seams, const Rect& rect, bool wraps);

    const Rect& rect() const { return rect_; }
    std::span<const LabelRun> row(std::int64_t y) const
    {
        const auto at = static_cast<std::size_t>(y - rect_.y);
        return {runs_.data() + first_run_[at], first_run_[at + 1] - first_run_[at]};
    }

    // The runs that have pixels in columns first to end - 1; they may reach beyond.
    std::span<const LabelRun> row(std::int64_t y, std::int64_t first, std::int64_t end) const;

private:
    void add_row(std::span<const SeamMap::Run> runs, std::int64_t width);

    Rect rect_;
    std::vector<std::size_t> first_run_; // of each row, and behind the last one
    std::vector<LabelRun> runs_;
};

} // namespace panoval::mosaic
