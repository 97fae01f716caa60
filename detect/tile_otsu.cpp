// SPDX-License-Identifier: MIT
// Otsu's threshold (A threshold selection method from gray-level histograms, 1979) with sums in single precision that
// are built anew for every level, in ascending order: s1(t) is not s1(t - 1) less a term. Levels without pixels add 0
// to every sum and never score above the level before, so that only the others take part; vectors run across the levels
// t.
#include "detect/tile_otsu.h"

#include "core/numbers.h"
#include "detect/level_counts.h"

#include <algorithm>
#include <cstddef>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "detect/tile_otsu.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#ifndef PANOVAL_DETECT_TILE_OTSU_ONCE
#define PANOVAL_DETECT_TILE_OTSU_ONCE
namespace panoval
{
namespace
{

// Levels are taken in blocks of four vectors; the last block may reach beyond the levels in use.
constexpr std::size_t kMostBlock = 64;
constexpr std::size_t kRoom = kGreyLevels + kMostBlock;

// The levels that have pixels, in ascending order.
struct Levels {
    std::size_t count;
    float level[kRoom];
    std::int32_t pixels[kRoom];
    float fraction[kRoom]; // of the tile's pixels
    float moment[kRoom];   // level times fraction
};

// Sums over a class of levels, for each level that may end the lower class.
struct ClassSums {
    float fraction[kRoom];
    float moment[kRoom];
};

// kBelow.mask + kMostBlock - n: all bits set in the first n elements, none in the others
struct BelowMask {
    std::int32_t mask[2 * kMostBlock];
};

constexpr BelowMask make_below_mask()
{
    BelowMask below{};
    for (std::size_t i = 0; i < kMostBlock; ++i)
        below.mask[i] = -1;
    return below;
}

constexpr BelowMask kBelow = make_below_mask();

} // namespace
} // namespace panoval
#endif

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{

namespace hn = hwy::HWY_NAMESPACE;
using Floats = hn::CappedTag<float, kMostBlock / 4>;
using Doubles = hn::CappedTag<double, kMostBlock / 8>;
using V = hn::Vec<Floats>;

// Four vectors of sums over the levels above levels j to j + 4 * lanes - 1.
struct UpperSums {
    V a, b, c, d;
};

HWY_INLINE void add_to_all(UpperSums& sums, float term)
{
    const V v = hn::Set(Floats(), term);
    sums.a = hn::Add(sums.a, v);
    sums.b = hn::Add(sums.b, v);
    sums.c = hn::Add(sums.c, v);
    sums.d = hn::Add(sums.d, v);
}

// Adds a term to the first n sums only. The others are still 0 and stay so.
HWY_INLINE void add_to_first(UpperSums& sums, std::size_t n, float term)
{
    const Floats d;
    const hn::RebindToSigned<Floats> di;
    const std::size_t lanes = hn::Lanes(d);
    const std::int32_t* const mask = kBelow.mask + kMostBlock - n;
    const V v = hn::Set(d, term);
    sums.a = hn::Add(sums.a, hn::And(v, hn::BitCast(d, hn::LoadU(di, mask))));
    sums.b = hn::Add(sums.b, hn::And(v, hn::BitCast(d, hn::LoadU(di, mask + lanes))));
    sums.c = hn::Add(sums.c, hn::And(v, hn::BitCast(d, hn::LoadU(di, mask + 2 * lanes))));
    sums.d = hn::Add(sums.d, hn::And(v, hn::BitCast(d, hn::LoadU(di, mask + 3 * lanes))));
}

HWY_INLINE void store(const UpperSums& sums, float* out)
{
    const Floats d;
    const std::size_t lanes = hn::Lanes(d);
    hn::StoreU(sums.a, d, out);
    hn::StoreU(sums.b, d, out + lanes);
    hn::StoreU(sums.c, d, out + 2 * lanes);
    hn::StoreU(sums.d, d, out + 3 * lanes);
}

void sum_upper_block(const Levels& levels, std::size_t begin, ClassSums& upper)
{
    const std::size_t end = begin + 4 * hn::Lanes(Floats());
    const V zero = hn::Zero(Floats());
    UpperSums fraction{zero, zero, zero, zero};
    UpperSums moment{zero, zero, zero, zero};
    std::size_t i = begin + 1;
    for (; i < end && i < levels.count; ++i) {
        add_to_first(fraction, i - begin, levels.fraction[i]);
        add_to_first(moment, i - begin, levels.moment[i]);
    }
    for (; i < levels.count; ++i) {
        add_to_all(fraction, levels.fraction[i]);
        add_to_all(moment, levels.moment[i]);
    }
    store(fraction, upper.fraction + begin);
    store(moment, upper.moment + begin);
}

// Fractions are divided in double.
void weigh(Levels& levels, std::int32_t pixel_count)
{
    const Doubles d;
    const hn::Rebind<float, Doubles> df;
    const hn::Rebind<std::int32_t, Doubles> di32;
    const auto total = hn::Set(d, static_cast<double>(pixel_count));
    for (std::size_t i = 0; i < levels.count; i += hn::Lanes(d)) {
        const auto pixels = hn::PromoteTo(d, hn::LoadU(di32, levels.pixels + i));
        const auto fraction = hn::DemoteTo(df, hn::Div(pixels, total));
        hn::StoreU(fraction, df, levels.fraction + i);
        hn::StoreU(hn::Mul(hn::LoadU(df, levels.level + i), fraction), df, levels.moment + i);
    }
}

// The variances between the classes: the difference of the means squared in double, times the product of the fractions.
void score(const ClassSums& lower, const ClassSums& upper, std::size_t count, float* scores)
{
    const Doubles d;
    const hn::Rebind<float, Doubles> df;
    for (std::size_t i = 0; i < count; i += hn::Lanes(d)) {
        const auto w0 = hn::LoadU(df, lower.fraction + i);
        const auto w1 = hn::LoadU(df, upper.fraction + i);
        const auto lower_mean = hn::Div(hn::LoadU(df, lower.moment + i), w0);
        const auto upper_mean = hn::Div(hn::LoadU(df, upper.moment + i), w1);
        const auto difference = hn::PromoteTo(d, hn::Sub(lower_mean, upper_mean));
        const auto weight = hn::PromoteTo(d, hn::Mul(w1, w0));
        hn::StoreU(hn::DemoteTo(df, hn::Mul(hn::Mul(difference, difference), weight)), df, scores + i);
    }
}

std::int32_t best_level(Levels& levels, std::int32_t pixel_count)
{
    weigh(levels, pixel_count);
    ClassSums lower = {};
    ClassSums upper;
    float fraction = 0;
    float moment = 0;
    for (std::size_t i = 0; i < levels.count; ++i) {
        fraction += levels.fraction[i];
        moment += levels.moment[i];
        lower.fraction[i] = fraction;
        lower.moment[i] = moment;
    }
    for (std::size_t begin = 0; begin < levels.count; begin += 4 * hn::Lanes(Floats()))
        sum_upper_block(levels, begin, upper);
    float scores[kRoom];
    score(lower, upper, levels.count, scores);
    float best = 0;
    std::size_t winner = 0;
    bool has_winner = false;
    for (std::size_t i = 0; i + 1 < levels.count; ++i) // above the last level there is no class
        if (scores[i] > best) {
            best = scores[i];
            winner = i;
            has_winner = true;
        }
    return has_winner ? truncate_to_int(levels.level[winner]) : 0;
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{

HWY_EXPORT(best_level);

// Every level is written to the next free place, and the place is taken if there are pixels: no branch to mispredict.
void gather_levels(const std::uint32_t* counts, Levels& levels)
{
    std::size_t used = 0;
    for (std::int32_t level = 0; level < kGreyLevels; ++level) {
        levels.level[used] = static_cast<float>(level);
        levels.pixels[used] = static_cast<std::int32_t>(counts[level]);
        used += counts[level] != 0 ? 1u : 0u;
    }
    std::fill_n(levels.level + used, kMostBlock, 0.0f);
    std::fill_n(levels.pixels + used, kMostBlock, 0);
    levels.count = used;
}

} // namespace

std::int32_t otsu_threshold(const std::uint32_t* counts, std::int32_t pixel_count)
{
    Levels levels;
    gather_levels(counts, levels);
    if (levels.count < 2)
        return 0;
    return HWY_DYNAMIC_DISPATCH(best_level)(levels, pixel_count);
}

std::int32_t tile_otsu_threshold(std::int32_t width, std::int32_t height, const std::uint8_t* pixels)
{
    std::uint32_t counts[kGreyLevels];
    count_levels(pixels, to_count(width), to_count(width), to_count(height), counts);
    return otsu_threshold(counts, wrapping_mul(width, height));
}

} // namespace panoval
#endif
