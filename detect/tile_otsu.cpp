// SPDX-License-Identifier: MIT
// Otsu's threshold (A threshold selection method from gray-level histograms, 1979) with sums in single precision that
// are built anew for every level, in ascending order: s1(t) is not s1(t - 1) less a term. Levels without pixels add 0
// to every sum and never score above the level before, so that only the others take part. Sums of whole numbers tell
// which of those can have the best score, and only these are scored. Vectors run across the levels t.
#include "detect/tile_otsu.h"

#include "detect/level_counts.h"

#include <algorithm>
#include <cmath>
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

// Levels are taken in blocks of four vectors; a block may reach beyond the levels in use.
constexpr std::size_t kMostBlock = 64;
constexpr std::size_t kRoom = kGreyLevels + kMostBlock;

// The levels that have pixels, in ascending order, then kMostBlock levels of none.
struct Levels {
    std::size_t count;
    std::int32_t level[kRoom];
    std::int32_t pixels[kRoom];
    float fraction[kRoom]; // of the tile's pixels
    float moment[kRoom];   // level times fraction
};

// Sums over a class of levels, for each level that may end the lower class.
struct ClassSums {
    float fraction[kRoom];
    float moment[kRoom];
};

struct Range {
    std::size_t begin;
    std::size_t end;
};

// Up to so many pixels, their levels add up to less than 2^31.
constexpr std::int32_t kMostCountedPixels = 1 << 23;

// How far the root of a score can be from that of its estimate, which is computed in single precision from whole
// numbers, with n levels and u = 2^-24. The score's sums of at most n rounded terms are off by shares of n * u, and
// (n + 1) * u for moments; the means, at most 255, by 255 * (2 * n + 3) * u; their difference by 510 * (2 * n + 4) * u,
// and the estimate's by 510 * 4 * u. Its factor, the root of the product of the fractions, is at most 1/2: that makes
// 255 * (2 * n + 8) * u. The product itself and the roundings after it change the root, at most 127.5, by a share
// below (n + 8) * u, which makes 255 * (n / 2 + 4) * u. The rest is left for second orders and for the comparison.
constexpr float root_error(std::size_t n)
{
    return 255 * static_cast<float>(3 * n + 16) * 0x1p-24f;
}

// kBelow.mask + kMostBlock - n: all bits set in the first n elements, none in the others
struct BelowMask {
    std::int32_t mask[2 * kMostBlock];
};

constexpr BelowMask make_below_mask() // COUNT_EXCL_START: runs in the compiler alone
{
    BelowMask below{};
    for (std::size_t i = 0; i < kMostBlock; ++i)
        below.mask[i] = -1;
    return below;
} // COUNT_EXCL_STOP

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

// Single precision estimates of the scores, from whole numbers. Returns the largest.
float estimate(const Levels& levels, float* estimates)
{
    std::int32_t pixels[kRoom];
    std::int32_t moments[kRoom];
    std::int32_t pixel_sum = 0;
    std::int32_t moment_sum = 0;
    const Floats d;
    const hn::RebindToSigned<Floats> di;
    const std::size_t end = levels.count + hn::Lanes(d);
    for (std::size_t i = 0; i < end; ++i) {
        pixel_sum += levels.pixels[i];
        moment_sum += levels.pixels[i] * levels.level[i];
        pixels[i] = pixel_sum;
        moments[i] = moment_sum;
    }
    const V share = hn::Set(d, 1 / static_cast<float>(pixel_sum));
    const V one = hn::Set(d, 1.0f); // in place of the pixels of an empty upper class, whose estimate is 0
    V largest = hn::Zero(d);
    for (std::size_t i = 0; i < levels.count; i += hn::Lanes(d)) {
        const auto lower_pixels = hn::LoadU(di, pixels + i);
        const auto lower_moment = hn::LoadU(di, moments + i);
        const V w0 = hn::ConvertTo(d, lower_pixels);
        const V w1 = hn::ConvertTo(d, hn::Sub(hn::Set(di, pixel_sum), lower_pixels));
        const V s0 = hn::ConvertTo(d, lower_moment);
        const V s1 = hn::ConvertTo(d, hn::Sub(hn::Set(di, moment_sum), lower_moment));
        const V difference = hn::Sub(hn::Div(s0, w0), hn::Div(s1, hn::Max(w1, one)));
        const V weight = hn::Mul(hn::Mul(w0, share), hn::Mul(w1, share));
        const V score = hn::Mul(hn::Mul(difference, difference), weight);
        largest = hn::Max(largest, score);
        hn::StoreU(score, d, estimates + i);
    }
    return hn::GetLane(hn::MaxOfLanes(d, largest));
}

// Whole vectors that hold every level which can have the best score.
Range find_candidates(const Levels& levels, std::int32_t pixel_count)
{
    const Range all{0, levels.count};
    if (pixel_count < 1 || pixel_count > kMostCountedPixels)
        return all;
    float estimates[kRoom];
    const float root = std::sqrt(estimate(levels, estimates)) - 2 * root_error(levels.count);
    if (!(root > 0))
        return all;
    const Floats d;
    const V least = hn::Set(d, root * root);
    Range range{levels.count, 0};
    for (std::size_t i = 0; i < levels.count; i += hn::Lanes(d))
        if (!hn::AllTrue(d, hn::Lt(hn::LoadU(d, estimates + i), least))) {
            range.begin = std::min(range.begin, i);
            range.end = std::min(i + hn::Lanes(d), levels.count);
        }
    return range;
}

// Fractions are divided in double. Whole vectors of floats are filled.
void weigh(Levels& levels, std::int32_t pixel_count)
{
    const Doubles d;
    const hn::Rebind<float, Doubles> df;
    const hn::Rebind<std::int32_t, Doubles> di32;
    const auto total = hn::Set(d, static_cast<double>(pixel_count));
    for (std::size_t i = 0; i < levels.count; i += hn::Lanes(d)) {
        const auto pixels = hn::PromoteTo(d, hn::LoadU(di32, levels.pixels + i));
        const auto level = hn::ConvertTo(df, hn::LoadU(di32, levels.level + i));
        const auto fraction = hn::DemoteTo(df, hn::Div(pixels, total));
        hn::StoreU(fraction, df, levels.fraction + i);
        hn::StoreU(hn::Mul(level, fraction), df, levels.moment + i);
    }
}

// Up to each level before `end`.
void sum_lower(const Levels& levels, std::size_t end, ClassSums& lower)
{
    float fraction = 0;
    float moment = 0;
    for (std::size_t i = 0; i < end; ++i) {
        fraction += levels.fraction[i];
        moment += levels.moment[i];
        lower.fraction[i] = fraction;
        lower.moment[i] = moment;
    }
}

// The variance between the classes: the difference of the means squared in double, times the product of the fractions.
float score(const ClassSums& lower, const ClassSums& upper, std::size_t i)
{
    const float w0 = lower.fraction[i];
    const float w1 = upper.fraction[i];
    const double difference = lower.moment[i] / w0 - upper.moment[i] / w1;
    const double weight = w1 * w0;
    return static_cast<float>(difference * difference * weight);
}

std::int32_t best_level(Levels& levels, std::int32_t pixel_count)
{
    const Range range = find_candidates(levels, pixel_count);
    weigh(levels, pixel_count);
    ClassSums lower;
    ClassSums upper;
    sum_lower(levels, range.end, lower);
    for (std::size_t begin = range.begin; begin < range.end; begin += 4 * hn::Lanes(Floats()))
        sum_upper_block(levels, begin, upper);
    float best = 0;
    std::int32_t winner = 0;
    const std::size_t last = levels.count - 1; // above it there is no class
    for (std::size_t i = range.begin; i < std::min(range.end, last); ++i) {
        const float s = score(lower, upper, i);
        if (s > best) {
            best = s;
            winner = levels.level[i];
        }
    }
    return winner;
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
        levels.level[used] = level;
        levels.pixels[used] = static_cast<std::int32_t>(counts[level]);
        used += counts[level] != 0 ? 1u : 0u;
    }
    std::fill_n(levels.level + used, kMostBlock, 0);
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

} // namespace panoval
#endif
