// SPDX-License-Identifier: MIT
// A reduced copy of what two pictures share: means over square cells of pixels that both cover, corrected, in levels of
// 255. Its size is bounded, whatever the overlap's.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/verdict/displacement_patch.h"
#include "mosaic/verdict/verdict.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

struct OverlapCells {
    Overlap overlap;
    std::int64_t step = 1; // pixels a cell is wide and high
    std::size_t width = 0; // cells
    std::size_t height = 0;
    std::size_t channels = 0;
    std::vector<float> first; // cells x channels
    std::vector<float> second;
    std::vector<std::uint8_t> known;   // 1 where both cover at least half of the cell's pixels
    std::vector<std::uint8_t> clipped; // 1: the first picture reaches the largest sample somewhere in it; 2: the second
    std::uint64_t shared_pixels = 0;
    SharedDifferences before;
    SharedDifferences after;

    std::size_t cells() const { return width * height; }

    // Second minus first; 0 where a sample at the end of its range would explain it.
    double difference(std::size_t cell, std::size_t c) const
    {
        const double d =
            static_cast<double>(second[cell * channels + c]) - static_cast<double>(first[cell * channels + c]);
        if ((d > 0 && (clipped[cell] & 1) != 0) || (d < 0 && (clipped[cell] & 2) != 0))
            return 0;
        return d;
    }
    double level(std::size_t cell, std::size_t c) const
    {
        return 0.5 *
               (static_cast<double>(first[cell * channels + c]) + static_cast<double>(second[cell * channels + c]));
    }
};

OverlapCells read_cells(const PictureSource& source, const Overlap& overlap);

// Brightness of one side's cells as a patch whose pixels are cells. Not prepared yet.
Patch brightness_of_cells(const OverlapCells& cells, bool is_second);

} // namespace panoval::mosaic
