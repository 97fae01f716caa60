// SPDX-License-Identifier: MIT
// PNG files without compression, for builds without the PNG library.
#pragma once

#include "image/image.h"

#include <cstdint>
#include <vector>

namespace panoval::image
{

// An 8-bit grey or colour picture; its mask is left out.
std::vector<std::uint8_t> stored_png(const Image& image);

} // namespace panoval::image
