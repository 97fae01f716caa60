// SPDX-License-Identifier: MIT
#include "image/rows.h"

#include "core/sample_depth.h"

#include <algorithm>
#include <cstring>

namespace panoval::image
{

namespace
{

// Colours divided by their alpha, rounded to nearest; without alpha there is no colour.
template <class Sample>
void divide_by_alpha(std::uint8_t* colors, const std::uint8_t* alphas, std::size_t pixels, std::size_t channels)
{
    constexpr std::uint64_t kFull = static_cast<Sample>(~Sample{0});
    for (std::size_t i = 0; i < pixels; ++i) {
        Sample alpha;
        std::memcpy(&alpha, alphas + i * sizeof alpha, sizeof alpha);
        if (alpha == kFull)
            continue;
        for (std::size_t k = i * channels; k < (i + 1) * channels; ++k) {
            Sample color;
            std::memcpy(&color, colors + k * sizeof color, sizeof color);
            const std::uint64_t divided = alpha == 0 ? 0 : (color * kFull + alpha / 2u) / alpha;
            color = static_cast<Sample>(std::min(divided, kFull));
            std::memcpy(colors + k * sizeof color, &color, sizeof color);
        }
    }
}

template <std::size_t ColorBytes, std::size_t AlphaBytes>
void split_pixels(const std::uint8_t* interleaved, std::size_t count, std::uint8_t* color, std::uint8_t* alpha)
{
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(color + i * ColorBytes, interleaved + i * (ColorBytes + AlphaBytes), ColorBytes);
        std::memcpy(alpha + i * AlphaBytes, interleaved + i * (ColorBytes + AlphaBytes) + ColorBytes, AlphaBytes);
    }
}

std::uint32_t load_word(const std::uint8_t* at)
{
    std::uint32_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

void store_word(std::uint8_t* at, std::uint32_t word)
{
    std::memcpy(at, &word, sizeof word);
}

// Three bytes of colour and one of alpha: four pixels are four words in, three words and one out.
void split_rgba(const std::uint8_t* interleaved, std::size_t count, std::uint8_t* color, std::uint8_t* alpha)
{
    constexpr std::uint32_t kColor = 0xFFFFFF;
    std::size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const std::uint32_t a = load_word(interleaved + 4 * i);
        const std::uint32_t b = load_word(interleaved + 4 * i + 4);
        const std::uint32_t c = load_word(interleaved + 4 * i + 8);
        const std::uint32_t d = load_word(interleaved + 4 * i + 12);
        store_word(color + 3 * i, (a & kColor) | (b << 24));
        store_word(color + 3 * i + 4, ((b & kColor) >> 8) | (c << 16));
        store_word(color + 3 * i + 8, ((c & kColor) >> 16) | (d << 8));
        store_word(alpha + i, (a >> 24) | ((b >> 24) << 8) | ((c >> 24) << 16) | (d & ~kColor));
    }
    split_pixels<3, 1>(interleaved + 4 * i, count - i, color + 3 * i, alpha + i);
}

template <std::size_t Size>
void spread_samples(const std::uint8_t* samples, std::size_t count, std::uint8_t* color, std::size_t step)
{
    for (std::size_t i = 0; i < count; ++i)
        std::memcpy(color + i * step, samples + i * Size, Size);
}

template <std::size_t ColorBytes, std::size_t AlphaBytes>
void merge_pixels(const std::uint8_t* color, const std::uint8_t* mask, std::size_t count, std::uint8_t* row)
{
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(row, color + i * ColorBytes, ColorBytes);
        std::memset(row + ColorBytes, mask[i], AlphaBytes); // twice for 16 bit, which is a factor of 257
        row += ColorBytes + AlphaBytes;
    }
}

std::size_t width_of(const ImageInfo& info)
{
    return static_cast<std::size_t>(info.width);
}

} // namespace

Rows rows_of(Image& image, std::int32_t first)
{
    const Rows all = {image.data.get(), image.row_bytes(), image.mask.get(), width_of(image)};
    return all.from(first);
}

ConstRows rows_of(const Image& image, std::int32_t first)
{
    const ConstRows all = {image.data.get(), image.row_bytes(), image.mask.get(), width_of(image)};
    return all.from(first);
}

std::size_t stored_pixel_bytes(const ImageInfo& info)
{
    return static_cast<std::size_t>(info.channels + (info.has_alpha ? 1 : 0)) * info.sample_bytes();
}

std::size_t stored_row_bytes(const ImageInfo& info)
{
    return width_of(info) * stored_pixel_bytes(info);
}

RowSplitter::RowSplitter(const ImageInfo& info, bool is_premultiplied)
    : info_(info), is_premultiplied_(is_premultiplied),
      alpha_(info.has_alpha ? width_of(info) * info.sample_bytes() : 0)
{
}

void RowSplitter::split(const std::uint8_t* interleaved, std::uint8_t* samples, std::uint8_t* mask)
{
    const std::size_t width = width_of(info_);
    if (info_.has_alpha && info_.bits == 8 && info_.channels == 3 && !is_premultiplied_ && mask != nullptr)
        return split_rgba(interleaved, width, samples, mask);
    if (!info_.has_alpha)
        std::memcpy(samples, interleaved, stored_row_bytes(info_));
    else if (info_.bits == 16 && info_.channels == 3)
        split_pixels<6, 2>(interleaved, width, samples, alpha_.data());
    else if (info_.bits == 16)
        split_pixels<2, 2>(interleaved, width, samples, alpha_.data());
    else if (info_.channels == 3)
        split_rgba(interleaved, width, samples, alpha_.data());
    else
        split_pixels<1, 1>(interleaved, width, samples, alpha_.data());
    finish(samples, mask);
}

void RowSplitter::gather(const std::uint8_t* planes, std::size_t plane_bytes, std::uint8_t* samples, std::uint8_t* mask)
{
    const std::size_t size = info_.sample_bytes();
    const std::size_t step = static_cast<std::size_t>(info_.channels) * size;
    for (int c = 0; c < info_.channels; ++c) {
        const std::uint8_t* const from = planes + static_cast<std::size_t>(c) * plane_bytes;
        std::uint8_t* const to = samples + static_cast<std::size_t>(c) * size;
        if (size == 2)
            spread_samples<2>(from, width_of(info_), to, step);
        else
            spread_samples<1>(from, width_of(info_), to, step);
    }
    if (info_.has_alpha)
        std::memcpy(alpha_.data(), planes + static_cast<std::size_t>(info_.channels) * plane_bytes, alpha_.size());
    finish(samples, mask);
}

// What the row's alpha says.
void RowSplitter::finish(std::uint8_t* samples, std::uint8_t* mask)
{
    const std::size_t width = width_of(info_);
    const auto channels = static_cast<std::size_t>(info_.channels);
    if (is_premultiplied_ && info_.bits == 16) // there is an alpha then
        divide_by_alpha<std::uint16_t>(samples, alpha_.data(), width, channels);
    else if (is_premultiplied_)
        divide_by_alpha<std::uint8_t>(samples, alpha_.data(), width, channels);
    if (mask == nullptr)
        return;
    if (!info_.has_alpha)
        std::memset(mask, 255, width);
    else if (info_.bits == 16)
        narrow_alpha(alpha_.data(), width, mask);
    else
        std::memcpy(mask, alpha_.data(), width);
}

void merge_row(const ImageInfo& info, const std::uint8_t* samples, const std::uint8_t* mask, std::uint8_t* interleaved)
{
    const std::size_t width = width_of(info);
    if (mask == nullptr)
        std::memcpy(interleaved, samples, width * static_cast<std::size_t>(info.channels) * info.sample_bytes());
    else if (info.bits == 16 && info.channels == 3)
        merge_pixels<6, 2>(samples, mask, width, interleaved);
    else if (info.bits == 16)
        merge_pixels<2, 2>(samples, mask, width, interleaved);
    else if (info.channels == 3)
        merge_pixels<3, 1>(samples, mask, width, interleaved);
    else
        merge_pixels<1, 1>(samples, mask, width, interleaved);
}

void narrow_alpha(const std::uint8_t* alpha, std::size_t count, std::uint8_t* mask)
{
    for (std::size_t i = 0; i < count; ++i) {
        std::uint16_t wide;
        std::memcpy(&wide, alpha + 2 * i, 2);
        const std::uint8_t rounded = narrow_sample(wide);
        mask[i] = rounded == 0 && wide != 0 ? std::uint8_t{1} : rounded;
    }
}

} // namespace panoval::image
