// SPDX-License-Identifier: MIT
// Things that stand at one place of an overlap in the first picture and at another place in the second one. Whoever
// gets one of the places should get the other one, too, so that the thing is there once.
#pragma once

#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_swap.h"

#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// cells: a rectangle of cells of `coarse`, each of factor x factor of the costs' cells; cell_costs: their costs
std::vector<SwapTie> find_moved_things(const CellCosts& costs, const PicturePair& pair, const CellGrid& coarse,
                                       std::int64_t factor, const Rect& cells,
                                       const std::vector<std::int32_t>& cell_costs);

} // namespace panoval::mosaic
