// SPDX-License-Identifier: MIT
// A rectangle of a picture to look at: its rows where they lie in memory anyway, otherwise copies of them.
#pragma once

#include "mosaic/pictures/pixel_block.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// Rows stay what they are until the view shows something else. One for each thread; memory is used again.
class PictureView
{
public:
    // As PictureReader::read.
    void read(PictureReader& reader, std::size_t picture, const Rect& new_rect, int channels, int sample_bytes);

    // Lets go of what is shown, so that others can have the memory.
    void close() { held_.clear(); }

    const Rect& rect() const { return rect_; }
    int channels() const { return channels_; }
    int sample_bytes() const { return sample_bytes_; }

    // Row y counts from the rectangle's first row.
    const std::uint8_t* row(std::int64_t y) const { return is_held_ ? held_.samples[at(y)] : block_.row(y); }
    const std::uint8_t* mask_row(std::int64_t y) const
    {
        if (!is_held_)
            return block_.mask_row(y);
        return held_.masks.empty() ? whole_.data() : held_.masks[at(y)];
    }

    // Whether these rows of the mask leave nothing out.
    bool is_covered(std::int64_t y, std::int64_t rows) const;

private:
    static std::size_t at(std::int64_t y) { return static_cast<std::size_t>(y); }

    Rect rect_;
    int channels_ = 0;
    int sample_bytes_ = 0;
    bool is_held_ = false;
    HeldRows held_;
    PixelBlock block_;                // if rows could not be held
    std::vector<std::uint8_t> whole_; // a row of the mask of a picture without one
};

} // namespace panoval::mosaic
