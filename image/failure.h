// SPDX-License-Identifier: MIT
// How a picture file, or any other file, says that something is wrong with it: one line that names the file, what was
// found and what was expected.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace panoval::image
{

enum class Fault {
    Input,  // a file to read, or files that do not go together
    Output, // a file to write
    Memory, // not enough of it
    Name,   // of an output that says nothing that could be written
};

// what() is the line for the user.
class Failure : public std::runtime_error
{
public:
    Failure(Fault fault, const std::string& message) : std::runtime_error(message), fault_(fault) {}
    Fault fault() const { return fault_; }

private:
    Fault fault_;
};

// "FILE: found FOUND; expected EXPECTED"
[[noreturn]] void fail_input(const std::string& file, const std::string& found, const std::string& expected);
[[noreturn]] void fail_output(const std::string& file, const std::string& found, const std::string& expected);
[[noreturn]] void fail_name(const std::string& file, const std::string& found, const std::string& expected);
[[noreturn]] void fail_memory(const std::string& file, std::uint64_t bytes);

// Where errno says that the heap was exhausted: a failure of memory, whatever the file looks like.
void check_heap(const std::string& file);

// The text of errno's value, e.g. "No such file or directory".
std::string system_message(int error_number);

} // namespace panoval::image
