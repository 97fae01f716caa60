// SPDX-License-Identifier: MIT
// The program as a function of its arguments.
#pragma once

#include <string>
#include <vector>

namespace panoval::cli
{

// Runs the command that the arguments (UTF-8, without the program's name) ask for and returns the exit code. Results
// go to standard output, errors to standard error as one line each.
int run_program(const std::vector<std::string>& arguments);

} // namespace panoval::cli
