// SPDX-License-Identifier: MIT
#include "cli/reference/option_text.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <sstream>

namespace panoval::cli
{

namespace
{

// "{auto,never,always}" is a list of choices, everything else a range.
std::vector<std::string> choices_of(const std::string& range)
{
    std::vector<std::string> choices;
    if (range.size() < 2 || range.front() != '{' || range.back() != '}')
        return choices;
    std::istringstream words(range.substr(1, range.size() - 2));
    for (std::string word; std::getline(words, word, ',');)
        choices.push_back(word);
    return choices;
}

OptionText text_of(const CLI::Option& option)
{
    OptionText text;
    for (const std::string& name : option.get_snames())
        text.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        text.names.push_back("--" + name);
    text.description = option.get_description();
    text.is_required = option.get_required();
    text.takes_many = option.get_items_expected_max() > 1;
    text.is_value_optional = option.get_expected_min() == 0;
    if (text.is_positional()) {
        text.value = option.get_name(true);
    } else if (option.get_type_size() != 0) {
        const std::string full = option.get_type_name(); // NAME, or NAME:what the value may be
        const std::size_t colon = full.find(':');
        text.value = full.substr(0, colon);
        text.range = colon == std::string::npos ? "" : full.substr(colon + 1);
        text.choices = choices_of(text.range);
    }
    return text;
}

} // namespace

bool OptionText::is_file() const
{
    static const char* const kinds[] = {"FILE", "OUT", "MASK", "IMAGE", "INPUT", "FOLDER"};
    return std::any_of(std::begin(kinds), std::end(kinds),
                       [&](const char* kind) { return value.substr(0, value.find(' ')) == kind; });
}

std::vector<OptionText> options_of(const CLI::App& command)
{
    std::vector<OptionText> texts;
    for (const CLI::Option* const option : command.get_options())
        texts.push_back(text_of(*option));
    return texts;
}

std::vector<const CLI::App*> commands_of(const CLI::App& program)
{
    return program.get_subcommands([](const CLI::App*) { return true; });
}

} // namespace panoval::cli
