// SPDX-License-Identifier: MIT
// What is done to a picture's samples before they enter the panorama: a gain for each channel, and a radial falloff of
// the lens (vignetting) that is taken out. Corrected samples are floats in the picture's own sample units, not rounded
// and not clamped.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/pictures/picture_view.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/pictures/scaled_rows.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// Brightness at q = (r / R)^2 relative to the picture's centre, r the distance from the centre, R that of the corners:
// 1 + c[0] q + c[1] q^2 + c[2] q^3.
struct Falloff {
    std::array<double, 3> c{};

    double at(double q) const { return 1.0 + q * (c[0] + q * (c[1] + q * c[2])); }
    bool is_flat() const { return c[0] == 0 && c[1] == 0 && c[2] == 0; }
    friend bool operator==(const Falloff&, const Falloff&) = default;
};

using ChannelGains = std::array<double, 4>; // unused channels hold 1

struct Corrections {
    std::vector<ChannelGains> gains; // of each picture
    Falloff falloff;                 // the same for all pictures

    static Corrections none(const Layout& layout)
    {
        return {std::vector<ChannelGains>(layout.pictures.size(), ChannelGains{1, 1, 1, 1}), {}};
    }
    friend bool operator==(const Corrections&, const Corrections&) = default;
};

// The factors of a picture where there is no falloff.
ChannelFactors factors_of(const Corrections& corrections, std::size_t picture);

// Row y (counted from the first) of a block or view, corrected: rect.width * channels floats. Each sample is
// float(sample * float(gain / falloff)), one product in single precision, so that every caller gets the same bits.
//
// size  the picture's whole width and height, whose middle is the falloff's centre
void correct_row(const Corrections& corrections, std::size_t picture, const Rect& size, const PixelBlock& block,
                 std::int64_t y, float* out);
void correct_row(const Corrections& corrections, std::size_t picture, const Rect& size, const PictureView& view,
                 std::int64_t y, float* out);

} // namespace panoval::mosaic
