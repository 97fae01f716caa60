// SPDX-License-Identifier: MIT
// Pictures inside of documents that stand alone.
#pragma once

#include "image/image.h"

#include <string>

namespace panoval::image
{

// The picture as a data URI of a PNG file, 8 bit, grey or colour; its mask is left out.
std::string picture_data_uri(const Image& image);

} // namespace panoval::image
