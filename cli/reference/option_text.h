// SPDX-License-Identifier: MIT
// The options of a command in words, as reference pages and completion need them: taken from the command line's one
// description, the one that parses it.
#pragma once

#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace panoval::cli
{

struct OptionText {
    std::vector<std::string> names; // "-o", "--output"; empty for what stands without a name
    std::string value;              // what the value is called, e.g. "FILE"; empty for a flag
    std::string range;              // what the value may be, as the parser says it; may be empty
    std::vector<std::string> choices;
    std::string description;
    bool is_required = false;
    bool takes_many = false;
    bool is_value_optional = false;

    bool is_positional() const { return names.empty(); }
    bool is_file() const; // whether the value is the name of a file
};

// In the order of --help.
std::vector<OptionText> options_of(const CLI::App& command);

// In the order of --help.
std::vector<const CLI::App*> commands_of(const CLI::App& program);

} // namespace panoval::cli
