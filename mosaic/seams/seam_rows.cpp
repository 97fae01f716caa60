// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_rows.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mosaic/seams/seam_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::mosaic::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

template <class V>
HWY_INLINE V distance(V a, V b)
{
    return hn::Sub(hn::Max(a, b), hn::Min(a, b));
}

// One vector's worth of samples from i on; kAcross and kBelow: whether they have neighbours there.
template <bool kAcross, bool kBelow, class D>
HWY_INLINE void sum_vector(D d, const std::uint8_t* row, const std::uint8_t* below, std::size_t i, std::size_t step,
                           std::uint16_t* sums, std::uint16_t* rough)
{
    const hn::Rebind<std::uint8_t, D> bytes;
    const auto here = hn::PromoteTo(d, hn::LoadU(bytes, row + i));
    hn::StoreU(hn::Add(hn::LoadU(d, sums + i), here), d, sums + i);
    auto sum = hn::LoadU(d, rough + i);
    if constexpr (kAcross)
        sum = hn::Add(sum, distance(here, hn::PromoteTo(d, hn::LoadU(bytes, row + i + step))));
    if constexpr (kBelow)
        sum = hn::Add(sum, distance(here, hn::PromoteTo(d, hn::LoadU(bytes, below + i))));
    hn::StoreU(sum, d, rough + i);
}

template <bool kBelow>
void sum_all(const std::uint8_t* row, const std::uint8_t* below, std::size_t count, std::size_t step,
             std::uint16_t* sums, std::uint16_t* rough)
{
    const hn::ScalableTag<std::uint16_t> d;
    const hn::CappedTag<std::uint16_t, 1> one;
    const std::size_t inside = count - std::min(count, step);
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= inside; i += hn::Lanes(d))
        sum_vector<true, kBelow>(d, row, below, i, step, sums, rough);
    for (; i < inside; ++i)
        sum_vector<true, kBelow>(one, row, below, i, step, sums, rough);
    for (; i < count; ++i)
        sum_vector<false, kBelow>(one, row, below, i, step, sums, rough);
}

void sum_row(const std::uint8_t* row, const std::uint8_t* below, std::size_t count, std::size_t step,
             std::uint16_t* sums, std::uint16_t* rough)
{
    if (below != nullptr)
        sum_all<true>(row, below, count, step, sums, rough);
    else
        sum_all<false>(row, below, count, step, sums, rough);
}

} // namespace panoval::mosaic::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::mosaic
{
HWY_EXPORT(sum_row);
void sum_row(const std::uint8_t* row, const std::uint8_t* below, std::size_t count, std::size_t step,
             std::uint16_t* sums, std::uint16_t* rough)
{
    HWY_DYNAMIC_DISPATCH(sum_row)(row, below, count, step, sums, rough);
}
} // namespace panoval::mosaic
#endif
