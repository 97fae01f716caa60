// SPDX-License-Identifier: MIT
// The inner loops of the coverage model and of the normal equations.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval::measure
{

// Windows are as many pixels wide as whole steps of this make; what is more than needed holds zeros. Single precision
// is a ten-thousandth of what noise leaves.
inline constexpr std::size_t kWindowStep = 4;

// What pixels of a row or column see of a point: the integral of the blur over a pixel, the integral of that from the
// pixel on, and its derivative.
//
// offset    of the point from the first pixel, whose response is the first of the window
// scale     1 / blur
// padded    pixels of the window, a multiple of kWindowStep; those from `window` on are set to 0
// edges     scratch, 3 * (padded + kWindowStep) values
// response, integral, slope  out, `padded` values each
void respond(double offset, double blur, double scale, std::size_t window, std::size_t padded, float* edges,
             float* response, float* integral, float* slope) noexcept;

// Samples of the outline at one height: [0] on its right half, [1] on the left. `column` counts from the first plane's
// first element.
struct Level {
    std::int32_t row;       // first row that it reaches
    std::int32_t column[2]; // first columns
    float height;           // of the outline along y, positive
    float by[2][5];         // derivatives of the area along the outline to its elements
    float normal[2][2];     // outward normals times the outline's length
};

// Adds levels to the planes of a row of pixels.
//
// levels     count levels; each has its row's window by_row + 3 * padded * index, and two columns' windows
//            by_column + 3 * padded * (2 * index + side): response, integral and slope
// y          the row, in reach of every level
// planes     five of derivatives, the blur's one, the coverage, and the ends of chords
void add_levels(const Level* levels, std::size_t count, std::int32_t y, std::size_t padded, const float* by_row,
                const float* by_column, float* planes, std::size_t stride) noexcept;

// For every row of 12: matrix += row * row transposed; sums += row * value.
void add_equations(const double* rows, const double* values, std::size_t count, double* matrix, double* sums) noexcept;

} // namespace panoval::measure
