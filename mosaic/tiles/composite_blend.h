// SPDX-License-Identifier: MIT
// A tile of a panorama with seams: the composite, and the correction that lets differences at the seams fade.
#pragma once

#include "mosaic/base/band_window.h"
#include "mosaic/base/layout.h"
#include "mosaic/base/level_windows.h"
#include "mosaic/base/plane.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/seams/label_runs.h"
#include "mosaic/seams/seam_map.h"
#include "mosaic/tiles/covered_share.h"

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

// Memory that a tile takes and the next one uses again.
struct CompositeScratch {
    LabelRuns labels;
    PixelBlock block;
    Plane<float> composite;
    TileLevels levels;
    BandWindow bands;
    CoveredShare covered;
};

void blend_composite(const CompositeJob& job, CompositeScratch& scratch);

// Of the canvas, what the pixels of a tile depend on; at most farthest_reach() beyond it.
Rect composite_reach(const Rect& tile, int bands);

} // namespace panoval::mosaic
