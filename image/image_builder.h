// SPDX-License-Identifier: MIT
// Where decoded samples become an Image: alpha is taken out of the interleaved samples, and at the end made a mask.
#pragma once

#include "image/image.h"

#include <string>

namespace panoval::image
{

class ImageBuilder
{
public:
    // Checks nothing: info's size has passed check_image_size.
    ImageBuilder(const std::string& file, const ImageInfo& info);

    // count pixels from (x, y) on: channels samples each, then alpha if there is any; 16 bit in this machine's order.
    void put(std::int32_t x, std::int32_t y, std::size_t count, const std::uint8_t* interleaved);

    // The same for one sample of each pixel: 0 to channels - 1 a colour, channels the alpha.
    void put_plane(int plane, std::int32_t x, std::int32_t y, std::size_t count, const std::uint8_t* samples);

    // Hands the picture over. is_premultiplied: the colours were stored multiplied with their alpha.
    Image finish(bool is_premultiplied = false);

private:
    std::uint8_t* color_at(std::int32_t x, std::int32_t y);
    std::uint8_t* alpha_at(std::int32_t x, std::int32_t y);

    Image image_;
    Block alpha_; // as many bits as the samples
};

// A plane of 16-bit alpha as a mask of 8 bit, rounded to nearest, except that no covered pixel becomes uncovered.
// Works in place.
Block coverage_of_16_bit(Block alpha, std::size_t pixels);

// The same picture as a TIFF orientation tag of 1 to 8 wants it seen; 1 changes nothing.
Image apply_orientation(Image image, int orientation, const std::string& file);

} // namespace panoval::image
