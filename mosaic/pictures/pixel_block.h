// SPDX-License-Identifier: MIT
// A rectangle of a picture's pixels in memory, and where the engine's parts get one from.
#pragma once

#include "core/heap.h"
#include "mosaic/base/rect.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

namespace panoval::mosaic
{

// Samples as the picture has them, rows without padding, and a mask of one byte a pixel. Reused from call to call: the
// memory grows to the largest rectangle.
class PixelBlock
{
public:
    Rect rect; // in the picture's own pixels
    int channels = 0;
    int sample_bytes = 0; // 1 or 2; 16-bit samples in this machine's order

    // Gives the block a shape; samples and mask are unset. Throws std::bad_alloc.
    void reset(const Rect& new_rect, int new_channels, int new_sample_bytes)
    {
        rect = new_rect;
        channels = new_channels;
        sample_bytes = new_sample_bytes;
        const auto pixels = static_cast<std::size_t>(rect.pixels());
        reserve(samples_, sample_capacity_, pixels * static_cast<std::size_t>(channels * sample_bytes));
        reserve(mask_, mask_capacity_, pixels);
    }

    std::size_t row_bytes() const { return static_cast<std::size_t>(rect.width * channels * sample_bytes); }

    // Row y counts from the block's first row.
    std::uint8_t* row(std::int64_t y) { return samples_.get() + static_cast<std::size_t>(y) * row_bytes(); }
    const std::uint8_t* row(std::int64_t y) const { return samples_.get() + static_cast<std::size_t>(y) * row_bytes(); }
    std::uint8_t* mask_row(std::int64_t y) { return mask_.get() + static_cast<std::size_t>(y * rect.width); }
    const std::uint8_t* mask_row(std::int64_t y) const
    {
        return mask_.get() + static_cast<std::size_t>(y * rect.width);
    }

    // One sample as a number, x and y counted from the block's corner.
    std::uint32_t sample(std::int64_t x, std::int64_t y, int c) const
    {
        const std::uint8_t* const at = row(y) + static_cast<std::size_t>((x * channels + c) * sample_bytes);
        if (sample_bytes == 1)
            return *at;
        std::uint16_t value;
        std::memcpy(&value, at, sizeof value);
        return value;
    }

private:
    static void reserve(HeapArray<std::uint8_t>& block, std::size_t& capacity, std::size_t bytes)
    {
        if (block != nullptr && bytes <= capacity)
            return;
        block.reset();
        capacity = 0;
        block = allocate<std::uint8_t>(bytes);
        if (block == nullptr)
            throw std::bad_alloc();
        capacity = bytes;
    }

    HeapArray<std::uint8_t> samples_;
    HeapArray<std::uint8_t> mask_;
    std::size_t sample_capacity_ = 0;
    std::size_t mask_capacity_ = 0;
};

// Rows of a rectangle that stay where they are while this holds them, each from the rectangle's first column on.
struct HeldRows {
    std::vector<const std::uint8_t*> samples;
    std::vector<const std::uint8_t*> masks; // empty where the picture has none, or covers the whole rectangle
    std::vector<std::shared_ptr<const std::uint8_t>> holders;

    void clear()
    {
        samples.clear();
        masks.clear();
        holders.clear();
    }
};

// Gives pixels of any picture. May be called from several threads at once.
class PictureReader
{
public:
    virtual ~PictureReader() = default;

    // Fills the block with a rectangle, which lies inside the picture and is in its own pixels: samples as they are,
    // without any gain, and the mask (255 everywhere where the picture has none; 0 = not covered). Throws an Error
    // where the host cannot give the rows, or std::bad_alloc.
    virtual void read(std::size_t picture, const Rect& rect, PixelBlock& block) = 0;

    // The same without copying. False, and no rows, where memory does not allow it: what is held cannot make room.
    virtual bool hold(std::size_t picture, const Rect& rect, HeldRows& rows)
    {
        static_cast<void>(picture);
        static_cast<void>(rect);
        rows.clear();
        return false;
    }

    // Whether pictures stay in memory once they have been read: then a second look costs little.
    virtual bool keeps_all() const { return true; }

    // Fills rect.pixels() bytes with the mask alone.
    virtual void read_mask(std::size_t picture, const Rect& rect, std::uint8_t* out)
    {
        PixelBlock block;
        read(picture, rect, block);
        std::memcpy(out, block.mask_row(0), static_cast<std::size_t>(rect.pixels()));
    }

    // Fills rect.pixels() bytes: 0, or anything else where a pixel must belong to this picture if it covers it (of two
    // such pictures, to that of the lower number). False, and nothing filled, where the picture has no such pixel at
    // all; then that is the answer for each of its rectangles.
    virtual bool read_keep(std::size_t picture, const Rect& rect, std::uint8_t* out)
    {
        static_cast<void>(picture);
        static_cast<void>(rect);
        static_cast<void>(out);
        return false;
    }
};

} // namespace panoval::mosaic
