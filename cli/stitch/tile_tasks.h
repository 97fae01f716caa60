// SPDX-License-Identifier: MIT
// Tiles into a store, each by itself: by one process that makes all of them, or by many that make some each.
#pragma once

#include "cli/base/errors.h"
#include "cli/stitch/output_tiles.h"
#include "cli/stitch/panorama_job.h"
#include "cli/stitch/picture_files.h"
#include "image/zarr_store.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace panoval::cli
{

struct FailedTile {
    std::int64_t tile = 0;
    std::string error; // with the tile's number
    Fault fault = Fault::Input;
};

struct TilesDone {
    std::int64_t made = 0;
    std::int64_t kept = 0; // that were there already
    std::vector<FailedTile> failed;
};

// What a store of the panorama is.
image::StorePicture store_picture(const PanoramaJob& job, const OutputTiles& tiles);

// Blends and writes these tiles on all threads that the budget feeds. keeps: tiles that are there stay. A tile that
// fails does not keep the others from being made, unless stops_early. An interrupted program ends here, by way of an
// Interruption. begun: told each tile's number, from one thread at a time.
struct TileOrders {
    std::vector<std::int64_t> numbers;
    bool keeps = false;
    bool stops_early = false;
    std::function<void(std::int64_t tile)> begun;
};
TilesDone make_tiles(PanoramaJob& job, PictureFiles& files, const image::ZarrStore& store, const OutputTiles& tiles,
                     const TileOrders& orders);

} // namespace panoval::cli
