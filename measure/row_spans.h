// SPDX-License-Identifier: MIT
// Where rows of pixels lie inside an outline that is wider by a distance.
#pragma once

#include "measure/outline.h"

#include <cstdint>

namespace panoval::measure
{

// Columns from begin to before end.
struct Span {
    std::int32_t begin = 0;
    std::int32_t end = 0;
};

// The columns of one row by what they are, from the left: each begins where the one before it ends.
struct RowSpans {
    std::int32_t outside = 0; // beside the outline, evenly
    std::int32_t edge = 0;    // near it
    std::int32_t inside = 0;  // evenly inside
    std::int32_t middle = 0;  // too far inside to be looked at
    std::int32_t middle_end = 0;
    std::int32_t inside_end = 0;
    std::int32_t edge_end = 0;
    std::int32_t outside_end = 0;
};

// The inside of an outline whose semi-axes are longer by a distance.
class WidenedOutline
{
public:
    // With an axis of 0 or less nothing is inside.
    WidenedOutline(const Outline& outline, double distance) noexcept;

    // The columns inside, cut to those of `within`.
    Span columns(std::int32_t y, const Span& within) const noexcept;

private:
    double x_, y_;
    bool has_inside_ = false;
    double slant_ = 0;  // shift of a row's middle per row
    double square_ = 0; // of half the width in the middle row
    double drop_ = 0;   // of that square, per squared row
};

// A widened outline has the same distance from the first one everywhere but for this factor, which is at most 1: that
// of the axes' geometric mean by their arithmetic one.
double least_widening(const Outline& outline) noexcept;

} // namespace panoval::measure
