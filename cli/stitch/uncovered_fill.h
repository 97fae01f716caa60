// SPDX-License-Identifier: MIT
// Colours for pixels that a mask leaves out.
#pragma once

#include "cli/base/image_names.h"
#include "image/image.h"

namespace panoval::cli
{

// Goes on with the covered colours where the mask is 0: along each row between the covered pixels on both sides, and
// into rows without any from the nearest one. What a file holds there (black, as a rule) would otherwise shine through
// in the coarse bands of a blended panorama. A picture without a covered pixel stays as it is.
void fill_uncovered(Image& image);

} // namespace panoval::cli
