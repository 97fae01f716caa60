// SPDX-License-Identifier: MIT
// The end of the tiles' way: they become the panorama, in memory or, where nobody needs it there, in its file.
#pragma once

#include "cli/base/image_names.h"
#include "cli/stitch/canvas_tiles.h"
#include "image/image.h"
#include "image/image_write.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace panoval::cli
{

class TileCollector
{
public:
    // header: the panorama without samples. writer: writes the panorama, or null to keep it. output: for messages.
    TileCollector(const CanvasGrid& grid, Image header, std::unique_ptr<RowWriter> writer, const std::string& output);

    // A blended tile; each once, in any order and from any thread.
    void put(std::size_t index, Image blended);

    // When all tiles are here: the panorama, without samples if it has been written.
    Image finish();

private:
    // A row of tiles on its way into the file.
    struct TileRow {
        Image image;              // as wide as the panorama
        std::int32_t first = 0;   // row of it that goes into the panorama
        std::size_t missing = 0;  // tiles
        bool is_complete = false; // and ready to be written
    };

    Image& image_for(TileRow& row, const CanvasTile& tile);
    void add(std::size_t index, Image blended);
    bool take_next(TileRow& row);
    void write_complete_rows();

    const CanvasGrid& grid_;
    const std::string& output_;
    Image panorama_;
    std::unique_ptr<RowWriter> writer_;
    std::mutex mutex_;
    std::vector<TileRow> rows_; // those that others have to be written before, or that are not complete
    std::size_t next_ = 0;      // row of tiles to write
    bool is_writing_ = false;   // a thread is at it, and takes what others put
};

} // namespace panoval::cli
