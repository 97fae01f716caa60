// SPDX-License-Identifier: MIT
// Differences of neighbours and their magnitude, row by row: the two differences first, then the magnitude from both.
#include "core/numbers.h"
#include "panoval.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "filter/gradient.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#ifndef PANOVAL_FILTER_GRADIENT_ONCE
#define PANOVAL_FILTER_GRADIENT_ONCE
namespace panoval
{
namespace
{

struct GradientRow {
    const std::uint8_t* row;
    const std::uint8_t* above; // the row itself where there is none
    const std::uint8_t* below; // likewise
    std::size_t width;
    std::int16_t* dx;
    std::int16_t* dy;
    std::uint16_t* magnitude;
};

// A root between 0 and 361 plus 512 is a float whose last 14 bits are its fraction.
constexpr float kRootBase = 512.0f;
constexpr int kRootFractionBits = 14;
constexpr std::int32_t kRootMask = 0x1FF;

} // namespace
} // namespace panoval
#endif

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{

namespace hn = hwy::HWY_NAMESPACE;

// Calls step(tag, i) for whole vectors that cover 0 to count - 1; the last one may overlap the one before.
template <class D, class One, class Step>
HWY_INLINE void for_each_vector(D d, One one, std::size_t count, const Step& step)
{
    const std::size_t lanes = hn::Lanes(d);
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes)
        step(d, i);
    if (i < count && count >= lanes)
        step(d, count - lanes);
    else
        for (; i < count; ++i)
            step(one, i);
}

HWY_INLINE void subtract(const std::uint8_t* a, const std::uint8_t* b, std::size_t count, std::int16_t* difference)
{
    const hn::ScalableTag<std::int16_t> d;
    for_each_vector(d, hn::CappedTag<std::int16_t, 1>(), count, [&](auto tag, std::size_t i) HWY_ATTR {
        const hn::Rebind<std::uint8_t, decltype(tag)> du8;
        const auto minuend = hn::PromoteTo(tag, hn::LoadU(du8, a + i));
        hn::StoreU(hn::Sub(minuend, hn::PromoteTo(tag, hn::LoadU(du8, b + i))), tag, difference + i);
    });
}

// The root of dx * dx + dy * dy, truncated, in single precision. The sum is a whole number s up to 130050 and exact.
// Its root is either whole and exact, or below the next whole number n by at least n - sqrt(n * n - 1) > 1 / 722 =
// 0.0013. Rounding moves the root by at most 2^-16 and its sum with kRootBase by at most 2^-15 = 0.00003: neither
// reaches n.
HWY_INLINE void measure(const std::int16_t* dx, const std::int16_t* dy, std::size_t count, std::uint16_t* magnitude)
{
    const hn::ScalableTag<float> d;
    for_each_vector(d, hn::CappedTag<float, 1>(), count, [&](auto tag, std::size_t i) HWY_ATTR {
        const hn::RebindToSigned<decltype(tag)> di32;
        const hn::Rebind<std::int16_t, decltype(tag)> di16;
        const hn::Rebind<std::uint16_t, decltype(tag)> du16;
        const auto x = hn::ConvertTo(tag, hn::PromoteTo(di32, hn::LoadU(di16, dx + i)));
        const auto y = hn::ConvertTo(tag, hn::PromoteTo(di32, hn::LoadU(di16, dy + i)));
        const auto root = hn::Sqrt(hn::Add(hn::Mul(x, x), hn::Mul(y, y)));
        const auto bits = hn::BitCast(di32, hn::Add(root, hn::Set(tag, kRootBase)));
        const auto whole = hn::And(hn::ShiftRight<kRootFractionBits>(bits), hn::Set(di32, kRootMask));
        hn::StoreU(hn::DemoteTo(du16, whole), du16, magnitude + i);
    });
}

void gradient_row(const GradientRow& r)
{
    const std::size_t last = r.width - 1;
    if (last == 0) { // the next sample in memory is the one below
        r.dx[0] = static_cast<std::int16_t>(r.below[0] - r.row[0]);
    } else {
        r.dx[0] = static_cast<std::int16_t>(r.row[1] - r.row[0]);
        subtract(r.row + 2, r.row, last - 1, r.dx + 1);
        r.dx[last] = static_cast<std::int16_t>(r.row[last] - r.row[last - 1]);
    }
    subtract(r.below, r.above, r.width, r.dy);
    measure(r.dx, r.dy, r.width, r.magnitude);
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{
HWY_EXPORT(gradient_row);
} // namespace
} // namespace panoval

extern "C" {

void gradient_image(const std::uint8_t* src, std::int32_t width, std::int32_t height, std::int16_t* dx,
                    std::int16_t* dy, std::uint16_t* magnitude)
{
    using namespace panoval;
    if (width < 1)
        return;
    const std::size_t row_bytes = to_count(width);
    for (std::int32_t y = 0; y < height; ++y) {
        const std::size_t begin = static_cast<std::size_t>(y) * row_bytes;
        const std::uint8_t* const row = src + begin;
        const std::uint8_t* const below = y < height - 1 ? row + row_bytes : row;
        HWY_DYNAMIC_DISPATCH(gradient_row)
        ({row, y > 0 ? row - row_bytes : row, below, row_bytes, dx + begin, dy + begin, magnitude + begin});
    }
}

} // extern "C"
#endif
