// SPDX-License-Identifier: MIT
#include "cli/utf8.h"

#include "cli/errors.h"

#include <cerrno>
#include <cstdint>
#include <system_error>

#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// after windows.h
#include <shellapi.h>
#endif

namespace panoval::cli
{

std::filesystem::path path_from_utf8(const std::string& name)
{
#ifdef _WIN32
    return std::filesystem::path(std::u8string(name.begin(), name.end()));
#else
    return std::filesystem::path(name);
#endif
}

std::string utf8_from_path(const std::filesystem::path& path)
{
#ifdef _WIN32
    const std::u8string name = path.u8string();
    return std::string(name.begin(), name.end());
#else
    return path.string();
#endif
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
    return arguments;
}

FileHandle open_utf8(const std::string& name, const char* mode)
{
    const std::string narrow_mode = mode;
    const std::wstring wide_mode(narrow_mode.begin(), narrow_mode.end());
    try {
        return FileHandle(_wfopen(path_from_utf8(name).c_str(), wide_mode.c_str()));
    } catch (const std::system_error&) { // the name is no UTF-8
        errno = EINVAL;
        return nullptr;
    }
}

bool seek_in_file(std::FILE* file, std::int64_t offset, int origin)
{
    return _fseeki64(file, offset, origin) == 0;
}

std::int64_t tell_in_file(std::FILE* file)
{
    return _ftelli64(file);
}

#else

std::vector<std::string> utf8_arguments(int argc, char** argv)
{
    return argc > 0 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

FileHandle open_utf8(const std::string& name, const char* mode)
{
    return FileHandle(std::fopen(name.c_str(), mode));
}

bool seek_in_file(std::FILE* file, std::int64_t offset, int origin)
{
    return fseeko(file, offset, origin) == 0;
}

std::int64_t tell_in_file(std::FILE* file)
{
    return ftello(file);
}

#endif

bool file_exists(const std::string& name)
{
    try {
        std::error_code error;
        return std::filesystem::exists(path_from_utf8(name), error);
    } catch (const std::system_error&) {
        return false;
    }
}

bool is_same_place(const std::string& a, const std::string& b)
{
    namespace fs = std::filesystem;
    try {
        const auto place = [](const std::string& name) {
            return fs::weakly_canonical(fs::absolute(path_from_utf8(name)));
        };
        return is_same_file(a, b) || place(a) == place(b);
    } catch (const std::system_error&) {
        return false;
    }
}

bool is_same_file(const std::string& a, const std::string& b)
{
    try {
        std::error_code error;
        return std::filesystem::equivalent(path_from_utf8(a), path_from_utf8(b), error) && !error;
    } catch (const std::system_error&) {
        return false;
    }
}

FileHandle open_input(const std::string& name, const std::string& expected)
{
    if (name.empty())
        fail_input("''", "an empty file name", expected);
    errno = 0;
    FileHandle file = open_utf8(name, "rb");
    const int reason = errno;
    std::error_code error;
    if (file != nullptr || file_exists(name))
        if (std::filesystem::is_directory(path_from_utf8(name), error))
            fail_input(name, "a folder", expected);
    if (file == nullptr)
        fail_input(name, reason == ENOENT ? "no such file" : "a file that does not open: " + system_message(reason),
                   expected);
    if (!std::filesystem::is_regular_file(path_from_utf8(name), error))
        fail_input(name, "no regular file", expected);
    return file;
}

std::string read_text_file(const std::string& name, const std::string& expected, std::size_t longest)
{
    const FileHandle file = open_input(name, expected);
    std::string text;
    char piece[16384];
    while (const std::size_t count = std::fread(piece, 1, sizeof piece, file.get())) {
        text.append(piece, count);
        if (text.size() > longest)
            fail_input(name, concat("more than ", longest, " bytes"), expected);
    }
    if (std::ferror(file.get()) != 0)
        fail_input(name, "a file that cannot be read: " + system_message(errno), expected);
    return text;
}

} // namespace panoval::cli
