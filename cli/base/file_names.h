// SPDX-License-Identifier: MIT
// Names of files on the command line: whether two of them mean one file, and what that forbids.
#pragma once

#include "cli/base/image_names.h"
#include "image/files.h"

#include <cstddef>
#include <string>
#include <vector>

namespace panoval::cli
{

// Whether both names lead to one existing file.
bool is_same_file(const std::string& a, const std::string& b);

// Whether both names lead to one place, with a file or yet without.
bool is_same_place(const std::string& a, const std::string& b);

// Ends in an output error where the output is one of the inputs, which would be lost. Empty names stand for nothing.
void refuse_to_overwrite(const std::string& output, const std::vector<std::string>& inputs);

// Ends in an output error where two outputs have one name. Empty names stand for nothing.
void refuse_one_name(const std::vector<std::string>& outputs);

// The whole text of a file, e.g. of a JSON document, at most `longest` bytes.
std::string read_text_file(const std::string& name, const std::string& expected, std::size_t longest);

} // namespace panoval::cli
