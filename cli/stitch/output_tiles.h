// SPDX-License-Identifier: MIT
// The tiles that a panorama is put out in: those of the plan's size, over the part of the canvas that is wanted.
#pragma once

#include "cli/stitch/panorama_job.h"

#include <cstdint>
#include <string>
#include <vector>

namespace panoval::cli
{

struct OutputTiles {
    PanovalMosaicRect region{}; // on the canvas
    std::int64_t tile_width = 0;
    std::int64_t tile_height = 0;

    std::int64_t columns() const { return (region.width + tile_width - 1) / tile_width; }
    std::int64_t rows() const { return (region.height + tile_height - 1) / tile_height; }
    std::int64_t count() const { return columns() * rows(); }

    // On the canvas. Tiles stand row by row; those at the right and the bottom may be smaller.
    PanovalMosaicRect rect(std::int64_t tile) const;
};

OutputTiles output_tiles(const PanoramaJob& job);

// The numbers of "0-15,20", ascending, each once; or of "3/600", the fourth of 600 runs of neighbouring tiles that
// together are all. Ends in a usage error where that is no list of tiles below `count`.
std::vector<std::int64_t> parse_tiles(const std::string& list, std::int64_t count);

// The side of chunks that divide tiles of this side. whole: of the picture.
std::int32_t chunk_side(std::int64_t tile, std::int64_t whole);

} // namespace panoval::cli
