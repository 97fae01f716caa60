// SPDX-License-Identifier: MIT
// The text behind the options of --help becomes the page's sections by its shape: a line that ends in a colon and
// stands before indented lines is a heading, an indented line with two gaps of blanks a term and what it means,
// everything else running text.
#include "cli/reference/man_page.h"

#include "cli/base/errors.h"
#include "cli/reference/option_text.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace panoval::cli
{

namespace
{

std::string bold(const std::string& text)
{
    return "\\fB" + roff_text(text) + "\\fR";
}

std::string italic(const std::string& text)
{
    return "\\fI" + roff_text(text) + "\\fR";
}

std::string head(const std::string& name, const std::string& what, const std::string& version)
{
    std::string title = name;
    std::transform(title.begin(), title.end(), title.begin(), [](unsigned char c) { return std::toupper(c); });
    return concat(".\\\" Made from the program's own description of its command line.\n.TH ", title,
                  " 1 \"\" \"panoval ", version, "\" \"Panoval\"\n.SH NAME\n", roff_text(name), " \\- ",
                  roff_text(what), "\n");
}

std::string value_text(const OptionText& option)
{
    return option.is_value_optional ? "[" + italic(option.value) + "]" : italic(option.value);
}

std::string synopsis(const std::string& name, const CLI::App& command)
{
    std::string line = ".SH SYNOPSIS\n" + bold(name) + " [" + italic("OPTIONS") + "]";
    std::string behind;
    for (const OptionText& option : options_of(command)) {
        if (option.is_positional()) {
            const std::string dots = option.takes_many ? "..." : "";
            behind += option.is_required ? " " + italic(option.value) + dots : " [" + italic(option.value) + dots + "]";
        } else if (option.is_required) {
            line += " " + bold(option.names.front()) + " " + value_text(option);
        }
    }
    return line + behind + "\n";
}

// The explanation stands behind the options in --help, and before them in a page.
std::string behind_description(std::string text)
{
    const std::string below = "see below";
    const std::size_t place = text.find(below);
    return place == std::string::npos ? text : text.replace(place, below.size(), "see DESCRIPTION");
}

// "INT in [1 - 30]", as the parser says it, is "1 to 30".
std::string range_text(const std::string& range)
{
    const std::size_t start = range.find(" in [");
    const std::size_t middle = range.find(" - ");
    if (start == std::string::npos || middle == std::string::npos || range.back() != ']')
        return range;
    return range.substr(start + 5, middle - start - 5) + " to " + range.substr(middle + 3, range.size() - middle - 4);
}

std::string option_entry(const OptionText& option)
{
    std::string names;
    for (const std::string& name : option.names)
        names += (names.empty() ? "" : ", ") + bold(name);
    if (option.is_positional())
        names = italic(option.value);
    else if (!option.value.empty())
        names += " " + value_text(option);
    std::string text = roff_text(behind_description(option.description));
    if (!option.range.empty() && option.choices.empty())
        text += "\n(" + roff_text(range_text(option.range)) + ")";
    return ".TP\n" + names + "\n" + text + "\n";
}

std::string option_entries(const CLI::App& command)
{
    std::string entries = ".SH OPTIONS\n";
    for (const bool wants_positional : {true, false})
        for (const OptionText& option : options_of(command))
            if (option.is_positional() == wants_positional)
                entries += option_entry(option);
    return entries;
}

std::size_t indent_of(const std::string& line)
{
    return std::min(line.find_first_not_of(' '), line.size());
}

// The lines of the text between blank ones.
std::vector<std::vector<std::string>> paragraphs_of(const std::string& text)
{
    std::vector<std::vector<std::string>> paragraphs(1);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty())
            paragraphs.back().push_back(line);
        else if (!paragraphs.back().empty())
            paragraphs.emplace_back();
    }
    if (paragraphs.back().empty())
        paragraphs.pop_back();
    return paragraphs;
}

// "  term   what it means", and deeper lines that go on.
std::string table_line(const std::string& line)
{
    const std::size_t start = indent_of(line);
    const std::size_t gap = line.find("  ", start);
    if (start > 4 || gap == std::string::npos) // goes on with the one before
        return roff_text(line.substr(start)) + "\n";
    const std::string meaning = line.substr(gap + indent_of(line.substr(gap)));
    return ".TP\n" + bold(line.substr(start, gap - start)) + "\n" + roff_text(meaning) + "\n";
}

// Behind a heading or a paragraph of running text no new one must begin.
std::string running_text(const std::vector<std::string>& lines, bool is_first)
{
    std::string text;
    bool begins = !is_first;
    for (const std::string& line : lines) {
        const bool is_table = indent_of(line) != 0;
        text += begins && !is_table ? ".PP\n" : "";
        text += is_table ? table_line(line) : roff_text(line) + "\n";
        begins = is_table;
    }
    return text;
}

// Commands as they are typed, and what they do.
std::string examples(const std::vector<std::string>& lines)
{
    std::string text = ".SH EXAMPLES\n";
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::size_t start = indent_of(lines[i]);
        const std::string line = lines[i].substr(start);
        const std::string begin = i == 1 ? "" : ".PP\n";
        text += start == 2 ? begin + ".nf\n" + bold(line) + "\n.fi\n" : ".RS 4\n" + roff_text(line) + "\n.RE\n";
    }
    return text;
}

std::string exit_codes(const std::vector<std::string>& lines)
{
    std::string text = ".SH EXIT STATUS\n";
    for (std::size_t i = 1; i < lines.size(); ++i)
        text += table_line(lines[i]);
    return text;
}

// What stands behind the options in --help, around them.
std::string body(const CLI::App& command)
{
    std::string text = ".SH DESCRIPTION\n";
    std::string at_end;
    bool is_first = true;
    for (const auto& lines : paragraphs_of(command.get_footer())) {
        if (lines.front() == "Examples:" || lines.front() == "Example:") {
            at_end += examples(lines);
        } else if (lines.front() == "Exit codes:") {
            at_end += exit_codes(lines);
        } else {
            text += running_text(lines, is_first);
            is_first = false;
        }
    }
    return text + option_entries(command) + at_end;
}

std::string reference(const std::string& name)
{
    return bold(name) + "(1)";
}

std::string page_name(const CLI::App& command)
{
    return "panoval-" + command.get_name();
}

} // namespace

std::string roff_text(const std::string& text)
{
    std::string escaped;
    for (const char c : text) {
        switch (c) {
        case '\\':
            escaped += "\\e";
            break;
        case '-':
            escaped += "\\-";
            break;
        case '\'':
            escaped += "\\(aq";
            break;
        case '^':
            escaped += "\\(ha";
            break;
        case '~':
            escaped += "\\(ti";
            break;
        case '.':
            escaped += escaped.empty() ? "\\&." : ".";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string program_page(const CLI::App& program, const std::string& version)
{
    std::string what = program.get_description();
    what.pop_back(); // the full stop, which names have not
    what[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(what[0])));
    std::string page = head("panoval", what, version) + ".SH SYNOPSIS\n" + bold("panoval") + " " + italic("COMMAND") +
                       " [" + italic("OPTIONS") + "] [" + italic("FILE") + "...]\n.br\n" + bold("panoval") + " " +
                       bold("--help") + "\n.SH COMMANDS\n";
    std::string also;
    for (const CLI::App* const command : commands_of(program)) {
        page += ".TP\n" + reference(page_name(*command)) + "\n" + roff_text(command->get_description()) + "\n";
        also += (also.empty() ? "" : ",\n") + reference(page_name(*command));
    }
    return page + body(program) + ".SH SEE ALSO\n" + also + "\n";
}

std::string command_page(const CLI::App& program, const CLI::App& command, const std::string& version)
{
    std::string what = command.get_description();
    what[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(what[0])));
    return head(page_name(command), what, version) + synopsis(program.get_name() + " " + command.get_name(), command) +
           body(command) + ".SH SEE ALSO\n" + reference("panoval") + "\n";
}

} // namespace panoval::cli
