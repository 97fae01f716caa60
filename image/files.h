// SPDX-License-Identifier: MIT
// File names are UTF-8 on every system. Linux passes the bytes on as they are; Windows wants wide characters at its
// border, which is crossed here.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace panoval::image
{

std::filesystem::path path_from_utf8(const std::string& name);
std::string utf8_from_path(const std::filesystem::path& path);

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

// As fopen. Null, with errno set, when the file does not open.
FileHandle open_utf8(const std::string& name, const char* mode);

bool file_exists(const std::string& name);

// As fseek and ftell, for files of any length.
bool seek_in_file(std::FILE* file, std::int64_t offset, int origin);
std::int64_t tell_in_file(std::FILE* file);

// Tells the system that nobody reads these bytes of the file again soon: once they are on the disk, they need no
// memory. Does nothing where there is no way to say so.
void forget_cached(std::FILE* file, std::int64_t begin, std::int64_t end);

// Opens an input for reading in binary, "-" for standard input, or fails with an input error: missing, unreadable, or
// no regular file, which can be read from any place and again.
FileHandle open_input(const std::string& name, const std::string& expected);

// The same for what is read once from its start to its end: a pipe or a device will do.
FileHandle open_stream(const std::string& name, const std::string& expected);

} // namespace panoval::image
