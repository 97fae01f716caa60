// SPDX-License-Identifier: MIT
// Row kernels that bring a picture's samples in: each is multiplied by its channel's factor.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

using ChannelFactors = std::array<float, 4>; // unused channels hold 1

// A row of a picture as it is, in this machine's order.
struct RawRow {
    const std::uint8_t* samples;
    std::size_t sample_bytes; // 1 or 2
    std::size_t pixels;
    std::size_t channels; // 1, 3 or 4
};

// out[i] = float(sample) * factor; one product in single precision.
void scale_row(const RawRow& row, const ChannelFactors& factors, float* out);

// out[i] = float(sample) * factor - composite[i].
void difference_row(const RawRow& row, const ChannelFactors& factors, const float* composite, float* out);

// What finish_row makes of scale_row, without a correction: samples of the output.
void finish_scaled_row(const RawRow& row, const ChannelFactors& factors, float scale, void* out,
                       std::size_t sample_bytes);

// The nearest whole numbers from 0 to largest, halves up; largest is that of 8 or of 16 bit. What is not a number
// becomes 0.
void round_row(const float* values, std::size_t count, float largest, std::uint16_t* out);

} // namespace panoval::mosaic
