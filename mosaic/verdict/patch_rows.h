// SPDX-License-Identifier: MIT
// The kernels of preparing a patch of brightness, row by row.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

// Brightness of pixels, `levels` to a unit of the samples: that of grey, or a quarter of red and blue and half of
// green. A fourth channel has no say.
//
// samples  count * channels
// channels 1, 3 or 4
void brightness_row(const float* samples, std::size_t channels, std::size_t count, double levels, float* out);

// out[x] = row[x - 1] - 2 row[x] + row[x + 1], for all x but the first and the last one.
void second_differences(const float* row, std::size_t count, double* out);

// out[x]: the square of above[x] - 2 here[x] + below[x], a 36th of it.
void roughness_row(const double* above, const double* here, const double* below, std::size_t count, double* out);

// Adds sign * values[x] to sums[x].
void add_signed_row(const float* values, double sign, std::size_t count, double* sums);

// out[x] = to[x] - from[x].
void subtract_rows(const double* to, const double* from, std::size_t count, double* out);

// out[x] = values[x] - sums[x] / counts[x] where known[x] is not 0, otherwise 0.
void subtract_means(const float* values, const double* sums, const double* counts, const std::uint8_t* known,
                    std::size_t count, float* out);

} // namespace panoval::mosaic
