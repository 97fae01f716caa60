// SPDX-License-Identifier: MIT
// Multiplication of samples by a gain.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

// samples[i] = floor(samples[i] * gain + 0.5) in double precision, clamped. What leaves the range of a 32-bit integer,
// above or below, and not-a-number become 0.
void apply_gain(std::uint8_t* samples, std::size_t count, double gain);
void apply_gain(std::uint16_t* samples, std::size_t count, double gain);

} // namespace panoval
