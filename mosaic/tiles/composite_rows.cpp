// SPDX-License-Identifier: MIT
#include "mosaic/tiles/composite_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mosaic/tiles/composite_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "mosaic/pictures/store_rounded_inl.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::mosaic::HWY_NAMESPACE
{
namespace
{
namespace hn = hwy::HWY_NAMESPACE;

using Floats = hn::ScalableTag<float>;
using One = hn::CappedTag<float, 1>;

// Calls body(d, i) for whole vectors, then for single floats.
template <class Body>
HWY_INLINE void for_each_vector(std::size_t count, const Body& body)
{
    const Floats d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        body(d, i);
    for (; i < count; ++i)
        body(One(), i);
}

void subtract(float* samples, const float* composite, std::size_t count)
{
    for_each_vector(count, [=](auto d, std::size_t i) HWY_ATTR {
        hn::StoreU(hn::Sub(hn::LoadU(d, samples + i), hn::LoadU(d, composite + i)), d, samples + i);
    });
}

void add_even(float* sums, const CoarseRows& coarse, std::size_t count)
{
    const float* const above = coarse.row[0];
    const float* const at = coarse.row[1];
    const float* const below = coarse.row[2];
    for_each_vector(count, [=](auto d, std::size_t i) HWY_ATTR {
        const auto six = hn::Mul(hn::Set(d, 6.0f), hn::LoadU(d, at + i));
        const auto sum = hn::Add(hn::Add(hn::LoadU(d, above + i), six), hn::LoadU(d, below + i));
        hn::StoreU(hn::Add(hn::LoadU(d, sums + i), hn::Mul(sum, hn::Set(d, 1.0f / 64))), d, sums + i);
    });
}

void add_odd(float* sums, const CoarseRows& coarse, std::size_t count)
{
    const float* const at = coarse.row[1];
    const float* const below = coarse.row[2];
    for_each_vector(count, [=](auto d, std::size_t i) HWY_ATTR {
        const auto sum = hn::Add(hn::LoadU(d, at + i), hn::LoadU(d, below + i));
        hn::StoreU(hn::Add(hn::LoadU(d, sums + i), hn::Mul(sum, hn::Set(d, 4.0f / 64))), d, sums + i);
    });
}

void add_expanded(float* sums, const CoarseRows& coarse, std::size_t count)
{
    if (coarse.kind == CoarseRows::Even)
        add_even(sums, coarse, count);
    else if (coarse.kind == CoarseRows::Odd)
        add_odd(sums, coarse, count);
}

template <class Sample>
void finish(const float* composite, const float* correction, float scale, std::size_t count, Sample* out)
{
    if (correction == nullptr)
        for_each_vector(count, [=](auto d, std::size_t i) HWY_ATTR {
            store_rounded(d, hn::Mul(hn::LoadU(d, composite + i), hn::Set(d, scale)), out + i);
        });
    else
        for_each_vector(count, [=](auto d, std::size_t i) HWY_ATTR {
            const auto sum = hn::Add(hn::LoadU(d, composite + i), hn::LoadU(d, correction + i));
            store_rounded(d, hn::Mul(sum, hn::Set(d, scale)), out + i);
        });
}

void finish_bytes(const float* composite, const float* correction, float scale, std::size_t count, std::uint8_t* out)
{
    finish(composite, correction, scale, count, out);
}

void finish_words(const float* composite, const float* correction, float scale, std::size_t count, std::uint16_t* out)
{
    finish(composite, correction, scale, count, out);
}

} // namespace
} // namespace panoval::mosaic::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::mosaic
{
namespace
{
HWY_EXPORT(subtract);
HWY_EXPORT(add_expanded);
HWY_EXPORT(finish_bytes);
HWY_EXPORT(finish_words);
} // namespace

void subtract_row(float* samples, const float* composite, std::size_t count)
{
    HWY_DYNAMIC_DISPATCH(subtract)(samples, composite, count);
}

void add_expanded_row(float* sums, const CoarseRows& coarse, std::size_t count)
{
    HWY_DYNAMIC_DISPATCH(add_expanded)(sums, coarse, count);
}

void finish_row(const float* composite, const float* correction, float scale, std::size_t count, void* out,
                std::size_t sample_bytes)
{
    if (sample_bytes == 1)
        HWY_DYNAMIC_DISPATCH(finish_bytes)(composite, correction, scale, count, static_cast<std::uint8_t*>(out));
    else
        HWY_DYNAMIC_DISPATCH(finish_words)(composite, correction, scale, count, static_cast<std::uint16_t*>(out));
}

} // namespace panoval::mosaic
#endif
