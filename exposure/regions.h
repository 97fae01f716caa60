// SPDX-License-Identifier: MIT
// Rectangles and masks in the panorama's frame: the rules that the exported routines and the gain compensator share.
#pragma once

#include "panoval.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

// The common rectangle of two placed ones. False, with roi untouched, when they share no pixel.
[[nodiscard]] bool find_overlap(Point tl1, Point tl2, Size sz1, Size sz2, Roi& roi) noexcept;

// The part of a rectangle, given in a source's coordinates, that lies inside the source; in the rectangle's own
// coordinates. Width and height are 0 when nothing does.
[[nodiscard]] Roi part_inside(const Roi& roi, std::int32_t source_width, std::int32_t source_height) noexcept;

// Copies length bytes. next is where the following call starts reading, readable or not.
void copy_row(const std::uint8_t* src, const std::uint8_t* next, std::size_t length, std::uint8_t* dst);

// out[i] = 255 where a[i] and b[i] are both nonzero, else 0. Returns how many are.
std::size_t intersect_masks(const std::uint8_t* a, const std::uint8_t* b, std::size_t count, std::uint8_t* out);

} // namespace panoval
