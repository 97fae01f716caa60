// SPDX-License-Identifier: MIT
// The stretch of floats and 16-bit samples onto 8 bits by its definition.
#pragma once

#include "core/numbers.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace panoval::reference
{

template <class Sample>
void widen_range(const Sample* values, std::size_t count, Sample& low, Sample& high)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (values[i] < low)
            low = values[i];
        if (values[i] > high)
            high = values[i];
    }
}

template <class Sample>
void stretch(const Sample* values, std::size_t count, double low, double scale, std::uint8_t* out)
{
    for (std::size_t i = 0; i < count; ++i)
        out[i] = low_byte(truncate_to_int(std::floor((static_cast<double>(values[i]) - low) * scale)));
}

inline void stretch_single(const float* values, std::size_t count, float low, float scale, std::uint8_t* out)
{
    for (std::size_t i = 0; i < count; ++i)
        out[i] = low_byte(truncate_to_int((values[i] - low) * scale));
}

inline void mix_grey(const float* pixels, std::size_t count, float* grey)
{
    for (std::size_t i = 0; i < count; ++i) {
        const float s0 = pixels[3 * i];
        const float s1 = pixels[3 * i + 1];
        const float s2 = pixels[3 * i + 2];
        grey[i] = (s1 * 0.587f + s0 * 0.299f) + s2 * 0.114f;
    }
}

} // namespace panoval::reference
