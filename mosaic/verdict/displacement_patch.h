// SPDX-License-Identifier: MIT
// A piece of one picture as brightness, prepared for comparing places: noise smoothed a little, slow changes of
// brightness taken out.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/base/rect.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// What pixels come from.
struct PictureSource {
    const Layout& layout;
    const Corrections& corrections;
    PictureReader& reader;

    Rect size(std::size_t picture) const
    {
        const Rect& rect = layout.pictures[picture].rect;
        return {0, 0, rect.width, rect.height};
    }
    double levels_per_sample() const { return 255.0 / static_cast<double>(layout.largest_sample()); }
};

struct Patch {
    Rect rect;                       // in a frame that the caller chooses
    std::vector<float> value;        // levels of 255; 0 where not known
    std::vector<float> smoothed;     // of a prepared patch: the values before slow changes were taken out
    std::vector<std::uint8_t> known; // 1, or 0 where the picture covers too little around a pixel
    Rect area;                       // of a prepared patch: what counted for slow changes
    double noise = 0;                // variance of a pixel's brightness as read, before smoothing

    std::size_t width() const { return static_cast<std::size_t>(rect.width); }
    std::size_t height() const { return static_cast<std::size_t>(rect.height); }
};

// How much of a pixel's noise variance smooth() leaves.
inline constexpr double kNoiseLeft = 0.140625;

// Smooths with 1 2 1 both ways, and subtracts the mean of the window of `reach` pixels around each one, of which only
// those in `area` count. Patches to compare need the same area, or slopes would look different at their edges.
void prepare_patch(Patch& patch, std::int64_t reach, const Rect& area);

// Prepares once more, without the pixels that have been made unknown since.
void prepare_again(Patch& patch, std::int64_t reach);

// What a prepared patch shows beyond noise, a variance: the covariance of pixels so far apart that smoothing has not
// spread one's noise to the other. Fine detail counts in part.
double seen_beyond_noise(const Patch& patch);

// Whether what a prepared patch shows changes at every eighth row or column above all, as faint things do that were
// coded in squares: JPEG leaves nothing but the mean of a square. Such squares match each other anywhere.
bool shows_coding(const Patch& patch);

// Brightness of a piece of a picture: rect in the picture's own pixels, inside it. Corrected, in levels of 255.
Patch read_brightness(const PictureSource& source, std::size_t picture, const Rect& rect);

} // namespace panoval::mosaic
