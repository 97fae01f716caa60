// SPDX-License-Identifier: MIT
// A picture's rows as the library's blenders are fed with them: corrected and rounded to whole samples, and for bands
// with colours behind the mask, where a file holds anything.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

inline constexpr std::int64_t kPreparedRowsAtOnce = 16; // that are read

class PreparedRows
{
public:
    // fills: colours go on behind the mask: along each row between the covered pixels on both sides, and into rows
    // without any from the nearest row that has some
    PreparedRows(const Layout& layout, const Corrections& corrections, PictureReader& reader, std::size_t picture,
                 bool fills);

    // Columns first to first + count - 1 of row y of the picture; best asked for row by row.
    void load_samples(std::int64_t y, std::int64_t first, std::int64_t count, float* samples);
    void load_mask(std::int64_t y, std::int64_t first, std::int64_t count, std::uint8_t* mask);

private:
    void read(std::int64_t y, std::int64_t first, std::int64_t count);
    void prepare_row(std::int64_t y);
    void correct(std::int64_t in_block);
    bool has_colour(std::int64_t y);
    std::int64_t row_with_colour_near(std::int64_t y);

    const Layout& layout_;
    const Corrections& corrections_;
    PictureReader& reader_;
    const std::size_t picture_;
    const bool fills_;
    PixelBlock block_; // some rows
    std::int64_t prepared_y_ = -1;
    const std::uint8_t* samples_ = nullptr; // of the prepared row
    std::size_t sample_bytes_ = 0;
    std::vector<std::uint16_t> prepared_; // the row where it is not the block's; its bytes hold samples of either size
    std::vector<float> corrected_;
    std::vector<signed char> has_colour_; // of each row: -1 = not known yet
};

} // namespace panoval::mosaic
