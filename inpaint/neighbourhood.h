// SPDX-License-Identifier: MIT
// The weighted mean that gives a pixel its value: every known cell within a radius counts by its distance, by how close
// it lies to the same level of the advancing front, and by how far it lies along the front's direction.
#pragma once

#include "inpaint/fill_region.h"

namespace panoval
{

// Cells within a radius, and what of their weights depends on the radius alone.
struct Neighbourhood {
    std::int32_t rows = -1; // rows reached above and below; -1 when no cell is within the radius
    std::int32_t cols = 0;  // columns reached to the left and right
    std::size_t stride = 0;
    HeapArray<std::int32_t> half_widths; // for each distance in rows, columns within the radius; at most cols
    HeapArray<float> falloff;            // 1 / r^3 for each distance in rows, and columns from -cols on
};

// What all cells around one pixel have in common.
struct Front {
    float distance;   // of the pixel
    float gradient_x; // of the distance, there
    float gradient_y;
};

// Prepares for neighbourhoods of a radius inside a picture whose grid has the given size. False without memory.
[[nodiscard]] bool neighbourhood_init(Neighbourhood& n, std::int32_t radius, std::int32_t grid_rows,
                                      std::int32_t grid_cols);

// Gives a cell its distance and its colour, from its four neighbours and from its neighbourhood, and makes it known.
void fill_cell(FillRegion& region, const Neighbourhood& n, std::int32_t row, std::int32_t col);

} // namespace panoval
