// SPDX-License-Identifier: MIT
// File names and command lines are UTF-8 inside the program on every system. Linux passes the bytes on as they are;
// Windows wants wide characters at its border, which is crossed here and nowhere else.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace panoval::cli
{

// The program's arguments in UTF-8, without the program's name.
std::vector<std::string> utf8_arguments(int argc, char** argv);

std::filesystem::path path_from_utf8(const std::string& name);
std::string utf8_from_path(const std::filesystem::path& path);

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, CloseFile>;

// As fopen. Null, with errno set, when the file does not open.
FileHandle open_utf8(const std::string& name, const char* mode);

bool file_exists(const std::string& name);

// Whether both names lead to one existing file.
bool is_same_file(const std::string& a, const std::string& b);

// Whether both names lead to one place, with a file or yet without.
bool is_same_place(const std::string& a, const std::string& b);

// As fseek and ftell, for files of any length.
bool seek_in_file(std::FILE* file, std::int64_t offset, int origin);
std::int64_t tell_in_file(std::FILE* file);

// Opens an input for reading in binary, or fails with an input error: missing, unreadable, or no regular file.
FileHandle open_input(const std::string& name, const std::string& expected);

// The whole text of a file, e.g. of a JSON document, at most `longest` bytes.
std::string read_text_file(const std::string& name, const std::string& expected, std::size_t longest);

} // namespace panoval::cli
