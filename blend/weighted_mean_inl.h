// SPDX-License-Identifier: MIT
// Per-target pieces that the blending kernels share: samples as floats, one weight per pixel spread over its
// interleaved samples, and the rounded mean of accumulated sums.
#if defined(PANOVAL_BLEND_WEIGHTED_MEAN_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef PANOVAL_BLEND_WEIGHTED_MEAN_INL
#undef PANOVAL_BLEND_WEIGHTED_MEAN_INL
#else
#define PANOVAL_BLEND_WEIGHTED_MEAN_INL
#endif

#include "blend/rounded_mean.h"

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::ScalableTag<float>;
using FloatVector = hn::Vec<Floats>;

template <class D>
HWY_INLINE hn::Vec<D> load_as_float(D d, const float* at)
{
    return hn::LoadU(d, at);
}

template <class D, class Sample>
HWY_INLINE hn::Vec<D> load_as_float(D d, const Sample* at)
{
    const hn::Rebind<Sample, D> narrow;
    const hn::RebindToSigned<D> whole;
    return hn::ConvertTo(d, hn::PromoteTo(whole, hn::LoadU(narrow, at)));
}

// Spreads the weights of one vector of pixels over kChannels vectors of samples.
template <std::size_t kChannels>
class WeightSpread
{
public:
    HWY_INLINE WeightSpread()
    {
        const std::size_t lanes = hn::Lanes(Floats());
        for (std::size_t i = 0; i < kChannels * lanes; ++i)
            pixel_[i] = static_cast<std::int32_t>(i / kChannels);
    }

    // The weights of samples part * lanes to (part + 1) * lanes - 1.
    HWY_INLINE FloatVector operator()(FloatVector weights, std::size_t part) const
    {
        const Floats d;
        if constexpr (kChannels == 1)
            return weights;
        else
            return hn::TableLookupLanes(weights, hn::SetTableIndices(d, pixel_ + part * hn::Lanes(d)));
    }

private:
    HWY_ALIGN std::int32_t pixel_[kChannels * hn::MaxLanes(Floats())];
};

// floor(sum / (weight + epsilon) + 0.5) in single precision; the floor is exact. The epsilon also biases exact halves
// downwards: (10 + 13) / (2 + epsilon) gives 11, not 12. That belongs to the result.
HWY_INLINE FloatVector rounded_mean(FloatVector sums, FloatVector weights)
{
    const Floats d;
    const auto mean = hn::Div(sums, hn::Add(weights, hn::Set(d, kWeightEpsilon)));
    return hn::Floor(hn::Add(mean, hn::Set(d, 0.5f)));
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
