// SPDX-License-Identifier: MIT
// Rows of a patch of brightness, as they are defined.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::reference
{

inline void brightness_row(const float* samples, std::size_t channels, std::size_t count, double levels, float* out)
{
    for (std::size_t x = 0; x < count; ++x) {
        const float* const pixel = samples + x * channels;
        const float brightness = channels < 3 ? pixel[0] : 0.25f * (pixel[0] + pixel[2]) + 0.5f * pixel[1];
        out[x] = static_cast<float>(static_cast<double>(brightness) * levels);
    }
}

inline void second_differences(const float* row, std::size_t count, double* out)
{
    for (std::size_t x = 1; x + 1 < count; ++x)
        out[x] = static_cast<double>(row[x - 1]) - 2 * static_cast<double>(row[x]) + static_cast<double>(row[x + 1]);
}

inline void roughness_row(const double* above, const double* here, const double* below, std::size_t count, double* out)
{
    for (std::size_t x = 0; x < count; ++x) {
        const double value = above[x] - 2 * here[x] + below[x];
        out[x] = value * value / 36;
    }
}

inline void add_signed_row(const float* values, double sign, std::size_t count, double* sums)
{
    for (std::size_t x = 0; x < count; ++x)
        sums[x] += sign * static_cast<double>(values[x]);
}

inline void subtract_rows(const double* to, const double* from, std::size_t count, double* out)
{
    for (std::size_t x = 0; x < count; ++x)
        out[x] = to[x] - from[x];
}

inline void subtract_means(const float* values, const double* sums, const double* counts, const std::uint8_t* known,
                           std::size_t count, float* out)
{
    for (std::size_t x = 0; x < count; ++x)
        out[x] = known[x] != 0 ? static_cast<float>(static_cast<double>(values[x]) - sums[x] / counts[x]) : 0.0f;
}

} // namespace panoval::reference
