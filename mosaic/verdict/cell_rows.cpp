// SPDX-License-Identifier: MIT
#include "mosaic/verdict/cell_rows.h"

#include <algorithm>

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

template <bool kIsSum, class D>
HWY_INLINE void fold_vector(D d, std::size_t distance, hn::TFromD<D>* values)
{
    const auto here = hn::LoadU(d, values);
    const auto there = hn::LoadU(d, values + distance);
    hn::StoreU(kIsSum ? hn::Add(here, there) : hn::Max(here, there), d, values);
}

// A vector is stored when all that lies in its place has been read.
template <bool kIsSum, class Value>
HWY_INLINE void fold_all(std::size_t count, std::size_t distance, Value* values)
{
    const hn::ScalableTag<Value> d;
    const hn::CappedTag<Value, 1> one;
    const std::size_t end = count - std::min(count, distance);
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= end; i += hn::Lanes(d))
        fold_vector<kIsSum>(d, distance, values + i);
    for (; i < end; ++i) // fewer than one vector left
        fold_vector<kIsSum>(one, distance, values + i);
}

template <class Sum, class Sample>
HWY_INLINE void fold_both(std::size_t count, std::size_t distance, Sum* sums, Sample* most)
{
    fold_all<true>(count, distance, sums);
    fold_all<false>(count, distance, most);
}

void fold_8(std::size_t count, std::size_t distance, std::uint16_t* sums, std::uint8_t* most)
{
    fold_both(count, distance, sums, most);
}

void fold_16(std::size_t count, std::size_t distance, std::uint32_t* sums, std::uint16_t* most)
{
    fold_both(count, distance, sums, most);
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
HWY_EXPORT(fold_8);
HWY_EXPORT(fold_16);
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

void fold_cell_columns(std::size_t count, std::size_t distance, std::uint16_t* sums, std::uint8_t* most)
{
    HWY_DYNAMIC_DISPATCH(fold_8)(count, distance, sums, most);
}

void fold_cell_columns(std::size_t count, std::size_t distance, std::uint32_t* sums, std::uint16_t* most)
{
    HWY_DYNAMIC_DISPATCH(fold_16)(count, distance, sums, most);
}
} // namespace panoval::mosaic
#endif
