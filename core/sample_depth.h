// SPDX-License-Identifier: MIT
// Samples of 8 bit as such of 16, and back. Black and white are the same in both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace panoval
{

// Levels of 16 bit to one of 8 bit: 65535 / 255.
inline constexpr int kLevelsPerByte = 257;

// What one level of 8 bit is at a depth of 8 or 16.
constexpr int levels_per_byte(int bits) noexcept
{
    return bits == 16 ? kLevelsPerByte : 1;
}

// The byte repeated.
constexpr std::uint16_t widen_sample(std::uint8_t sample) noexcept
{
    return static_cast<std::uint16_t>(sample * kLevelsPerByte);
}

// Rounded to nearest.
constexpr std::uint8_t narrow_sample(std::uint16_t sample) noexcept
{
    return static_cast<std::uint8_t>((sample + kLevelsPerByte / 2) / kLevelsPerByte);
}

// The same for a row of samples, 16-bit ones in this machine's order and at any address. A row may become what it is to
// be in its own place: widening goes from its end, narrowing from its beginning.
inline void widen_samples(const std::uint8_t* samples, std::size_t count, std::uint8_t* wide) noexcept
{
    for (std::size_t i = count; i-- > 0;) {
        const std::uint16_t sample = widen_sample(samples[i]);
        std::memcpy(wide + 2 * i, &sample, sizeof sample);
    }
}

inline void narrow_samples(const std::uint8_t* wide, std::size_t count, std::uint8_t* samples) noexcept
{
    for (std::size_t i = 0; i < count; ++i) {
        std::uint16_t sample;
        std::memcpy(&sample, wide + 2 * i, sizeof sample);
        samples[i] = narrow_sample(sample);
    }
}

} // namespace panoval
