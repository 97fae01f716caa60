// SPDX-License-Identifier: MIT
// Samples of an image as bytes of a packed picture.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

// Each of count grey bytes three times.
void repeat_bytes(const std::uint8_t* grey, std::uint8_t* out, std::size_t count);

// The high byte of each of count grey samples three times.
void repeat_high_bytes(const std::uint16_t* grey, std::uint8_t* out, std::size_t count);

// The high bytes of count samples.
void take_high_bytes(const std::uint16_t* samples, std::uint8_t* out, std::size_t count);

} // namespace panoval
