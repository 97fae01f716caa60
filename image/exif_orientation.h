// SPDX-License-Identifier: MIT
// How a camera was held, as it notes it in a JPEG file.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::image
{

// The orientation, 1 to 8 as in TIFF, that a JPEG file's APP1 block holds; 1 where there is none or it makes no sense.
int exif_orientation(const std::uint8_t* block, std::size_t size);

} // namespace panoval::image
