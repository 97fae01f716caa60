// SPDX-License-Identifier: MIT
// Conversions and products that every routine shares, so that all of them round, saturate and wrap alike.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace panoval
{

// The integer part, as the processor's own conversion gives it: what leaves the range, and not-a-number, becomes the
// most negative integer.
inline std::int32_t truncate_to_int(double value) noexcept
{
    if (value > -2147483649.0 && value < 2147483648.0)
        return static_cast<std::int32_t>(value);
    return std::numeric_limits<std::int32_t>::min();
}

inline std::int32_t truncate_to_int(float value) noexcept
{
    return truncate_to_int(static_cast<double>(value));
}

// The low 8 or 16 bits, without saturation.
inline std::uint8_t low_byte(std::int32_t value) noexcept
{
    return static_cast<std::uint8_t>(static_cast<std::uint32_t>(value) & 0xFFu);
}

inline std::uint16_t low_half(std::int32_t value) noexcept
{
    return static_cast<std::uint16_t>(static_cast<std::uint32_t>(value) & 0xFFFFu);
}

// Sums, differences and products of 32-bit sizes and positions. They wrap; the unsigned detour keeps that defined.
inline std::int32_t wrapping_add(std::int32_t a, std::int32_t b) noexcept
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

inline std::int32_t wrapping_sub(std::int32_t a, std::int32_t b) noexcept
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

inline std::int32_t wrapping_mul(std::int32_t a, std::int32_t b) noexcept
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

template <class... Rest>
std::int32_t wrapping_mul(std::int32_t a, std::int32_t b, std::int32_t c, Rest... rest) noexcept
{
    return wrapping_mul(wrapping_mul(a, b), c, rest...);
}

// Whether every element of a shape has a place in a block of the wrapped size: nothing is negative, and the product
// fits.
inline bool is_addressable(std::int32_t width, std::int32_t height, std::int32_t channels) noexcept
{
    if (width < 0 || height < 0 || channels < 0)
        return false;
    const std::int64_t area = std::int64_t{width} * height;
    return channels == 0 || area <= std::numeric_limits<std::int32_t>::max() / channels;
}

// A size as an index or a byte count: negative sizes count as nothing.
inline std::size_t to_count(std::int32_t size) noexcept
{
    return size > 0 ? static_cast<std::size_t>(size) : 0;
}

inline std::size_t to_count(std::int64_t size) noexcept
{
    return size > 0 ? static_cast<std::size_t>(size) : 0;
}

} // namespace panoval
