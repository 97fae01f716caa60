// SPDX-License-Identifier: MIT
// How bright each picture was exposed, from what it shows in common with its neighbours. One pass over the overlaps.
#pragma once

#include "mosaic/gain_solve.h"
#include "mosaic/pixel_block.h"
#include "mosaic/progress.h"

#include <vector>

namespace panoval::mosaic
{

// overlaps  all of the layout's, as find_overlaps gives them
GainStatistics measure_overlaps(const Layout& layout, const std::vector<Overlap>& overlaps, PictureReader& reader,
                                const GainOptions& options, Progress& progress);

} // namespace panoval::mosaic
