// SPDX-License-Identifier: MIT
// What an inpainting works on: the part of the picture around the pixels to be filled, as far as their neighbourhoods
// reach.
#pragma once

#include "core/heap.h"

#include <bit>
#include <cstddef>
#include <cstdint>

namespace panoval
{

// What is known of a cell.
inline constexpr std::uint32_t kInside = 0; // nothing: it is still to be filled
inline constexpr std::uint32_t kPixel = 1;
inline constexpr std::uint32_t kFrame = 2; // everything, but it is no pixel

inline constexpr float kFarAway = 1000000.0f;      // the distance of a cell that no front has reached
inline constexpr std::size_t kCellsBehindRow = 16; // frame cells that vectors may read

// Cells are pixels and a frame of one cell around the picture: cell (row + 1, col + 1) is pixel (row, col). A window of
// the cells is kept: rows first_row to end_row - 1 and columns first_col to end_col - 1.
struct FillRegion {
    std::int32_t grid_rows = 0; // of the whole picture with its frame
    std::int32_t grid_cols = 0;
    std::int32_t first_row = 0;
    std::int32_t end_row = 0;
    std::int32_t first_col = 0;
    std::int32_t end_col = 0;
    std::size_t stride = 0;        // cells from one row of the window to the next
    std::size_t band_capacity = 0; // cells to be filled and those of the ring
    HeapArray<std::uint8_t> ring;  // 1 for a known pixel beside a cell to be filled, else 0
    HeapArray<std::uint32_t>
        words; // two per cell, so that a neighbourhood lies in few cache lines: the bits of the
               // distance from the known part; from the lowest byte up the channels and what is known

    std::size_t index(std::int32_t row, std::int32_t col) const
    {
        return static_cast<std::size_t>(row - first_row) * stride + static_cast<std::size_t>(col - first_col);
    }
    std::size_t cells() const { return static_cast<std::size_t>(end_row - first_row) * stride; }
    float distance(std::size_t cell) const { return std::bit_cast<float>(words[2 * cell]); }
    std::uint32_t colour(std::size_t cell) const { return words[2 * cell + 1]; }
    std::uint32_t known(std::size_t cell) const { return words[2 * cell + 1] >> 24; }
};

// A mask: nonzero bytes are marked.
struct Marks {
    const std::uint8_t* data;
    std::int32_t width;
    std::int32_t height;
    std::int32_t channels; // bytes from one pixel to the next

    const std::uint8_t* row(std::int32_t r) const
    {
        return data +
               static_cast<std::size_t>(r) * static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    }
};

// out[i] = the union of the nine cells around row[i], without what taken[i] has. The rows above and below lie stride
// bytes away, and each of the three has a cell before the first and one behind the last.
void dilate_row(const std::uint8_t* row, std::ptrdiff_t stride, std::size_t count, const std::uint8_t* taken,
                std::uint8_t* out);

// Finds the region to be filled, which is the marked pixels of a picture of 3 bytes a pixel grown by one in all eight
// directions, and the ring of known pixels around it. Distances are 0 on the ring and kFarAway elsewhere. Marks outside
// the picture do not count. reach is the radius of the neighbourhoods, at least 1. False where nothing is marked, no
// known pixel is left beside the region, or the heap is exhausted.
[[nodiscard]] bool find_fill_region(FillRegion& region, const Marks& marks, const std::uint8_t* image,
                                    std::int32_t width, std::int32_t height, std::int32_t reach);

} // namespace panoval
