// SPDX-License-Identifier: MIT
// Vectors run over whole pixels: one vector of weights goes with as many vectors of samples as there are channels.
#include "blend/band_rows.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "blend/band_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "blend/weighted_mean_inl.h"

#include <algorithm>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{
namespace hn = hwy::HWY_NAMESPACE;

using One = hn::CappedTag<float, 1>;

// ------------------------------------------------------------------------------------------------------ samples ----

template <class D>
HWY_INLINE void store_from_float(D d, hn::Vec<D> value, float* at)
{
    hn::StoreU(value, d, at);
}

// Clamps first, so that the conversion to integers, which truncates, is the floor.
template <class D, class Sample>
HWY_INLINE void store_from_float(D d, hn::Vec<D> value, Sample* at)
{
    const hn::Rebind<Sample, D> narrow;
    const hn::RebindToSigned<D> whole;
    const auto largest = hn::Set(d, static_cast<float>(hwy::LimitsMax<Sample>()));
    const auto clamped = hn::Min(hn::Max(value, hn::Zero(d)), largest);
    hn::StoreU(hn::DemoteTo(narrow, hn::ConvertTo(whole, clamped)), narrow, at);
}

template <class Sample>
void convert_samples(const Sample* src, std::size_t count, float* dst)
{
    const Floats d;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        hn::StoreU(load_as_float(d, src + i), d, dst + i);
    for (; i < count; ++i)
        dst[i] = static_cast<float>(src[i]);
}

void convert_bytes(const std::uint8_t* src, std::size_t sample_bytes, std::size_t count, float* dst)
{
    if (sample_bytes == 1)
        convert_samples(src, count, dst);
    else
        convert_samples(reinterpret_cast<const std::uint16_t*>(src), count, dst);
}

void convert_mask(const std::uint8_t* mask, std::size_t count, float* dst)
{
    const Floats d;
    const auto full = hn::Set(d, 255.0f);
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        hn::StoreU(hn::Div(load_as_float(d, mask + i), full), d, dst + i);
    for (; i < count; ++i)
        dst[i] = static_cast<float>(mask[i]) / 255.0f;
}

// ---------------------------------------------------------------------------------------------------- expansion ----

// The expanded coarser level at sample i of a row. The order of the sums is that of pyr_up.
template <CoarseRows::Kind kKind, class D>
HWY_INLINE hn::Vec<D> expanded(D d, const CoarseRows& coarse, std::size_t i)
{
    const auto at = hn::LoadU(d, coarse.row[1] + i);
    const auto below = hn::LoadU(d, coarse.row[2] + i);
    if constexpr (kKind == CoarseRows::Odd) {
        return hn::Mul(hn::Add(at, below), hn::Set(d, 4.0f / 64)); // powers of two: one product is exact as well
    } else {
        const auto above = hn::LoadU(d, coarse.row[0] + i);
        return hn::Mul(hn::Add(hn::Add(above, hn::Mul(hn::Set(d, 6.0f), at)), below), hn::Set(d, 1.0f / 64));
    }
}

template <CoarseRows::Kind kKind, class D>
HWY_INLINE hn::Vec<D> minus_expanded(D d, hn::Vec<D> fine, const CoarseRows& coarse, std::size_t i)
{
    if constexpr (kKind == CoarseRows::None)
        return fine;
    else
        return hn::Sub(fine, expanded<kKind>(d, coarse, i));
}

template <CoarseRows::Kind kKind, class D>
HWY_INLINE hn::Vec<D> plus_expanded(D d, hn::Vec<D> fine, const CoarseRows& coarse, std::size_t i)
{
    if constexpr (kKind == CoarseRows::None)
        return fine;
    else
        return hn::Add(fine, expanded<kKind>(d, coarse, i));
}

// ----------------------------------------------------------------------------------------------------- to canvas ----

// Vectors of pixels without any weight are left out: they would add zeros.
template <class Sample, CoarseRows::Kind kKind, std::size_t kChannels>
std::size_t add_vectors(const BandRow& row)
{
    const Floats d;
    const std::size_t lanes = hn::Lanes(d);
    const WeightSpread<kChannels> spread;
    const Sample* const fine = static_cast<const Sample*>(row.fine);
    std::size_t x = 0;
    for (; x + lanes <= row.pixels; x += lanes) {
        const auto weights = hn::LoadU(d, row.weight + x);
        if (hn::AllTrue(d, hn::Eq(weights, hn::Zero(d))))
            continue;
        hn::StoreU(hn::Add(hn::LoadU(d, row.weight_sums + x), weights), d, row.weight_sums + x);
        for (std::size_t part = 0; part < kChannels; ++part) {
            const std::size_t i = x * kChannels + part * lanes;
            const auto band = minus_expanded<kKind>(d, load_as_float(d, fine + i), row.coarse, i);
            const auto sum = hn::Add(hn::LoadU(d, row.sums + i), hn::Mul(band, spread(weights, part)));
            hn::StoreU(sum, d, row.sums + i);
        }
    }
    return x;
}

template <class Sample, CoarseRows::Kind kKind>
void add_pixels(const BandRow& row)
{
    const One one;
    const Sample* const fine = static_cast<const Sample*>(row.fine);
    const std::size_t n = row.channels;
    std::size_t x = 0;
    if (n == 3)
        x = add_vectors<Sample, kKind, 3>(row);
    else if (n == 1)
        x = add_vectors<Sample, kKind, 1>(row);
    else if (n == 4)
        x = add_vectors<Sample, kKind, 4>(row);
    for (; x < row.pixels; ++x) {
        const auto weight = hn::LoadU(one, row.weight + x);
        for (std::size_t i = x * n; i < (x + 1) * n; ++i) {
            const auto band = minus_expanded<kKind>(one, load_as_float(one, fine + i), row.coarse, i);
            hn::StoreU(hn::Add(hn::LoadU(one, row.sums + i), hn::Mul(band, weight)), one, row.sums + i);
        }
        row.weight_sums[x] += row.weight[x];
    }
}

template <class Sample>
void add_row_of(const BandRow& row)
{
    if (row.coarse.kind == CoarseRows::Even)
        add_pixels<Sample, CoarseRows::Even>(row);
    else if (row.coarse.kind == CoarseRows::Odd)
        add_pixels<Sample, CoarseRows::Odd>(row);
    else
        add_pixels<Sample, CoarseRows::None>(row);
}

void add_row(const BandRow& row)
{
    if (row.sample_bytes == 1)
        add_row_of<std::uint8_t>(row);
    else if (row.sample_bytes == 2)
        add_row_of<std::uint16_t>(row);
    else
        add_row_of<float>(row);
}

// --------------------------------------------------------------------------------------------------- from canvas ----

template <class Sample, CoarseRows::Kind kKind, std::size_t kChannels>
std::size_t collapse_vectors(const CanvasRow& row)
{
    const Floats d;
    const std::size_t lanes = hn::Lanes(d);
    const WeightSpread<kChannels> spread;
    Sample* const out = static_cast<Sample*>(row.out);
    std::size_t x = 0;
    for (; x + lanes <= row.pixels; x += lanes) {
        const auto weights = hn::LoadU(d, row.weight_sums + x);
        for (std::size_t part = 0; part < kChannels; ++part) {
            const std::size_t i = x * kChannels + part * lanes;
            const auto mean = rounded_mean(hn::LoadU(d, row.sums + i), spread(weights, part));
            store_from_float(d, plus_expanded<kKind>(d, mean, row.coarse, i), out + i);
        }
    }
    return x;
}

template <class Sample, CoarseRows::Kind kKind>
void collapse_pixels(const CanvasRow& row)
{
    const One one;
    Sample* const out = static_cast<Sample*>(row.out);
    const std::size_t n = row.channels;
    std::size_t x = 0;
    if (n == 3)
        x = collapse_vectors<Sample, kKind, 3>(row);
    else if (n == 1)
        x = collapse_vectors<Sample, kKind, 1>(row);
    else if (n == 4)
        x = collapse_vectors<Sample, kKind, 4>(row);
    for (; x < row.pixels; ++x)
        for (std::size_t i = x * n; i < (x + 1) * n; ++i) {
            const auto mean = hn::Set(one, panoval::rounded_mean(row.sums[i], row.weight_sums[x]));
            store_from_float(one, plus_expanded<kKind>(one, mean, row.coarse, i), out + i);
        }
}

template <class Sample>
void collapse_row_of(const CanvasRow& row)
{
    if (row.coarse.kind == CoarseRows::Even)
        collapse_pixels<Sample, CoarseRows::Even>(row);
    else if (row.coarse.kind == CoarseRows::Odd)
        collapse_pixels<Sample, CoarseRows::Odd>(row);
    else
        collapse_pixels<Sample, CoarseRows::None>(row);
}

void collapse_one_row(const CanvasRow& row)
{
    if (row.sample_bytes == 1)
        collapse_row_of<std::uint8_t>(row);
    else if (row.sample_bytes == 2)
        collapse_row_of<std::uint16_t>(row);
    else
        collapse_row_of<float>(row);
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{
HWY_EXPORT(convert_bytes);
HWY_EXPORT(convert_mask);
HWY_EXPORT(add_row);
HWY_EXPORT(collapse_one_row);
} // namespace

void load_samples(const std::uint8_t* src, std::size_t sample_bytes, std::size_t count, float* dst)
{
    HWY_DYNAMIC_DISPATCH(convert_bytes)(src, sample_bytes, count, dst);
}

void load_weights(const std::uint8_t* mask, std::size_t count, float* dst)
{
    HWY_DYNAMIC_DISPATCH(convert_mask)(mask, count, dst);
}

void add_band(const BandRow& row)
{
    HWY_DYNAMIC_DISPATCH(add_row)(row);
}

void collapse_row(const CanvasRow& row)
{
    HWY_DYNAMIC_DISPATCH(collapse_one_row)(row);
}

} // namespace panoval
#endif
