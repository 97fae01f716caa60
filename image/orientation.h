// SPDX-License-Identifier: MIT
// Pictures as they are seen, however the camera was held.
#pragma once

#include "image/image.h"

#include <string>

namespace panoval::image
{

// The same picture as a TIFF orientation tag of 1 to 8 wants it seen; 1 changes nothing.
Image apply_orientation(Image image, int orientation, const std::string& file);

} // namespace panoval::image
