// SPDX-License-Identifier: MIT
// The kernels of fitting a displacement: a row of one patch between its pixels, and what two rows have in common.
#pragma once

#include <array>
#include <cstddef>

namespace panoval::mosaic
{

// out[i]: between upper[i], upper[i + 1], lower[i] and lower[i + 1], linear both ways; fx and fy of a pixel further on.
void interpolate_row(const float* upper, const float* lower, float fx, float fy, std::size_t count, float* out);

// One row of two patches; pixels to the left, right, above and below of each are known where its weight is 1.
struct ShiftRow {
    const float* first;
    const float* second;
    std::size_t first_stride; // from row to row
    std::size_t second_stride;
    const float* weight; // 0 or 1
    std::size_t count;
};

// Of first (a) and second (b) values, and of gradients: halves of differences between neighbours.
enum ShiftSum {
    kCount,
    kA,
    kB,
    kAA,
    kAB,
    kBB,
    kGx, // of the first patch
    kGy,
    kGxA,
    kGxB,
    kGyA,
    kGyB,
    kOwnXX, // gradients of the first patch
    kOwnXY,
    kOwnYY,
    kCommonXX, // of both; XY is the mean of both products
    kCommonXY,
    kCommonYY,
    kShiftSums
};

// Adds a row's sums. Each is summed in single precision in eight parts, every eighth pixel, which are added to it in
// their order.
void add_shift_row(const ShiftRow& row, std::array<double, kShiftSums>& sums);

} // namespace panoval::mosaic
