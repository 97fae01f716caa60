// SPDX-License-Identifier: MIT
#include "cli/base/arguments.h"

#include "cli/base/image_names.h"
#include "image/files.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// after windows.h
#include <shellapi.h>
#endif

namespace panoval::cli
{

namespace
{

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool fits(const char* pattern, const char* name)
{
    // What the last * stands for grows where the rest does not fit.
    const char* star = nullptr;
    const char* retry = nullptr;
    while (*name != '\0') {
        if (*pattern == '*') {
            star = ++pattern;
            retry = name;
        } else if (*pattern == '?' || lower(*pattern) == lower(*name)) {
            ++pattern;
            // A character of UTF-8 is all of its bytes.
            for (++name; pattern[-1] == '?' && (static_cast<unsigned char>(*name) & 0xC0) == 0x80; ++name) {
            }
        } else if (star != nullptr) {
            pattern = star;
            name = ++retry;
        } else {
            return false;
        }
    }
    while (*pattern == '*')
        ++pattern;
    return *pattern == '\0';
}

// The files that an argument stands for; none where it stands for itself.
std::vector<std::string> files_of(const std::string& argument)
{
    const std::size_t slash = argument.find_last_of("/\\:");
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    const std::string pattern = argument.substr(start);
    if (pattern.find_first_of("*?") == std::string::npos || (!argument.empty() && argument[0] == '-'))
        return {};
    const std::string folder = argument.substr(0, start);
    std::vector<std::string> files;
    std::error_code error;
    const auto entries = std::filesystem::directory_iterator(path_from_utf8(folder.empty() ? "." : folder), error);
    if (error)
        return {};
    for (const auto& entry : entries) {
        const std::string name = utf8_from_path(entry.path().filename());
        if (fits_wildcard(pattern, name) && entry.is_regular_file(error))
            files.push_back(folder + name);
    }
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace

bool fits_wildcard(const std::string& pattern, const std::string& name)
{
    return fits(pattern.c_str(), name.c_str());
}

std::vector<std::string> expand_wildcards(const std::vector<std::string>& arguments)
{
    std::vector<std::string> expanded;
    for (const std::string& argument : arguments) {
        const std::vector<std::string> files = files_of(argument);
        if (files.empty())
            expanded.push_back(argument);
        expanded.insert(expanded.end(), files.begin(), files.end());
    }
    return expanded;
}

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
    return expand_wildcards(arguments);
}

#else

std::vector<std::string> utf8_arguments(int argc, char** argv)
{
    return argc > 0 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

#endif

} // namespace panoval::cli
