// SPDX-License-Identifier: MIT
// Where file names are bytes they are passed on as they are; Windows wants UTF-16.
#include "io/open_file.h"

#ifdef _WIN32
#include "core/heap.h"

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX // the C++ run-time library may have defined it
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <cstring>
#endif

namespace
{

constexpr int kModeUnits = 32; // the longest mode with its terminator

#ifdef _WIN32

std::FILE* open_stream(const char* name, const char* mode) noexcept
{
    const int units = MultiByteToWideChar(CP_UTF8, 0, name, -1, nullptr, 0);
    if (units < 1)
        return nullptr;
    const auto wide_name = panoval::allocate<wchar_t>(static_cast<std::size_t>(units));
    if (!wide_name || MultiByteToWideChar(CP_UTF8, 0, name, -1, wide_name.get(), units) < 1)
        return nullptr;
    wchar_t wide_mode[kModeUnits];
    if (MultiByteToWideChar(CP_UTF8, 0, mode, -1, wide_mode, kModeUnits) < 1)
        return nullptr;
    return _wfopen(wide_name.get(), wide_mode);
}

#else

std::FILE* open_stream(const char* name, const char* mode) noexcept
{
    if (std::strlen(mode) >= kModeUnits)
        return nullptr;
    return std::fopen(name, mode);
}

#endif

} // namespace

panoval::File panoval::open_file_utf8(const char* name, const char* mode) noexcept
{
    if (name == nullptr || mode == nullptr)
        return nullptr;
    return File(open_stream(name, mode));
}
