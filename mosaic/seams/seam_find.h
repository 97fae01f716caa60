// SPDX-License-Identifier: MIT
// Decides which picture each pixel of the panorama belongs to.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/base/progress.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/seams/seam_cells.h"
#include "mosaic/seams/seam_map.h"

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

enum class SeamMode {
    Nearest, // to the picture in which the pixel lies farthest from the edge of what is covered
    Optimal  // then moved to where pictures differ least once they are corrected
};

struct SeamOptions {
    SeamMode mode = SeamMode::Optimal;
    std::size_t memory = std::size_t{512} << 20; // bytes that it may take for itself, beside the result
    std::size_t threads = 1;
    std::int64_t cell = 0; // side in pixels of what pictures are reduced to at first: a power of two to 128; 0 = chosen
};

// About the most bytes that the search takes for itself.
std::size_t seam_search_bytes(const Layout& layout, const std::vector<Overlap>& overlaps, const SeamOptions& options);

// Whether the search may begin with the pictures before they are corrected, by what EarlyReduction does.
bool may_reduce_early(const std::vector<Overlap>& overlaps, const SeamOptions& options);
CellGrid seam_grid(const Layout& layout, const std::vector<Overlap>& overlaps, const SeamOptions& options);

// Every covered pixel gets a picture that covers it; the others are nobody's. The result depends on nothing but the
// pictures, their places and corrections, and the mode. Throws an Error (Failure::Memory) that names the least memory
// where the options allow less.
//
// early  of the same layout on seam_grid(), where all pictures have been reduced already; null where they have not
SeamMap find_seams(const Layout& layout, const std::vector<Overlap>& overlaps, const Corrections& corrections,
                   PictureReader& reader, const SeamOptions& options, Progress& progress,
                   EarlyReduction* early = nullptr);

} // namespace panoval::mosaic
