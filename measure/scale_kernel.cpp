// SPDX-License-Identifier: MIT
// Some samples at a time, in sums of 32 bits; what is left of a row is taken one by one.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measure/scale_kernel.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "measure/scale_kernel.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::measure::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

using Sums = hn::ScalableTag<std::uint32_t>;
using OneSum = hn::CappedTag<std::uint32_t, 1>;

// Calls visit(tag, i) for the values begin to end - 1.
template <class Visit>
HWY_INLINE void for_each_sum(std::size_t begin, std::size_t end, const Visit& visit)
{
    const Sums several;
    const OneSum one;
    std::size_t i = begin;
    for (; i + hn::Lanes(several) <= end; i += hn::Lanes(several))
        visit(several, i);
    for (; i < end; ++i)
        visit(one, i);
}

template <class D>
HWY_INLINE hn::Vec<D> load_wide(D tag, const std::uint16_t* samples)
{
    return hn::PromoteTo(tag, hn::LoadU(hn::Rebind<std::uint16_t, D>(), samples));
}

// Of values below 65536.
template <class D>
HWY_INLINE void store_narrow(D, hn::Vec<D> values, std::uint16_t* samples)
{
    const hn::RebindToSigned<D> integers;
    const hn::Rebind<std::uint16_t, D> narrow;
    hn::StoreU(hn::DemoteTo(narrow, hn::BitCast(integers, values)), narrow, samples);
}

void smooth_along(const std::uint16_t* row, std::size_t width, std::uint32_t* sums)
{
    if (width == 1) {
        sums[0] = 4u * row[0];
        return;
    }
    sums[0] = 3u * row[0] + row[1];
    for_each_sum(1, width - 1, [=](auto tag, std::size_t i) HWY_ATTR {
        const auto sides = hn::Add(load_wide(tag, row + i - 1), load_wide(tag, row + i + 1));
        hn::StoreU(hn::Add(sides, hn::ShiftLeft<1>(load_wide(tag, row + i))), tag, sums + i);
    });
    sums[width - 1] = static_cast<std::uint32_t>(row[width - 2]) + 3u * row[width - 1];
}

void smooth_down(const std::uint32_t* above, const std::uint32_t* here, const std::uint32_t* below, std::size_t width,
                 std::uint16_t* row)
{
    for_each_sum(0, width, [=](auto tag, std::size_t i) HWY_ATTR {
        const auto sides = hn::Add(hn::LoadU(tag, above + i), hn::LoadU(tag, below + i));
        const auto sum = hn::Add(sides, hn::ShiftLeft<1>(hn::LoadU(tag, here + i)));
        store_narrow(tag, hn::ShiftRight<4>(hn::Add(sum, hn::Set(tag, 8u))), row + i);
    });
}

void halve_rows(const std::uint16_t* above, const std::uint16_t* below, std::size_t width, std::uint16_t* row)
{
    for_each_sum(0, width, [=](auto tag, std::size_t i) HWY_ATTR {
        const hn::Rebind<std::uint16_t, decltype(tag)> narrow;
        hn::Vec<decltype(narrow)> even[2];
        hn::Vec<decltype(narrow)> odd[2];
        hn::LoadInterleaved2(narrow, above + 2 * i, even[0], odd[0]);
        hn::LoadInterleaved2(narrow, below + 2 * i, even[1], odd[1]);
        const auto upper = hn::Add(hn::PromoteTo(tag, even[0]), hn::PromoteTo(tag, odd[0]));
        const auto lower = hn::Add(hn::PromoteTo(tag, even[1]), hn::PromoteTo(tag, odd[1]));
        const auto sum = hn::Add(hn::Add(upper, lower), hn::Set(tag, 2u));
        store_narrow(tag, hn::ShiftRight<2>(sum), row + i);
    });
}

} // namespace panoval::measure::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::measure
{

HWY_EXPORT(smooth_along);
HWY_EXPORT(smooth_down);
HWY_EXPORT(halve_rows);

void smooth_along(const std::uint16_t* row, std::size_t width, std::uint32_t* sums)
{
    HWY_DYNAMIC_DISPATCH(smooth_along)(row, width, sums);
}

void smooth_down(const std::uint32_t* above, const std::uint32_t* here, const std::uint32_t* below, std::size_t width,
                 std::uint16_t* row)
{
    HWY_DYNAMIC_DISPATCH(smooth_down)(above, here, below, width, row);
}

void halve_rows(const std::uint16_t* above, const std::uint16_t* below, std::size_t width, std::uint16_t* row)
{
    HWY_DYNAMIC_DISPATCH(halve_rows)(above, below, width, row);
}

} // namespace panoval::measure
#endif
