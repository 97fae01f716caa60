// SPDX-License-Identifier: MIT
#include "image/data_uri.h"

#include "image/base64.h"

#include <png.h>

#include <new>
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
    const int is_written = png_image_write_to_memory(&png, file.data(), &bytes, 0, image.data.get(), 0, nullptr);
    if (is_written == 0)        // COUNT_EXCL_BRANCH: as below
        throw std::bad_alloc(); // COUNT_EXCL: libpng's heap; the buffer is as large as any such picture
    file.resize(bytes);
    return file;
}

} // namespace

std::string picture_data_uri(const Image& image)
{
    return "data:image/png;base64," + base64_of(png_of(image));
}

} // namespace panoval::image
