// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_sums.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mosaic/gains/gain_sums.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::mosaic::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// Lanes are as wide as the sums; samples are widened as they are read.
template <class D, class Sample, class Sums>
HWY_INLINE void add_vector(D d, const GainRow<Sample>& row, std::size_t i, Sums& sums)
{
    const hn::Rebind<Sample, D> narrow;
    const auto first = hn::PromoteTo(d, hn::LoadU(narrow, row.first + i));
    const auto second = hn::PromoteTo(d, hn::LoadU(narrow, row.second + i));
    const auto covered = hn::Ne(hn::PromoteTo(d, hn::LoadU(narrow, row.mask + i)), hn::Zero(d));
    // x >= bound, for unsigned lanes: the larger of both is x.
    const auto bound = hn::Set(d, row.bound);
    const auto first_bright = hn::And(hn::Eq(hn::Max(first, bound), first), covered);
    const auto second_bright = hn::And(hn::Eq(hn::Max(second, bound), second), covered);
    const auto used = hn::AndNot(hn::Or(first_bright, second_bright), covered);
    const auto add = [&](auto values, auto* at)
                         HWY_ATTR { hn::StoreU(hn::Add(hn::LoadU(d, at), hn::IfThenElseZero(used, values)), d, at); };
    add(first, sums.first.data() + i);
    add(second, sums.second.data() + i);
    add(hn::Set(d, 1), sums.used.data() + i);
    sums.bright.first += hn::CountTrue(d, first_bright);
    sums.bright.second += hn::CountTrue(d, second_bright);
}

template <class Sum, class Sample, class Sums>
void add_row(const GainRow<Sample>& row, Sums& sums)
{
    const hn::ScalableTag<Sum> d;
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= row.count; i += lanes)
        add_vector(d, row, i, sums);
    for (; i < row.count; ++i) // fewer than one vector left
        add_vector(hn::CappedTag<Sum, 1>(), row, i, sums);
}

void add_row8(const GainRow<std::uint8_t>& row, ColumnSums8& sums)
{
    add_row<std::uint16_t>(row, sums);
}

void add_row16(const GainRow<std::uint16_t>& row, ColumnSums16& sums)
{
    add_row<std::uint32_t>(row, sums);
}

} // namespace panoval::mosaic::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::mosaic
{

HWY_EXPORT(add_row8);
HWY_EXPORT(add_row16);

void add_gain_row(const GainRow<std::uint8_t>& row, ColumnSums8& sums)
{
    HWY_DYNAMIC_DISPATCH(add_row8)(row, sums);
}

void add_gain_row(const GainRow<std::uint16_t>& row, ColumnSums16& sums)
{
    HWY_DYNAMIC_DISPATCH(add_row16)(row, sums);
}

} // namespace panoval::mosaic
#endif
