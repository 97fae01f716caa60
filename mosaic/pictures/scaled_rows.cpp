// SPDX-License-Identifier: MIT
// Vectors run over whole pixels: as many vectors as there are channels repeat the factors' pattern.
#include "mosaic/pictures/scaled_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mosaic/pictures/scaled_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "blend/weighted_mean_inl.h"
#include "mosaic/pictures/store_rounded_inl.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::mosaic::HWY_NAMESPACE
{
namespace
{
namespace hn = hwy::HWY_NAMESPACE;
using panoval::HWY_NAMESPACE::load_as_float;

using Floats = hn::ScalableTag<float>;
using One = hn::CappedTag<float, 1>;

// The factors of a row's samples, vector by vector.
class Pattern
{
public:
    HWY_INLINE Pattern(const ChannelFactors& factors, std::size_t channels) : channels_(channels)
    {
        const std::size_t lanes = hn::Lanes(Floats());
        for (std::size_t i = 0; i < channels * lanes; ++i)
            pattern_[i] = factors[i % channels];
    }

    // Calls body(d, i, factors of samples i to i + lanes - 1) for whole vectors, then for single samples.
    template <class Body>
    HWY_INLINE void for_each(std::size_t count, const Body& body) const
    {
        const Floats d;
        const std::size_t lanes = hn::Lanes(d);
        std::size_t i = 0;
        for (; i + channels_ * lanes <= count; i += channels_ * lanes)
            for (std::size_t part = 0; part < channels_; ++part)
                body(d, i + part * lanes, hn::Load(d, pattern_ + part * lanes));
        for (std::size_t k = 0; i < count; ++i, ++k)
            body(One(), i, hn::Set(One(), pattern_[k]));
    }

private:
    HWY_ALIGN float pattern_[4 * hn::MaxLanes(Floats())];
    std::size_t channels_;
};

// Calls run(samples) with the row's samples as what they are.
template <class Run>
HWY_INLINE void with_samples(const RawRow& row, const Run& run)
{
    if (row.sample_bytes == 1)
        run(row.samples);
    else
        run(reinterpret_cast<const std::uint16_t*>(row.samples));
}

void scale(const RawRow& row, const ChannelFactors& factors, float* out)
{
    const Pattern pattern(factors, row.channels);
    with_samples(row, [&](const auto* samples) HWY_ATTR {
        pattern.for_each(row.pixels * row.channels, [=](auto d, std::size_t i, auto factor) HWY_ATTR {
            hn::StoreU(hn::Mul(load_as_float(d, samples + i), factor), d, out + i);
        });
    });
}

void difference(const RawRow& row, const ChannelFactors& factors, const float* composite, float* out)
{
    const Pattern pattern(factors, row.channels);
    with_samples(row, [&](const auto* samples) HWY_ATTR {
        pattern.for_each(row.pixels * row.channels, [=](auto d, std::size_t i, auto factor) HWY_ATTR {
            const auto scaled = hn::Mul(load_as_float(d, samples + i), factor);
            hn::StoreU(hn::Sub(scaled, hn::LoadU(d, composite + i)), d, out + i);
        });
    });
}

template <class Sample>
HWY_INLINE void finish(const RawRow& row, const ChannelFactors& factors, float scale, Sample* out)
{
    const Pattern pattern(factors, row.channels);
    with_samples(row, [&](const auto* samples) HWY_ATTR {
        pattern.for_each(row.pixels * row.channels, [=](auto d, std::size_t i, auto factor) HWY_ATTR {
            const auto scaled = hn::Mul(load_as_float(d, samples + i), factor);
            store_rounded(d, hn::Mul(scaled, hn::Set(d, scale)), out + i);
        });
    });
}

void finish_bytes(const RawRow& row, const ChannelFactors& factors, float scale, std::uint8_t* out)
{
    finish(row, factors, scale, out);
}

void finish_words(const RawRow& row, const ChannelFactors& factors, float scale, std::uint16_t* out)
{
    finish(row, factors, scale, out);
}

// Of what is left behind the whole number half decides: adding 0.5 first would carry values just below a half over it.
void round(const float* values, std::size_t count, float largest, std::uint16_t* out)
{
    const auto store = [=](auto d, std::size_t i) HWY_ATTR {
        const hn::Rebind<std::uint16_t, decltype(d)> narrow;
        const hn::RebindToSigned<decltype(d)> whole;
        const auto value = hn::LoadU(d, values + i);
        const auto positive = hn::IfThenElseZero(hn::Gt(value, hn::Zero(d)), value); // not a number becomes 0
        const auto clamped = hn::Min(positive, hn::Set(d, largest));
        const auto floored = hn::ConvertTo(whole, clamped);
        const auto rest = hn::Sub(clamped, hn::ConvertTo(d, floored));
        const auto is_half = hn::VecFromMask(whole, hn::RebindMask(whole, hn::Ge(rest, hn::Set(d, 0.5f))));
        hn::StoreU(hn::DemoteTo(narrow, hn::Sub(floored, is_half)), narrow, out + i); // a true mask is -1
    };
    const Floats d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        store(d, i);
    for (; i < count; ++i)
        store(One(), i);
}

} // namespace
} // namespace panoval::mosaic::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::mosaic
{
namespace
{
HWY_EXPORT(scale);
HWY_EXPORT(difference);
HWY_EXPORT(finish_bytes);
HWY_EXPORT(finish_words);
HWY_EXPORT(round);
} // namespace

void scale_row(const RawRow& row, const ChannelFactors& factors, float* out)
{
    HWY_DYNAMIC_DISPATCH(scale)(row, factors, out);
}

void difference_row(const RawRow& row, const ChannelFactors& factors, const float* composite, float* out)
{
    HWY_DYNAMIC_DISPATCH(difference)(row, factors, composite, out);
}

void finish_scaled_row(const RawRow& row, const ChannelFactors& factors, float scale, void* out,
                       std::size_t sample_bytes)
{
    if (sample_bytes == 1)
        HWY_DYNAMIC_DISPATCH(finish_bytes)(row, factors, scale, static_cast<std::uint8_t*>(out));
    else
        HWY_DYNAMIC_DISPATCH(finish_words)(row, factors, scale, static_cast<std::uint16_t*>(out));
}

void round_row(const float* values, std::size_t count, float largest, std::uint16_t* out)
{
    HWY_DYNAMIC_DISPATCH(round)(values, count, largest, out);
}

} // namespace panoval::mosaic
#endif
