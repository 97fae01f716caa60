// SPDX-License-Identifier: MIT
// How the program says that something is wrong: one line that names the file, what was found and what was expected,
// and an exit code that a script can act upon.
#pragma once

#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>

namespace panoval::cli
{

enum class ExitCode : int {
    Done = 0,
    SomeFailed = 1, // of several independent inputs, at least one failed; the others are done
    Usage = 2,      // the command line
    Input = 3,      // an input file, or inputs that do not go together
    Output = 4,     // an output file
    Memory = 5,     // not enough memory
    Internal = 70,  // a defect of the program
};

// What every --help ends with: what this build lacks, and the table of exit codes.
extern const char* const kHelpEnd;

// Ends the command. what() is the line for the user, without the program's name.
class UserError : public std::runtime_error
{
public:
    UserError(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
    ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

// "FILE: found FOUND; expected EXPECTED"
[[noreturn]] void fail_input(const std::string& file, const std::string& found, const std::string& expected);
[[noreturn]] void fail_output(const std::string& file, const std::string& found, const std::string& expected);
[[noreturn]] void fail_usage(const std::string& message);
[[noreturn]] void fail_memory(const std::string& file, std::uint64_t bytes);

// The text of errno's value, e.g. "No such file or directory".
std::string system_message(int error_number);

// The arguments one after the other, as an output stream writes them.
template <class... Parts>
std::string concat(const Parts&... parts)
{
    std::ostringstream text;
    (text << ... << parts);
    return text.str();
}

// As long as a path can be.
inline constexpr std::size_t kLongestName = 4096;

// A text from a file or a command line, fit to stand in a message of one line: control characters become '?', a long
// text of UTF-8 ends in "..." after a whole character.
std::string printable(const std::string& text, std::size_t longest = kLongestName);

} // namespace panoval::cli
