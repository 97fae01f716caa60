// SPDX-License-Identifier: MIT
// Things that stand inside an overlap in one picture and, at least in part, outside it in the other one. What is
// outside is seen in any case, so the place inside should come from the other picture, which shows what is behind the
// thing.
#pragma once

#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_swap.h"
#include "mosaic/seams/seam_things.h"

#include <vector>

namespace panoval::mosaic
{

// Where the other picture is looked through for what stands at a pair's places; its copy needs features there.
std::vector<PicturePart> parts_around(const CellCosts& costs, const PicturePair& pair,
                                      const std::vector<ThingPlace>& places);

std::vector<SwapPull> pull_from_things_outside(const CellCosts& costs, const PicturePair& pair,
                                               const std::vector<ThingPlace>& places);

} // namespace panoval::mosaic
