// SPDX-License-Identifier: MIT
// "-" in the place of a file's name: standard input and standard output, for programs that stand in a pipe. Pictures
// need files that can be read twice, and outputs appear whole or not at all, so both go through a file without a name.
#pragma once

#include "image/files.h"

#include <string>

namespace panoval::image
{

inline constexpr const char* kStandardStream = "-";

inline bool is_standard_stream(const std::string& name)
{
    return name == kStandardStream;
}

// Takes the numbers of standard streams that the program was started without, so that no file of its own gets one of
// them, and results or messages with it. Those streams stay as good as closed. To be called first of all.
void reserve_standard_streams();

// All of standard input, for reading from its start, at every call anew. Null, with errno set, where it cannot be read
// or kept.
FileHandle open_standard_input();

// A file for reading and writing that vanishes when it is closed. Null, with errno set, where there is no room.
FileHandle open_nameless_file();

// What such a file wants, for messages: room in its folder, or another folder.
std::string room_for_nameless_files();

// The environment's variable that names its folder.
#ifdef _WIN32
inline constexpr const char* kTemporaryVariable = "TMP";
#else
inline constexpr const char* kTemporaryVariable = "TMPDIR";
#endif

// Sends the whole file to standard output. False, with errno set, where not all of it went.
bool copy_to_standard_output(std::FILE* file);

// Whether a picture has gone there, so that lines about it belong elsewhere.
bool standard_output_has_a_picture();

} // namespace panoval::image
