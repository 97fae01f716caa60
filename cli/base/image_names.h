// SPDX-License-Identifier: MIT
// Pictures, files and failures are those of image/; their names hold in the whole program as they are.
#pragma once

namespace panoval::image
{
}

namespace panoval::cli
{

using namespace image;

} // namespace panoval::cli
