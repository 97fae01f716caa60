// SPDX-License-Identifier: MIT
#include "image/base64.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace panoval::image
{

namespace
{

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Of each character its place in the alphabet, or -1.
constexpr std::array<int, 256> places_of_letters() // COUNT_EXCL_START: runs in the compiler alone
{
    std::array<int, 256> places{};
    places.fill(-1);
    for (std::size_t i = 0; i < kAlphabet.size(); ++i)
        places[static_cast<unsigned char>(kAlphabet[i])] = static_cast<int>(i);
    return places;
} // COUNT_EXCL_STOP

constexpr std::array<int, 256> kPlaces = places_of_letters();

} // namespace

std::string base64_of(const std::vector<std::uint8_t>& bytes)
{
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = (group << 8) | (k < count ? bytes[i + k] : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= count ? kAlphabet[(group >> (18 - 6 * k)) & 63u] : '=';
    }
    return text;
}

std::optional<std::vector<std::uint8_t>> bytes_of_base64(std::string_view text)
{
    if (text.size() % 4 != 0)
        return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    text.remove_suffix(padding);
    std::vector<std::uint8_t> bytes;
    bytes.reserve((text.size() + padding) / 4 * 3);
    std::uint32_t group = 0;
    int bits = 0;
    for (const char letter : text) {
        const int value = kPlaces[static_cast<unsigned char>(letter)];
        if (value < 0)
            return std::nullopt;
        group = (group << 6 | static_cast<std::uint32_t>(value)) & 0xffffu;
        bits += 6;
        if (bits >= 8)
            bytes.push_back(static_cast<std::uint8_t>(group >> (bits -= 8) & 255u));
    }
    return bytes;
}

} // namespace panoval::image
