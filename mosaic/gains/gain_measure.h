// SPDX-License-Identifier: MIT
// How bright each picture was exposed, from what it shows in common with its neighbours. One pass over the overlaps.
#pragma once

#include "mosaic/base/progress.h"
#include "mosaic/gains/gain_solve.h"
#include "mosaic/pictures/pixel_block.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace panoval::mosaic
{

// What else is to be done with a picture while it is being read. Called once for each, for several at a time.
using VisitPicture = std::function<void(std::size_t picture)>;

// overlaps  all of the layout's, as find_overlaps gives them
// visit     called for each picture when its overlaps are; may be empty
GainStatistics measure_overlaps(const Layout& layout, const std::vector<Overlap>& overlaps, PictureReader& reader,
                                const GainOptions& options, Progress& progress, const VisitPicture& visit = {});

} // namespace panoval::mosaic
