// SPDX-License-Identifier: MIT
// Gaussian and Laplacian pyramids of whole images (Burt and Adelson, The Laplacian pyramid as a compact image code,
// 1983). Level i + 1 has (w + 1) / 2 by (h + 1) / 2 pixels of level i. Images have at least one pixel.
//
// These are for whoever needs a level as a whole. The multi-band blender does not: it sends rows through the same
// filters and keeps no level.
#pragma once

#include "panoval.h"

#include <cstdint>

namespace panoval
{

// Reduces an image to half its size with the 5 x 5 kernel 1 4 6 4 1.
//
// dst   sized by the caller to (width + 1) / 2 by (height + 1) / 2 and the channels of src; left empty without memory
// rule  the border rule beyond the edges; what it leaves outside counts as 0
void pyr_down(const Matf* src, Matf* dst, std::int32_t rule);

// Expands an image to twice its size.
//
// dst  sized by the caller to twice the size of src, or one less in either direction, and its channels; left empty
//      without memory
void pyr_up(const Matf* src, Matf* dst);

// Splits an image into bands: levels 0 to num_bands - 1 hold what each reduction loses, the last level the rest.
//
// num_bands  at least 1
// pyr        num_bands + 1 zeroed containers, which are reset; all left empty without memory
void create_laplace_pyr(const Matf* src, std::int32_t num_bands, Matf* pyr);

} // namespace panoval
