// SPDX-License-Identifier: MIT
// Manual pages from the description of the command line.
#pragma once

#include <string>

namespace CLI
{
class App;
}

namespace panoval::cli
{

// The page of the whole program, panoval(1).
std::string program_page(const CLI::App& program, const std::string& version);

// The page of one command, e.g. panoval-stitch(1).
std::string command_page(const CLI::App& program, const CLI::App& command, const std::string& version);

// A text as it stands in a page: nothing in it is taken for an instruction.
std::string roff_text(const std::string& text);

} // namespace panoval::cli
