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

// The squares of one channel as signed 32-bit integers, and 0 for the pixels that are not covered.
template <class DI, class V>
HWY_INLINE hn::Vec<DI> covered_squares(DI di, V samples, hn::Mask<DI> is_covered)
{
    const auto wide = hn::PromoteTo(di, samples);
    return hn::IfThenElseZero(is_covered, hn::Mul(wide, wide));
}

// Three or four 8-bit squares fit an integer; 16-bit ones are added as doubles, which are exact, too.
template <class DI, class V>
HWY_INLINE void store_roots(DI di, V sums, double* norms)
{
    const hn::Repartition<double, DI> dd;
    const hn::Half<DI> half;
    hn::StoreU(hn::Sqrt(hn::PromoteTo(dd, hn::LowerHalf(half, sums))), dd, norms);
    hn::StoreU(hn::Sqrt(hn::PromoteTo(dd, hn::UpperHalf(half, sums))), dd, norms + hn::Lanes(dd));
}

template <class DI, class V, class... Vs>
HWY_INLINE void store_wide_roots(DI di, double* norms, V first, Vs... rest)
{
    const hn::Repartition<double, DI> dd;
    const hn::Half<DI> half;
    auto low = hn::PromoteTo(dd, hn::LowerHalf(half, first));
    auto high = hn::PromoteTo(dd, hn::UpperHalf(half, first));
    ((low = hn::Add(low, hn::PromoteTo(dd, hn::LowerHalf(half, rest))),
      high = hn::Add(high, hn::PromoteTo(dd, hn::UpperHalf(half, rest)))),
     ...);
    hn::StoreU(hn::Sqrt(low), dd, norms);
    hn::StoreU(hn::Sqrt(high), dd, norms + hn::Lanes(dd));
}

template <class DI, class... Vs>
HWY_INLINE void store_norms(DI di, double* norms, const std::uint8_t*, Vs... squares)
{
    auto sum = hn::Zero(di);
    ((sum = hn::Add(sum, squares)), ...);
    store_roots(di, sum, norms);
}

template <class DI, class... Vs>
HWY_INLINE void store_norms(DI di, double* norms, const std::uint16_t*, Vs... squares)
{
    store_wide_roots(di, norms, squares...);
}

template <std::size_t kChannels, class DI, class T>
HWY_INLINE void norms_of_block(DI di, const T* pixels, const std::uint8_t* covered, double* norms)
{
    const hn::Rebind<T, DI> ds;
    const hn::Rebind<std::uint8_t, DI> d8;
    const auto is_covered = hn::Ne(hn::PromoteTo(di, hn::LoadU(d8, covered)), hn::Zero(di));
    if constexpr (kChannels == 1) {
        store_norms(di, norms, pixels, covered_squares(di, hn::LoadU(ds, pixels), is_covered));
    } else if constexpr (kChannels == 3) {
        hn::Vec<decltype(ds)> a, b, c;
        hn::LoadInterleaved3(ds, pixels, a, b, c);
        store_norms(di, norms, pixels, covered_squares(di, a, is_covered), covered_squares(di, b, is_covered),
                    covered_squares(di, c, is_covered));
    } else {
        hn::Vec<decltype(ds)> a, b, c, e;
        hn::LoadInterleaved4(ds, pixels, a, b, c, e);
        store_norms(di, norms, pixels, covered_squares(di, a, is_covered), covered_squares(di, b, is_covered),
                    covered_squares(di, c, is_covered), covered_squares(di, e, is_covered));
    }
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
    const hn::ScalableTag<std::int32_t> di;
    std::size_t i = 0;
    for (; i + hn::Lanes(di) <= count; i += hn::Lanes(di))
        norms_of_block<kChannels>(di, pixels + i * kChannels, covered + i, norms + i);
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
