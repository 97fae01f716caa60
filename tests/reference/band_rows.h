// SPDX-License-Identifier: MIT
// Rows of bands to the canvas and out of it, as they are defined: one sample at a time.
#pragma once

#include "blend/band_rows.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace panoval::reference
{

// The expanded coarser level at a sample; 0 for the coarsest one.
inline float expanded_sample(const CoarseRows& coarse, std::size_t i)
{
    if (coarse.kind == CoarseRows::None)
        return 0;
    if (coarse.kind == CoarseRows::Odd)
        return (4.0f * (coarse.row[1][i] + coarse.row[2][i])) * 0.015625f;
    return ((coarse.row[0][i] + 6.0f * coarse.row[1][i]) + coarse.row[2][i]) * 0.015625f;
}

inline float sample_as_float(const void* samples, std::size_t sample_bytes, std::size_t i)
{
    const auto* const at = static_cast<const std::uint8_t*>(samples) + i * sample_bytes;
    std::uint16_t word = *at;
    float value;
    if (sample_bytes == 4) {
        std::memcpy(&value, at, sizeof value);
        return value;
    }
    std::memcpy(&word, at, sample_bytes);
    return static_cast<float>(word);
}

inline void add_band(const BandRow& row)
{
    for (std::size_t x = 0; x < row.pixels; ++x) {
        for (std::size_t i = x * row.channels; i < (x + 1) * row.channels; ++i) {
            const float band = sample_as_float(row.fine, row.sample_bytes, i) - expanded_sample(row.coarse, i);
            row.sums[i] += band * row.weight[x];
        }
        row.weight_sums[x] += row.weight[x];
    }
}

inline void collapse_row(const CanvasRow& row)
{
    for (std::size_t i = 0; i < row.pixels * row.channels; ++i) {
        const float mean = std::floor(row.sums[i] / (row.weight_sums[i / row.channels] + 1e-5f) + 0.5f);
        const float value = mean + expanded_sample(row.coarse, i);
        auto* const at = static_cast<std::uint8_t*>(row.out) + i * row.sample_bytes;
        if (row.sample_bytes == 4) {
            std::memcpy(at, &value, sizeof value);
            continue;
        }
        const float largest = row.sample_bytes == 1 ? 255.0f : 65535.0f;
        const auto word = static_cast<std::uint16_t>(std::floor(std::min(std::max(value, 0.0f), largest)));
        std::memcpy(at, &word, row.sample_bytes);
    }
}

} // namespace panoval::reference
