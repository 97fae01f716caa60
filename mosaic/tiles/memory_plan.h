// SPDX-License-Identifier: MIT
// How a budget of memory is shared out among pictures, tiles and output: the size of the tiles, and how many threads
// may blend at once.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/pictures/row_source.h"
#include "mosaic/tiles/tile_grid.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace panoval::mosaic
{

// What a run needs memory for. Sizes are of a tile, in pixels.
struct MemoryNeeds {
    const Layout& layout;
    const std::vector<PictureTraits>& traits;
    std::function<std::uint64_t(std::int64_t width, std::int64_t height)> scratch; // bytes for blending a tile
    std::function<std::uint64_t(std::int64_t width, std::int64_t height)> seen;    // pixels that are looked at for it
    std::uint64_t panorama_pixel_bytes = 0;                                        // with a byte for the coverage
    std::uint64_t seam_bytes = 0;
};

enum class Delivery { Rows, Tiles }; // what the sink takes

struct MemoryShares {
    std::size_t threads = 1;
    std::uint64_t store_bytes = 0;  // for pictures
    std::uint64_t tile_bytes = 0;   // for blending on all threads
    std::uint64_t output_bytes = 0; // for what the sink has not taken yet
    std::uint64_t seam_bytes = 0;

    std::uint64_t all() const { return store_bytes + tile_bytes + output_bytes + seam_bytes; }
};

// What waits for the sink: strips or tiles, so many at once.
std::size_t output_slots(const TileGrid& grid, Delivery delivery, std::size_t threads);

// The least budget for a grid.
std::uint64_t least_memory(const MemoryNeeds& needs, const TileGrid& grid, Delivery delivery);

// The budget's shares with as many threads as it feeds, at most so many. Nothing where it does not feed one.
std::optional<MemoryShares> share_memory(const MemoryNeeds& needs, const TileGrid& grid, Delivery delivery,
                                         std::uint64_t budget, std::size_t threads);

// The grid that takes about the least time within the budget, if there is one. tile_size: of the host, or 0.
std::optional<TileGrid> choose_grid(const MemoryNeeds& needs, Delivery delivery, std::uint64_t budget,
                                    std::size_t threads, std::int64_t tile_size);

// The least budget for which choose_grid finds one.
std::uint64_t least_memory(const MemoryNeeds& needs, Delivery delivery, std::int64_t tile_size);

// A guess before there are seams, rather too large.
std::uint64_t guess_seam_bytes(const Layout& layout);

} // namespace panoval::mosaic
