// SPDX-License-Identifier: MIT
// Sums of one picture's samples over a row of square cells.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace panoval::mosaic
{

// What a row of cells consists of.
struct CellStrip {
    std::span<const std::uint8_t* const> rows; // 16-bit samples at even addresses
    std::size_t width = 0;                     // pixels
    std::size_t channels = 0;
    std::size_t sample_bytes = 0; // 1 or 2
    std::size_t step = 0;         // pixels that a cell is wide, a power of two; the last one may be narrower
};

// One for each thread; memory is used again.
class CellSummer
{
public:
    // Adds each cell's samples to sums (cells x channels), and the bit to those of `clipped` in whose cells the largest
    // possible sample occurs.
    void add(const CellStrip& strip, std::uint64_t* sums, std::uint8_t* clipped, std::uint8_t bit);

private:
    // Down the columns of a few rows.
    template <class Sample, class Sum>
    struct Columns {
        std::vector<Sum> sums;
        std::vector<Sample> most;
    };

    template <class Sample, class Sum>
    static void add_rows(const CellStrip& strip, Columns<Sample, Sum>& columns, std::uint64_t* sums,
                         std::uint8_t* clipped, std::uint8_t bit);

    Columns<std::uint8_t, std::uint16_t> of_bytes_;
    Columns<std::uint16_t, std::uint32_t> of_words_;
};

} // namespace panoval::mosaic
