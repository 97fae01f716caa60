// SPDX-License-Identifier: MIT
// Blends all tiles on several threads and gives what is done to the sink, in order, while other tiles are blended.
#pragma once

#include "mosaic/base/memory_meter.h"
#include "mosaic/base/progress.h"
#include "mosaic/tiles/memory_plan.h"
#include "mosaic/tiles/tile_blender.h"
#include "mosaic/tiles/tile_grid.h"

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

// A finished piece of the panorama: a tile, or the whole rows of a row of tiles.
struct Piece {
    Rect rect;
    const std::uint8_t* samples = nullptr;
    std::size_t samples_stride = 0;
    const std::uint8_t* coverage = nullptr; // null where it is not wanted
    std::size_t coverage_stride = 0;
};

class TileSink
{
public:
    virtual ~TileSink() = default;

    // Pieces come from the top, never two at once. Throws an Error.
    virtual void take(const Piece& piece) = 0;
};

struct RunOptions {
    Delivery delivery = Delivery::Rows;
    bool wants_coverage = false;
    std::size_t threads = 1;
    std::size_t pixel_bytes = 0; // of the panorama
};

void run_tiles(const TileGrid& grid, const TileBlender& blender, const RunOptions& options, MemoryMeter& meter,
               Progress& progress, TileSink& sink);

} // namespace panoval::mosaic
