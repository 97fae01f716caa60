// SPDX-License-Identifier: MIT
// 8-bit samples go through a table of 256 results; 16-bit ones are computed as many at a time as doubles fit a vector.
#include "exposure/gain_apply.h"

#include "core/numbers.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "exposure/gain_apply.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <array>
#include <cmath>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// floor(value * gain + 0.5), clamped to 0 .. 65535; 0 for what the conversion to 32 bits would make negative.
template <class DD, class V>
HWY_INLINE V scaled(DD dd, V value, V gain)
{
    const auto rounded = hn::Floor(hn::Add(hn::Mul(value, gain), hn::Set(dd, 0.5)));
    const auto fits = hn::And(hn::Ge(rounded, hn::Zero(dd)), hn::Lt(rounded, hn::Set(dd, 2147483648.0)));
    return hn::Min(hn::IfThenElseZero(fits, rounded), hn::Set(dd, 65535.0));
}

void scale_row_16(std::uint16_t* samples, std::size_t count, double gain)
{
    const hn::ScalableTag<double> dd;
    const hn::Rebind<std::int32_t, decltype(dd)> di;
    const hn::Rebind<std::uint16_t, decltype(dd)> ds;
    const auto g = hn::Set(dd, gain);
    std::size_t i = 0;
    for (; i + hn::Lanes(dd) <= count; i += hn::Lanes(dd)) {
        const auto value = hn::PromoteTo(dd, hn::PromoteTo(di, hn::LoadU(ds, samples + i)));
        hn::StoreU(hn::DemoteTo(ds, hn::DemoteTo(di, scaled(dd, value, g))), ds, samples + i);
    }
    for (; i < count; ++i)
        samples[i] =
            static_cast<std::uint16_t>(std::clamp(truncate_to_int(std::floor(samples[i] * gain + 0.5)), 0, 65535));
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(scale_row_16);

void apply_gain(std::uint8_t* samples, std::size_t count, double gain)
{
    std::array<std::uint8_t, 256> table;
    for (std::int32_t v = 0; v < 256; ++v)
        table[static_cast<std::size_t>(v)] =
            static_cast<std::uint8_t>(std::clamp(truncate_to_int(std::floor(v * gain + 0.5)), 0, 255));
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = table[samples[i]];
}

void apply_gain(std::uint16_t* samples, std::size_t count, double gain)
{
    HWY_DYNAMIC_DISPATCH(scale_row_16)(samples, count, gain);
}

} // namespace panoval
#endif
