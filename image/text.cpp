// SPDX-License-Identifier: MIT
#include "image/text.h"

#include <algorithm>

namespace panoval::image
{

namespace
{

bool is_inside_character(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80; // of UTF-8
}

} // namespace

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

} // namespace panoval::image
