// SPDX-License-Identifier: MIT
// How much of every pixel an elliptical area covers that a Gaussian has blurred and box pixels integrate, with the
// derivatives to the outline's elements and the blur. Gaussian and box are products of a function of x and one of y, so
// Green's theorem turns the integral over the area into one along the outline; on a closed smooth curve the sum over
// equidistant samples converges faster than any power of their number. Nothing is taken for straight or nearly
// straight.
#pragma once

#include "core/heap.h"
#include "measure/outline.h"
#include "measure/outline_kernel.h"
#include "measure/row_spans.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace panoval::measure
{

// A rectangle of pixels.
struct Box {
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
};

// All pixels within a distance of an outline's own box.
Box box_around(const Outline& outline, double margin) noexcept;

// Beyond so many deviations of the blur from the pixel's edge a pixel is evenly filled, to 3e-5.
inline constexpr double kReach = 4;
inline constexpr double kLeastBlur = 0.1;

// What a row holds for each column.
enum Plane : std::size_t {
    kByX = 0,             // derivative of the coverage to the outline's x
    kByY = 1,             // to y
    kByMean = kMeanPlane, // to mean
    kBySkewX = 3,         // to skew_x
    kBySkewY = 4,         // to skew_y
    kByBlur = 5,          // to the square of the blur
    kCoverage = kCoveragePlane,
    kPlanes = 7
};

class OutlineModel
{
public:
    // Makes room for outlines up to a semi-major axis and blurs of a range, within a box. False: no memory.
    bool reserve(const Box& box, double semi_major, double least_blur, double largest_blur) noexcept;

    // Samples an outline. False when it or its blur is beyond what is reserved, or reaches out of the box.
    bool sample(const Outline& outline, double blur) noexcept;

    // Rows from the top, each at most once after a call of sample. Returns the first plane; plane p begins at p *
    // stride(). Columns outside the edge's spans have no values.
    const float* row(std::int32_t y) noexcept; // all columns
    const float* row(std::int32_t y, const RowSpans& spans) noexcept;
    // The same with values in the planes kByMean and kCoverage alone.
    const float* coverage_row(std::int32_t y) noexcept;
    const float* coverage_row(std::int32_t y, const RowSpans& spans) noexcept;
    std::size_t stride() const noexcept { return stride_; }

private:
    void place_level(const Outline& outline, std::size_t level, const double* right, const double* left, double step,
                     double blur) noexcept;
    RowSpans all_columns() const noexcept;
    void advance(std::int32_t y) noexcept;
    // The columns that are asked for on either side, and those that windows reach; apart, or both in the right one.
    struct Stretches {
        Span left, right;
    };
    Stretches stretches_of(const RowSpans& spans) const noexcept;
    // Neighbouring planes: the ends of chords follow those of Plane.
    struct PlaneRun {
        std::size_t first, count;
    };
    void fill_row(std::int32_t y, const RowSpans& spans, decltype(add_levels)* add,
                  std::initializer_list<PlaneRun> filled) noexcept;
    void add_even(const Span& span, double& even) noexcept;

    Box box_;
    std::size_t stride_ = 0;
    std::size_t level_capacity_ = 0;
    std::size_t table_capacity_ = 0;
    std::size_t window_capacity_ = 0;
    std::size_t levels_ = 0;
    std::size_t window_ = 0; // pixels that a sample of the outline reaches, across and down
    std::size_t padded_ = 0; // and in whole vectors
    Outline sampled_;        // what the tables hold
    double sampled_blur_ = 0;
    std::size_t first_ = 0; // levels from first_ to last_ reach the current row
    std::size_t last_ = 0;
    HeapArray<Level> level_;
    HeapArray<float> by_row_;    // for each level and row: the pixel's response in y, its integral, its derivative
    HeapArray<float> by_column_; // for each sample and column: the same in x
    HeapArray<float> row_place_; // of each level in its window
    HeapArray<float> column_place_;
    HeapArray<float> scratch_; // of the kernel
    HeapArray<float> planes_;
};

} // namespace panoval::measure
