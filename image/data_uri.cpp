// SPDX-License-Identifier: MIT
#include "image/data_uri.h"

#include <png.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace panoval::image
{

namespace
{

std::vector<std::uint8_t> png_of(const Image& image)
{
    png_image png = {};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image.width);
    png.height = static_cast<png_uint_32>(image.height);
    png.format = image.channels == 3 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
    png_alloc_size_t bytes = PNG_IMAGE_PNG_SIZE_MAX(png);
    std::vector<std::uint8_t> file(bytes);
    if (png_image_write_to_memory(&png, file.data(), &bytes, 0, image.data.get(), 0, nullptr) == 0)
        throw std::runtime_error(std::string("libpng: ") + png.message);
    file.resize(bytes);
    return file;
}

std::string base64(const std::vector<std::uint8_t>& bytes)
{
    static const char* const kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = (group << 8) | (k < count ? bytes[i + k] : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= count ? kAlphabet[(group >> (18 - 6 * k)) & 63u] : '=';
    }
    return text;
}

} // namespace

std::string picture_data_uri(const Image& image)
{
    return "data:image/png;base64," + base64(png_of(image));
}

} // namespace panoval::image
