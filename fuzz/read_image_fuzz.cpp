// SPDX-License-Identifier: MIT
// Feeds files of any bytes to the program's picture readers: each is read as its first bytes say, PNG, TIFF, JPEG or
// PNM, and must either give all of its layers or fail with a message.
#include "fuzz/memory_file.h"
#include "image/exif.h"
#include "image/failure.h"
#include "image/image_read.h"
#include "image/row_reader.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace
{

using panoval::fuzz::file_of;
using panoval::image::Image;
using panoval::image::ImageInfo;

constexpr std::size_t kMaxSamples = 1 << 20; // larger pictures would take all the time
constexpr std::size_t kMaxLayers = 8;

void require(bool condition)
{
    if (!condition)
        std::abort();
}

// Rows by themselves are those of the picture, whatever their order.
void read_rows_backwards(const std::string& name, std::size_t layer, const Image& image)
{
    const auto reader = panoval::image::open_rows(name, layer);
    require(describe(reader->info()) == describe(image));
    const std::size_t row_bytes = image.bytes() / static_cast<std::size_t>(image.height);
    std::vector<std::uint8_t> samples(row_bytes);
    std::vector<std::uint8_t> mask(static_cast<std::size_t>(image.width));
    std::int32_t step = image.height > 64 ? image.height / 3 : 1;
    for (std::int32_t y = image.height - 1; y >= 0; y -= step) {
        reader->read_rows(y, 1, {samples.data(), samples.size(), mask.data(), mask.size()});
        require(std::memcmp(samples.data(), image.data.get() + static_cast<std::size_t>(y) * row_bytes, row_bytes) ==
                0);
        if (image.mask != nullptr)
            require(std::memcmp(mask.data(), &image.mask[static_cast<std::size_t>(y) * mask.size()], mask.size()) == 0);
    }
}

void read_layer(const std::string& name, std::size_t layer, const ImageInfo& info)
{
    const Image image = panoval::image::read_image(name, layer);
    require(describe(image) == describe(info));
    require((image.mask != nullptr) == info.has_alpha);
    volatile std::uint8_t sum = 0; // every byte must be there
    for (std::size_t i = 0; i < image.bytes(); ++i)
        sum = static_cast<std::uint8_t>(sum + image.data[i]);
    read_rows_backwards(name, layer, image);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string& name = file_of(data, size);
    (void)panoval::image::parse_exif(data, size);
    try {
        const auto layers = panoval::image::probe_image(name);
        require(!layers.empty());
        for (std::size_t i = 0; i < layers.size() && i < kMaxLayers; ++i)
            if (layers[i].samples() <= kMaxSamples)
                read_layer(name, i, layers[i]);
    } catch (const panoval::image::Failure& error) {
        require(std::string(error.what()).find(": found ") != std::string::npos);
    }
    return 0;
}
