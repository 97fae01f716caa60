// SPDX-License-Identifier: MIT
// Smoothing of 8-bit images with the 5 x 5 Gaussian kernel of sigma 1. The result is defined by a sum of 25 products in
// double, added in the kernel's order. A separable pass in single precision decides every pixel whose sum is not close
// to a whole number; flat windows have an outcome known beforehand; what is left is summed as defined.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "filter/smooth.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "core/numbers.h"
#include "panoval.h"

#include <algorithm>
#include <cstring>

#ifndef PANOVAL_FILTER_SMOOTH_ONCE
#define PANOVAL_FILTER_SMOOTH_ONCE
namespace panoval
{
namespace
{

constexpr std::size_t kReach = 2;  // pixels on each side of a window's centre
constexpr std::size_t kWindow = 5; // rows and columns

// The distinct elements of GetGaussianKernel(kernel, 5, 1), by distance from the centre in rows and columns.
constexpr double k00 = 0x1.4bfc906c2a8eep-3;
constexpr double k01 = 0x1.92b856facd85ap-4;
constexpr double k11 = 0x1.e8862e93c9e61p-5;
constexpr double k02 = 0x1.676f9c7838aaap-6;
constexpr double k12 = 0x1.b40494286615bp-7;
constexpr double k22 = 0x1.8527aba212073p-9;
constexpr double kKernel[kWindow][kWindow] = {{k22, k12, k02, k12, k22},
                                              {k12, k11, k01, k11, k12},
                                              {k02, k01, k00, k01, k02},
                                              {k12, k11, k01, k11, k12},
                                              {k22, k12, k02, k12, k22}};

// Weights of the separable pass: w[i] * w[j] is close to kKernel[2 + i][2 + j].
constexpr float kWeight[kReach + 1] = {0x1.9c4868p-2f, 0x1.f41fd6p-3f, 0x1.be5f0ep-5f};

constexpr bool weights_are_within(double relative_error) // COUNT_EXCL_START: runs in the compiler alone
{
    for (std::size_t i = 0; i <= kReach; ++i)
        for (std::size_t j = 0; j <= kReach; ++j) {
            const double wanted = kKernel[kReach + i][kReach + j];
            const double difference = static_cast<double>(kWeight[i]) * static_cast<double>(kWeight[j]) - wanted;
            if (difference > wanted * relative_error || -difference > wanted * relative_error)
                return false;
        }
    return true;
} // COUNT_EXCL_STOP

// How far the separable pass can be from the defined sum. With u = 2^-24, a result of single precision is off by a
// factor between 1 - u and 1 + u, and every term is positive, so that factors only multiply:
//   the product of two weights 1 (checked here); a column: product 1, two sums 2; a row: sum of two equally weighted
//   columns 1, product 1, two sums 2; together (1 + u)^8.
// The defined sum is at most 255 (1 + 2^-47) and its own rounding, below 2^-47 of it, vanishes beside that: the
// difference is below 255 * 8.001 * u = 0.0001217.
static_assert(weights_are_within(0x1p-24));

// Sums become fixed-point numbers of 15 fraction bits without a conversion: after kFixedBase is added, the last bits of
// a float count 2^-15. That addition rounds by up to 2^-16 = 0.0000153, so the fixed-point sum is within 0.000137, that
// is within 4.49 units, of the defined sum. kFixedBase is 256 less 5 units: the fixed-point number is a lower bound,
// and 10 units more are an upper one. Where both have the same integer part, the defined sum has it, too. The lower
// bound is negative for the sum 0 alone, as the smallest other one is k22, 97 units.
constexpr int kFractionBits = 15;
constexpr std::int32_t kMargin = 5;
constexpr float kFixedBase = 256.0f - static_cast<float>(kMargin) * 0x1p-15f;
constexpr std::int32_t kBitsOf256 = 0x43800000;

// What a window of one level gives.
constexpr int flat_outcome(int level) // COUNT_EXCL_START: runs in the compiler alone
{
    double sum = 0;
    for (const auto& row : kKernel)
        for (const double weight : row)
            sum += level * weight;
    return static_cast<int>(sum);
}

// The only level that its own window does not keep: the sum lands just below it.
constexpr int kLoweredLevel = 185;
constexpr bool only_one_level_is_lowered()
{
    for (int level = 0; level < 256; ++level)
        if (flat_outcome(level) != (level == kLoweredLevel ? level - 1 : level))
            return false;
    return true;
}
static_assert(only_one_level_is_lowered()); // COUNT_EXCL_STOP

// Images are smoothed in strips of this many columns, so that scratch is small and stays in the nearest cache.
constexpr std::size_t kStrip = 256;
constexpr std::size_t kGroup = 32; // pixels that are decided together
constexpr std::size_t kScratchColumns = kStrip + 2 * kGroup;

struct Strip {
    const std::uint8_t* src; // two rows above and two columns left of the first pixel to smooth
    std::uint8_t* dst;       // the first pixel to smooth
    std::size_t stride;      // of both
    std::size_t width;       // pixels to smooth, at most kStrip
    std::size_t height;
};

} // namespace
} // namespace panoval
#endif

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;
namespace
{

using Bytes = hn::CappedTag<std::uint8_t, kGroup>;
using Floats = hn::ScalableTag<float>;
using Ints = hn::RebindToSigned<Floats>;
using Doubles = hn::CappedTag<double, kGroup / 8>;

// Rows of a strip as doubles, converted group by group when they are first asked for.
class DoubleRows
{
public:
    explicit DoubleRows(const Strip& strip) : strip_(strip) {}

    // Samples x to x + kGroup + 2 * kReach - 1, where x is a multiple of kGroup; what lies outside the strip is 0.
    const double* row(std::size_t y, std::size_t x)
    {
        const std::size_t slot = y % kWindow;
        const std::size_t group = x / kGroup;
        for (std::size_t g = group; g < group + 2; ++g)
            if (held_[slot][g] != y + 1) {
                convert(y, g);
                held_[slot][g] = y + 1;
            }
        return values_[slot] + x;
    }

private:
    HWY_NOINLINE void convert(std::size_t y, std::size_t group)
    {
        const Doubles d;
        const hn::Rebind<std::int32_t, Doubles> di32;
        const hn::Rebind<std::uint8_t, Doubles> du8;
        const std::uint8_t* const src = strip_.src + y * strip_.stride;
        double* const values = values_[y % kWindow];
        const std::size_t end = std::min((group + 1) * kGroup, strip_.width + 2 * kReach);
        std::size_t i = group * kGroup;
        for (; i + hn::Lanes(d) <= end; i += hn::Lanes(d))
            hn::StoreU(hn::PromoteTo(d, hn::PromoteTo(di32, hn::LoadU(du8, src + i))), d, values + i);
        for (; i < end; ++i)
            values[i] = src[i];
    }

    const Strip& strip_;
    alignas(64) double values_[kWindow][kScratchColumns] = {};
    std::size_t held_[kWindow][kStrip / kGroup + 1] = {}; // number of the row in each slot plus 1
};

// The sum is positive: truncation floors.
HWY_INLINE void store_truncated(hn::Vec<Doubles> sum, std::uint8_t* out)
{
    const hn::Rebind<std::int32_t, Doubles> di32;
    const hn::Rebind<std::uint8_t, Doubles> du8;
    hn::StoreU(hn::DemoteTo(du8, hn::DemoteTo(di32, sum)), du8, out);
}

// Eight vectors of sums by the definition: the additions of one sum need not wait for those of the others.
HWY_INLINE void sum_exactly_at(const double* const rows[kWindow], std::size_t x, std::uint8_t* out)
{
    const Doubles d;
    const std::size_t n = hn::Lanes(d);
    auto s0 = hn::Zero(d), s1 = s0, s2 = s0, s3 = s0, s4 = s0, s5 = s0, s6 = s0, s7 = s0;
    for (std::size_t j = 0; j < kWindow; ++j)
        for (std::size_t i = 0; i < kWindow; ++i) {
            const auto weight = hn::Set(d, kKernel[j][i]);
            const double* const samples = rows[j] + x + i;
            s0 = hn::Add(s0, hn::Mul(hn::LoadU(d, samples), weight));
            s1 = hn::Add(s1, hn::Mul(hn::LoadU(d, samples + n), weight));
            s2 = hn::Add(s2, hn::Mul(hn::LoadU(d, samples + 2 * n), weight));
            s3 = hn::Add(s3, hn::Mul(hn::LoadU(d, samples + 3 * n), weight));
            s4 = hn::Add(s4, hn::Mul(hn::LoadU(d, samples + 4 * n), weight));
            s5 = hn::Add(s5, hn::Mul(hn::LoadU(d, samples + 5 * n), weight));
            s6 = hn::Add(s6, hn::Mul(hn::LoadU(d, samples + 6 * n), weight));
            s7 = hn::Add(s7, hn::Mul(hn::LoadU(d, samples + 7 * n), weight));
        }
    store_truncated(s0, out);
    store_truncated(s1, out + n);
    store_truncated(s2, out + 2 * n);
    store_truncated(s3, out + 3 * n);
    store_truncated(s4, out + 4 * n);
    store_truncated(s5, out + 5 * n);
    store_truncated(s6, out + 6 * n);
    store_truncated(s7, out + 7 * n);
}

// One group by the definition.
void sum_exactly(DoubleRows& rows, std::size_t y, std::size_t x, std::uint8_t* out)
{
    const double* samples[kWindow];
    for (std::size_t j = 0; j < kWindow; ++j)
        samples[j] = rows.row(y + j, x);
    for (std::size_t i = 0; i < kGroup; i += 8 * hn::Lanes(Doubles()))
        sum_exactly_at(samples, i, out + i);
}

// Weighted means of five samples that lie around the middle one.
template <class D, class V>
HWY_INLINE V weighted(D d, V middle, V inner, V outer)
{
    return hn::Add(hn::Add(hn::Mul(middle, hn::Set(d, kWeight[0])), hn::Mul(inner, hn::Set(d, kWeight[1]))),
                   hn::Mul(outer, hn::Set(d, kWeight[2])));
}

struct Columns {
    float upper[kScratchColumns];
    float lower[kScratchColumns];
};

template <class D>
HWY_INLINE hn::Vec<hn::RebindToSigned<D>> load_levels(D, const std::uint8_t* src)
{
    return hn::PromoteTo(hn::RebindToSigned<D>(), hn::LoadU(hn::Rebind<std::uint8_t, D>(), src));
}

// One vector of the column sums of two rows; of the upper one alone where the image ends.
template <bool has_lower, class D>
HWY_INLINE void sum_columns_at(D d, const std::uint8_t* src, std::size_t stride, std::size_t x, Columns& columns)
{
    src += x;
    const auto r1 = load_levels(d, src + stride);
    const auto r2 = load_levels(d, src + 2 * stride);
    const auto r3 = load_levels(d, src + 3 * stride);
    const auto r4 = load_levels(d, src + 4 * stride);
    const auto upper_inner = hn::ConvertTo(d, hn::Add(r1, r3));
    const auto upper_outer = hn::ConvertTo(d, hn::Add(load_levels(d, src), r4));
    hn::StoreU(weighted(d, hn::ConvertTo(d, r2), upper_inner, upper_outer), d, columns.upper + x);
    if constexpr (has_lower) {
        const auto lower_inner = hn::ConvertTo(d, hn::Add(r2, r4));
        const auto lower_outer = hn::ConvertTo(d, hn::Add(r1, load_levels(d, src + 5 * stride)));
        hn::StoreU(weighted(d, hn::ConvertTo(d, r3), lower_inner, lower_outer), d, columns.lower + x);
    }
}

template <bool has_lower>
void sum_columns(const Strip& strip, std::size_t y, Columns& columns)
{
    const Floats d;
    const std::size_t count = strip.width + 2 * kReach;
    const std::size_t lanes = hn::Lanes(d);
    const std::size_t stride = strip.stride;
    const std::uint8_t* const src = strip.src + y * stride;
    std::size_t x = 0;
    for (; x + lanes <= count; x += lanes)
        sum_columns_at<has_lower>(d, src, stride, x, columns);
    if (x < count && count >= lanes)
        sum_columns_at<has_lower>(d, src, stride, count - lanes, columns); // the last vector ends with the row
    else
        for (; x < count; ++x)
            sum_columns_at<has_lower>(hn::CappedTag<float, 1>(), src, stride, x, columns); // COUNT_EXCL_BRANCH: of 8
}

// Lower bounds of the sums in fixed point; columns points two to the left of the first pixel.
HWY_INLINE hn::Vec<Ints> lower_bounds(const float* columns)
{
    const Floats d;
    const auto inner = hn::Add(hn::LoadU(d, columns + 1), hn::LoadU(d, columns + 3));
    const auto outer = hn::Add(hn::LoadU(d, columns), hn::LoadU(d, columns + 4));
    const auto sums = weighted(d, hn::LoadU(d, columns + 2), inner, outer);
    const auto bits = hn::BitCast(Ints(), hn::Add(sums, hn::Set(d, kFixedBase)));
    return hn::Sub(bits, hn::Set(Ints(), kBitsOf256));
}

HWY_INLINE hn::Vec<Ints> upper_bounds(hn::Vec<Ints> lower)
{
    return hn::Add(lower, hn::Set(Ints(), 2 * kMargin));
}

// Integer parts; those of negative bounds are 0, which is the integer part of every sum that they bound.
HWY_INLINE void store_integers(hn::Vec<Ints> fixed, std::uint8_t* out)
{
    const hn::Rebind<std::uint8_t, Floats> du8;
    hn::StoreU(hn::DemoteTo(du8, hn::ShiftRight<kFractionBits>(fixed)), du8, out);
}

// One group from the separable pass. False when the margin leaves some pixel open.
HWY_INLINE bool decide(const float* columns, std::uint8_t* out)
{
    const Ints d;
    auto difference = hn::Zero(d);
    for (std::size_t i = 0; i < kGroup; i += hn::Lanes(d)) {
        const auto lower = lower_bounds(columns + i);
        difference = hn::Or(difference, hn::Xor(lower, upper_bounds(lower)));
        store_integers(lower, out + i);
    }
    return hn::AllTrue(d, hn::Eq(hn::ShiftRight<kFractionBits>(difference), hn::Zero(d)));
}

// Where every pixel of the window, whose top left corner is at src, equals its centre. Most windows that are not flat
// show it in the middle row.
HWY_INLINE hn::Mask<Bytes> is_flat(const std::uint8_t* src, std::size_t stride, hn::Vec<Bytes> centre)
{
    const Bytes d;
    const auto zero = hn::Zero(d);
    auto difference = zero;
    const auto compare_row = [&](std::size_t y) HWY_ATTR {
        for (std::size_t x = 0; x < kWindow; ++x)
            difference = hn::Or(difference, hn::Xor(hn::LoadU(d, src + y * stride + x), centre));
    };
    compare_row(kReach);
    if (hn::AllFalse(d, hn::Eq(difference, zero)))
        return hn::Eq(difference, zero);
    for (const std::size_t y : {kReach - 2, kReach - 1, kReach + 1, kReach + 2})
        compare_row(y);
    return hn::Eq(difference, zero);
}

// One vector of bytes of settle_flat.
HWY_INLINE bool settle_flat_at(const std::uint8_t* src, std::size_t stride, const float* columns, std::uint8_t* out)
{
    const Bytes d;
    const auto centre = hn::LoadU(d, src + kReach * stride + kReach);
    const auto flat = is_flat(src, stride, centre);
    if (hn::Lanes(d) == kGroup && hn::AllFalse(d, flat))
        return false; // the open pixels are here; COUNT_EXCL_BRANCH: a group is one vector
    std::uint8_t upper[kGroup];
    for (std::size_t i = 0; i < hn::Lanes(d); i += hn::Lanes(Ints()))
        store_integers(upper_bounds(lower_bounds(columns + i)), upper + i);
    const auto decided = hn::LoadU(d, out);
    if (!hn::AllTrue(d, hn::Or(flat, hn::Eq(hn::LoadU(d, upper), decided))))
        return false; // COUNT_EXCL_BRANCH: a group is several vectors
    const auto lowered = hn::VecFromMask(d, hn::Eq(centre, hn::Set(d, std::uint8_t{kLoweredLevel})));
    hn::StoreU(hn::IfThenElse(flat, hn::Add(centre, lowered), decided), d, out); // a set mask counts -1
    return true;
}

// Settles a group that is decided but for pixels with flat windows. False when others are open, too.
HWY_INLINE bool settle_flat(const std::uint8_t* src, std::size_t stride, const float* columns, std::uint8_t* out)
{
    for (std::size_t i = 0; i < kGroup; i += hn::Lanes(Bytes()))
        if (!settle_flat_at(src + i, stride, columns + i, out + i))
            return false;
    return true;
}

// One row of results.
HWY_INLINE void smooth_row(const Strip& strip, std::size_t y, DoubleRows& rows, const float* columns)
{
    std::uint8_t out[kStrip + kGroup];
    const std::uint8_t* const src = strip.src + y * strip.stride;
    for (std::size_t x = 0; x < strip.width; x += kGroup) {
        if (decide(columns + x, out + x))
            continue;
        const bool is_whole = x + kGroup <= strip.width; // else the source may end before the group does
        if (!is_whole || !settle_flat(src + x, strip.stride, columns + x, out + x))
            sum_exactly(rows, y, x, out + x);
    }
    std::memcpy(strip.dst + y * strip.stride, out, strip.width);
}

// Rows are taken in pairs, because the sums of their columns share most samples.
void smooth_strip(const Strip& strip)
{
    DoubleRows rows(strip);
    Columns columns = {};
    for (std::size_t y = 0; y < strip.height; y += 2) {
        const bool has_lower = y + 1 < strip.height;
        has_lower ? sum_columns<true>(strip, y, columns) : sum_columns<false>(strip, y, columns);
        smooth_row(strip, y, rows, columns.upper);
        if (has_lower)
            smooth_row(strip, y + 1, rows, columns.lower);
    }
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{

HWY_EXPORT(smooth_strip);

void copy_frame(const std::uint8_t* src, std::size_t width, std::size_t height, std::uint8_t* dst)
{
    const std::size_t top = std::min(height, kReach) * width;
    std::memcpy(dst, src, top);
    std::memcpy(dst + height * width - top, src + height * width - top, top);
    const std::size_t left = std::min(width, kReach);
    for (std::size_t y = 0; y < height; ++y) {
        const std::size_t begin = y * width;
        const std::size_t end = begin + width;
        for (std::size_t i = 0; i < left; ++i) {
            dst[begin + i] = src[begin + i];
            dst[end - 1 - i] = src[end - 1 - i];
        }
    }
}

} // namespace
} // namespace panoval

extern "C" {

void smooth_image(const std::uint8_t* src, std::int32_t width, std::int32_t height, std::uint8_t* dst)
{
    using namespace panoval;
    if (width < 1 || height < 1)
        return;
    const std::size_t stride = to_count(width);
    const std::size_t rows = to_count(height);
    copy_frame(src, stride, rows, dst);
    if (stride < kWindow || rows < kWindow)
        return;
    for (std::size_t x = 0; x < stride - 2 * kReach; x += kStrip)
        HWY_DYNAMIC_DISPATCH(smooth_strip)
    ({src + x, dst + kReach * stride + kReach + x, stride, std::min(kStrip, stride - 2 * kReach - x),
      rows - 2 * kReach});
}

} // extern "C"
#endif
