// SPDX-License-Identifier: MIT
// From labels of cells to the seams themselves: what covers each pixel decides, and near the seams the pixels do.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/base/progress.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/seams/seam_map.h"
#include "mosaic/seams/seam_reduced.h"

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

// Whether each picture has pixels that it must keep.
std::vector<bool> find_keepers(const Layout& layout, PictureReader& reader);

// About the most bytes that it takes.
std::size_t pixel_search_bytes(const Layout& layout, const CellGrid& grid, std::size_t threads);

SeamMap find_pixel_seams(const Layout& layout, const Corrections& corrections, const CellCosts& costs,
                         const CellLabels& labels, const std::vector<bool>& keepers, PictureReader& reader,
                         std::size_t threads, Progress& progress, double progress_before);

} // namespace panoval::mosaic
