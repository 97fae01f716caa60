// SPDX-License-Identifier: MIT
#include "image/zarr_rows.h"

#include "image/row_halver.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace panoval::image
{

namespace
{

// The part of an image from x, y on.
Rows part_of(Image& image, std::int32_t x, std::int32_t y)
{
    Rows rows = rows_of(image, y);
    rows.samples += static_cast<std::size_t>(x) * static_cast<std::size_t>(image.channels) * image.sample_bytes();
    rows.mask += rows.mask != nullptr ? x : 0;
    return rows;
}

Image make_like(const ImageInfo& info, std::int32_t width, std::int32_t height)
{
    Image image = make_image(width, height, info.channels, info.bits, "the store");
    if (info.has_alpha)
        ensure_mask(image, "the store");
    image.has_alpha = info.has_alpha;
    return image;
}

class StoreReader : public RowReader
{
public:
    StoreReader(const ZarrStore& store, std::size_t level)
        : store_(store), level_(level), array_(store.array(level)),
          band_(make_like(store.info(level), static_cast<std::int32_t>(array_.width),
                          static_cast<std::int32_t>(std::min<std::int64_t>(array_.chunk_height, array_.height))))
    {
        info_ = store.info(level);
        metadata_ = store.picture().metadata;
    }

    void read_rows(std::int32_t first, std::int32_t count, const Rows& to) override
    {
        for (std::int32_t i = 0; i < count; ++i) {
            const std::int32_t y = first + i;
            if (y / array_.chunk_height != chunk_row_)
                read_band(y / array_.chunk_height);
            const Rows from = rows_of(band_, y % array_.chunk_height);
            std::memcpy(to.row(i), from.samples, band_.row_bytes());
            if (to.mask_row(i) == nullptr)
                continue;
            if (from.mask != nullptr)
                std::memcpy(to.mask_row(i), from.mask, static_cast<std::size_t>(band_.width));
            else
                std::memset(to.mask_row(i), 255, static_cast<std::size_t>(band_.width));
        }
    }
    std::uint64_t held_bytes() const override { return band_.bytes() + (band_.mask != nullptr ? band_.pixels() : 0); }

private:
    void read_band(std::int32_t chunk_row)
    {
        const std::int32_t top = chunk_row * array_.chunk_height;
        const std::int32_t height = std::min(array_.chunk_height, info_.height - top);
        chunk_row_ = -1; // unless all goes well
        for (std::int64_t x = 0; x < array_.width; x += array_.chunk_width) {
            const auto left = static_cast<std::int32_t>(x);
            (void)store_.read_chunk(level_, chunk_row, x / array_.chunk_width, chunk_);
            get_pixels(array_, chunk_, std::min(array_.chunk_width, info_.width - left), height,
                       part_of(band_, left, 0));
        }
        chunk_row_ = chunk_row;
    }

    const ZarrStore store_;
    const std::size_t level_;
    const ZarrArray array_;
    Image band_;
    Chunk chunk_;
    std::int32_t chunk_row_ = -1; // that the band holds
};

} // namespace

std::unique_ptr<RowReader> open_store_rows(const ZarrStore& store, std::size_t level)
{
    return std::make_unique<StoreReader>(store, level);
}

void write_halved_chunk(const ZarrStore& store, std::size_t level, std::int64_t row, std::int64_t column)
{
    const ZarrArray& from = store.array(level - 1);
    const ImageInfo info = store.info(level - 1);
    const std::int64_t left = 2 * column * from.chunk_width;
    const std::int64_t top = 2 * row * from.chunk_height;
    const auto width = static_cast<std::int32_t>(std::min<std::int64_t>(2 * from.chunk_width, info.width - left));
    const auto height = static_cast<std::int32_t>(std::min<std::int64_t>(2 * from.chunk_height, info.height - top));
    Image block = make_like(info, width, height);
    Image half = make_like(info, (width + 1) / 2, (height + 1) / 2);
    Chunk chunk;
    bool has_pixels = false;
    for (std::int32_t y = 0; y < height; y += from.chunk_height)
        for (std::int32_t x = 0; x < width; x += from.chunk_width) {
            has_pixels |=
                store.read_chunk(level - 1, (top + y) / from.chunk_height, (left + x) / from.chunk_width, chunk);
            get_pixels(from, chunk, std::min(from.chunk_width, width - x), std::min(from.chunk_height, height - y),
                       part_of(block, x, y));
        }
    if (has_pixels) {
        std::int32_t next = 0;
        RowHalver halver(block, [&](const ConstRows& halved) {
            const Rows to = rows_of(half, next++);
            std::memcpy(to.samples, halved.samples, half.row_bytes());
            if (to.mask != nullptr)
                std::memcpy(to.mask, halved.mask, static_cast<std::size_t>(half.width));
        });
        for (std::int32_t y = 0; y < height; ++y)
            halver.add(rows_of(std::as_const(block), y));
        halver.finish();
    } else {
        std::fill_n(half.data.get(), half.bytes(), std::uint8_t{0});
        if (half.mask != nullptr)
            std::fill_n(half.mask.get(), half.pixels(), std::uint8_t{0});
    }
    (void)store.write_pixels(level, column * from.chunk_width, row * from.chunk_height, half.width, half.height,
                             rows_of(std::as_const(half)));
}

} // namespace panoval::image
