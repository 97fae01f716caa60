// SPDX-License-Identifier: MIT
// Division of accumulated sums by accumulated weights: every sample becomes floor(sum / (weight + epsilon) + 0.5).
#include "blend/normalize.h"

#include "core/numbers.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "blend/normalize.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "blend/weighted_mean_inl.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// The pixels of whole vectors; returns their number.
template <std::size_t kChannels>
std::size_t normalize_vectors(float* sums, const float* weight, std::size_t count)
{
    const Floats d;
    const std::size_t lanes = hn::Lanes(d);
    const WeightSpread<kChannels> spread;
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const auto weights = hn::LoadU(d, weight + i);
        for (std::size_t part = 0; part < kChannels; ++part) {
            float* const at = sums + i * kChannels + part * lanes;
            hn::StoreU(rounded_mean(hn::LoadU(d, at), spread(weights, part)), d, at);
        }
    }
    return i;
}

void normalize_samples(float* sums, const float* weight, std::size_t count, std::size_t channels)
{
    std::size_t i = 0;
    if (channels == 1)
        i = normalize_vectors<1>(sums, weight, count);
    else if (channels == 3)
        i = normalize_vectors<3>(sums, weight, count);
    else if (channels == 4)
        i = normalize_vectors<4>(sums, weight, count);
    for (; i < count; ++i)
        for (std::size_t c = 0; c < channels; ++c)
            sums[i * channels + c] = panoval::rounded_mean(sums[i * channels + c], weight[i]);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(normalize_samples);

void normalize_row(float* sums, const float* weight, std::size_t count, std::size_t channels) noexcept
{
    HWY_DYNAMIC_DISPATCH(normalize_samples)(sums, weight, count, channels);
}

void normalize_by_weight(const Matf& weight, Matf& sums) noexcept
{
    const std::size_t width = to_count(sums.width);
    const std::size_t channels = to_count(sums.channels);
    for (std::size_t y = 0; y < to_count(sums.height); ++y)
        normalize_row(sums.data + y * width * channels, weight.data + y * to_count(weight.width), width, channels);
}

} // namespace panoval
#endif
