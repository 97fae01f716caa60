// SPDX-License-Identifier: MIT
// How bright each picture was exposed, from what it shows in common with its neighbours. One pass over the overlaps.
#pragma once

#include "mosaic/base/progress.h"
#include "mosaic/gains/gain_solve.h"
#include "mosaic/pictures/pixel_block.h"

#include <vector>

namespace panoval::mosaic
{

// overlaps  all of the layout's, as find_overlaps gives them
GainStatistics measure_overlaps(const Layout& layout, const std::vector<Overlap>& overlaps, PictureReader& reader,
                                const GainOptions& options, Progress& progress);

} // namespace panoval::mosaic
