// SPDX-License-Identifier: MIT
// A picture's samples times their channels' factors, as plain as it can be written.
#pragma once

#include "mosaic/pictures/scaled_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace panoval::reference
{

inline float scaled_sample(const mosaic::RawRow& row, const mosaic::ChannelFactors& factors, std::size_t i)
{
    std::uint16_t sample = row.samples[i];
    if (row.sample_bytes == 2)
        std::memcpy(&sample, row.samples + 2 * i, sizeof sample);
    return static_cast<float>(sample) * factors[i % row.channels];
}

inline void scale_row(const mosaic::RawRow& row, const mosaic::ChannelFactors& factors, float* out)
{
    for (std::size_t i = 0; i < row.pixels * row.channels; ++i)
        out[i] = scaled_sample(row, factors, i);
}

inline void difference_row(const mosaic::RawRow& row, const mosaic::ChannelFactors& factors, const float* composite,
                           float* out)
{
    for (std::size_t i = 0; i < row.pixels * row.channels; ++i)
        out[i] = scaled_sample(row, factors, i) - composite[i];
}

// largest: of the output's samples
template <class Sample>
void finish_scaled_row(const mosaic::RawRow& row, const mosaic::ChannelFactors& factors, float scale, float largest,
                       Sample* out)
{
    for (std::size_t i = 0; i < row.pixels * row.channels; ++i) {
        const float rounded = scaled_sample(row, factors, i) * scale + 0.5f;
        out[i] = static_cast<Sample>(std::floor(std::clamp(rounded, 0.0f, largest)));
    }
}

// What is not a number becomes 0.
inline void round_row(const float* values, std::size_t count, float largest, std::uint16_t* out)
{
    for (std::size_t i = 0; i < count; ++i) {
        const double rounded = std::floor(static_cast<double>(values[i]) + 0.5);
        const double most = static_cast<double>(largest);
        out[i] = rounded > 0 ? static_cast<std::uint16_t>(std::min(rounded, most)) : std::uint16_t{0};
    }
}

} // namespace panoval::reference
