// SPDX-License-Identifier: MIT
// MatToImage by its definition: one pixel after the other, one byte after the other.
#pragma once

#include "panoval.h"

#include <cstddef>
#include <cstdint>

namespace panoval::reference
{

inline std::int32_t mat_to_image(const Mat& m, std::uint8_t* out)
{
    if (m.channels != 1 && m.channels != 3)
        return 0;
    if (m.elemSize != 1 && m.elemSize != 2)
        return 0;
    const auto n =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(m.width) * static_cast<std::uint32_t>(m.height));
    for (std::int64_t i = 0; i < n; ++i)
        for (std::int64_t c = 0; c < 3; ++c) {
            const std::int64_t sample = m.channels == 1 ? i : 3 * i + c;
            const std::int64_t high_byte = sample * m.elemSize + (m.elemSize - 1);
            out[3 * i + c] = m.data[high_byte];
        }
    return 1;
}

inline void repeat_bytes(const std::uint8_t* grey, std::uint8_t* out, std::size_t count)
{
    for (std::size_t i = 0; i < 3 * count; ++i)
        out[i] = grey[i / 3];
}

inline void take_high_bytes(const std::uint16_t* samples, std::uint8_t* out, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        out[i] = static_cast<std::uint8_t>(samples[i] / 256);
}

inline void repeat_high_bytes(const std::uint16_t* grey, std::uint8_t* out, std::size_t count)
{
    for (std::size_t i = 0; i < 3 * count; ++i)
        out[i] = static_cast<std::uint8_t>(grey[i / 3] / 256);
}

} // namespace panoval::reference
