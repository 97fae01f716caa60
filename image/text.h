// SPDX-License-Identifier: MIT
// Texts for messages.
#pragma once

#include <cstddef>
#include <sstream>
#include <string>

namespace panoval::image
{

// The arguments one after the other, as an output stream writes them.
template <class... Parts>
std::string concat(const Parts&... parts)
{
    std::ostringstream text;
    text.exceptions(std::ios::badbit); // an exhausted heap would cut the text off without a word
    (text << ... << parts);
    return text.str();
}

// As long as a path can be.
inline constexpr std::size_t kLongestName = 4096;

// A text from a file or a command line, fit to stand in a message of one line: control characters become '?', a long
// text of UTF-8 ends in "..." after a whole character.
std::string printable(const std::string& text, std::size_t longest = kLongestName);

} // namespace panoval::image
