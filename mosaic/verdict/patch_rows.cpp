// SPDX-License-Identifier: MIT
#include "mosaic/verdict/patch_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mosaic/verdict/patch_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::mosaic::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

namespace
{

// Calls work(d, i) for vectors of doubles, then for single ones.
template <class Work>
HWY_INLINE void for_vectors(std::size_t begin, std::size_t end, const Work& work)
{
    const hn::ScalableTag<double> d;
    const hn::CappedTag<double, 1> one;
    std::size_t i = begin;
    for (; i + hn::Lanes(d) <= end; i += hn::Lanes(d))
        work(d, i);
    for (; i < end; ++i) // fewer than one vector left
        work(one, i);
}

template <class D>
HWY_INLINE hn::Vec<D> load_floats(D d, const float* values)
{
    return hn::PromoteTo(d, hn::LoadU(hn::Rebind<float, D>(), values));
}

// Floats, as many as the vector of doubles has lanes.
template <class D>
HWY_INLINE hn::Vec<hn::Rebind<float, D>> brightness_of(D, const float* pixels, std::size_t channels)
{
    const hn::Rebind<float, D> narrow;
    if (channels == 1)
        return hn::LoadU(narrow, pixels);
    hn::Vec<decltype(narrow)> red;
    hn::Vec<decltype(narrow)> green;
    hn::Vec<decltype(narrow)> blue;
    hn::Vec<decltype(narrow)> rest;
    if (channels == 3)
        hn::LoadInterleaved3(narrow, pixels, red, green, blue);
    else
        hn::LoadInterleaved4(narrow, pixels, red, green, blue, rest);
    return hn::Add(hn::Mul(hn::Set(narrow, 0.25f), hn::Add(red, blue)), hn::Mul(hn::Set(narrow, 0.5f), green));
}

void brightness(const float* samples, std::size_t channels, std::size_t count, double levels, float* out)
{
    for_vectors(0, count, [&](auto d, std::size_t i) {
        const hn::Rebind<float, decltype(d)> narrow;
        const auto here = hn::PromoteTo(d, brightness_of(d, samples + i * channels, channels));
        hn::StoreU(hn::DemoteTo(narrow, hn::Mul(here, hn::Set(d, levels))), narrow, out + i);
    });
}

void differences(const float* row, std::size_t count, double* out)
{
    for_vectors(1, count < 2 ? 1 : count - 1, [&](auto d, std::size_t x) {
        const auto here = hn::Mul(hn::Set(d, 2.0), load_floats(d, row + x));
        hn::StoreU(hn::Add(hn::Sub(load_floats(d, row + x - 1), here), load_floats(d, row + x + 1)), d, out + x);
    });
}

void roughness(const double* above, const double* here, const double* below, std::size_t count, double* out)
{
    for_vectors(0, count, [&](auto d, std::size_t x) {
        const auto middle = hn::Mul(hn::Set(d, 2.0), hn::LoadU(d, here + x));
        const auto value = hn::Add(hn::Sub(hn::LoadU(d, above + x), middle), hn::LoadU(d, below + x));
        hn::StoreU(hn::Div(hn::Mul(value, value), hn::Set(d, 36.0)), d, out + x);
    });
}

void add_signed(const float* values, double sign, std::size_t count, double* sums)
{
    for_vectors(0, count, [&](auto d, std::size_t x) {
        const auto more = hn::Mul(hn::Set(d, sign), load_floats(d, values + x));
        hn::StoreU(hn::Add(hn::LoadU(d, sums + x), more), d, sums + x);
    });
}

void subtract(const double* to, const double* from, std::size_t count, double* out)
{
    for_vectors(0, count, [&](auto d, std::size_t x) {
        hn::StoreU(hn::Sub(hn::LoadU(d, to + x), hn::LoadU(d, from + x)), d, out + x);
    });
}

void subtract_mean(const float* values, const double* sums, const double* counts, const std::uint8_t* known,
                   std::size_t count, float* out)
{
    for_vectors(0, count, [&](auto d, std::size_t x) {
        const hn::Rebind<float, decltype(d)> narrow;
        const hn::Rebind<std::int32_t, decltype(d)> words;
        const hn::Rebind<std::uint8_t, decltype(d)> bytes;
        const auto mean = hn::Div(hn::LoadU(d, sums + x), hn::LoadU(d, counts + x));
        const auto rest = hn::DemoteTo(narrow, hn::Sub(load_floats(d, values + x), mean));
        const auto is_known = hn::Ne(hn::PromoteTo(words, hn::LoadU(bytes, known + x)), hn::Zero(words));
        hn::StoreU(hn::IfThenElseZero(hn::RebindMask(narrow, is_known), rest), narrow, out + x);
    });
}

} // namespace
} // namespace panoval::mosaic::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::mosaic
{
HWY_EXPORT(brightness);
HWY_EXPORT(differences);
HWY_EXPORT(roughness);
HWY_EXPORT(add_signed);
HWY_EXPORT(subtract);
HWY_EXPORT(subtract_mean);

void brightness_row(const float* samples, std::size_t channels, std::size_t count, double levels, float* out)
{
    HWY_DYNAMIC_DISPATCH(brightness)(samples, channels, count, levels, out);
}

void second_differences(const float* row, std::size_t count, double* out)
{
    HWY_DYNAMIC_DISPATCH(differences)(row, count, out);
}

void roughness_row(const double* above, const double* here, const double* below, std::size_t count, double* out)
{
    HWY_DYNAMIC_DISPATCH(roughness)(above, here, below, count, out);
}

void add_signed_row(const float* values, double sign, std::size_t count, double* sums)
{
    HWY_DYNAMIC_DISPATCH(add_signed)(values, sign, count, sums);
}

void subtract_rows(const double* to, const double* from, std::size_t count, double* out)
{
    HWY_DYNAMIC_DISPATCH(subtract)(to, from, count, out);
}

void subtract_means(const float* values, const double* sums, const double* counts, const std::uint8_t* known,
                    std::size_t count, float* out)
{
    HWY_DYNAMIC_DISPATCH(subtract_mean)(values, sums, counts, known, count, out);
}
} // namespace panoval::mosaic
#endif
