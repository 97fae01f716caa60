// SPDX-License-Identifier: MIT
// The version of all libraries together, which each library on top of the first one tells.
#include "panoval_version.h"

extern "C" PANOVAL_VERSION_API int32_t panoval_version(void)
{
    return PANOVAL_VERSION_NUMBER;
}
