// SPDX-License-Identifier: MIT
// The four row filters that image pyramids are made of: the 1 4 6 4 1 kernel, across a row and down a column, to half
// the size (reduce) and to twice the size (expand). Samples are single-precision floats with channels interleaved.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

inline constexpr std::size_t kReducedRows = 5;  // that one row of half the height is made of
inline constexpr std::size_t kExpandedRows = 3; // that one row of twice the height is made of, at most

// Across, to half the width: dst(x) = 4 (s(2x-1) + s(2x+1)) + 6 s(2x) + s(2x-2) + s(2x+2), from left to right.
//
// rule  the border rule for columns beside the row; a column that it leaves outside counts as 0
void reduce_across(const float* src, std::int32_t width, std::int32_t channels, std::int32_t rule, float* dst,
                   std::int32_t dst_width);

// Down, to half the height: r0 to r4 become one row, scaled to the kernel's sum of 256.
//
// rows   r0 to r4, filtered across; the same row may stand for several
// count  floats of a whole row. The first 4 * (count / 4) are 4 ((r1 + r3) + r2) + ((r0 + r4) + 2 r2), the others
//        ((4 (r1 + r3) + 6 r2) + r0) + r4: the two differ in the last bit
void reduce_down(const float* const rows[kReducedRows], std::size_t count, float* dst);

// Across, to twice the width or one pixel less: even pixels (l + 6 s) + r, odd ones 4 (s + r), and at the ends of the
// row what keeps a constant constant.
void expand_across(const float* src, std::int32_t width, std::int32_t channels, float* dst, std::int32_t dst_width);

// Down, to twice the height: an even row from the three coarse rows around it, an odd one from the two beside it,
// scaled to the kernel's sum of 64.
void expand_down_even(const float* const rows[kExpandedRows], std::size_t count, float* dst);
void expand_down_odd(const float* const rows[2], std::size_t count, float* dst);

} // namespace panoval
