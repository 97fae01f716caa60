// SPDX-License-Identifier: MIT
// Ranges, grey values and the stretch itself, over runs of samples.
//
// With a scale that is finite and not 0 every product (value - low) * scale is 0 to 255 and a little; what is not a
// number takes the place of low before it comes to that, because instruction sets convert it differently.
#include "io/stretch.h"

#include <algorithm>
#include <cmath>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "io/stretch.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

template <class V>
HWY_INLINE V lesser(V v, V low)
{
    return hn::IfThenElse(hn::Lt(v, low), v, low);
}

template <class V>
HWY_INLINE V greater(V v, V high)
{
    return hn::IfThenElse(hn::Gt(v, high), v, high);
}

// Two pairs of bounds, so that one does not wait for the other.
template <class T>
void widen(const T* values, std::size_t count, T& low, T& high)
{
    const hn::ScalableTag<T> d;
    const std::size_t lanes = hn::Lanes(d);
    auto low0 = hn::Set(d, low), low1 = low0;
    auto high0 = hn::Set(d, high), high1 = high0;
    std::size_t i = 0;
    for (; i + 2 * lanes <= count; i += 2 * lanes) {
        const auto v0 = hn::LoadU(d, values + i);
        const auto v1 = hn::LoadU(d, values + i + lanes);
        low0 = lesser(v0, low0);
        low1 = lesser(v1, low1);
        high0 = greater(v0, high0);
        high1 = greater(v1, high1);
    }
    HWY_ALIGN T lows[HWY_MAX_BYTES / sizeof(T)];
    HWY_ALIGN T highs[HWY_MAX_BYTES / sizeof(T)];
    hn::Store(lesser(low1, low0), d, lows);
    hn::Store(greater(high1, high0), d, highs);
    for (std::size_t lane = 0; lane < lanes; ++lane) {
        low = lows[lane] < low ? lows[lane] : low;
        high = highs[lane] > high ? highs[lane] : high;
    }
    for (; i < count; ++i) {
        low = values[i] < low ? values[i] : low;
        high = values[i] > high ? values[i] : high;
    }
}

// Whole numbers of 0 to 255, to bytes.
void narrow(const std::int32_t* numbers, std::size_t count, std::uint8_t* out)
{
    const hn::ScalableTag<std::int32_t> d;
    const hn::Rebind<std::uint8_t, decltype(d)> d_out;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        hn::StoreU(hn::DemoteTo(d_out, hn::LoadU(d, numbers + i)), d_out, out + i);
    for (; i < count; ++i)
        out[i] = static_cast<std::uint8_t>(numbers[i]);
}

template <class D>
HWY_INLINE hn::Vec<D> load_number(D d, const float* values, float otherwise)
{
    const auto v = hn::LoadU(d, values);
    return hn::IfThenElse(hn::Eq(v, v), v, hn::Set(d, otherwise));
}

template <class D>
HWY_INLINE hn::Vec<D> load_as_double(D d, const float* values, float otherwise)
{
    return hn::PromoteTo(d, load_number(hn::Rebind<float, D>(), values, otherwise));
}

template <class D>
HWY_INLINE hn::Vec<D> load_as_double(D d, const std::int16_t* values, std::int16_t /*otherwise*/)
{
    const hn::Rebind<std::int32_t, D> d_int;
    return hn::PromoteTo(d, hn::PromoteTo(d_int, hn::LoadU(hn::Rebind<std::int16_t, D>(), values)));
}

// In double precision, from the i-th value on as long as whole vectors remain. Returns where it stopped.
template <class D, class T>
HWY_INLINE std::size_t stretch_vectors(D d, const T* values, std::size_t i, std::size_t count, T low, double scale,
                                       std::int32_t* numbers)
{
    const hn::Rebind<std::int32_t, D> d_int;
    const auto bottom = hn::Set(d, static_cast<double>(low));
    const auto factor = hn::Set(d, scale);
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        const auto product = hn::Mul(hn::Sub(load_as_double(d, values + i, low), bottom), factor);
        hn::StoreU(hn::DemoteTo(d_int, product), d_int, numbers + i);
    }
    return i;
}

// The same in single precision.
template <class D>
HWY_INLINE std::size_t stretch_vectors(D d, const float* values, std::size_t i, std::size_t count, float low,
                                       float scale, std::int32_t* numbers)
{
    const hn::RebindToSigned<D> d_int;
    const auto bottom = hn::Set(d, low);
    const auto factor = hn::Set(d, scale);
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        const auto product = hn::Mul(hn::Sub(load_number(d, values + i, low), bottom), factor);
        hn::StoreU(hn::ConvertTo(d_int, product), d_int, numbers + i);
    }
    return i;
}

// Scale's type is the precision.
template <class T, class Scale>
void stretch_tiles(const T* values, std::size_t count, T low, Scale scale, std::uint8_t* out)
{
    constexpr std::size_t kTile = 1024; // numbers between the two steps, a part of the nearest cache
    std::int32_t numbers[kTile];
    for (std::size_t first = 0; first < count; first += kTile) {
        const std::size_t part = std::min(kTile, count - first);
        const T* const tile = values + first;
        const std::size_t done = stretch_vectors(hn::ScalableTag<Scale>(), tile, 0, part, low, scale, numbers);
        stretch_vectors(hn::CappedTag<Scale, 1>(), tile, done, part, low, scale, numbers);
        narrow(numbers, part, out + first);
    }
}

void mix_grey(const float* pixels, std::size_t count, float* grey)
{
    const hn::ScalableTag<float> d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        hn::Vec<decltype(d)> s0, s1, s2;
        hn::LoadInterleaved3(d, pixels + 3 * i, s0, s1, s2);
        const auto first_two = hn::Add(hn::Mul(s1, hn::Set(d, 0.587f)), hn::Mul(s0, hn::Set(d, 0.299f)));
        hn::StoreU(hn::Add(first_two, hn::Mul(s2, hn::Set(d, 0.114f))), d, grey + i);
    }
    for (; i < count; ++i) {
        const float* const s = pixels + 3 * i;
        grey[i] = (s[1] * 0.587f + s[0] * 0.299f) + s[2] * 0.114f;
    }
}

// The two element types, under names that the dispatch can tell apart.
void widen_float(const float* values, std::size_t count, float& low, float& high)
{
    widen(values, count, low, high);
}

void widen_short(const std::int16_t* values, std::size_t count, std::int16_t& low, std::int16_t& high)
{
    widen(values, count, low, high);
}

void stretch_float(const float* values, std::size_t count, float low, double scale, std::uint8_t* out)
{
    stretch_tiles(values, count, low, scale, out);
}

void stretch_short(const std::int16_t* values, std::size_t count, std::int16_t low, double scale, std::uint8_t* out)
{
    stretch_tiles(values, count, low, scale, out);
}

void stretch_single(const float* values, std::size_t count, float low, float scale, std::uint8_t* out)
{
    stretch_tiles(values, count, low, scale, out);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(widen_float);
HWY_EXPORT(widen_short);
HWY_EXPORT(stretch_float);
HWY_EXPORT(stretch_short);
HWY_EXPORT(stretch_single);
HWY_EXPORT(mix_grey);

void widen_range(const float* values, std::size_t count, float& low, float& high)
{
    HWY_DYNAMIC_DISPATCH(widen_float)(values, count, low, high);
}

void widen_range(const std::int16_t* values, std::size_t count, std::int16_t& low, std::int16_t& high)
{
    HWY_DYNAMIC_DISPATCH(widen_short)(values, count, low, high);
}

// Only then is every product within the range of bytes, or not a number for want of a number.
template <class Scale>
bool has_range(Scale scale)
{
    return std::isfinite(scale) && scale != 0;
}

void stretch(const float* values, std::size_t count, float low, double scale, std::uint8_t* out)
{
    if (has_range(scale))
        HWY_DYNAMIC_DISPATCH(stretch_float)(values, count, low, scale, out);
    else
        std::fill_n(out, count, std::uint8_t{0});
}

void stretch(const std::int16_t* values, std::size_t count, std::int16_t low, double scale, std::uint8_t* out)
{
    if (has_range(scale))
        HWY_DYNAMIC_DISPATCH(stretch_short)(values, count, low, scale, out);
    else
        std::fill_n(out, count, std::uint8_t{0});
}

void stretch_single(const float* values, std::size_t count, float low, float scale, std::uint8_t* out)
{
    if (has_range(scale))
        HWY_DYNAMIC_DISPATCH(stretch_single)(values, count, low, scale, out);
    else
        std::fill_n(out, count, std::uint8_t{0});
}

void mix_grey(const float* pixels, std::size_t count, float* grey)
{
    HWY_DYNAMIC_DISPATCH(mix_grey)(pixels, count, grey);
}

} // namespace panoval
#endif
