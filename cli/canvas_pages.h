// SPDX-License-Identifier: MIT
// The system's part in a fresh canvas. Its pages are first read, then written: each would be asked for twice, and each
// time all threads of the program would be told. Asked for together, they cost what clearing them does.
#pragma once

#include "cli/canvas_strips.h"
#include "cli/panorama_plan.h"

#include <cstdint>

namespace panoval::cli
{

// Gets the pages of a blender that is open for the strip, where pictures cover most of it; where they leave much of it
// empty, its pages are better left to those who write them.
void provide_canvas(const PanoramaPlan& plan, const CanvasStrip& strip, const MultiBandBlender& blender);

// How many columns of the canvas any picture covers somewhere in these rows, the last one excluded.
std::int64_t covered_columns(const PanoramaPlan& plan, std::int64_t first, std::int64_t end);

} // namespace panoval::cli
