// SPDX-License-Identifier: MIT
// Pictures that lie at each other's places, as files with wrong names do.
#pragma once

#include "mosaic/verdict/displacement_patch.h"
#include "mosaic/verdict/verdict.h"

#include <array>
#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

// Pairs of pictures of one size whose overlaps do not fit as they are and all fit with the two exchanged. Each picture
// is in one pair at most; pairs and their members ascend.
//
// verdict  with its overlaps measured, not yet put into words
std::vector<std::array<std::size_t, 2>> find_swaps(const PictureSource& source, const std::vector<Overlap>& overlaps,
                                                   const Verdict& verdict);

} // namespace panoval::mosaic
