// SPDX-License-Identifier: MIT
#include "cli/errors.h"

#include <algorithm>
#include <system_error>

namespace panoval::cli
{

const char* const kHelpEnd =
#ifdef PANOVAL_PNM_ONLY
    "This build reads and writes PNM pictures alone: .pgm .ppm .pnm .pam.\n"
    "\n"
#endif
    "Exit codes:\n"
    "  0  done\n"
    "  1  some of several inputs failed, the others are done\n"
    "  2  the command line is wrong\n"
    "  3  an input file is missing, damaged or unsuitable\n"
    "  4  an output file cannot be written\n"
    "  5  not enough memory\n"
    " 70  a defect of this program\n";

namespace
{

std::string line_about(const std::string& file, const std::string& found, const std::string& expected)
{
    return concat(file.empty() ? "''" : printable(file), ": found ", found, "; expected ", expected);
}

bool is_inside_character(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80; // of UTF-8
}

} // namespace

void fail_input(const std::string& file, const std::string& found, const std::string& expected)
{
    throw UserError(ExitCode::Input, line_about(file, found, expected));
}

void fail_output(const std::string& file, const std::string& found, const std::string& expected)
{
    throw UserError(ExitCode::Output, line_about(file, found, expected));
}

void fail_usage(const std::string& message)
{
    throw UserError(ExitCode::Usage, message);
}

void fail_memory(const std::string& file, std::uint64_t bytes)
{
    throw UserError(ExitCode::Memory,
                    line_about(file, "too little memory", concat((bytes + 999'999) / 1'000'000, " MB to be free")));
}

std::string system_message(int error_number)
{
    return std::generic_category().message(error_number);
}

std::string printable(const std::string& text, std::size_t longest)
{
    std::size_t end = std::min(text.size(), longest);
    while (end > 0 && end < text.size() && is_inside_character(text[end]))
        --end;
    std::string shown = text.substr(0, end);
    for (char& c : shown)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
            c = '?';
    return text.size() > longest ? shown + "..." : shown;
}

} // namespace panoval::cli
