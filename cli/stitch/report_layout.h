// SPDX-License-Identifier: MIT
// The drawing of a report's layout: pictures with their numbers, overlaps by their verdict, seams.
#pragma once

#include "cli/stitch/panorama_job.h"

#include <string>
#include <vector>

namespace panoval::cli
{

// Of the word of an overlap or of the panorama.
const char* color_of(const Json& overlap);
int badness(const Json& overlap); // 0 good, 1 look, 2 bad

// worst_first  the verdict's overlaps; drawn on top, and their pictures have their numbers before others
std::string layout_drawing(const PanoramaJob& job, const std::vector<const Json*>& worst_first);

} // namespace panoval::cli
