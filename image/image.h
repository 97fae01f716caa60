// SPDX-License-Identifier: MIT
// A picture in memory as the commands pass it around: samples, coverage and place.
#pragma once

#include "core/sample_depth.h"
#include "image/metadata.h"
#include "panoval.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

namespace panoval::image
{

struct FreeBlock {
    void operator()(void* block) const noexcept { std::free(block); }
};

// Bytes on the C heap, so that blocks of the library can be owned as well.
using Block = std::unique_ptr<std::uint8_t[], FreeBlock>;

// bytes of unset memory, or a memory error that names `file` as the reason.
Block allocate_block(std::size_t bytes, const std::string& file);

// The same error unless so much memory is free, for a routine of the library that cannot tell when it has too little.
void need_memory(std::size_t bytes, const std::string& file);

// A place in the panorama's frame, in pixels. Wider than a canvas so that sums stay exact.
struct Offset {
    std::int64_t x = 0;
    std::int64_t y = 0;
    friend bool operator==(const Offset&, const Offset&) = default;
};

// What a file says about a picture before its pixels are read.
struct ImageInfo {
    std::int32_t width = 0;
    std::int32_t height = 0;
    int channels = 0; // 1 grey, 3 red, green, blue; alpha not counted
    int bits = 0;     // per sample: 8 or 16
    bool has_alpha = false;
    std::optional<Offset> position; // where the file says that the picture belongs

    // Both fit 64 bits, whatever the sides.
    std::size_t pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    std::size_t samples() const { return pixels() * static_cast<std::size_t>(channels); }
    std::size_t sample_bytes() const { return bits == 16 ? 2u : 1u; }
    std::size_t bytes() const { return samples() * sample_bytes(); }
};

// A picture without its samples.
struct PictureInfo : ImageInfo {
    Metadata metadata;
};

// has_alpha tells whether there is a mask.
struct Image : PictureInfo {
    Block data; // samples, row-major, channels interleaved, 16-bit ones in this machine's order
    Block mask; // one byte a pixel, 0 = not covered, 255 = covered; null = covered everywhere

    std::uint8_t* row(std::int32_t y) { return data.get() + row_offset(y); }
    const std::uint8_t* row(std::int32_t y) const { return data.get() + row_offset(y); }
    std::size_t row_bytes() const
    {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels) * sample_bytes();
    }

private:
    std::size_t row_offset(std::int32_t y) const { return static_cast<std::size_t>(y) * row_bytes(); }
};

// A picture with unset samples, without mask.
Image make_image(std::int32_t width, std::int32_t height, int channels, int bits, const std::string& file);

// One sample of 8 or 16 bit, the latter in this machine's order.
std::uint32_t sample_at(const std::uint8_t* samples, int bits, std::size_t index);

// How the two depths relate, for those who hold samples of pictures.
using panoval::levels_per_byte;
using panoval::widen_samples;

// Gives the picture a mask that covers all of it, unless it has one.
void ensure_mask(Image& image, const std::string& file);

// The library's view of a picture's samples. Borrowed: the picture keeps the block, so never reset or destroy the
// record.
Mat borrow_mat(const Image& image);

// The picture with 8 or 16 bits a sample: 8 to 16 repeats the byte, 16 to 8 rounds to nearest.
void convert_depth(Image& image, int bits, const std::string& file);

// Colour made grey with the weights 0.299, 0.587, 0.114, rounded to nearest. Grey stays as it is.
void convert_to_grey(Image& image, const std::string& file);

// Grey repeated in three channels. Colour stays as it is.
void convert_to_colour(Image& image, const std::string& file);

// Which sides of a picture something applies to.
struct Sides {
    bool left = false;
    bool top = false;
    bool right = false;
    bool bottom = false;

    bool any() const { return left || top || right || bottom; }
    friend bool operator==(const Sides&, const Sides&) = default;
};

// e.g. "640 x 480 pixels, 3 channels, 8 bit"
std::string describe(const ImageInfo& info);

} // namespace panoval::image
