// SPDX-License-Identifier: MIT
// Completion for bash from the description of the command line.
#pragma once

#include <string>

namespace CLI
{
class App;
}

namespace panoval::cli
{

// A script to be sourced: commands, options, the words that an option takes, file names everywhere else.
std::string bash_completion(const CLI::App& program);

} // namespace panoval::cli
