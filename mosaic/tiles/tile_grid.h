// SPDX-License-Identifier: MIT
// The tiles of a canvas: row by row, all of one size but for those at the right and the bottom.
#pragma once

#include "mosaic/base/rect.h"

#include <cstdint>

namespace panoval::mosaic
{

struct TileGrid {
    std::int64_t width = 0; // of the canvas
    std::int64_t height = 0;
    std::int64_t tile_width = 1;
    std::int64_t tile_height = 1;

    std::int64_t columns() const { return (width + tile_width - 1) / tile_width; }
    std::int64_t rows() const { return (height + tile_height - 1) / tile_height; }
    std::int64_t count() const { return columns() * rows(); }

    Rect tile(std::int64_t index) const
    {
        const Rect whole = {index % columns() * tile_width, index / columns() * tile_height, tile_width, tile_height};
        return intersect(whole, Rect{0, 0, width, height});
    }
    // The canvas's rows that the tiles of one row of the grid cover.
    Rect strip(std::int64_t row) const
    {
        return intersect(Rect{0, row * tile_height, width, tile_height}, Rect{0, 0, width, height});
    }
    friend bool operator==(const TileGrid&, const TileGrid&) = default;
};

} // namespace panoval::mosaic
