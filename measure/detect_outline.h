// SPDX-License-Identifier: MIT
// Lines of equal level through a smoothed picture, which run around targets half way up their edges.
#pragma once

#include "measure/detect_edges.h"

#include <cstdint>
#include <vector>

namespace panoval::measure
{

struct OutlinePoint {
    double x; // pixels of the scale
    double y;
};

// What is brighter lies to the left of the direction of travel (on a picture whose y grows downward, as seen).
struct LevelLine {
    std::vector<OutlinePoint> points;
    bool is_closed = false;
};

// Follows the line of that level through the edge at an edge pixel; it ends where it closes, where it leaves the
// picture, and where the picture has been flat for a while. False where no such line passes the pixel.
bool follow_level(const Scale& scale, std::int32_t x, std::int32_t y, double level, LevelLine& line);

// Marks the line's edge pixels as seen. With `wide` also those beside them whose edge has the same direction.
void mark_seen(Scale& scale, const LevelLine& line, bool wide);

} // namespace panoval::measure
