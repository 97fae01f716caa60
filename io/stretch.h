// SPDX-License-Identifier: MIT
// The linear stretch of floats and 16-bit samples onto 8 bits, in which intermediate results become visible.
// What is not a number neither widens a range nor gives anything but 0.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

// Widens low and high to the values, by two independent tests for each: less than low, greater than high.
void widen_range(const float* values, std::size_t count, float& low, float& high);
void widen_range(const std::int16_t* values, std::size_t count, std::int16_t& low, std::int16_t& high);

// out = floor((value - low) * scale), in double precision, for the low of all values, or one below it, and a scale of
// 255 / (high - low). A scale that is 0 or not finite, as of an empty or an infinite range, gives zeros.
void stretch(const float* values, std::size_t count, float low, double scale, std::uint8_t* out);
void stretch(const std::int16_t* values, std::size_t count, std::int16_t low, double scale, std::uint8_t* out);

// The same in single precision.
void stretch_single(const float* values, std::size_t count, float low, float scale, std::uint8_t* out);

// Both for the grey values of count pixels: grey = (s1 * 0.587 + s0 * 0.299) + s2 * 0.114, in single precision and this
// order, of a pixel's samples s0, s1, s2.
void widen_grey_range(const float* pixels, std::size_t count, float& low, float& high);
void stretch_grey(const float* pixels, std::size_t count, float low, float scale, std::uint8_t* out);

} // namespace panoval
