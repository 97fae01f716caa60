// SPDX-License-Identifier: MIT
// Seams half-way between the pictures' edges: each pixel belongs to the picture in which it lies farthest from the edge
// of what the picture covers, of equals to that of the lower number.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/base/progress.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/seams/seam_map.h"

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

// Chamfer distances of masks: costs of a straight and of a diagonal step (Borgefors, Distance transformations in
// digital images, 1986). The pixel at a picture's border lies one straight step from the outside.
inline constexpr std::int32_t kStraightStep = 5;
inline constexpr std::int32_t kDiagonalStep = 7;

// About the most bytes that the search takes for itself.
std::size_t nearest_search_bytes(const Layout& layout);

SeamMap find_nearest_seams(const Layout& layout, PictureReader& reader, std::size_t threads, Progress& progress);

} // namespace panoval::mosaic
