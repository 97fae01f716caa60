// SPDX-License-Identifier: MIT
// Numbers as the bytes of files that tests write by hand.
#pragma once

#include <cstdint>
#include <string>

namespace panoval::image::test
{

inline std::string little_endian(std::uint64_t value, int bytes)
{
    std::string text;
    for (int i = 0; i < bytes; ++i)
        text += static_cast<char>(value >> (8 * i) & 255);
    return text;
}

inline std::string big_endian(std::uint64_t value, int bytes)
{
    const std::string text = little_endian(value, bytes);
    return {text.rbegin(), text.rend()};
}

} // namespace panoval::image::test
