// SPDX-License-Identifier: MIT
// Norms of one, three or four channels are vectorised across pixels; any other channel count is summed pixel by pixel.
#include "exposure/pixel_norms.h"

#include "core/numbers.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "exposure/pixel_norms.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <cmath>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// The squares of one channel as doubles, and 0 for the pixels that are not covered. The products are formed as signed
// 32-bit integers, which is where those of 16-bit samples wrap.
template <class DD, class V, class M>
HWY_INLINE hn::Vec<DD> covered_squares(DD dd, V samples, M is_covered)
{
    const hn::Rebind<std::int32_t, DD> di;
    const auto wide = hn::PromoteTo(di, samples);
    return hn::PromoteTo(dd, hn::IfThenElseZero(is_covered, hn::Mul(wide, wide)));
}

template <std::size_t kChannels, class DD, class T>
HWY_INLINE void norms_of_block(DD dd, const T* pixels, const std::uint8_t* covered, double* norms)
{
    const hn::Rebind<T, DD> ds;
    const hn::Rebind<std::int32_t, DD> di;
    const hn::Rebind<std::uint8_t, DD> d8;
    const auto is_covered = hn::Ne(hn::PromoteTo(di, hn::LoadU(d8, covered)), hn::Zero(di));
    hn::Vec<decltype(ds)> a, b, c, e;
    auto sum = hn::Zero(dd);
    if constexpr (kChannels == 1) {
        sum = covered_squares(dd, hn::LoadU(ds, pixels), is_covered);
    } else if constexpr (kChannels == 3) {
        hn::LoadInterleaved3(ds, pixels, a, b, c);
        sum = hn::Add(covered_squares(dd, a, is_covered), covered_squares(dd, b, is_covered));
        sum = hn::Add(sum, covered_squares(dd, c, is_covered));
    } else {
        hn::LoadInterleaved4(ds, pixels, a, b, c, e);
        sum = hn::Add(covered_squares(dd, a, is_covered), covered_squares(dd, b, is_covered));
        sum = hn::Add(sum, hn::Add(covered_squares(dd, c, is_covered), covered_squares(dd, e, is_covered)));
    }
    hn::StoreU(hn::Sqrt(sum), dd, norms); // the sum is exact in any order
}

template <class T>
double norm_of_pixel(const T* pixel, std::size_t channels)
{
    double sum = 0;
    for (std::size_t c = 0; c < channels; ++c)
        sum += wrapping_mul(pixel[c], pixel[c]);
    return std::sqrt(sum);
}

template <std::size_t kChannels, class T>
void norms_of_row(const T* pixels, const std::uint8_t* covered, std::size_t count, double* norms)
{
    const hn::ScalableTag<double> dd;
    std::size_t i = 0;
    for (; i + hn::Lanes(dd) <= count; i += hn::Lanes(dd))
        norms_of_block<kChannels>(dd, pixels + i * kChannels, covered + i, norms + i);
    for (; i < count; ++i)
        norms[i] = covered[i] != 0 ? norm_of_pixel(pixels + i * kChannels, kChannels) : 0.0;
}

template <class T>
void norms_of_any_row(const T* pixels, std::size_t channels, const std::uint8_t* covered, std::size_t count,
                      double* norms)
{
    switch (channels) {
    case 1:
        norms_of_row<1>(pixels, covered, count, norms);
        return;
    case 3:
        norms_of_row<3>(pixels, covered, count, norms);
        return;
    case 4:
        norms_of_row<4>(pixels, covered, count, norms);
        return;
    default:
        break;
    }
    for (std::size_t i = 0; i < count; ++i)
        norms[i] = covered[i] != 0 ? norm_of_pixel(pixels + i * channels, channels) : 0.0;
}

void pixel_norms_8(const std::uint8_t* pixels, std::size_t channels, const std::uint8_t* covered, std::size_t count,
                   double* norms)
{
    norms_of_any_row(pixels, channels, covered, count, norms);
}

void pixel_norms_16(const std::uint16_t* pixels, std::size_t channels, const std::uint8_t* covered, std::size_t count,
                    double* norms)
{
    norms_of_any_row(pixels, channels, covered, count, norms);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(pixel_norms_8);
HWY_EXPORT(pixel_norms_16);

void pixel_norms(const std::uint8_t* pixels, std::size_t channels, const std::uint8_t* covered, std::size_t count,
                 double* norms)
{
    HWY_DYNAMIC_DISPATCH(pixel_norms_8)(pixels, channels, covered, count, norms);
}

void pixel_norms(const std::uint16_t* pixels, std::size_t channels, const std::uint8_t* covered, std::size_t count,
                 double* norms)
{
    HWY_DYNAMIC_DISPATCH(pixel_norms_16)(pixels, channels, covered, count, norms);
}

} // namespace panoval
#endif
