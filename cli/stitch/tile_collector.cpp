// SPDX-License-Identifier: MIT
#include "cli/stitch/tile_collector.h"

#include <cstring>
#include <utility>

namespace panoval::cli
{

namespace
{

// What a tile has for the panorama, into an image that is as wide and begins with row first_row of it.
void copy_kept(const CanvasTile& tile, const Image& blended, std::int32_t first_row, Image& to)
{
    const std::size_t pixel_bytes = static_cast<std::size_t>(to.channels) * to.sample_bytes();
    const std::size_t skipped = static_cast<std::size_t>(tile.columns.first_kept - tile.columns.first) * pixel_bytes;
    const std::size_t offset = static_cast<std::size_t>(tile.columns.first_kept) * pixel_bytes;
    const std::size_t bytes = static_cast<std::size_t>(tile.columns.kept()) * pixel_bytes;
    for (std::int32_t y = tile.rows.first_kept; y < tile.rows.end_kept; ++y)
        std::memcpy(to.row(y - first_row) + offset, blended.row(y - tile.rows.first) + skipped, bytes);
}

} // namespace

TileCollector::TileCollector(const CanvasGrid& grid, Image header, std::unique_ptr<RowWriter> writer,
                             const std::string& output)
    : grid_(grid), output_(output), panorama_(std::move(header)), writer_(std::move(writer)), rows_(grid.rows.size())
{
    if (writer_ == nullptr)
        panorama_.data = allocate_block(panorama_.bytes(), output);
    for (TileRow& row : rows_)
        row.missing = grid.columns.size();
}

void TileCollector::put(std::size_t index, Image blended)
{
    if (writer_ == nullptr)
        return copy_kept(grid_.tile(index), blended, 0, panorama_);
    add(index, std::move(blended));
    write_complete_rows();
}

// The image of a row of tiles, made for the first of them.
Image& TileCollector::image_for(TileRow& row, const CanvasTile& tile)
{
    const std::lock_guard lock(mutex_);
    if (row.image.data == nullptr)
        row.image = make_image(panorama_.width, tile.rows.kept(), panorama_.channels, panorama_.bits, output_);
    return row.image;
}

void TileCollector::add(std::size_t index, Image blended)
{
    const CanvasTile tile = grid_.tile(index);
    TileRow& row = rows_[index / grid_.columns.size()];
    if (grid_.columns.size() == 1) { // already as wide as the panorama
        row.first = tile.rows.first_kept - tile.rows.first;
        row.image = std::move(blended);
    } else {
        copy_kept(tile, blended, tile.rows.first_kept, image_for(row, tile));
    }
    const std::lock_guard lock(mutex_);
    row.is_complete = --row.missing == 0;
}

void TileCollector::write_complete_rows()
{
    {
        const std::lock_guard lock(mutex_);
        if (std::exchange(is_writing_, true))
            return;
    }
    TileRow row;
    while (take_next(row))
        writer_->add(rows_of(std::as_const(row.image), row.first), grid_.rows[next_ - 1].kept());
}

// Only the thread that is writing calls it. False, and the writing is over for now, where the next row is not complete.
bool TileCollector::take_next(TileRow& row)
{
    const std::lock_guard lock(mutex_);
    is_writing_ = next_ < rows_.size() && rows_[next_].is_complete;
    if (is_writing_)
        row = std::move(rows_[next_++]);
    return is_writing_;
}

Image TileCollector::finish()
{
    if (writer_ != nullptr)
        writer_->finish();
    return std::move(panorama_);
}

} // namespace panoval::cli
