// SPDX-License-Identifier: MIT
// Ranges, grey values and the stretch itself, over runs of samples.
//
// With a scale that is finite and not 0 every product (value - low) * scale is 0 to 255 and a little; what is not a
// number takes the place of low before it comes to that, because instruction sets convert it differently.
#include "io/stretch.h"

#include "core/numbers.h"

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

// What a range is taken of and what is stretched: values as they are, and the grey values of pixels of 3 samples, which
// are formed anew each time, because keeping them would cost more than that.
template <class T>
struct Values {
    using Value = T;
    const T* values;
    template <class D>
    HWY_INLINE hn::Vec<D> load(D d, std::size_t i) const
    {
        return hn::LoadU(d, values + i);
    }
    T at(std::size_t i) const { return values[i]; }
};

struct GreyValues {
    using Value = float;
    const float* pixels;
    template <class D>
    HWY_INLINE hn::Vec<D> load(D d, std::size_t i) const
    {
        hn::Vec<D> s0, s1, s2;
        hn::LoadInterleaved3(d, pixels + 3 * i, s0, s1, s2);
        const auto first_two = hn::Add(hn::Mul(s1, hn::Set(d, 0.587f)), hn::Mul(s0, hn::Set(d, 0.299f)));
        return hn::Add(first_two, hn::Mul(s2, hn::Set(d, 0.114f)));
    }
    float at(std::size_t i) const
    {
        const float* const s = pixels + 3 * i;
        return (s[1] * 0.587f + s[0] * 0.299f) + s[2] * 0.114f;
    }
};

// Two pairs of bounds, so that one does not wait for the other.
template <class Source, class T = typename Source::Value>
void widen(const Source& source, std::size_t count, T& low, T& high)
{
    const hn::ScalableTag<T> d;
    const std::size_t lanes = hn::Lanes(d);
    auto low0 = hn::Set(d, low), low1 = low0;
    auto high0 = hn::Set(d, high), high1 = high0;
    std::size_t i = 0;
    for (; i + 2 * lanes <= count; i += 2 * lanes) {
        const auto v0 = source.load(d, i);
        const auto v1 = source.load(d, i + lanes);
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
        low = source.at(i) < low ? source.at(i) : low;
        high = source.at(i) > high ? source.at(i) : high;
    }
}

template <class D>
HWY_INLINE hn::Vec<D> number_or(D d, hn::Vec<D> v, float otherwise)
{
    return hn::IfThenElse(hn::Eq(v, v), v, hn::Set(d, otherwise));
}

// Vectors of D, as 32-bit integers, hold the values in double precision.
template <class D>
HWY_INLINE hn::Vec<hn::Rebind<double, D>> load_as_double(D, const Values<float>& source, std::size_t i, float otherwise)
{
    const hn::Rebind<float, D> d_float;
    return hn::PromoteTo(hn::Rebind<double, D>(), number_or(d_float, source.load(d_float, i), otherwise));
}

template <class D>
HWY_INLINE hn::Vec<hn::Rebind<double, D>> load_as_double(D d, const Values<std::int16_t>& source, std::size_t i,
                                                         std::int16_t /*otherwise*/)
{
    const hn::Rebind<std::int16_t, D> d_short;
    return hn::PromoteTo(hn::Rebind<double, D>(), hn::PromoteTo(d, source.load(d_short, i)));
}

// Scale's type is the precision.
template <class D, class Source>
HWY_INLINE hn::Vec<D> stretch_vector(D d, const Source& source, std::size_t i, typename Source::Value low, double scale)
{
    const hn::Rebind<double, D> d_double;
    const auto above = hn::Sub(load_as_double(d, source, i, low), hn::Set(d_double, static_cast<double>(low)));
    return hn::DemoteTo(d, hn::Mul(above, hn::Set(d_double, scale)));
}

template <class D, class Source>
HWY_INLINE hn::Vec<D> stretch_vector(D d, const Source& source, std::size_t i, float low, float scale)
{
    const hn::Rebind<float, D> d_float;
    const auto above = hn::Sub(number_or(d_float, source.load(d_float, i), low), hn::Set(d_float, low));
    return hn::ConvertTo(d, hn::Mul(above, hn::Set(d_float, scale)));
}

template <class Source, class Scale>
void stretch_values(const Source& source, std::size_t count, typename Source::Value low, Scale scale, std::uint8_t* out)
{
    const hn::Rebind<std::int32_t, hn::ScalableTag<Scale>> d; // whose lanes are as many as Scale's
    const hn::Rebind<std::uint8_t, decltype(d)> d_out;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        hn::StoreU(hn::DemoteTo(d_out, stretch_vector(d, source, i, low, scale)), d_out, out + i);
    for (; i < count; ++i) {
        const auto value = source.at(i) == source.at(i) ? source.at(i) : low;
        const Scale product = (static_cast<Scale>(value) - static_cast<Scale>(low)) * scale;
        out[i] = static_cast<std::uint8_t>(truncate_to_int(product));
    }
}

// The kinds of values, under names that the dispatch can tell apart.
void widen_float(const float* values, std::size_t count, float& low, float& high)
{
    widen(Values<float>{values}, count, low, high);
}

void widen_short(const std::int16_t* values, std::size_t count, std::int16_t& low, std::int16_t& high)
{
    widen(Values<std::int16_t>{values}, count, low, high);
}

void widen_grey(const float* pixels, std::size_t count, float& low, float& high)
{
    widen(GreyValues{pixels}, count, low, high);
}

void stretch_float(const float* values, std::size_t count, float low, double scale, std::uint8_t* out)
{
    stretch_values(Values<float>{values}, count, low, scale, out);
}

void stretch_short(const std::int16_t* values, std::size_t count, std::int16_t low, double scale, std::uint8_t* out)
{
    stretch_values(Values<std::int16_t>{values}, count, low, scale, out);
}

void stretch_single(const float* values, std::size_t count, float low, float scale, std::uint8_t* out)
{
    stretch_values(Values<float>{values}, count, low, scale, out);
}

void stretch_grey(const float* pixels, std::size_t count, float low, float scale, std::uint8_t* out)
{
    stretch_values(GreyValues{pixels}, count, low, scale, out);
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
HWY_EXPORT(widen_grey);
HWY_EXPORT(stretch_grey);

void widen_range(const float* values, std::size_t count, float& low, float& high)
{
    HWY_DYNAMIC_DISPATCH(widen_float)(values, count, low, high);
}

void widen_range(const std::int16_t* values, std::size_t count, std::int16_t& low, std::int16_t& high)
{
    HWY_DYNAMIC_DISPATCH(widen_short)(values, count, low, high);
}

void widen_grey_range(const float* pixels, std::size_t count, float& low, float& high)
{
    HWY_DYNAMIC_DISPATCH(widen_grey)(pixels, count, low, high);
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

void stretch_grey(const float* pixels, std::size_t count, float low, float scale, std::uint8_t* out)
{
    if (has_range(scale))
        HWY_DYNAMIC_DISPATCH(stretch_grey)(pixels, count, low, scale, out);
    else
        std::fill_n(out, count, std::uint8_t{0});
}

} // namespace panoval
#endif
