// SPDX-License-Identifier: MIT
// Pictures of a measurement: fitted outlines, centres, numbers and ring features drawn over the measured picture.
#pragma once

#include "cli/base/image_names.h"
#include "cli/ellipses/ellipse_measure.h"
#include "image/image.h"

#include <string>

namespace panoval::cli
{

// A colour picture of the same size.
Image draw_overlay(const Image& grey, const Measurement& measurement);

// One self-contained SVG document. The measured picture is inside it, except where the program was built without PNG.
std::string overlay_svg(const Image& grey, const Measurement& measurement);

} // namespace panoval::cli
