// SPDX-License-Identifier: MIT
#include "image/image.h"

#include "image/failure.h"
#include "image/text.h"

#include <bit>
#include <cstring>

namespace panoval::image
{

static_assert(std::endian::native == std::endian::little, "the library's 16-bit samples are little-endian");

namespace
{

template <class Sample>
void mix_to_grey(const std::uint8_t* colour, std::uint8_t* grey, std::size_t pixels)
{
    for (std::size_t i = 0; i < pixels; ++i) {
        Sample rgb[3];
        std::memcpy(rgb, colour + i * sizeof rgb, sizeof rgb);
        const auto mixed = static_cast<Sample>((299u * rgb[0] + 587u * rgb[1] + 114u * rgb[2] + 500u) / 1000u);
        std::memcpy(grey + i * sizeof mixed, &mixed, sizeof mixed);
    }
}

} // namespace

Block allocate_block(std::size_t bytes, const std::string& file)
{
    Block block(static_cast<std::uint8_t*>(std::malloc(bytes == 0 ? 1 : bytes)));
    if (block == nullptr)
        fail_memory(file, bytes);
    return block;
}

void need_memory(std::size_t bytes, const std::string& file)
{
    allocate_block(bytes, file);
}

Image make_image(std::int32_t width, std::int32_t height, int channels, int bits, const std::string& file)
{
    Image image;
    image.width = width;
    image.height = height;
    image.channels = channels;
    image.bits = bits;
    image.data = allocate_block(image.bytes(), file);
    return image;
}

void ensure_mask(Image& image, const std::string& file)
{
    if (image.mask != nullptr)
        return;
    image.mask = allocate_block(image.pixels(), file);
    std::memset(image.mask.get(), 255, image.pixels());
    image.has_alpha = true;
}

Mat borrow_mat(const Image& image)
{
    const auto size = static_cast<std::int32_t>(image.bytes());
    return {image.width, image.height, image.channels,  static_cast<std::int32_t>(image.sample_bytes()),
            size,        size,         image.data.get()};
}

std::uint32_t sample_at(const std::uint8_t* samples, int bits, std::size_t index)
{
    if (bits == 8)
        return samples[index];
    std::uint16_t value = 0;
    std::memcpy(&value, samples + 2 * index, sizeof value);
    return value;
}

void convert_depth(Image& image, int bits, const std::string& file)
{
    if (image.bits == bits)
        return;
    const std::size_t count = image.samples();
    Block converted = allocate_block(bits == 16 ? 2 * count : count, file);
    if (bits == 16)
        widen_samples(image.data.get(), count, converted.get());
    else
        narrow_samples(image.data.get(), count, converted.get());
    image.data = std::move(converted);
    image.bits = bits;
}

void convert_to_grey(Image& image, const std::string& file)
{
    if (image.channels == 1)
        return;
    Block grey = allocate_block(image.pixels() * image.sample_bytes(), file);
    if (image.bits == 16)
        mix_to_grey<std::uint16_t>(image.data.get(), grey.get(), image.pixels());
    else
        mix_to_grey<std::uint8_t>(image.data.get(), grey.get(), image.pixels());
    image.data = std::move(grey);
    image.channels = 1;
}

void convert_to_colour(Image& image, const std::string& file)
{
    if (image.channels == 3)
        return;
    const std::size_t size = image.sample_bytes();
    Block colour = allocate_block(3 * image.bytes(), file);
    for (std::size_t i = 0; i < image.pixels(); ++i)
        for (std::size_t c = 0; c < 3; ++c)
            std::memcpy(colour.get() + (3 * i + c) * size, image.data.get() + i * size, size);
    image.data = std::move(colour);
    image.channels = 3;
}

std::string describe(const ImageInfo& info)
{
    return concat(info.width, " x ", info.height, " pixels, ", info.channels,
                  info.channels == 1 ? " channel" : " channels", info.has_alpha ? " and alpha, " : ", ", info.bits,
                  " bit");
}

} // namespace panoval::image
