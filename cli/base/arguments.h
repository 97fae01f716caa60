// SPDX-License-Identifier: MIT
// The command line in UTF-8, as the whole program has it.
#pragma once

#include <string>
#include <vector>

namespace panoval::cli
{

// Where the shell leaves wildcards to programs, an argument with * or ? in its last part becomes the files of that
// folder that it fits, in the order of their names; one that fits none stays as it is.
std::vector<std::string> expand_wildcards(const std::vector<std::string>& arguments);

// Whether a name fits a pattern of * (anything) and ? (one character); of ASCII, case does not count.
bool fits_wildcard(const std::string& pattern, const std::string& name);

// The program's arguments, wildcards expanded on Windows, without the program's name.
std::vector<std::string> utf8_arguments(int argc, char** argv);

} // namespace panoval::cli
