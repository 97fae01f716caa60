// SPDX-License-Identifier: MIT
// The program as a function of its arguments.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace panoval::cli
{

// The whole command line, which reference pages are made of, too.
std::unique_ptr<CLI::App> describe_program();

// Runs the command that the arguments (UTF-8, without the program's name) ask for and returns the exit code. Results
// go to standard output, errors to standard error as one line each.
int run_program(const std::function<std::vector<std::string>()>& arguments);

} // namespace panoval::cli
