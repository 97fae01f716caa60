// SPDX-License-Identifier: MIT
// A colour profile for pictures that are written.
#pragma once

#include "tests/support/scratch_folder.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace panoval::image::test
{

// An ICC profile that the formats' libraries take: a header and one tag of noise.
inline std::vector<std::uint8_t> colour_profile()
{
    std::vector<std::uint8_t> profile(400, 0);
    const auto put = [&](std::size_t at, const std::string& bytes) {
        std::copy(bytes.begin(), bytes.end(), profile.begin() + static_cast<std::ptrdiff_t>(at));
    };
    put(2, "\x01\x90"); // the length
    put(8, "\x02");
    put(12, "mntrRGB XYZ ");
    put(36, "acsp");
    put(68, std::string("\0\0\xF6\xD6\0\1\0\0\0\0\xD3\x2D", 12)); // the white point
    put(128, std::string("\0\0\0\1desc\0\0\0\x90\0\0\1\0", 16));
    const Image noise = test_picture(16, 16, 1, 8);
    std::copy(noise.data.get(), noise.data.get() + 256, profile.begin() + 144);
    return profile;
}

} // namespace panoval::image::test
