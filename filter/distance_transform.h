// SPDX-License-Identifier: MIT
// The 3 x 3 chamfer distance transform in two steps, for callers that use each row of distances while it is in the
// cache: the forward pass over the whole mask, then the backward pass row by row from the last row to the first.
#pragma once

#include "filter/chamfer_rows.h"
#include "panoval.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

// A transform whose forward pass is done.
struct ChamferPass {
    std::int32_t* frame = nullptr; // the scratch: (width + 2) x (height + 2), pixel (x, y) at (x + 1, y + 1)
    std::int32_t width = 0;        // pixels, not negative
    std::int32_t height = 0;       // rows, not negative; 0 also when there is no scratch
    bool exact = false;            // no sum leaves 32 bits
    bool in_keys = false;          // the forward pass has left 16-bit keys
    ChamferSteps<std::int32_t> steps = {};
    ChamferSteps<std::int16_t> key_steps = {};
};

// Resets the scratch and runs the forward pass. The scratch is complete once every row is finished. Without memory it
// is empty and no row is left to finish.
ChamferPass begin_distance_transform(const Matb& src, Matf& scratch, const float* metrics) noexcept;

// Finishes row y of the scratch and writes its width distances in pixels. Row y + 1 must be finished.
void finish_distance_row(const ChamferPass& pass, std::int32_t y, float* distances) noexcept;

} // namespace panoval
