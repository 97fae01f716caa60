// SPDX-License-Identifier: MIT
// An overlap in blocks: what both pictures show in each, as exact sums. Nothing else of the pixels is kept for gains
// and falloff. Means of blocks hardly mind a shift of some pixels, noise, or rounding.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/gains/gain_range.h"
#include "mosaic/pictures/picture_view.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// Sums of the samples that count: below the bound of saturation in both pictures, and covered by both.
struct GainBlock {
    std::array<std::uint64_t, 4> first{};
    std::array<std::uint64_t, 4> second{};
    std::array<std::uint32_t, 4> used{}; // number of samples that count
    std::uint32_t shared = 0;            // pixels that both pictures cover
    float x = 0;                         // the block's centre, counted from the overlap's corner
    float y = 0;                         //
    float width = 0;                     //
    float height = 0;                    //
};

struct GainBlocks {
    std::size_t columns = 0;
    std::size_t rows = 0;
    double width = 0; // of the overlap in pixels
    double height = 0;
    std::vector<GainBlock> blocks;     // row by row
    std::uint64_t shared = 0;          // pixels that both pictures cover
    std::uint64_t first_saturated = 0; // samples among them at or above the bound
    std::uint64_t second_saturated = 0;
    RatioRanges ranges; // that rows at equal distances allow for, of 8-bit samples

    // In which column or row of blocks a pixel of the overlap is.
    std::size_t column_of(std::int64_t x) const;
    std::size_t row_of(std::int64_t y) const;
};

// Samples at or above that are saturated: 250 of 255. What comes close to the largest sample is bent already.
std::uint16_t saturation_bound(int bits);

// So many blocks an overlap has at most, that all overlaps together take some ten megabytes.
std::size_t most_blocks(std::size_t overlaps);

// A strip of each picture, used again for the next overlap.
struct GainStrips {
    PictureView first;
    PictureView second;
};

// The blocks of an overlap, at most so many, without any sums.
GainBlocks lay_out_blocks(const Rect& region, std::size_t most);

// Of all blocks that were summed together.
struct GainTotals {
    std::uint64_t shared = 0;
    std::uint64_t first_saturated = 0;
    std::uint64_t second_saturated = 0;
    RatioRanges ranges;
};

// Sums rows first to end - 1 of the blocks; reads their part of the overlap once, in strips. Rows that have none in
// common can be summed by several threads at once. The totals are not in the blocks' own yet.
GainTotals sum_blocks(const Layout& layout, const Overlap& overlap, std::size_t first, std::size_t end,
                      PictureReader& reader, GainStrips& strips, GainBlocks& blocks);

void add_totals(const GainTotals& totals, GainBlocks& blocks);

} // namespace panoval::mosaic
