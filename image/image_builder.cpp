// SPDX-License-Identifier: MIT
#include "image/image_builder.h"

#include "core/large_pages.h"

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

Block allocate_large(std::size_t bytes, const std::string& file)
{
    Block block = allocate_block(bytes, file);
    prefer_large_pages(block.get(), bytes);
    return block;
}

// Where a pixel of a stored picture goes, by TIFF's eight orientations.
struct Orientation {
    bool is_transposed;
    bool flips_x; // of the stored picture
    bool flips_y;
};

constexpr Orientation kOrientations[] = {
    {false, false, false}, {false, true, false}, {false, true, true}, {false, false, true},
    {true, false, false},  {true, false, true},  {true, true, true},  {true, true, false},
};

} // namespace

ImageBuilder::ImageBuilder(const std::string& file, const ImageInfo& info)
{
    static_cast<ImageInfo&>(image_) = info;
    image_.data = allocate_large(image_.bytes(), file);
    if (info.has_alpha)
        alpha_ = allocate_large(image_.pixels() * image_.sample_bytes(), file);
}

std::uint8_t* ImageBuilder::color_at(std::int32_t x, std::int32_t y)
{
    return image_.row(y) +
           static_cast<std::size_t>(x) * static_cast<std::size_t>(image_.channels) * image_.sample_bytes();
}

std::uint8_t* ImageBuilder::alpha_at(std::int32_t x, std::int32_t y)
{
    const std::size_t index =
        static_cast<std::size_t>(y) * static_cast<std::size_t>(image_.width) + static_cast<std::size_t>(x);
    return alpha_.get() + index * image_.sample_bytes();
}

void ImageBuilder::put(std::int32_t x, std::int32_t y, std::size_t count, const std::uint8_t* interleaved)
{
    const std::size_t color_bytes = static_cast<std::size_t>(image_.channels) * image_.sample_bytes();
    std::uint8_t* const color = color_at(x, y);
    if (alpha_ == nullptr) {
        std::memcpy(color, interleaved, count * color_bytes);
        return;
    }
    std::uint8_t* const alpha = alpha_at(x, y);
    if (image_.bits == 16 && image_.channels == 3)
        split_pixels<6, 2>(interleaved, count, color, alpha);
    else if (image_.bits == 16)
        split_pixels<2, 2>(interleaved, count, color, alpha);
    else if (image_.channels == 3)
        split_rgba(interleaved, count, color, alpha);
    else
        split_pixels<1, 1>(interleaved, count, color, alpha);
}

void ImageBuilder::put_plane(int plane, std::int32_t x, std::int32_t y, std::size_t count, const std::uint8_t* samples)
{
    const std::size_t size = image_.sample_bytes();
    if (plane == image_.channels) {
        std::memcpy(alpha_at(x, y), samples, count * size);
        return;
    }
    std::uint8_t* const color = color_at(x, y) + static_cast<std::size_t>(plane) * size;
    const std::size_t step = static_cast<std::size_t>(image_.channels) * size;
    if (size == 2)
        spread_samples<2>(samples, count, color, step);
    else
        spread_samples<1>(samples, count, color, step);
}

Image ImageBuilder::finish(bool is_premultiplied)
{
    if (alpha_ == nullptr)
        return std::move(image_);
    const auto channels = static_cast<std::size_t>(image_.channels);
    if (is_premultiplied && image_.bits == 16)
        divide_by_alpha<std::uint16_t>(image_.data.get(), alpha_.get(), image_.pixels(), channels);
    else if (is_premultiplied)
        divide_by_alpha<std::uint8_t>(image_.data.get(), alpha_.get(), image_.pixels(), channels);
    image_.mask = image_.bits == 16 ? coverage_of_16_bit(std::move(alpha_), image_.pixels()) : std::move(alpha_);
    return std::move(image_);
}

Block coverage_of_16_bit(Block alpha, std::size_t pixels)
{
    for (std::size_t i = 0; i < pixels; ++i) {
        std::uint16_t wide;
        std::memcpy(&wide, alpha.get() + 2 * i, 2);
        const unsigned rounded = (wide + 128u) / 257u;
        alpha[i] = static_cast<std::uint8_t>(rounded == 0 && wide != 0 ? 1u : rounded);
    }
    if (void* const shorter = std::realloc(alpha.get(), pixels)) {
        (void)alpha.release();
        alpha.reset(static_cast<std::uint8_t*>(shorter));
    }
    return alpha;
}

Image apply_orientation(Image image, int orientation, const std::string& file)
{
    if (orientation <= 1 || orientation > 8)
        return image;
    const Orientation way = kOrientations[orientation - 1];
    const std::int32_t width = way.is_transposed ? image.height : image.width;
    const std::int32_t height = way.is_transposed ? image.width : image.height;
    Image turned = make_image(width, height, image.channels, image.bits, file);
    turned.position = image.position;
    turned.profile = std::move(image.profile);
    if (image.mask != nullptr) {
        turned.mask = allocate_block(image.pixels(), file);
        turned.has_alpha = true;
    }
    const std::size_t size = static_cast<std::size_t>(image.channels) * image.sample_bytes();
    std::size_t to = 0;
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x, ++to) {
            const std::int32_t across = way.is_transposed ? y : x;
            const std::int32_t down = way.is_transposed ? x : y;
            const std::int32_t from_x = way.flips_x ? image.width - 1 - across : across;
            const std::int32_t from_y = way.flips_y ? image.height - 1 - down : down;
            const std::size_t from = static_cast<std::size_t>(from_y) * static_cast<std::size_t>(image.width) +
                                     static_cast<std::size_t>(from_x);
            std::memcpy(turned.data.get() + to * size, image.data.get() + from * size, size);
            if (image.mask != nullptr)
                turned.mask[to] = image.mask[from];
        }
    return turned;
}

} // namespace panoval::image
