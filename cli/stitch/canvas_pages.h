// SPDX-License-Identifier: MIT
// The system's part in a fresh canvas. Its pages are first read, then written: each would be asked for twice, and each
// time all threads of the program would be told. Asked for together, they cost what clearing them does.
#pragma once

#include "cli/stitch/canvas_tiles.h"
#include "cli/stitch/panorama_plan.h"

#include <cstdint>

namespace panoval::cli
{

// Gets the pages of a blender that is open for the tile, where pictures cover most of it; where they leave much of it
// empty, its pages are better left to those who write them.
void provide_canvas(const PanoramaPlan& plan, const CanvasTile& tile, const MultiBandBlender& blender);

// How many columns of a tile any picture covers somewhere in these rows of the canvas, the last one excluded.
std::int64_t covered_columns(const PanoramaPlan& plan, const CanvasSpan& columns, std::int64_t first, std::int64_t end);

} // namespace panoval::cli
