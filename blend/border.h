// SPDX-License-Identifier: MIT
// How images go on beyond their edges: indices that lie outside, and margins around a copy.
#pragma once

#include "panoval.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

// What stands where an index lies outside 0 to length - 1. The numbers are fixed.
enum BorderRule : std::int32_t {
    kBorderConstant = 0,    // nothing: the index becomes -1, and the caller uses a constant
    kBorderReplicate = 1,   // the first or last one
    kBorderMirrorEdge = 2,  // the mirror image, edge repeated: -1 becomes 0
    kBorderWrap = 3,        // the other end
    kBorderMirrorInner = 4, // the mirror image, edge not repeated: -1 becomes 1
};

// The index inside that stands for p, at any distance. A rule of any other number leaves p as it is; a length below 1
// gives 0 where an index inside is due.
std::int32_t border_interpolate(std::int32_t p, std::int32_t length, std::int32_t rule);

// Copies an image into a larger one, `left` pixels from its left and `top` rows from its top, and fills the margins by
// a rule from 1 to 4. Rows beyond the destination's height are left out.
//
// src_step, dst_step  bytes from one row to the next
// src_size, dst_size  pixels; src_size has at least one, and fits beside `left`
// elem_bytes          bytes per pixel
void copy_make_border(const std::uint8_t* src, std::size_t src_step, Size src_size, std::uint8_t* dst,
                      std::size_t dst_step, Size dst_size, std::int32_t top, std::int32_t left, std::int32_t elem_bytes,
                      std::int32_t rule);

// As copy_make_border, with margins of one pixel value, elem_bytes bytes at `value`.
void copy_make_const_border(const std::uint8_t* src, std::size_t src_step, Size src_size, std::uint8_t* dst,
                            std::size_t dst_step, Size dst_size, std::int32_t top, std::int32_t left,
                            std::int32_t elem_bytes, const std::uint8_t* value);

} // namespace panoval
