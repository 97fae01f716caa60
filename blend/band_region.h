// SPDX-License-Identifier: MIT
// Where an image of a multi-band panorama lies: the part of it on the canvas, and around it the margin that its bands
// spread into, aligned so that every level lands on whole pixels.
#pragma once

#include "panoval.h"

#include <cstdint>

namespace panoval
{

struct BandRegion {
    Roi image;  // the visible part, in the image's own pixels; without area if there is none
    Roi canvas; // that part with its margin, in canvas pixels; multiples of 2 to the power of the number of bands
    std::int32_t left; // margin beside the visible part, and above it
    std::int32_t top;
};

// canvas  the padded canvas in panorama coordinates
BandRegion find_band_region(const Roi& canvas, std::int32_t num_bands, Point tl, Size image_size);

} // namespace panoval
