// SPDX-License-Identifier: MIT
// Most pixels need no threshold: where a block of them lies beyond the thresholds of all tiles around, nothing is
// interpolated, and elsewhere 16-bit arithmetic bounds the threshold closely enough to tell dark from light.
#include "detect/tile_threshold_rows.h"

#include "core/numbers.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "detect/tile_threshold_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#ifndef PANOVAL_DETECT_TILE_THRESHOLD_ROWS_ONCE
#define PANOVAL_DETECT_TILE_THRESHOLD_ROWS_ONCE
namespace panoval
{
namespace
{

// Where TileCorner::fixed has column x: of each block first the even ones, then the odd ones.
constexpr std::size_t fixed_index(std::size_t x)
{
    return x / kTileBlock * kTileBlock + x % 2 * (kTileBlock / 2) + x % kTileBlock / 2;
}

// How the fixed-point product x = floor(c * f / 65536) of a corner c and a fraction f bounds the term p in double.
// Below: where c is not 0, c * f / 65536 is at least c / 65536 less than 256 * p's real value, a share of 2^-32, which
// the rounding of p, a share of 2^-53, does not make up for. Above: 256 * value is below c + 1, 65536 * value below
// f + 2, and c is at most 65280, so that 256 * p is below x + 1 + 2 * 65280 / 65536 + 1 < x + 3.993.
// Whole multiples of 256 up to 256 * p are therefore at most x + 3: p, truncated, lies between x >> 8 and
// (x + kMargin) >> 8.
constexpr std::uint16_t kMargin = 3;

} // namespace
} // namespace panoval
#endif

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{

namespace hn = hwy::HWY_NAMESPACE;
using Doubles = hn::CappedTag<double, 8>;
using Bytes = hn::CappedTag<std::uint8_t, kTileBlock>;
using Words = hn::Repartition<std::uint16_t, Bytes>;
using V = hn::Vec<Doubles>;

// Each term is positive: truncated is floored.
HWY_INLINE V term(const double* corner, V fraction)
{
    return hn::Floor(hn::Mul(hn::LoadU(Doubles(), corner), fraction));
}

// The thresholds of count columns from x on, a multiple of the lanes.
HWY_INLINE void interpolate(const TileCorners& corners, double lower, double upper, std::size_t x, std::size_t count,
                            std::uint8_t* thresholds)
{
    const Doubles d;
    const hn::Rebind<std::int32_t, Doubles> di32;
    const hn::Rebind<std::uint8_t, Doubles> du8;
    const V fy = hn::Set(d, lower);
    const V rest = hn::Set(d, upper);
    for (const std::size_t end = x + count; x < end; x += hn::Lanes(d), thresholds += hn::Lanes(d)) {
        const V below = hn::Add(term(corners.lower_right.value + x, fy), term(corners.lower_left.value + x, fy));
        const V above = hn::Add(term(corners.upper_right.value + x, rest), term(corners.upper_left.value + x, rest));
        hn::StoreU(hn::DemoteTo(du8, hn::DemoteTo(di32, hn::Add(below, above))), du8, thresholds);
    }
}

struct Bounds {
    hn::Vec<Words> low;
    hn::Vec<Words> high;
};

HWY_INLINE void add_term(const std::uint16_t* corner, hn::Vec<Words> fraction, Bounds& bounds)
{
    const Words d;
    const auto product = hn::MulHigh(hn::LoadU(d, corner), fraction);
    bounds.low = hn::Add(bounds.low, hn::ShiftRight<8>(product));
    bounds.high = hn::Add(bounds.high, hn::ShiftRight<8>(hn::Add(product, hn::Set(d, kMargin))));
}

// Of the thresholds of one vector of columns that follow each other in TileCorner::fixed.
HWY_INLINE Bounds bound(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper, std::size_t i)
{
    const Words d;
    Bounds bounds{hn::Zero(d), hn::Zero(d)};
    add_term(corners.lower_right.fixed + i, hn::Set(d, lower.fixed), bounds);
    add_term(corners.lower_left.fixed + i, hn::Set(d, lower.fixed), bounds);
    add_term(corners.upper_right.fixed + i, hn::Set(d, upper.fixed), bounds);
    add_term(corners.upper_left.fixed + i, hn::Set(d, upper.fixed), bounds);
    return bounds;
}

// Of even and odd columns. What exceeds a byte bounds as well when it is 255.
HWY_INLINE hn::Vec<Bytes> to_bytes(hn::Vec<Words> even, hn::Vec<Words> odd)
{
    const auto most = hn::Set(Words(), std::uint16_t{255});
    return hn::BitCast(Bytes(), hn::Or(hn::Min(even, most), hn::ShiftLeft<8>(hn::Min(odd, most))));
}

HWY_INLINE hn::Mask<Bytes> is_at_most(hn::Vec<Bytes> pixels, hn::Vec<Bytes> thresholds)
{
    return hn::Eq(hn::Min(pixels, thresholds), pixels);
}

// One vector of marks, 1 = dark.
HWY_INLINE hn::Vec<Bytes> mark_vector(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper,
                                      std::size_t x, hn::Vec<Bytes> pixels)
{
    const Bytes d;
    const Bounds even = bound(corners, lower, upper, fixed_index(x));
    const Bounds odd = bound(corners, lower, upper, fixed_index(x + 1));
    const auto one = hn::Set(d, std::uint8_t{1});
    auto marks = hn::IfThenElseZero(is_at_most(pixels, to_bytes(even.low, odd.low)), one);
    const auto most = hn::IfThenElseZero(is_at_most(pixels, to_bytes(even.high, odd.high)), one);
    if (!hn::AllTrue(d, hn::Eq(marks, most))) {
        std::uint8_t thresholds[kTileBlock];
        interpolate(corners, lower.value, upper.value, x, hn::Lanes(d), thresholds);
        marks = hn::IfThenElseZero(is_at_most(pixels, hn::LoadU(d, thresholds)), one);
    }
    return marks;
}

HWY_INLINE void store(hn::Vec<Bytes> marks, std::uint8_t* map)
{
    hn::StoreU(marks, Bytes(), map);
}

HWY_INLINE void store(hn::Vec<Bytes> marks, std::uint32_t* map)
{
    const hn::CappedTag<std::uint32_t, kTileBlock / 4> d;
    const hn::Rebind<std::uint8_t, decltype(d)> du8;
    std::uint8_t bytes[kTileBlock];
    hn::StoreU(marks, Bytes(), bytes);
    for (std::size_t i = 0; i < hn::Lanes(Bytes()); i += hn::Lanes(d))
        hn::StoreU(hn::PromoteTo(d, hn::LoadU(du8, bytes + i)), d, map + i);
}

enum class Shade { Light, Dark, Mixed };

// Light or Dark when all kTileBlock pixels are so by every threshold between the tiles.
HWY_INLINE Shade shade_of_block(const TileCorners& corners, const std::uint8_t* pixels)
{
    const hn::CappedTag<std::uint8_t, kTileBlock> d;
    auto darkest = hn::LoadU(d, pixels);
    auto lightest = darkest;
    for (std::size_t x = hn::Lanes(d); x < kTileBlock; x += hn::Lanes(d)) {
        const auto v = hn::LoadU(d, pixels + x);
        darkest = hn::Min(darkest, v);
        lightest = hn::Max(lightest, v);
    }
    if (hn::AllTrue(d, hn::Ne(hn::Min(darkest, hn::Set(d, corners.highest)), darkest)))
        return Shade::Light;
    lightest = hn::SaturatedAdd(lightest, hn::Set(d, std::uint8_t{4}));
    if (hn::AllTrue(d, hn::Eq(hn::Min(lightest, hn::Set(d, corners.lowest)), lightest)))
        return Shade::Dark;
    return Shade::Mixed;
}

template <class Mark>
HWY_INLINE void mark_block(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper,
                           std::size_t x, const std::uint8_t* pixels, Mark* map)
{
    const Bytes d;
    const Shade shade = shade_of_block(corners, pixels);
    const auto common = hn::Set(d, std::uint8_t{shade == Shade::Dark});
    for (std::size_t i = 0; i < kTileBlock; i += hn::Lanes(d)) {
        const bool is_mixed = shade == Shade::Mixed;
        store(is_mixed ? mark_vector(corners, lower, upper, x + i, hn::LoadU(d, pixels + i)) : common, map + i);
    }
}

template <class Mark>
HWY_INLINE void mark_blocks(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper,
                            const std::uint8_t* pixels, std::size_t width, Mark* map)
{
    std::size_t x = 0;
    for (; x + kTileBlock <= width; x += kTileBlock)
        mark_block(corners, lower, upper, x, pixels + x, map + x);
    if (x == width)
        return;
    std::uint8_t last[kTileBlock] = {}; // the row may end where memory ends
    Mark last_map[kTileBlock];
    std::memcpy(last, pixels + x, width - x);
    mark_block(corners, lower, upper, x, last, last_map);
    std::memcpy(map + x, last_map, (width - x) * sizeof(Mark));
}

} // namespace

void mark_row8(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper,
               const std::uint8_t* pixels, std::size_t width, std::uint8_t* map)
{
    mark_blocks(corners, lower, upper, pixels, width, map);
}

void mark_row32(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper,
                const std::uint8_t* pixels, std::size_t width, std::uint32_t* map)
{
    mark_blocks(corners, lower, upper, pixels, width, map);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(mark_row8);
HWY_EXPORT(mark_row32);

void set_column(TileCorner& corner, std::size_t x, double value)
{
    corner.value[x] = value;
    corner.fixed[fixed_index(x)] = static_cast<std::uint16_t>(truncate_to_int(256 * value));
}

TileFraction fraction_of(double value)
{
    return {value, static_cast<std::uint16_t>(std::max(truncate_to_int(65536 * value) - 1, 0))};
}

void mark_row(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper,
              const std::uint8_t* pixels, std::size_t width, std::uint8_t* map)
{
    HWY_DYNAMIC_DISPATCH(mark_row8)(corners, lower, upper, pixels, width, map);
}

void mark_row(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper,
              const std::uint8_t* pixels, std::size_t width, std::uint32_t* map)
{
    HWY_DYNAMIC_DISPATCH(mark_row32)(corners, lower, upper, pixels, width, map);
}

} // namespace panoval
#endif
