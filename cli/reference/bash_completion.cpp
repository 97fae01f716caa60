// SPDX-License-Identifier: MIT
// The script is a table, one line for each command's options and for each option's words, and a function that looks up
// what stands before the cursor.
#include "cli/reference/bash_completion.h"

#include "cli/base/errors.h"
#include "cli/reference/option_text.h"

#include <CLI/CLI.hpp>

namespace panoval::cli
{

namespace
{

const char* const kFunction = R"(
_panoval()
{
    local current=${COMP_WORDS[COMP_CWORD]} command= option= i
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            command=${COMP_WORDS[i]}
            break
        fi
    done
    COMPREPLY=()
    compopt +o filenames 2>/dev/null || :
    if [[ -z $command ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${_panoval_options[all]} $_panoval_commands" -- "$current")
        return
    fi
    # --option word and --option=word, of which the shell makes three words
    if [[ $current == "=" ]]; then
        option=${COMP_WORDS[COMP_CWORD - 1]}
        current=
    elif [[ ${COMP_WORDS[COMP_CWORD - 1]} == "=" ]]; then
        option=${COMP_WORDS[COMP_CWORD - 2]}
    else
        option=${COMP_WORDS[COMP_CWORD - 1]}
    fi
    local values=${_panoval_values["$command $option"]-}
    if [[ -n $values && $values != FILE ]]; then
        [[ $values == ANY ]] || mapfile -t COMPREPLY < <(compgen -W "$values" -- "$current")
    elif [[ -z $values && $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${_panoval_options[$command]-}" -- "$current")
    else
        compopt -o filenames 2>/dev/null || :
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}

complete -F _panoval panoval
)";

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

// The long name of each, and the short one where there is no other.
std::string names_line(const std::string& command, const std::vector<OptionText>& options)
{
    std::vector<std::string> names;
    for (const OptionText& option : options)
        if (!option.is_positional())
            names.push_back(option.names.back());
    return concat("_panoval_options[", command, "]='", joined(names), "'\n");
}

std::string value_lines(const std::string& command, const std::vector<OptionText>& options)
{
    std::string lines;
    for (const OptionText& option : options) {
        if (option.value.empty() || option.is_value_optional)
            continue;
        const std::string values = !option.choices.empty() ? joined(option.choices) : option.is_file() ? "FILE" : "ANY";
        for (const std::string& name : option.names)
            lines += concat("_panoval_values['", command, " ", name, "']='", values, "'\n");
    }
    return lines;
}

} // namespace

std::string bash_completion(const CLI::App& program)
{
    std::vector<std::string> names;
    std::string table;
    for (const CLI::App* const command : commands_of(program)) {
        const std::vector<OptionText> options = options_of(*command);
        names.push_back(command->get_name());
        table += names_line(command->get_name(), options) + value_lines(command->get_name(), options);
    }
    return concat("# Completion of panoval's command line for bash, made from the program's own description of it.\n",
                  "_panoval_commands='", joined(names), "'\n", "declare -gA _panoval_options _panoval_values\n",
                  names_line("all", options_of(program)), table, kFunction);
}

} // namespace panoval::cli
