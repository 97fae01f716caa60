// SPDX-License-Identifier: MIT
#include "mosaic/verdict/cell_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mosaic/verdict/cell_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::mosaic::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// One vector's worth of samples, as many as d has lanes.
template <class D, class Sample>
HWY_INLINE void sum_vector(D d, const Sample* row, hn::TFromD<D>* sums, Sample* most)
{
    const hn::Rebind<Sample, D> narrow;
    const auto here = hn::LoadU(narrow, row);
    hn::StoreU(hn::Add(hn::LoadU(d, sums), hn::PromoteTo(d, here)), d, sums);
    hn::StoreU(hn::Max(hn::LoadU(narrow, most), here), narrow, most);
}

template <class Sample, class Sum>
HWY_INLINE void sum_all(const Sample* row, std::size_t count, Sum* sums, Sample* most)
{
    const hn::ScalableTag<Sum> d;
    const hn::CappedTag<Sum, 1> one;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        sum_vector(d, row + i, sums + i, most + i);
    for (; i < count; ++i) // fewer than one vector left
        sum_vector(one, row + i, sums + i, most + i);
}

void sum_row_8(const std::uint8_t* row, std::size_t count, std::uint16_t* sums, std::uint8_t* most)
{
    sum_all(row, count, sums, most);
}

void sum_row_16(const std::uint16_t* row, std::size_t count, std::uint32_t* sums, std::uint16_t* most)
{
    sum_all(row, count, sums, most);
}

} // namespace panoval::mosaic::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::mosaic
{
HWY_EXPORT(sum_row_8);
HWY_EXPORT(sum_row_16);

void sum_cell_row(const std::uint8_t* row, std::size_t count, std::uint16_t* sums, std::uint8_t* most)
{
    HWY_DYNAMIC_DISPATCH(sum_row_8)(row, count, sums, most);
}

void sum_cell_row(const std::uint16_t* row, std::size_t count, std::uint32_t* sums, std::uint16_t* most)
{
    HWY_DYNAMIC_DISPATCH(sum_row_16)(row, count, sums, most);
}
} // namespace panoval::mosaic
#endif
