// SPDX-License-Identifier: MIT
// The stages of the edge detector. Rows run through them one by one, so that most images exist as a ring of rows: what
// a stage still needs of its predecessor, and no more. Only the magnitudes, the edge map and difference images that
// somebody asked for are kept whole.
#pragma once

#include "core/heap.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

inline constexpr std::uint8_t kEdge = 0;
inline constexpr std::uint8_t kCandidate = 128;
inline constexpr std::uint8_t kNoEdge = 255;

// Smoothed values are grey values times this, so that differences keep some of the fraction in an integer.
inline constexpr double kSmoothedPerGrey = 90.0;

// Writes the message to standard error and ends the process with exit code 1.
[[noreturn]] void canny_end_without_memory(const char* message);

// A block that is there: without it the process ends with the message.
template <class T>
[[nodiscard]] HeapArray<T> allocate_or_end(std::size_t count, const char* message)
{
    HeapArray<T> block = allocate<T>(count);
    if (block == nullptr)
        canny_end_without_memory(message);
    return block;
}

// An image of which the last ring_rows rows are kept; all of them where ring_rows is the height.
template <class T>
struct RowRing {
    HeapArray<T> block;
    std::size_t cols = 0;
    std::int32_t ring_rows = 1;

    T* row(std::int32_t r) const { return block.get() + static_cast<std::size_t>(r % ring_rows) * cols; }
};

template <class T>
[[nodiscard]] RowRing<T> allocate_ring_or_end(std::int32_t ring_rows, std::int32_t cols, const char* message)
{
    const auto width = static_cast<std::size_t>(cols);
    return {allocate_or_end<T>(static_cast<std::size_t>(ring_rows) * width, message), width, ring_rows};
}

// ------------------------------------------------------------------------------------------------------ smoothing ----

// Two one-dimensional passes in double. Rows smoothed along x wait in a ring as high as the kernel for the pass along
// y.
struct CannySmoother {
    std::int32_t rows = 0;
    std::int32_t cols = 0;
    std::int32_t half_x = 0;        // taps on either side of the centre that can meet the image, at most cols - 1
    std::int32_t half_y = 0;        // the same along y, at most rows - 1
    std::int32_t next_row = 0;      // the first row that has not gone through the pass along x
    HeapArray<double> kernel;       // 2 * half + 1 weights
    const double* centre = nullptr; // weight 0 of the kernel
    HeapArray<double> line;         // a row of the image between half_x zeros on either side
    HeapArray<double> x_sums;       // for each column the sum of the weights that lie inside the image
    HeapArray<const double*> taps;  // the rows of the ring under the kernel, from above
    RowRing<double> ring;
};

// False where the weights are not numbers (sigma 0 or nearly so): the smoothed image is 0 everywhere then.
bool canny_gaussian_smooth_start(CannySmoother& smoother, std::int32_t rows, std::int32_t cols, double sigma);

// Smooths row r, times 90 and rounded half up: 0 to 22950. Rows are asked for in rising order, each once.
void canny_gaussian_smooth(CannySmoother& smoother, const std::uint8_t* image, std::int32_t r, std::int16_t* smoothed);

// The passes' inner loops, on one row. Products are summed in the order of the taps.

// Grey values as doubles.
void canny_widen_row(const std::uint8_t* grey, std::size_t cols, double* out);

// out[x] = sum over t of line[x + t] * weights[t], divided by sums[x]. line holds tap_count - 1 values more than out.
void canny_smooth_x_row(const double* line, const double* weights, std::size_t tap_count, const double* sums,
                        std::size_t cols, double* out);

// out[x] = sum over t of taps[t][x] * weights[t], times 90, divided by sum, rounded half up. Values of the taps are 0
// to 255.
void canny_smooth_y_row(const double* const* taps, const double* weights, std::size_t tap_count, double sum,
                        std::size_t cols, std::int16_t* out);

// ------------------------------------------------------------------------------------------------------ gradients ----

// Differences of one row: right minus left neighbour and below minus above, of the pixel itself where there is no
// neighbour. On the first row above is the row itself, on the last one below is. At least two columns.
void canny_derivatives(const std::int16_t* above, const std::int16_t* row, const std::int16_t* below, std::size_t cols,
                       std::int16_t* delta_x, std::int16_t* delta_y);

// The rounded root of delta_x^2 + delta_y^2 for differences of smoothed values, at most 22950 in size: 0 to 32456.
void canny_magnitude(const std::int16_t* delta_x, const std::int16_t* delta_y, std::size_t count,
                     std::int16_t* magnitude);

// ---------------------------------------------------------------------------------------------------- suppression ----

// Marks the pixels 1 to cols - 3 of a row: kCandidate where the magnitude is a maximum along the gradient, kNoEdge
// elsewhere. magnitude points to the row; the rows above and below it lie cols elements away. A pixel of magnitude 0 is
// no candidate; where the low threshold can be negative, canny_mark_flat_pixels has the last word.
void canny_non_max_suppression(const std::int16_t* magnitude, const std::int16_t* delta_x, const std::int16_t* delta_y,
                               std::size_t cols, std::uint8_t* map);

// Marks pixels of magnitude 0 in a whole edge map, as candidates where the direction of the last pixel before them
// that has one makes them a maximum.
void canny_mark_flat_pixels(const std::int16_t* magnitude, const std::int16_t* delta_x, const std::int16_t* delta_y,
                            std::int32_t rows, std::int32_t cols, std::uint8_t* edge);

// ----------------------------------------------------------------------------------------------------- hysteresis ----

inline constexpr std::int32_t kMagnitudes = 32768; // values that a magnitude can have

struct CannyThresholds {
    std::int32_t high; // a seed's magnitude is at least this
    std::int16_t low;  // a follower's magnitude is above this
};

// Counts the magnitudes of one row's candidates.
void canny_count_candidates(const std::uint8_t* map, const std::int16_t* magnitude, std::size_t cols,
                            std::int32_t* histogram);

CannyThresholds canny_thresholds(const std::int32_t* histogram, double tlow, double thigh);

// Turns candidates that are seeds, or are reached from one, into kEdge and everything else into kNoEdge. The outermost
// pixels of edge are kNoEdge.
void canny_hysteresis(const std::int16_t* magnitude, std::int32_t rows, std::int32_t cols, CannyThresholds thresholds,
                      std::uint8_t* edge);

// What an edge map holds while edges grow in it. kEdge is 0 in either meaning.
inline constexpr std::uint8_t kFollower = 1; // a candidate above the low threshold
inline constexpr std::uint8_t kSeed = 2;     // a candidate that reaches the high one; may be a follower, too
inline constexpr std::uint8_t kNeither = 128;

// The passes before and after edges grow: classes in place of candidates, and then kNoEdge in place of what is no edge.
void canny_classify_pixels(const std::int16_t* magnitude, std::size_t count, CannyThresholds thresholds,
                           std::uint8_t* edge);
void canny_finish_pixels(std::uint8_t* edge, std::size_t count);

} // namespace panoval
