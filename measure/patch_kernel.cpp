// SPDX-License-Identifier: MIT
// Four samples at a time, each turn with sums of its own, so that every vector length adds in the same order.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measure/patch_kernel.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "measure/patch_kernel.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::measure::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

struct Row {
    double x, origin, level, slope, limit;
};

template <class D>
HWY_INLINE void add_to(D tag, double* sums, hn::Vec<D> value)
{
    hn::StoreU(hn::Add(hn::LoadU(tag, sums), value), tag, sums);
}

// The samples from i on, as many as the tag has lanes.
template <class D>
HWY_INLINE void add_samples(D tag, const Row& row, const float* samples, std::size_t i, double (*sums)[kSumTurns])
{
    const hn::Rebind<float, D> narrow;
    const std::size_t turn = i % kSumTurns;
    const auto place = hn::Add(hn::Iota(tag, 0), hn::Set(tag, static_cast<double>(i)));
    const auto x = hn::Add(place, hn::Set(tag, row.x));
    const auto value = hn::Sub(hn::PromoteTo(tag, hn::LoadU(narrow, samples + i)), hn::Set(tag, row.origin));
    const auto expected = hn::Add(hn::Set(tag, row.level), hn::Mul(hn::Set(tag, row.slope), x));
    const auto keep = hn::Le(hn::Abs(hn::Sub(value, expected)), hn::Set(tag, row.limit));
    const auto kept_x = hn::IfThenElseZero(keep, x);
    const auto kept_value = hn::IfThenElseZero(keep, value);
    add_to(tag, sums[0] + turn, hn::IfThenElseZero(keep, hn::Set(tag, 1.0)));
    add_to(tag, sums[1] + turn, kept_x);
    add_to(tag, sums[2] + turn, hn::Mul(kept_x, kept_x));
    add_to(tag, sums[3] + turn, kept_value);
    add_to(tag, sums[4] + turn, hn::Mul(kept_value, kept_x));
    add_to(tag, sums[5] + turn, hn::Mul(kept_value, kept_value));
}

void sum_row(const float* samples, std::size_t count, double x, double origin, double level, double slope, double limit,
             double (*sums)[kSumTurns])
{
    const hn::CappedTag<double, kSumTurns> tag;
    const hn::CappedTag<double, 1> one;
    const Row row = {x, origin, level, slope, limit};
    std::size_t i = 0;
    for (; i + hn::Lanes(tag) <= count; i += hn::Lanes(tag))
        add_samples(tag, row, samples, i, sums);
    for (; i < count; ++i)
        add_samples(one, row, samples, i, sums);
}

} // namespace panoval::measure::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::measure
{
HWY_EXPORT(sum_row);

RowSums sum_row(const float* samples, std::size_t count, double x, double origin, double level, double slope,
                double limit) noexcept
{
    double sums[6][kSumTurns] = {};
    HWY_DYNAMIC_DISPATCH(sum_row)(samples, count, x, origin, level, slope, limit, sums);
    const auto total = [&](std::size_t i) { return (sums[i][0] + sums[i][1]) + (sums[i][2] + sums[i][3]); };
    return {total(0), total(1), total(2), total(3), total(4), total(5)};
}
} // namespace panoval::measure
#endif
