// SPDX-License-Identifier: MIT
// Rows of samples between memory, where the mask stands by itself, and files, where it is the alpha among the samples.
#pragma once

#include "image/image.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::image
{

// Where rows of a picture are or go: channels interleaved, 16 bit in this machine's order; the mask's one byte a pixel.
// Strides are the bytes from row to row.
template <class Byte>
struct RowsOf {
    Byte* samples = nullptr;
    std::size_t stride = 0;
    Byte* mask = nullptr; // null = not there, or not wanted
    std::size_t mask_stride = 0;

    Byte* row(std::int32_t i) const { return samples + static_cast<std::size_t>(i) * stride; }
    Byte* mask_row(std::int32_t i) const
    {
        return mask != nullptr ? mask + static_cast<std::size_t>(i) * mask_stride : nullptr;
    }
    RowsOf from(std::int32_t i) const { return {row(i), stride, mask_row(i), mask_stride}; }
};

using Rows = RowsOf<std::uint8_t>;
using ConstRows = RowsOf<const std::uint8_t>;

// All rows of a picture from `first` on. The picture keeps the blocks.
Rows rows_of(Image& image, std::int32_t first = 0);
ConstRows rows_of(const Image& image, std::int32_t first = 0);

// Bytes of a pixel and of a row as files have them: samples, then the alpha if there is one.
std::size_t stored_pixel_bytes(const ImageInfo& info);
std::size_t stored_row_bytes(const ImageInfo& info);

// Takes apart what a file has interleaved.
class RowSplitter
{
public:
    // is_premultiplied: the colours are stored multiplied with their alpha, and are divided by it.
    RowSplitter(const ImageInfo& info, bool is_premultiplied);

    // One row. mask may be null; where the file has no alpha it is filled with 255.
    void split(const std::uint8_t* interleaved, std::uint8_t* samples, std::uint8_t* mask);

    // The same where each sample has a row of its own, channels first, then the alpha; a row starts plane_bytes behind
    // the one before.
    void gather(const std::uint8_t* planes, std::size_t plane_bytes, std::uint8_t* samples, std::uint8_t* mask);

private:
    void finish(std::uint8_t* samples, std::uint8_t* mask);

    ImageInfo info_;
    bool is_premultiplied_;
    std::vector<std::uint8_t> alpha_; // of a row, as many bits as the samples
};

// A row as files have it. mask: null = without alpha.
void merge_row(const ImageInfo& info, const std::uint8_t* samples, const std::uint8_t* mask, std::uint8_t* interleaved);

// 16-bit alpha as a mask of 8 bit, rounded to nearest, except that no covered pixel becomes uncovered.
void narrow_alpha(const std::uint8_t* alpha, std::size_t count, std::uint8_t* mask);

} // namespace panoval::image
