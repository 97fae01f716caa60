// SPDX-License-Identifier: MIT
// Sums of four samples at a time, each turn with sums of its own, so that every vector length adds in the same order.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measure/patch_kernel.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "measure/patch_kernel.h"

#include <cmath>

HWY_BEFORE_NAMESPACE();
namespace panoval::measure::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

struct Row {
    double x, origin, level, slope, limit;
};

// Sums of the turns from `turn` on, as many as the tag has lanes; samples from `begin` to before `end`, which begin and
// end with a turn of 0 unless the tag has one lane.
template <class D>
HWY_INLINE void sum_turns(D tag, const Row& row, const float* samples, std::size_t begin, std::size_t end,
                          std::size_t turn, double (*sums)[kSumTurns])
{
    const hn::Rebind<float, D> narrow;
    auto sum_count = hn::LoadU(tag, sums[0] + turn);
    auto sum_x = hn::LoadU(tag, sums[1] + turn);
    auto sum_xx = hn::LoadU(tag, sums[2] + turn);
    auto sum_v = hn::LoadU(tag, sums[3] + turn);
    auto sum_vx = hn::LoadU(tag, sums[4] + turn);
    auto sum_vv = hn::LoadU(tag, sums[5] + turn);
    for (std::size_t i = begin + turn; i < end; i += kSumTurns) {
        const auto place = hn::Add(hn::Iota(tag, 0), hn::Set(tag, static_cast<double>(i)));
        const auto x = hn::Add(place, hn::Set(tag, row.x));
        const auto value = hn::Sub(hn::PromoteTo(tag, hn::LoadU(narrow, samples + i)), hn::Set(tag, row.origin));
        const auto expected = hn::Add(hn::Set(tag, row.level), hn::Mul(hn::Set(tag, row.slope), x));
        const auto keep = hn::Le(hn::Abs(hn::Sub(value, expected)), hn::Set(tag, row.limit));
        const auto kept_x = hn::IfThenElseZero(keep, x);
        const auto kept_value = hn::IfThenElseZero(keep, value);
        sum_count = hn::Add(sum_count, hn::IfThenElseZero(keep, hn::Set(tag, 1.0)));
        sum_x = hn::Add(sum_x, kept_x);
        sum_xx = hn::Add(sum_xx, hn::Mul(kept_x, kept_x));
        sum_v = hn::Add(sum_v, kept_value);
        sum_vx = hn::Add(sum_vx, hn::Mul(kept_value, kept_x));
        sum_vv = hn::Add(sum_vv, hn::Mul(kept_value, kept_value));
    }
    hn::StoreU(sum_count, tag, sums[0] + turn);
    hn::StoreU(sum_x, tag, sums[1] + turn);
    hn::StoreU(sum_xx, tag, sums[2] + turn);
    hn::StoreU(sum_v, tag, sums[3] + turn);
    hn::StoreU(sum_vx, tag, sums[4] + turn);
    hn::StoreU(sum_vv, tag, sums[5] + turn);
}

void sum_row(const float* samples, std::size_t count, double x, double origin, double level, double slope, double limit,
             double (*sums)[kSumTurns])
{
    const hn::CappedTag<double, kSumTurns> tag;
    const hn::CappedTag<double, 1> one;
    const Row row = {x, origin, level, slope, limit};
    const std::size_t whole = count / kSumTurns * kSumTurns;
    for (std::size_t turn = 0; turn < kSumTurns; turn += hn::Lanes(tag))
        sum_turns(tag, row, samples, 0, whole, turn, sums);
    for (std::size_t turn = 0; turn < count - whole; ++turn)
        sum_turns(one, row, samples, whole, count, turn, sums);
}

// What a bound parts values into.
struct Parting {
    std::size_t below; // values below it
    float last_below;  // the largest of them
    float first_above; // the least of the others
};

Parting part_values(const float* values, std::size_t count, float bound)
{
    const hn::CappedTag<float, 8> tag;
    const auto limit = hn::Set(tag, bound);
    const auto most = hn::Set(tag, HUGE_VALF);
    const auto least = hn::Set(tag, -HUGE_VALF);
    auto last = least;
    auto first = most;
    std::size_t below = 0;
    std::size_t i = 0;
    for (; i + hn::Lanes(tag) <= count; i += hn::Lanes(tag)) {
        const auto value = hn::LoadU(tag, values + i);
        const auto is_below = hn::Lt(value, limit);
        below += hn::CountTrue(tag, is_below);
        last = hn::Max(last, hn::IfThenElse(is_below, value, least));
        first = hn::Min(first, hn::IfThenElse(is_below, most, value));
    }
    Parting parting = {below, hn::GetLane(hn::MaxOfLanes(tag, last)), hn::GetLane(hn::MinOfLanes(tag, first))};
    for (; i < count; ++i) {
        const bool is_below = values[i] < bound;
        parting.below += is_below ? 1 : 0;
        float& nearest = is_below ? parting.last_below : parting.first_above;
        if (is_below ? values[i] > nearest : values[i] < nearest)
            nearest = values[i];
    }
    return parting;
}

// Halves the range of values until one is left; both of its ends are values.
float middle_of(const float* values, std::size_t count)
{
    const std::size_t before = count / 2;
    const Parting all = part_values(values, count, HUGE_VALF);
    float most = all.last_below;
    float least = part_values(values, count, -HUGE_VALF).first_above;
    while (least < most) {
        const float half = least / 2 + most / 2;
        const float bound = half > least && half < most ? half : most;
        const Parting parting = part_values(values, count, bound);
        if (parting.below > before)
            most = parting.last_below;
        else
            least = parting.first_above;
    }
    return least + 0.0f; // zeros of either sign are one value
}

} // namespace panoval::measure::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::measure
{
HWY_EXPORT(sum_row);
HWY_EXPORT(middle_of);

RowSums sum_row(const float* samples, std::size_t count, double x, double origin, double level, double slope,
                double limit) noexcept
{
    double sums[6][kSumTurns] = {};
    HWY_DYNAMIC_DISPATCH(sum_row)(samples, count, x, origin, level, slope, limit, sums);
    const auto total = [&](std::size_t i) { return (sums[i][0] + sums[i][1]) + (sums[i][2] + sums[i][3]); };
    return {total(0), total(1), total(2), total(3), total(4), total(5)};
}

float middle_of(const float* values, std::size_t count) noexcept
{
    return count == 0 ? 0 : HWY_DYNAMIC_DISPATCH(middle_of)(values, count);
}
} // namespace panoval::measure
#endif
