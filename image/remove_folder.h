// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

namespace panoval::image
{

// Removes a folder and all that is in it, as far as it can. On Linux without the heap, whose exhaustion may be why it
// goes.
void remove_folder(const std::filesystem::path& place) noexcept;

#ifdef __linux__
void remove_folder(const char* place) noexcept;
#endif

} // namespace panoval::image
