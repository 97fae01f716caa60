// SPDX-License-Identifier: MIT
// The library's routines for single pictures, from picture to picture. What they take is checked by the caller.
#pragma once

#include "cli/base/image_names.h"
#include "image/image.h"

#include <cstdint>
#include <string>

namespace panoval::cli
{

// A picture made of 8-bit grey, and the number that belongs to it.
struct FilteredPicture {
    Image image;
    double value = 0;
};

Image smooth_picture(const Image& grey, const std::string& file);

// The gradient's magnitude, stretched so that the largest, which is the value, becomes white. At least 2 x 2 pixels.
FilteredPicture gradient_picture(const Image& grey, const std::string& file);

// The distance of every pixel to the nearest black one, stretched in the same way; the value is the largest distance in
// pixels. At least one pixel must be black.
FilteredPicture distance_picture(const Image& grey, float straight_cost, float diagonal_cost, const std::string& file);

// Black up to the level and white above it. Without a level (below 0) the one that separates best is taken; the value
// is the level, or -1 where no level separates anything.
FilteredPicture threshold_picture(const Image& grey, std::int32_t level, const std::string& file);

struct EdgeSettings {
    double sigma = 1.0;
    double low = 0.4;
    double high = 0.9;
};

// Black edges on white; the value is their number of pixels.
FilteredPicture edge_picture(const Image& grey, const EdgeSettings& settings, const std::string& file);

} // namespace panoval::cli
