// SPDX-License-Identifier: MIT
// The largest rectangle, sides along the axes, in which every pixel is covered: by rows, with memory that follows from
// the width alone.
#pragma once

#include "cli/stitch/panorama_job.h"

#include <cstdint>
#include <vector>

namespace panoval::cli
{

// Of rectangles of one area the topmost counts, of those the leftmost, of those the widest.
class LargestRectangle
{
public:
    explicit LargestRectangle(std::int64_t width) : heights_(static_cast<std::size_t>(width) + 1) {}

    // The next row; what is below 0 is not covered.
    void add_row(const std::int32_t* labels);

    // Width 0 where nothing is covered.
    const PanovalMosaicRect& found() const { return best_; }

private:
    struct Step {
        std::int64_t left;   // from here on the rows above are covered
        std::int64_t height; // so many
    };
    void consider(const Step& step, std::int64_t end);

    std::vector<std::int32_t> heights_; // covered pixels from this row upward; one more, which is 0
    std::vector<Step> steps_;           // of ascending heights
    std::int64_t next_row_ = 0;
    PanovalMosaicRect best_{};
};

// On the canvas of a job whose pictures are measured. Without seams the masks are read once more.
PanovalMosaicRect find_crop(const PanoramaJob& job, PictureFiles& files);

} // namespace panoval::cli
