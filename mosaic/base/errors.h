// SPDX-License-Identifier: MIT
// How the engine's inside says that something is wrong. The C interface turns it into a code and a text.
#pragma once

#include <charconv>
#include <cstdint>
#include <sstream>
#include <stdexcept>
#include <string>

namespace panoval::mosaic
{

enum class Failure : std::int32_t {
    Argument = 1,  // a value that the host passed
    Picture = 2,   // a callback could not give a picture's rows
    Memory = 3,    // the heap, or a budget that is too small
    Cancelled = 4, // by the host
    Plan = 5,      // a stored plan that does not parse or does not fit
    Sink = 6,      // a callback could not take a tile
    Internal = 7,  // a defect of the engine
};

class Error : public std::runtime_error
{
public:
    Error(Failure failure, const std::string& message) : std::runtime_error(message), failure_(failure) {}
    Failure failure() const { return failure_; }

private:
    Failure failure_;
};

// A number for messages, without an exponent: 0.000001, 1000000.
inline std::string plain(double value)
{
    char text[400]; // without an exponent the longest number takes less than 330
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed).ptr;
    return {text, end};
}

// Throws an Error whose text is the parts one after the other.
template <class... Parts>
[[noreturn]] void fail(Failure failure, const Parts&... parts)
{
    std::ostringstream text;
    (text << ... << parts);
    throw Error(failure, text.str());
}

} // namespace panoval::mosaic
