// SPDX-License-Identifier: MIT
// Pictures in memory for tests of the engine: each with its samples, perhaps a mask, and a reader that gives their
// pixels.
#pragma once

#include "mosaic/base/errors.h"
#include "mosaic/base/layout.h"
#include "mosaic/pictures/pixel_block.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace panoval::mosaic::test
{

struct MemoryPicture {
    std::int64_t width = 0;
    std::int64_t height = 0;
    int channels = 1;
    int bits = 8;
    std::vector<std::uint16_t> samples; // of either depth, rows without padding
    std::vector<std::uint8_t> mask;     // one byte a pixel, 0 = not covered; empty: covered everywhere

    static MemoryPicture blank(std::int64_t width, std::int64_t height, int channels, int bits)
    {
        MemoryPicture picture{width, height, channels, bits, {}, {}};
        picture.samples.resize(static_cast<std::size_t>(width * height * channels));
        return picture;
    }

    std::size_t index(std::int64_t x, std::int64_t y, int c = 0) const
    {
        return static_cast<std::size_t>((y * width + x) * channels + c);
    }
    std::uint16_t& at(std::int64_t x, std::int64_t y, int c = 0) { return samples[index(x, y, c)]; }
    std::uint16_t at(std::int64_t x, std::int64_t y, int c = 0) const { return samples[index(x, y, c)]; }
    std::uint8_t mask_at(std::int64_t x, std::int64_t y) const
    {
        return mask.empty() ? std::uint8_t{255} : mask[static_cast<std::size_t>(y * width + x)];
    }
    bool is_covered(std::int64_t x, std::int64_t y) const { return mask_at(x, y) != 0; }

    // Turned by 180 degrees, mask and all.
    void turn()
    {
        MemoryPicture turned = *this;
        for (std::int64_t y = 0; y < height; ++y)
            for (std::int64_t x = 0; x < width; ++x)
                for (int c = 0; c < channels; ++c)
                    turned.at(width - 1 - x, height - 1 - y, c) = at(x, y, c);
        turned.mask.assign(mask.rbegin(), mask.rend());
        *this = std::move(turned);
    }
};

// Layout and pixels of a panorama, grown picture by picture. Give the canvas's size (and whether it wraps) first.
class MemoryReader : public PictureReader
{
public:
    Layout layout;
    std::vector<MemoryPicture> pictures;
    std::atomic<std::int64_t> pixels_read{0};
    bool is_large = true; // keeps all pictures

    MemoryReader(std::int64_t width, std::int64_t height, bool wraps = false)
    {
        layout.width = width;
        layout.height = height;
        layout.wraps = wraps;
    }

    // Places a picture at (x, y) of the canvas. Returns its number.
    std::size_t add(std::int64_t x, std::int64_t y, MemoryPicture picture)
    {
        layout.channels = picture.channels;
        layout.bits = picture.bits;
        const std::size_t number = pictures.size();
        layout.pictures.push_back(
            {{x, y, picture.width, picture.height}, !picture.mask.empty(), "picture " + std::to_string(number)});
        pictures.push_back(std::move(picture));
        return number;
    }

    bool keeps_all() const override { return is_large; }

    void read(std::size_t number, const Rect& rect, PixelBlock& block) override
    {
        const MemoryPicture& picture = pictures[number];
        if (rect.is_empty() || !Rect{0, 0, picture.width, picture.height}.contains(rect))
            fail(Failure::Internal, "read outside picture ", number, ": ", rect.x, ",", rect.y, " ", rect.width, "x",
                 rect.height);
        block.reset(rect, picture.channels, picture.bits / 8);
        for (std::int64_t y = 0; y < rect.height; ++y)
            read_row(picture, rect, y, block);
        pixels_read += rect.pixels();
    }

private:
    static void read_row(const MemoryPicture& picture, const Rect& rect, std::int64_t y, PixelBlock& block)
    {
        const std::uint16_t* const from = picture.samples.data() + picture.index(rect.x, rect.y + y);
        const auto count = static_cast<std::size_t>(rect.width * picture.channels);
        std::uint8_t* const to = block.row(y);
        if (picture.bits == 16)
            std::memcpy(to, from, count * sizeof *from);
        else
            for (std::size_t i = 0; i < count; ++i)
                to[i] = static_cast<std::uint8_t>(from[i]);
        for (std::int64_t x = 0; x < rect.width; ++x)
            block.mask_row(y)[x] = picture.mask_at(rect.x + x, rect.y + y);
    }
};

} // namespace panoval::mosaic::test
