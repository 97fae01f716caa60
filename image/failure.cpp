// SPDX-License-Identifier: MIT
#include "image/failure.h"

#include "image/standard_streams.h"
#include "image/text.h"

#include <cerrno>
#include <system_error>

namespace panoval::image
{

namespace
{

// stream: what "-" stands for
std::string line_about(const std::string& file, const char* stream, const std::string& found,
                       const std::string& expected)
{
    const std::string name = file.empty() ? "''" : is_standard_stream(file) ? stream : printable(file);
    return concat(name, ": found ", found, "; expected ", expected);
}

} // namespace

void fail_input(const std::string& file, const std::string& found, const std::string& expected)
{
    throw Failure(Fault::Input, line_about(file, "standard input", found, expected));
}

void fail_output(const std::string& file, const std::string& found, const std::string& expected)
{
    throw Failure(Fault::Output, line_about(file, "standard output", found, expected));
}

void fail_name(const std::string& file, const std::string& found, const std::string& expected)
{
    throw Failure(Fault::Name, line_about(file, "standard output", found, expected));
}

void fail_memory(const std::string& file, std::uint64_t bytes)
{
    throw Failure(Fault::Memory, line_about(file, "standard input", "too little memory",
                                            concat((bytes + 999'999) / 1'000'000, " MB to be free")));
}

void check_heap(const std::string& file)
{
    constexpr std::uint64_t kSome = 1'000'000; // nobody says how much it was
    if (errno == ENOMEM)
        fail_memory(file, kSome);
}

std::string system_message(int error_number)
{
    return std::generic_category().message(error_number);
}

} // namespace panoval::image
