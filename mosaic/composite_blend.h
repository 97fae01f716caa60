// SPDX-License-Identifier: MIT
// A tile of a panorama with seams: the composite, and the correction that lets differences at the seams fade.
#pragma once

#include "mosaic/corrections.h"
#include "mosaic/layout.h"
#include "mosaic/level_windows.h"
#include "mosaic/pixel_block.h"
#include "mosaic/seam_map.h"

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

// What a tile is made from and where it goes.
struct CompositeJob {
    const Layout& layout;
    const Corrections& corrections;
    const SeamMap& seams;
    PictureReader& reader;
    int bands;
    int output_bits;
    Rect tile;
    std::uint8_t* samples;
    std::size_t row_bytes;
    std::uint8_t* coverage; // or null
    std::size_t coverage_row_bytes;
};

void blend_composite(const CompositeJob& job);

// Of the canvas, what the pixels of a tile depend on.
Rect composite_reach(const Rect& tile, int bands);

} // namespace panoval::mosaic
