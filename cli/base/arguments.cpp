// SPDX-License-Identifier: MIT
#include "cli/base/arguments.h"

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// after windows.h
#include <shellapi.h>
#endif

namespace panoval::cli
{

#ifdef _WIN32

namespace
{

std::string utf8_from_wide(const wchar_t* wide)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1)
        return {};
    std::string text(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, wide, -1, text.data(), size, nullptr, nullptr);
    text.pop_back();
    return text;
}

} // namespace

std::vector<std::string> utf8_arguments(int, char**)
{
    int count = 0;
    LPWSTR* const wide = CommandLineToArgvW(GetCommandLineW(), &count);
    std::vector<std::string> arguments;
    for (int i = 1; wide != nullptr && i < count; ++i)
        arguments.push_back(utf8_from_wide(wide[i]));
    LocalFree(wide);
    return arguments;
}

#else

std::vector<std::string> utf8_arguments(int argc, char** argv)
{
    return argc > 0 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

#endif

} // namespace panoval::cli
