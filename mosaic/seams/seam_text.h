// SPDX-License-Identifier: MIT
// Seams as a short text, to be stored in a plan: runs as numbers of 7 bits a byte, rows that repeat as one byte, and
// all of it in the letters of base 64 (RFC 4648, without padding).
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/seams/seam_map.h"

#include <string>
#include <string_view>

namespace panoval::mosaic
{

std::string text_of_seams(const SeamMap& seams);

// Throws an Error (Failure::Plan) unless the text gives each pixel of the canvas a picture that there is, or none.
SeamMap seams_of_text(std::string_view text, const Layout& layout);

} // namespace panoval::mosaic
