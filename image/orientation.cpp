// SPDX-License-Identifier: MIT
#include "image/orientation.h"

#include <cstring>

namespace panoval::image
{

namespace
{

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

Image apply_orientation(Image image, int orientation, const std::string& file)
{
    if (orientation <= 1 || orientation > 8)
        return image;
    const Orientation way = kOrientations[orientation - 1];
    const std::int32_t width = way.is_transposed ? image.height : image.width;
    const std::int32_t height = way.is_transposed ? image.width : image.height;
    Image turned = make_image(width, height, image.channels, image.bits, file);
    turned.position = image.position;
    turned.metadata = std::move(image.metadata);
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
