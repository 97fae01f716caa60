// SPDX-License-Identifier: MIT
// The command line in UTF-8, as the whole program has it.
#pragma once

#include <string>
#include <vector>

namespace panoval::cli
{

// The program's arguments, without the program's name.
std::vector<std::string> utf8_arguments(int argc, char** argv);

} // namespace panoval::cli
