// SPDX-License-Identifier: MIT
// The 3 x 3 chamfer distance transform in two steps, for callers that use each row of distances while it is in the
// cache: the forward pass over the whole mask, then the backward pass row by row from the last row to the first.
#pragma once

#include "panoval.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

// A transform whose forward pass is done. Distances are integers in units of 1/65536 pixel.
struct ChamferPass {
    std::int32_t* frame = nullptr; // the scratch: (width + 2) x (height + 2), pixel (x, y) at (x + 1, y + 1)
    std::int32_t width = 0;        // pixels, not negative
    std::int32_t height = 0;       // rows, not negative; 0 also when there is no scratch
    std::int32_t straight = 0;     // cost of a horizontal or vertical step
    std::int32_t diagonal = 0;     // cost of a diagonal step
    bool scan_is_exact = false;    // costs and size let no sum leave 32 bits
    bool diagonal_is_dear = false; // at least two straight steps
};

// Resets the scratch, draws its frame and runs the forward pass. Without memory the scratch is empty and no row is left
// to finish.
ChamferPass begin_distance_transform(const Matb& src, Matf& scratch, const float* metrics) noexcept;

// Finishes row y of the scratch and writes its width distances in pixels. Row y + 1 must be finished.
void finish_distance_row(const ChamferPass& pass, std::int32_t y, float* distances) noexcept;

} // namespace panoval
