// SPDX-License-Identifier: MIT
// Gaussian and Laplacian pyramids of whole images (Burt and Adelson, The Laplacian pyramid as a compact image code,
// 1983). Level i + 1 has (w + 1) / 2 by (h + 1) / 2 pixels of level i. Images have at least one pixel.
//
// The blenders call none of these: they send rows through the same filters (blend/pyramid_rows.h) and keep no level.
// The operations on whole levels are kept for what is said with each.
#pragma once

#include "panoval.h"

#include <cstdint>

namespace panoval
{

// Reduces an image to half its size with the 5 x 5 kernel 1 4 6 4 1.
//
// dst   sized by the caller to (width + 1) / 2 by (height + 1) / 2 and the channels of src; left empty without memory
// rule  the border rule beyond the edges; what it leaves outside counts as 0
//
// Kept because it alone knows every border rule, and as the measure that reduction by rows is compared with.
void pyr_down(const Matf* src, Matf* dst, std::int32_t rule);

// Expands an image to twice its size.
//
// dst  sized by the caller to twice the size of src, or one less in either direction, and its channels; left empty
//      without memory
//
// Kept as the inverse step: with pyr_down it takes a picture apart and puts it together again.
void pyr_up(const Matf* src, Matf* dst);

// Splits an image into bands: levels 0 to num_bands - 1 hold what each reduction loses, the last level the rest.
//
// num_bands  at least 1
// pyr        num_bands + 1 zeroed containers, which are reset; all left empty without memory
//
// Kept for looking at a picture's bands one by one, which streams of rows never hold whole.
void create_laplace_pyr(const Matf* src, std::int32_t num_bands, Matf* pyr);

} // namespace panoval
