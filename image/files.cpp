// SPDX-License-Identifier: MIT
#include "image/files.h"

#include "image/failure.h"
#include "image/standard_streams.h"
#include "image/text.h"

#include <cerrno>
#include <system_error>

#ifndef _WIN32
#include <fcntl.h>
#endif

namespace panoval::image
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

void forget_cached(std::FILE*, std::int64_t, std::int64_t) {}

#else

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

void forget_cached(std::FILE* file, std::int64_t begin, std::int64_t end)
{
    (void)posix_fadvise(fileno(file), begin, end - begin, POSIX_FADV_DONTNEED);
}

#endif

bool file_exists(const std::string& name)
{
    try {
        std::error_code error;
        return std::filesystem::exists(path_from_utf8(name), error);
    } catch (const std::system_error&) { // COUNT_EXCL: Windows alone refuses a name that is no UTF-8
        return false;                    // COUNT_EXCL: as above
    }                                    // COUNT_EXCL: as above
}

FileHandle open_stream(const std::string& name, const std::string& expected)
{
    if (name.empty())
        fail_input("''", "an empty file name", expected);
    errno = 0;
    if (is_standard_stream(name)) {
        FileHandle file = open_standard_input();
        const int reason = errno;
        if (file == nullptr)
            fail_input(name, "an input that cannot be read, or kept in a temporary file: " + system_message(reason),
                       concat(expected, "; ", room_for_nameless_files()));
        return file;
    }
    FileHandle file = open_utf8(name, "rb");
    const int reason = errno;
    std::error_code error;
    if (file != nullptr || file_exists(name))
        if (std::filesystem::is_directory(path_from_utf8(name), error))
            fail_input(name, "a folder", expected);
    if (file == nullptr) {
        errno = reason;
        check_heap(name);
    }
    if (file == nullptr)
        fail_input(name, reason == ENOENT ? "no such file" : "a file that does not open: " + system_message(reason),
                   expected);
    return file;
}

FileHandle open_input(const std::string& name, const std::string& expected)
{
    FileHandle file = open_stream(name, expected);
    std::error_code error;
    if (!is_standard_stream(name) && !std::filesystem::is_regular_file(path_from_utf8(name), error))
        fail_input(name, "no regular file", expected);
    return file;
}

} // namespace panoval::image
