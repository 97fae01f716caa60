// SPDX-License-Identifier: MIT
// The edge detector's Gaussian smoothing: a separable kernel in double, along x and then along y. Taps outside the
// image are dropped and the result is divided by the weights that remain, so borders keep their brightness.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "filter/canny_smooth.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set

#include <hwy/highway.h>

#include "core/elementary.h"
#include "core/numbers.h"
#include "filter/canny.h"

#include <algorithm>
#include <cmath>
#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

void widen_row(const std::uint8_t* bytes, std::size_t count, double* doubles)
{
    const hn::ScalableTag<double> d;
    const hn::Rebind<std::int32_t, decltype(d)> d32;
    const hn::Rebind<std::uint8_t, decltype(d)> d8;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        hn::StoreU(hn::PromoteTo(d, hn::PromoteTo(d32, hn::LoadU(d8, bytes + i))), d, doubles + i);
    for (; i < count; ++i)
        doubles[i] = bytes[i];
}

// The products of kVectors vectors with the weights, summed in the order of the taps. tap(t) points to the values that
// weight t meets.
template <std::size_t kVectors, class D, class Tap, class Use>
HWY_INLINE void weigh_block(D d, const double* weights, std::size_t tap_count, const Tap& tap, const Use& use)
{
    const std::size_t n = hn::Lanes(d);
    auto sum0 = hn::Zero(d);
    auto sum1 = hn::Zero(d);
    auto sum2 = hn::Zero(d);
    auto sum3 = hn::Zero(d);
    for (std::size_t t = 0; t < tap_count; ++t) {
        const auto weight = hn::Set(d, weights[t]);
        const double* const values = tap(t);
        sum0 = hn::Add(sum0, hn::Mul(hn::LoadU(d, values), weight));
        if constexpr (kVectors == 4) {
            sum1 = hn::Add(sum1, hn::Mul(hn::LoadU(d, values + n), weight));
            sum2 = hn::Add(sum2, hn::Mul(hn::LoadU(d, values + 2 * n), weight));
            sum3 = hn::Add(sum3, hn::Mul(hn::LoadU(d, values + 3 * n), weight));
        }
    }
    use(sum0, std::size_t{0});
    if constexpr (kVectors == 4) {
        use(sum1, n);
        use(sum2, 2 * n);
        use(sum3, 3 * n);
    }
}

// out[x] = sum over t of line[x + t] * weights[t], divided by sums[x].
template <std::size_t kVectors, class D>
HWY_INLINE void smooth_x_block(D d, const double* line, const double* weights, std::size_t tap_count,
                               const double* sums, double* out)
{
    weigh_block<kVectors>(
        d, weights, tap_count, [line](std::size_t t) HWY_ATTR { return line + t; },
        [&](auto dot, std::size_t x) HWY_ATTR { hn::StoreU(hn::Div(dot, hn::LoadU(d, sums + x)), d, out + x); });
}

void smooth_x_row(const double* line, const double* weights, std::size_t tap_count, const double* sums,
                  std::size_t cols, double* out)
{
    const hn::ScalableTag<double> d;
    const hn::CappedTag<double, 1> one;
    const std::size_t block = 4 * hn::Lanes(d);
    std::size_t x = 0;
    for (; x + block <= cols; x += block)
        smooth_x_block<4>(d, line + x, weights, tap_count, sums + x, out + x);
    for (; x < cols; ++x)
        smooth_x_block<1>(one, line + x, weights, tap_count, sums + x, out + x);
}

// out[x] = sum over t of taps[t][x] * weights[t], times 90, divided by sum, rounded half up.
template <std::size_t kVectors, class D>
HWY_INLINE void smooth_y_block(D d, const double* const* taps, const double* weights, std::size_t tap_count, double sum,
                               std::size_t x, std::int16_t* out)
{
    const hn::Rebind<std::int32_t, D> d32;
    const hn::Rebind<std::int16_t, D> d16;
    weigh_block<kVectors>(
        d, weights, tap_count, [taps, x](std::size_t t) HWY_ATTR { return taps[t] + x; },
        [&](auto dot, std::size_t i) HWY_ATTR {
            const auto scaled = hn::Div(hn::Mul(dot, hn::Set(d, kSmoothedPerGrey)), hn::Set(d, sum));
            const auto rounded = hn::DemoteTo(d32, hn::Add(scaled, hn::Set(d, 0.5))); // 0 to 22950, truncated
            hn::StoreU(hn::DemoteTo(d16, rounded), d16, out + x + i);
        });
}

void smooth_y_row(const double* const* taps, const double* weights, std::size_t tap_count, double sum, std::size_t cols,
                  std::int16_t* out)
{
    const hn::ScalableTag<double> d;
    const hn::CappedTag<double, 1> one;
    const std::size_t block = 4 * hn::Lanes(d);
    std::size_t x = 0;
    for (; x + block <= cols; x += block)
        smooth_y_block<4>(d, taps, weights, tap_count, sum, x, out);
    for (; x < cols; ++x)
        smooth_y_block<1>(one, taps, weights, tap_count, sum, x, out);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
HWY_EXPORT(widen_row);
HWY_EXPORT(smooth_x_row);
HWY_EXPORT(smooth_y_row);

void canny_widen_row(const std::uint8_t* grey, std::size_t cols, double* out)
{
    HWY_DYNAMIC_DISPATCH(widen_row)(grey, cols, out);
}

void canny_smooth_x_row(const double* line, const double* weights, std::size_t tap_count, const double* sums,
                        std::size_t cols, double* out)
{
    HWY_DYNAMIC_DISPATCH(smooth_x_row)(line, weights, tap_count, sums, cols, out);
}

void canny_smooth_y_row(const double* const* taps, const double* weights, std::size_t tap_count, double sum,
                        std::size_t cols, std::int16_t* out)
{
    HWY_DYNAMIC_DISPATCH(smooth_y_row)(taps, weights, tap_count, sum, cols, out);
}

namespace
{

constexpr const char* kNoKernel = "Error callocing the gaussian kernel array.\n";
constexpr const char* kNoBuffer = "Error allocating the buffer image.\n";

// Base of the exponential and 2 * pi as the detector defines them, cut short.
constexpr double kE = 2.71828;
constexpr double kTwoPi = 6.2831853;

// Number of weights: two and a half sigma on either side. A length that is no number of weights (sigma of -0.4 or less,
// not a number, or beyond any kernel) cannot be allocated.
std::int32_t kernel_length(double sigma)
{
    const std::int32_t length = truncate_to_int(2 * std::ceil(2.5 * sigma) + 1);
    if (length < 1)
        canny_end_without_memory(kNoKernel);
    return length;
}

HeapArray<double> make_kernel(std::int32_t length, double sigma)
{
    HeapArray<double> kernel = allocate_or_end<double>(static_cast<std::size_t>(length), kNoKernel);
    const std::int32_t half = length / 2;
    double sum = 0;
    for (std::int32_t i = 0; i < length; ++i) {
        const double x = i - half;
        kernel[static_cast<std::size_t>(i)] =
            panoval::pow(kE, ((x * -0.5) * x) / (sigma * sigma)) / (std::sqrt(kTwoPi) * sigma);
        sum += kernel[static_cast<std::size_t>(i)];
    }
    for (std::int32_t i = 0; i < length; ++i)
        kernel[static_cast<std::size_t>(i)] /= sum;
    return kernel;
}

// The weights that lie inside an image of count pixels when the kernel stands on pixel i.
struct TapRange {
    std::int32_t first; // -half to 0
    std::int32_t last;  // 0 to half
};

TapRange taps_inside(std::int32_t half, std::int32_t i, std::int32_t count)
{
    return {-std::min(half, i), std::min(half, count - 1 - i)};
}

double sum_of_weights(const double* centre, TapRange range)
{
    double sum = 0;
    for (std::int32_t t = range.first; t <= range.last; ++t)
        sum += centre[t];
    return sum;
}

HeapArray<double> sums_of_columns(const CannySmoother& s)
{
    HeapArray<double> sums = allocate_or_end<double>(static_cast<std::size_t>(s.cols), kNoBuffer);
    const double full = sum_of_weights(s.centre, {-s.half_x, s.half_x});
    for (std::int32_t c = 0; c < s.cols; ++c) {
        const TapRange range = taps_inside(s.half_x, c, s.cols);
        const bool is_full = range.last - range.first == 2 * s.half_x;
        sums[static_cast<std::size_t>(c)] = is_full ? full : sum_of_weights(s.centre, range);
    }
    return sums;
}

void smooth_along_x(CannySmoother& s, const std::uint8_t* row, double* out)
{
    const auto cols = static_cast<std::size_t>(s.cols);
    const auto half = static_cast<std::size_t>(s.half_x);
    canny_widen_row(row, cols, s.line.get() + half);
    // The zeros beside the line stand for dropped taps: they add nothing to the sum of products.
    canny_smooth_x_row(s.line.get(), s.centre - half, 2 * half + 1, s.x_sums.get(), cols, out);
}

} // namespace

bool canny_gaussian_smooth_start(CannySmoother& s, std::int32_t rows, std::int32_t cols, double sigma)
{
    const std::int32_t length = kernel_length(sigma);
    s.kernel = make_kernel(length, sigma);
    s.centre = s.kernel.get() + length / 2;
    s.rows = rows;
    s.cols = cols;
    s.half_x = std::min(length / 2, cols - 1);
    s.half_y = std::min(length / 2, rows - 1);
    const std::size_t line = static_cast<std::size_t>(cols) + 2 * static_cast<std::size_t>(s.half_x);
    s.line = allocate_or_end<double>(line, kNoBuffer);
    std::memset(s.line.get(), 0, line * sizeof(double));
    s.x_sums = sums_of_columns(s);
    s.taps = allocate_or_end<const double*>(2 * static_cast<std::size_t>(s.half_y) + 1, kNoBuffer);
    s.ring = allocate_ring_or_end<double>(
        static_cast<std::int32_t>(std::min(2 * std::int64_t{s.half_y} + 1, std::int64_t{rows})), cols, kNoBuffer);
    s.next_row = 0;
    return !std::isnan(s.centre[0]);
}

void canny_gaussian_smooth(CannySmoother& s, const std::uint8_t* image, std::int32_t r, std::int16_t* smoothed)
{
    const TapRange range = taps_inside(s.half_y, r, s.rows);
    for (; s.next_row <= r + range.last; ++s.next_row)
        smooth_along_x(s, image + static_cast<std::size_t>(s.next_row) * s.ring.cols, s.ring.row(s.next_row));
    const std::int32_t count = range.last - range.first + 1;
    for (std::int32_t t = 0; t < count; ++t)
        s.taps[static_cast<std::size_t>(t)] = s.ring.row(r + range.first + t);
    canny_smooth_y_row(s.taps.get(), s.centre + range.first, static_cast<std::size_t>(count),
                       sum_of_weights(s.centre, range), s.ring.cols, smoothed);
}

} // namespace panoval
#endif
