// SPDX-License-Identifier: MIT
#include "mosaic/verdict/butterfly_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mosaic/verdict/butterfly_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::mosaic::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// As many columns as d has lanes, from x on.
template <class D>
HWY_INLINE void combine_vector(D d, const ComplexRow& a, const ComplexRow& b, const Turn& turn, std::size_t x)
{
    const auto cosine = hn::Set(d, turn.cosine);
    const auto sine = hn::Set(d, turn.sine);
    const auto real_a = hn::LoadU(d, a.real + x);
    const auto imaginary_a = hn::LoadU(d, a.imaginary + x);
    const auto real_b = hn::LoadU(d, b.real + x);
    const auto imaginary_b = hn::LoadU(d, b.imaginary + x);
    const auto real = hn::Sub(hn::Mul(real_b, cosine), hn::Mul(imaginary_b, sine));
    const auto imaginary = hn::Add(hn::Mul(real_b, sine), hn::Mul(imaginary_b, cosine));
    hn::StoreU(hn::Sub(real_a, real), d, b.real + x);
    hn::StoreU(hn::Sub(imaginary_a, imaginary), d, b.imaginary + x);
    hn::StoreU(hn::Add(real_a, real), d, a.real + x);
    hn::StoreU(hn::Add(imaginary_a, imaginary), d, a.imaginary + x);
}

void combine_rows(const ComplexRow& a, const ComplexRow& b, const Turn& turn, std::size_t width)
{
    const hn::ScalableTag<double> d;
    const hn::CappedTag<double, 1> one;
    std::size_t x = 0;
    for (; x + hn::Lanes(d) <= width; x += hn::Lanes(d))
        combine_vector(d, a, b, turn, x);
    for (; x < width; ++x) // fewer than one vector left
        combine_vector(one, a, b, turn, x);
}

} // namespace panoval::mosaic::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::mosaic
{
HWY_EXPORT(combine_rows);

void combine_rows(const ComplexRow& a, const ComplexRow& b, const Turn& turn, std::size_t width)
{
    HWY_DYNAMIC_DISPATCH(combine_rows)(a, b, turn, width);
}
} // namespace panoval::mosaic
#endif
