// SPDX-License-Identifier: MIT
// Row filters of image pyramids. The order of the sums is part of the result: it is the documented one on every
// instruction set, and vectors run across independent samples only.
#include "blend/pyramid_rows.h"

#include "blend/border.h"
#include "core/numbers.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "blend/pyramid_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{
namespace hn = hwy::HWY_NAMESPACE;
using One = hn::CappedTag<float, 1>;
using Four = hn::CappedTag<float, 4>;
constexpr bool kHasFour = hn::MaxLanes(Four()) == 4; // not where vectors are emulated by single floats

template <class D, class V = hn::Vec<D>>
HWY_INLINE V reduce_five(D d, V s0, V s1, V s2, V s3, V s4)
{
    const V odd = hn::Mul(hn::Set(d, 4.0f), hn::Add(s1, s3));
    return hn::Add(hn::Add(hn::Add(odd, hn::Mul(hn::Set(d, 6.0f), s2)), s0), s4);
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE V expand_three(D d, V left, V s, V right)
{
    return hn::Add(hn::Add(left, hn::Mul(hn::Set(d, 6.0f), s)), right);
}

template <class D, class V = hn::Vec<D>>
HWY_INLINE V expand_two(D d, V s, V right)
{
    return hn::Mul(hn::Set(d, 4.0f), hn::Add(s, right));
}

// ------------------------------------------------------------------------------------------------ across a row ----

// Pixels begin to end - 1 of a reduced row, all of whose neighbours lie inside the source; one pixel at a time in the
// lanes of d. Where a vector is wider than the pixel, the next one overwrites what it stored too much: the caller keeps
// the last pixels, which have no such successor, for a vector that fits.
template <class D>
HWY_INLINE void reduce_pixels(D d, const float* src, std::size_t channels, std::size_t begin, std::size_t end,
                              float* dst)
{
    const auto load = [&](const float* at) HWY_ATTR { return hn::LoadU(d, at); };
    for (std::size_t x = begin; x < end; ++x) {
        const float* const s = src + 2 * x * channels;
        hn::StoreU(reduce_five(d, load(s - 2 * channels), load(s - channels), load(s), load(s + channels),
                               load(s + 2 * channels)),
                   d, dst + x * channels);
    }
}

// The same for one channel: even and odd columns apart, a vector of pixels at a time. Returns where it ended.
HWY_INLINE std::size_t reduce_columns(const float* src, std::size_t width, std::size_t begin, std::size_t end,
                                      float* dst)
{
    const hn::ScalableTag<float> d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t x = begin;
    // The last vector reads up to column 2 (x + lanes) + 1.
    for (; x + lanes <= end && 2 * (x + lanes) + 2 <= width; x += lanes) {
        hn::Vec<decltype(d)> s0, s1, s2, s3, s4, unused;
        hn::LoadInterleaved2(d, src + 2 * x - 2, s0, s1);
        hn::LoadInterleaved2(d, src + 2 * x, s2, s3);
        hn::LoadInterleaved2(d, src + 2 * x + 2, s4, unused);
        hn::StoreU(reduce_five(d, s0, s1, s2, s3, s4), d, dst + x);
    }
    return x;
}

// One sample at a time, for any number of channels.
HWY_INLINE void reduce_samples(const float* src, std::size_t channels, std::size_t begin, std::size_t end, float* dst)
{
    const One one;
    for (std::size_t c = 0; c < channels; ++c)
        reduce_pixels(one, src + c, channels, begin, end, dst + c);
}

void reduce_inner(const float* src, std::size_t width, std::size_t channels, std::size_t begin, std::size_t end,
                  float* dst)
{
    // A vector of four floats on three channels reads one float more than the pixel has, and writes one: both lie in
    // the next pixel as long as there is one.
    std::size_t x = begin;
    if (channels == 1) {
        x = reduce_columns(src, width, begin, end, dst);
    } else if (kHasFour && channels == 3 && end > begin + 1) {
        reduce_pixels(Four(), src, 3, begin, end - 1, dst);
        x = end - 1;
    } else if (kHasFour && channels == 4) {
        reduce_pixels(Four(), src, 4, begin, end, dst);
        x = end;
    }
    reduce_samples(src, channels, x, end, dst);
}

// Pixels begin to end - 1 of an expanded row, of which there is at least one, with a left and a right neighbour, as
// reduce_pixels.
template <class D>
HWY_INLINE void expand_pixels(D d, const float* src, std::size_t channels, std::size_t begin, std::size_t end,
                              float* dst)
{
    auto left = hn::LoadU(d, src + (begin - 1) * channels);
    auto s = hn::LoadU(d, src + begin * channels);
    for (std::size_t x = begin; x < end; ++x) {
        const auto right = hn::LoadU(d, src + (x + 1) * channels);
        hn::StoreU(expand_three(d, left, s, right), d, dst + 2 * x * channels);
        hn::StoreU(expand_two(d, s, right), d, dst + (2 * x + 1) * channels);
        left = s;
        s = right;
    }
}

HWY_INLINE std::size_t expand_columns(const float* src, std::size_t begin, std::size_t end, float* dst)
{
    const hn::ScalableTag<float> d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t x = begin;
    for (; x + lanes <= end; x += lanes) {
        const auto left = hn::LoadU(d, src + x - 1);
        const auto s = hn::LoadU(d, src + x);
        const auto right = hn::LoadU(d, src + x + 1);
        hn::StoreInterleaved2(expand_three(d, left, s, right), expand_two(d, s, right), d, dst + 2 * x);
    }
    return x;
}

void expand_inner(const float* src, std::size_t channels, std::size_t begin, std::size_t end, float* dst)
{
    std::size_t x = begin;
    if (channels == 1) {
        x = expand_columns(src, begin, end, dst);
    } else if (kHasFour && channels == 3 && end > begin + 1) {
        expand_pixels(Four(), src, 3, begin, end - 1, dst);
        x = end - 1;
    } else if (kHasFour && channels == 4) {
        expand_pixels(Four(), src, 4, begin, end, dst);
        x = end;
    }
    for (std::size_t c = 0; c < channels && x < end; ++c)
        expand_pixels(One(), src + c, channels, x, end, dst + c);
}

// ----------------------------------------------------------------------------------------------- down a column ----

template <class D>
HWY_INLINE void reduce_four(D d, const float* const rows[5], std::size_t i, float* dst)
{
    const auto r2 = hn::LoadU(d, rows[2] + i);
    const auto near_sum = hn::Add(hn::Add(hn::LoadU(d, rows[1] + i), hn::LoadU(d, rows[3] + i)), r2);
    const auto far_sum = hn::Add(hn::LoadU(d, rows[0] + i), hn::LoadU(d, rows[4] + i));
    const auto sum = hn::Add(hn::Mul(hn::Set(d, 4.0f), near_sum), hn::Add(far_sum, hn::Add(r2, r2)));
    hn::StoreU(hn::Mul(sum, hn::Set(d, 1.0f / 256)), d, dst + i);
}

void reduce_column(const float* const rows[5], std::size_t count, float* dst)
{
    const hn::ScalableTag<float> d;
    const Four four;
    const One one;
    const std::size_t in_fours = count / 4 * 4;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= in_fours; i += hn::Lanes(d))
        reduce_four(d, rows, i, dst);
    for (; i < in_fours; i += hn::Lanes(four))
        reduce_four(four, rows, i, dst); // COUNT_EXCL_BRANCH: where vectors are longer
    for (; i < count; ++i) {
        const auto load = [&](int k) HWY_ATTR { return hn::LoadU(one, rows[k] + i); };
        const auto sum = reduce_five(one, load(0), load(1), load(2), load(3), load(4));
        hn::StoreU(hn::Mul(sum, hn::Set(one, 1.0f / 256)), one, dst + i);
    }
}

template <class D>
HWY_INLINE void expand_even(D d, const float* const rows[3], std::size_t i, float* dst)
{
    const auto sum = expand_three(d, hn::LoadU(d, rows[0] + i), hn::LoadU(d, rows[1] + i), hn::LoadU(d, rows[2] + i));
    hn::StoreU(hn::Mul(sum, hn::Set(d, 1.0f / 64)), d, dst + i);
}

template <class D>
HWY_INLINE void expand_odd(D d, const float* const rows[2], std::size_t i, float* dst)
{
    const auto sum = expand_two(d, hn::LoadU(d, rows[0] + i), hn::LoadU(d, rows[1] + i));
    hn::StoreU(hn::Mul(sum, hn::Set(d, 1.0f / 64)), d, dst + i);
}

void expand_column_even(const float* const rows[3], std::size_t count, float* dst)
{
    const hn::ScalableTag<float> d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        expand_even(d, rows, i, dst);
    for (; i < count; ++i)
        expand_even(One(), rows, i, dst);
}

void expand_column_odd(const float* const rows[2], std::size_t count, float* dst)
{
    const hn::ScalableTag<float> d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        expand_odd(d, rows, i, dst);
    for (; i < count; ++i)
        expand_odd(One(), rows, i, dst);
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{
HWY_EXPORT(reduce_inner);
HWY_EXPORT(expand_inner);
HWY_EXPORT(reduce_column);
HWY_EXPORT(expand_column_even);
HWY_EXPORT(expand_column_odd);

// One pixel of a reduced row at an end of the source, where neighbours come from the border rule.
void reduce_edge_pixel(const float* src, std::int32_t width, std::int32_t channels, std::int32_t rule, std::int32_t x,
                       float* dst)
{
    std::int32_t columns[5];
    for (std::int32_t k = 0; k < 5; ++k)
        columns[k] = border_interpolate(2 * x - 2 + k, width, rule);
    for (std::int32_t c = 0; c < channels; ++c) {
        const auto sample = [&](std::int32_t k) {
            const std::int32_t column = columns[k];
            return column >= 0 && column < width ? src[column * std::ptrdiff_t{channels} + c] : 0.0f;
        };
        dst[x * std::ptrdiff_t{channels} + c] =
            4.0f * (sample(1) + sample(3)) + 6.0f * sample(2) + sample(0) + sample(4);
    }
}
} // namespace

void reduce_across(const float* src, std::int32_t width, std::int32_t channels, std::int32_t rule, float* dst,
                   std::int32_t dst_width)
{
    const std::int32_t inner_end = width < 5 ? 1 : std::min((width - 3) / 2 + 1, dst_width);
    for (std::int32_t x = 0; x < std::min(1, dst_width); ++x)
        reduce_edge_pixel(src, width, channels, rule, x, dst);
    if (inner_end > 1)
        HWY_DYNAMIC_DISPATCH(reduce_inner)
    (src, to_count(width), to_count(channels), 1, to_count(inner_end), dst);
    for (std::int32_t x = inner_end; x < dst_width; ++x)
        reduce_edge_pixel(src, width, channels, rule, x, dst);
}

void reduce_down(const float* const rows[5], std::size_t count, float* dst)
{
    HWY_DYNAMIC_DISPATCH(reduce_column)(rows, count, dst);
}

void expand_across(const float* src, std::int32_t width, std::int32_t channels, float* dst, std::int32_t dst_width)
{
    const std::size_t n = to_count(channels);
    const std::size_t last = to_count(width - 1);
    const bool has_last_odd = dst_width == 2 * width;
    for (std::size_t c = 0; c < n; ++c) {
        const float first_s = src[c];
        const float last_s = src[last * n + c];
        if (last == 0) {
            dst[c] = 8.0f * first_s;
        } else {
            dst[c] = 6.0f * first_s + 2.0f * src[n + c];
            dst[n + c] = 4.0f * (first_s + src[n + c]);
            dst[2 * last * n + c] = src[(last - 1) * n + c] + 7.0f * last_s;
        }
        if (has_last_odd)
            dst[(2 * last + 1) * n + c] = 8.0f * last_s;
    }
    if (last > 1)
        HWY_DYNAMIC_DISPATCH(expand_inner)(src, n, 1, last, dst);
}

void expand_down_even(const float* const rows[3], std::size_t count, float* dst)
{
    HWY_DYNAMIC_DISPATCH(expand_column_even)(rows, count, dst);
}

void expand_down_odd(const float* const rows[2], std::size_t count, float* dst)
{
    HWY_DYNAMIC_DISPATCH(expand_column_odd)(rows, count, dst);
}

} // namespace panoval
#endif
