// SPDX-License-Identifier: MIT
// Sums over the pixels of a picture's view that it covers, for each column of cells.
#pragma once

#include "mosaic/pictures/picture_view.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// Columns first to end - 1.
struct Span {
    std::int64_t first;
    std::int64_t end;
};

// Columns of a picture that fall into one column of cells, by its number in the copy.
struct CellColumn {
    std::int64_t first;
    std::int64_t end;
    std::size_t cell;
};

// What a cell is made of.
struct CellSums {
    std::array<std::int64_t, 4> samples{}; // signed as all of them, because those become doubles at once
    std::int64_t rough = 0;
    std::int64_t pixels = 0;
    std::int64_t differences = 0; // pairs of neighbours that are in `rough`
};

// The cells of a row of cells, and room to sum them up in.
struct CellRow {
    std::vector<CellColumn> columns; // of the whole picture
    std::vector<CellSums> cells;
    std::vector<std::uint16_t> sums; // down the columns, of 8-bit samples, and their roughness
    std::vector<std::uint16_t> rough;
    std::vector<std::uint32_t> wide_sums; // the same of 16-bit samples
    std::vector<std::uint32_t> wide_rough;
    std::vector<Span> covered_spans; // columns of a view that are covered in all of the rows
    std::vector<Span> earlier_spans;
};

// Leaves of the row's covered spans what a row of the mask covers, too.
void keep_covered(const std::uint8_t* mask, CellRow& row);

// Adds some rows of a view, of one row of cells, to their cells.
//
// rows  counted from the view's first one
void add_to_cells(const PictureView& view, const Span& rows, bool has_mask, std::size_t channels, CellRow& row);

} // namespace panoval::mosaic
