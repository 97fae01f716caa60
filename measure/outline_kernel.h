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

inline constexpr std::size_t kRespondGroup = 8; // points whose edges are evaluated together

constexpr std::size_t respond_scratch(std::size_t padded) noexcept
{
    return 3 * kRespondGroup * (padded + kWindowStep);
}

// What pixels of a row or column see of points: the integral of the blur over a pixel, the integral of that from the
// pixel on, and its derivative.
//
// places    count points, each counted from the edge before its first pixel, whose response is the first of its window
// scale     1 / blur
// padded    pixels of a window, a multiple of kWindowStep; those from `window` on are set to 0
// scratch   respond_scratch(padded) values
// out       for each point `padded` responses, integrals and slopes
void respond(const float* places, std::size_t count, double blur, double scale, std::size_t window, std::size_t padded,
             float* scratch, float* out) noexcept;

// Sets columns of `count` planes to 0, from the first plane's first element on; whole steps of kWindowStep.
void clear_planes(float* planes, std::size_t stride, std::size_t count, std::size_t columns) noexcept;

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

inline constexpr std::size_t kMeanPlane = 2; // the derivative to the mean of the axes
inline constexpr std::size_t kCoveragePlane = 6;

// As add_levels, but leaves out all planes but these two and the ends of chords.
void add_coverage(const Level* levels, std::size_t count, std::int32_t y, std::size_t padded, const float* by_row,
                  const float* by_column, float* planes, std::size_t stride) noexcept;

// For every row of 12: matrix += row * row transposed; sums += row * value.
void add_equations(const double* rows, const double* values, std::size_t count, double* matrix, double* sums) noexcept;

} // namespace panoval::measure
