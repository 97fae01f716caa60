// SPDX-License-Identifier: MIT
// Canny's edge detector: smoothing, differences, magnitude, non-maximum suppression and hysteresis (Canny, A
// computational approach to edge detection, 1986). The first four stages run row by row behind one another.
#include "filter/canny.h"

#include "core/numbers.h"
#include "panoval.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace panoval
{

void canny_end_without_memory(const char* message)
{
    std::fputs(message, stderr);
    std::exit(1);
}

namespace
{

constexpr const char* kNoSmoothed = "Error allocating the smoothed image.\n";
constexpr const char* kNoDelta = "Error allocating the delta_x image.\n"; // of either difference image
constexpr const char* kNoMagnitude = "Error allocating the magnitude image.\n";
constexpr const char* kNoMap = "Error allocating the nms image.\n";

// What the stages hand to one another.
struct Canny {
    std::int32_t rows;
    std::int32_t cols;
    CannySmoother smoother;
    RowRing<std::int16_t> smoothed;
    RowRing<std::int16_t> delta_x;
    RowRing<std::int16_t> delta_y;
    HeapArray<std::int16_t> magnitude; // the whole image
    HeapArray<std::uint8_t> map;       // the suppression marks of one row
    std::int32_t histogram[kMagnitudes];
};

// The low threshold is below 0 for a negative fraction, or where it wraps at 16 bits. Only then can a pixel without
// gradient be part of an edge.
bool low_threshold_is_not_negative(double tlow)
{
    return tlow >= 0.0 && tlow <= 1.0; // the high threshold is at most 32456
}

// False where there is nothing to detect.
bool allocate_images(Canny& c, double sigma, bool keeps_delta_x, bool keeps_delta_y)
{
    if (!canny_gaussian_smooth_start(c.smoother, c.rows, c.cols, sigma))
        return false;
    c.smoothed = allocate_ring_or_end<std::int16_t>(3, c.cols, kNoSmoothed);
    c.delta_x = allocate_ring_or_end<std::int16_t>(keeps_delta_x ? c.rows : 2, c.cols, kNoDelta);
    c.delta_y = allocate_ring_or_end<std::int16_t>(keeps_delta_y ? c.rows : 2, c.cols, kNoDelta);
    const std::size_t cols = c.smoothed.cols;
    c.magnitude = allocate_or_end<std::int16_t>(static_cast<std::size_t>(c.rows) * cols, kNoMagnitude);
    c.map = allocate_or_end<std::uint8_t>(cols, kNoMap);
    return true;
}

void differentiate_row(Canny& c, std::int32_t r)
{
    const std::size_t cols = c.smoothed.cols;
    canny_derivatives(c.smoothed.row(std::max(r - 1, 0)), c.smoothed.row(r),
                      c.smoothed.row(std::min(r + 1, c.rows - 1)), cols, c.delta_x.row(r), c.delta_y.row(r));
    canny_magnitude(c.delta_x.row(r), c.delta_y.row(r), cols, c.magnitude.get() + static_cast<std::size_t>(r) * cols);
}

// The first and last row, the last but one, and the same columns are never candidates.
void suppress_row(Canny& c, std::int32_t r, std::uint8_t* edge)
{
    const std::size_t cols = c.smoothed.cols;
    const std::int16_t* const magnitude = c.magnitude.get() + static_cast<std::size_t>(r) * cols;
    std::memset(c.map.get(), kNoEdge, cols);
    if (r >= 1 && r <= c.rows - 3) {
        canny_non_max_suppression(magnitude, c.delta_x.row(r), c.delta_y.row(r), cols, c.map.get());
        canny_count_candidates(c.map.get(), magnitude, cols, c.histogram);
    }
    std::memcpy(edge + static_cast<std::size_t>(r) * cols, c.map.get(), cols);
}

// Candidates in edge, their magnitudes and the histogram: each row passes through as soon as the one below it can.
void find_candidates(Canny& c, const std::uint8_t* image, std::uint8_t* edge)
{
    canny_gaussian_smooth(c.smoother, image, 0, c.smoothed.row(0));
    for (std::int32_t r = 0; r < c.rows; ++r) {
        if (r + 1 < c.rows)
            canny_gaussian_smooth(c.smoother, image, r + 1, c.smoothed.row(r + 1));
        differentiate_row(c, r);
        if (r >= 1)
            suppress_row(c, r - 1, edge);
    }
    suppress_row(c, c.rows - 1, edge);
}

HeapArray<std::int16_t> zero_image(std::size_t count)
{
    HeapArray<std::int16_t> image = allocate_zeroed<std::int16_t>(count);
    if (image == nullptr)
        canny_end_without_memory(kNoDelta);
    return image;
}

// An image in which nothing can be detected: too small, or smoothed to nothing.
void report_no_edges(std::int32_t rows, std::int32_t cols, std::uint8_t* edge, std::int16_t** delta_x_out,
                     std::int16_t** delta_y_out)
{
    const std::size_t count = to_count(rows) * to_count(cols);
    if (count != 0)
        std::memset(edge, kNoEdge, count);
    for (std::int16_t** const out : {delta_x_out, delta_y_out})
        if (out != nullptr)
            *out = zero_image(count).release();
}

void detect(const std::uint8_t* image, std::int32_t rows, std::int32_t cols, std::uint8_t* edge, double sigma,
            double tlow, double thigh, std::int16_t** delta_x_out, std::int16_t** delta_y_out)
{
    Canny c{};
    c.rows = rows;
    c.cols = cols;
    const bool marks_flat_pixels = !low_threshold_is_not_negative(tlow);
    if (!allocate_images(c, sigma, delta_x_out != nullptr || marks_flat_pixels,
                         delta_y_out != nullptr || marks_flat_pixels)) {
        report_no_edges(rows, cols, edge, delta_x_out, delta_y_out);
        return;
    }
    find_candidates(c, image, edge);
    const CannyThresholds thresholds = canny_thresholds(c.histogram, tlow, thigh);
    if (thresholds.low < 0)
        canny_mark_flat_pixels(c.magnitude.get(), c.delta_x.block.get(), c.delta_y.block.get(), rows, cols, edge);
    canny_hysteresis(c.magnitude.get(), rows, cols, thresholds, edge);
    if (delta_x_out != nullptr)
        *delta_x_out = c.delta_x.block.release(); // the caller's from here on
    if (delta_y_out != nullptr)
        *delta_y_out = c.delta_y.block.release();
}

} // namespace
} // namespace panoval

extern "C" void canny(const std::uint8_t* image, std::int32_t rows, std::int32_t cols, std::uint8_t* edge, double sigma,
                      double tlow, double thigh, std::int16_t** delta_x_out, std::int16_t** delta_y_out)
{
    if (rows < 3 || cols < 3)
        panoval::report_no_edges(rows, cols, edge, delta_x_out, delta_y_out);
    else
        panoval::detect(image, rows, cols, edge, sigma, tlow, thigh, delta_x_out, delta_y_out);
}
