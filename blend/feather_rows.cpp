// SPDX-License-Identifier: MIT
// The feather blender's work on one row of pixels: weights from distances, weighted sums, and their means.
#include "blend/feather_rows.h"

#include "blend/rounded_mean.h"
#include "core/numbers.h"

#include <type_traits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "blend/feather_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "blend/weighted_mean_inl.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

using Integers = hn::RebindToSigned<Floats>;

void ramp(float* weights, std::size_t count, float slope)
{
    const Floats d;
    const auto one = hn::Set(d, 1.f);
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        const auto weight = hn::Mul(hn::LoadU(d, weights + i), hn::Set(d, slope));
        hn::StoreU(hn::IfThenElse(hn::Gt(weight, one), one, weight), d, weights + i);
    }
    for (; i < count; ++i) {
        const float weight = weights[i] * slope;
        weights[i] = weight > 1.f ? 1.f : weight;
    }
}

// The pixels of whole vectors; returns their number. Vectors without any weight are left alone: they would add zeros,
// and fetch pages of the canvas that no image may ever cover.
template <std::size_t kChannels, class Sample>
std::size_t add_weighted_vectors(const Sample* samples, const float* weights, float* sums, float* weight_sums,
                                 std::size_t count)
{
    const Floats d;
    const Integers di;
    const hn::Rebind<Sample, Floats> ds;
    const std::size_t lanes = hn::Lanes(d);
    const WeightSpread<kChannels> spread;
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto weight = hn::LoadU(d, weights + i);
        if (hn::AllTrue(d, hn::Eq(weight, hn::Zero(d))))
            continue;
        for (std::size_t part = 0; part < kChannels; ++part) {
            const std::size_t at = i * kChannels + part * lanes;
            const auto sample = hn::ConvertTo(d, hn::PromoteTo(di, hn::LoadU(ds, samples + at)));
            const auto sum = hn::Add(hn::LoadU(d, sums + at), hn::Mul(sample, spread(weight, part)));
            hn::StoreU(sum, d, sums + at);
        }
        hn::StoreU(hn::Add(hn::LoadU(d, weight_sums + i), weight), d, weight_sums + i);
    }
    return i;
}

template <class Sample>
void add_weighted(const Sample* samples, const float* weights, float* sums, float* weight_sums, std::size_t count,
                  std::size_t channels)
{
    std::size_t i = 0;
    if (channels == 1)
        i = add_weighted_vectors<1>(samples, weights, sums, weight_sums, count);
    else if (channels == 3)
        i = add_weighted_vectors<3>(samples, weights, sums, weight_sums, count);
    else if (channels == 4)
        i = add_weighted_vectors<4>(samples, weights, sums, weight_sums, count);
    for (; i < count; ++i) {
        for (std::size_t c = 0; c < channels; ++c)
            sums[i * channels + c] += static_cast<float>(samples[i * channels + c]) * weights[i];
        weight_sums[i] += weights[i];
    }
}

void add_weighted_8(const std::uint8_t* samples, const float* weights, float* sums, float* weight_sums,
                    std::size_t count, std::size_t channels)
{
    add_weighted(samples, weights, sums, weight_sums, count, channels);
}

void add_weighted_16(const std::uint16_t* samples, const float* weights, float* sums, float* weight_sums,
                     std::size_t count, std::size_t channels)
{
    add_weighted(samples, weights, sums, weight_sums, count, channels);
}

// The pixels of whole vectors; returns their number.
template <std::size_t kChannels, class Sample>
std::size_t store_means_vectors(const float* sums, const float* weights, Sample* out, std::size_t count)
{
    const Floats d;
    const Integers di;
    const hn::RebindToUnsigned<Floats> du;
    const hn::Rebind<Sample, Floats> ds;
    const std::size_t lanes = hn::Lanes(d);
    const auto too_large = hn::Set(d, 2147483648.f); // from there on a mean is the most negative integer: low bits 0
    const WeightSpread<kChannels> spread;
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto weight = hn::LoadU(d, weights + i);
        for (std::size_t part = 0; part < kChannels; ++part) {
            const std::size_t at = i * kChannels + part * lanes;
            const auto own_weight = spread(weight, part);
            const auto mean = rounded_mean(hn::LoadU(d, sums + at), own_weight);
            const auto kept = hn::And(hn::Gt(own_weight, hn::Set(d, kWeightEpsilon)), hn::Lt(mean, too_large));
            const auto value = hn::ConvertTo(di, hn::IfThenElseZero(kept, mean));
            hn::StoreU(hn::TruncateTo(ds, hn::BitCast(du, value)), ds, out + at);
        }
    }
    return i;
}

template <class Sample>
void store_means(const float* sums, const float* weights, Sample* out, std::size_t count, std::size_t channels)
{
    std::size_t i = 0;
    if (channels == 1)
        i = store_means_vectors<1>(sums, weights, out, count);
    else if (channels == 3)
        i = store_means_vectors<3>(sums, weights, out, count);
    else if (channels == 4)
        i = store_means_vectors<4>(sums, weights, out, count);
    for (; i < count; ++i)
        for (std::size_t c = 0; c < channels; ++c) {
            const float mean = panoval::rounded_mean(sums[i * channels + c], weights[i]);
            const std::int32_t value = weights[i] > kWeightEpsilon ? truncate_to_int(mean) : 0;
            out[i * channels + c] = static_cast<Sample>(low_half(value) & std::numeric_limits<Sample>::max());
        }
}

void store_means_8(const float* sums, const float* weights, std::uint8_t* out, std::size_t count, std::size_t channels)
{
    store_means(sums, weights, out, count, channels);
}

void store_means_16(const float* sums, const float* weights, std::uint16_t* out, std::size_t count,
                    std::size_t channels)
{
    store_means(sums, weights, out, count, channels);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(ramp);
HWY_EXPORT(add_weighted_8);
HWY_EXPORT(add_weighted_16);
HWY_EXPORT(store_means_8);
HWY_EXPORT(store_means_16);

void ramp_row(float* weights, std::size_t count, float slope) noexcept
{
    HWY_DYNAMIC_DISPATCH(ramp)(weights, count, slope);
}

void add_weighted_row(const std::uint8_t* samples, const float* weights, float* sums, float* weight_sums,
                      std::size_t count, std::size_t channels) noexcept
{
    HWY_DYNAMIC_DISPATCH(add_weighted_8)(samples, weights, sums, weight_sums, count, channels);
}

void add_weighted_row(const std::uint16_t* samples, const float* weights, float* sums, float* weight_sums,
                      std::size_t count, std::size_t channels) noexcept
{
    HWY_DYNAMIC_DISPATCH(add_weighted_16)(samples, weights, sums, weight_sums, count, channels);
}

void store_means_row(const float* sums, const float* weights, std::uint8_t* out, std::size_t count,
                     std::size_t channels) noexcept
{
    HWY_DYNAMIC_DISPATCH(store_means_8)(sums, weights, out, count, channels);
}

void store_means_row(const float* sums, const float* weights, std::uint16_t* out, std::size_t count,
                     std::size_t channels) noexcept
{
    HWY_DYNAMIC_DISPATCH(store_means_16)(sums, weights, out, count, channels);
}

} // namespace panoval
#endif
