// SPDX-License-Identifier: MIT
// 8-bit samples are computed in single precision where that gives the right result for each of the 256 levels, and else
// go through a table; 16-bit ones are computed as many at a time as doubles fit a vector.
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

// The same for bytes, clamped to 255, in single precision: near a half the result may be off by one. The conversion to
// integers truncates, which is the floor: neither value nor gain is negative.
void scale_row_8(std::uint8_t* samples, std::size_t count, float gain)
{
    const hn::ScalableTag<float> df;
    const hn::RebindToSigned<decltype(df)> di;
    const hn::Rebind<std::uint8_t, decltype(df)> ds;
    const auto g = hn::Set(df, gain);
    const auto half = hn::Set(df, 0.5f);
    const auto most = hn::Set(df, 255.0f);
    std::size_t i = 0;
    for (; i + hn::Lanes(df) <= count; i += hn::Lanes(df)) {
        const auto value = hn::ConvertTo(df, hn::PromoteTo(di, hn::LoadU(ds, samples + i)));
        const auto rounded = hn::Min(hn::Add(hn::Mul(value, g), half), most);
        hn::StoreU(hn::DemoteTo(ds, hn::ConvertTo(di, rounded)), ds, samples + i);
    }
    for (; i < count; ++i)
        samples[i] =
            static_cast<std::uint8_t>(truncate_to_int(std::min(static_cast<float>(samples[i]) * gain + 0.5f, 255.0f)));
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(scale_row_8);
HWY_EXPORT(scale_row_16);

namespace
{

using Levels = std::array<std::uint8_t, 256>;

Levels scaled_levels(double gain)
{
    Levels levels;
    for (std::int32_t v = 0; v < 256; ++v)
        levels[static_cast<std::size_t>(v)] =
            static_cast<std::uint8_t>(std::clamp(truncate_to_int(std::floor(v * gain + 0.5)), 0, 255));
    return levels;
}

// Whether single precision gives the same for each level. Gains that products leave 32 bits with are out of the
// question: their levels become 0.
bool is_exact_in_single_precision(double gain, const Levels& expected)
{
    if (!(gain >= 0 && gain <= 1e6))
        return false;
    Levels levels;
    for (std::size_t v = 0; v < levels.size(); ++v)
        levels[v] = static_cast<std::uint8_t>(v);
    HWY_DYNAMIC_DISPATCH(scale_row_8)(levels.data(), levels.size(), static_cast<float>(gain));
    return levels == expected;
}

} // namespace

void apply_gain(std::uint8_t* samples, std::size_t count, double gain)
{
    const Levels levels = scaled_levels(gain);
    if (is_exact_in_single_precision(gain, levels)) {
        HWY_DYNAMIC_DISPATCH(scale_row_8)(samples, count, static_cast<float>(gain));
        return;
    }
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = levels[samples[i]];
}

void apply_gain(std::uint16_t* samples, std::size_t count, double gain)
{
    HWY_DYNAMIC_DISPATCH(scale_row_16)(samples, count, gain);
}

} // namespace panoval
#endif
