// SPDX-License-Identifier: MIT
// How floats become samples of the output, per target: value + 0.5 in single precision, clamped to the sample's range,
// and floored.
#if defined(PANOVAL_MOSAIC_STORE_ROUNDED_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef PANOVAL_MOSAIC_STORE_ROUNDED_INL
#undef PANOVAL_MOSAIC_STORE_ROUNDED_INL
#else
#define PANOVAL_MOSAIC_STORE_ROUNDED_INL
#endif

#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::mosaic::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// Clamps first, so that the conversion to integers, which truncates, is the floor.
template <class Sample, class D>
HWY_INLINE void store_rounded(D d, hn::Vec<D> value, Sample* at)
{
    const hn::Rebind<Sample, D> narrow;
    const hn::RebindToSigned<D> whole;
    const auto largest = hn::Set(d, static_cast<float>(hwy::LimitsMax<Sample>()));
    const auto rounded = hn::Add(value, hn::Set(d, 0.5f));
    const auto clamped = hn::Min(hn::Max(rounded, hn::Zero(d)), largest);
    hn::StoreU(hn::DemoteTo(narrow, hn::ConvertTo(whole, clamped)), narrow, at);
}

} // namespace panoval::mosaic::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
