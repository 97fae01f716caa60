// SPDX-License-Identifier: MIT
// A threshold for every pixel: each tile of the image has one of its own, and between the tiles' centres they are
// interpolated in double, every term truncated by itself. What a term has in common with the other rows of pixels
// between the same tiles, the threshold times the horizontal fraction, is its first product and computed once. Most
// pixels need no threshold: where a block of them lies beyond the thresholds of all tiles around, nothing is
// interpolated, and elsewhere 16-bit arithmetic bounds the threshold closely enough to tell dark from light.
#include "detect/tile_threshold.h"

#include "core/heap.h"
#include "core/numbers.h"
#include "detect/level_counts.h"
#include "detect/tile_otsu.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "detect/tile_threshold.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#ifndef PANOVAL_DETECT_TILE_THRESHOLD_ONCE
#define PANOVAL_DETECT_TILE_THRESHOLD_ONCE
namespace panoval
{
namespace
{

// Columns that are interpolated together, so that their products stay in the nearest cache.
constexpr std::size_t kStrip = 1024;
constexpr std::size_t kBlock = 32; // columns that are decided together; divides kStrip

// A threshold times a horizontal fraction: the first product of one of the four terms.
struct Corner {
    double value[kStrip];
    std::uint16_t fixed[kStrip]; // 256 * value, truncated; of each block first the even columns, then the odd ones
};

// Where Corner::fixed has column x.
constexpr std::size_t fixed_index(std::size_t x)
{
    return x / kBlock * kBlock + x % 2 * (kBlock / 2) + x % kBlock / 2;
}

// Of the tiles below and above a row of pixels, to its right and left.
struct Corners {
    Corner lower_right;
    Corner lower_left;
    Corner upper_right;
    Corner upper_left;

    // Of the tiles around. The four terms add up to a mean of their thresholds and each loses less than 1, so that the
    // sum lies between lowest - 4 and highest. Rounding cannot carry it beyond: it is a whole number.
    std::uint8_t lowest;
    std::uint8_t highest;
};

// The second factor of a term, between 0 and 1.
struct Fraction {
    double value;
    std::uint16_t fixed; // 65536 * value, truncated, less 1 where that is not negative
};

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
using Bytes = hn::CappedTag<std::uint8_t, kBlock>;
using Words = hn::Repartition<std::uint16_t, Bytes>;
using V = hn::Vec<Doubles>;

// Each term is positive: truncated is floored.
HWY_INLINE V term(const double* corner, V fraction)
{
    return hn::Floor(hn::Mul(hn::LoadU(Doubles(), corner), fraction));
}

// The thresholds of count columns from x on, a multiple of the lanes.
HWY_INLINE void interpolate(const Corners& corners, double lower, double upper, std::size_t x, std::size_t count,
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

// Of the thresholds of one vector of columns that follow each other in Corner::fixed.
HWY_INLINE Bounds bound(const Corners& corners, const Fraction& lower, const Fraction& upper, std::size_t i)
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
HWY_INLINE hn::Vec<Bytes> mark_vector(const Corners& corners, const Fraction& lower, const Fraction& upper,
                                      std::size_t x, hn::Vec<Bytes> pixels)
{
    const Bytes d;
    const Bounds even = bound(corners, lower, upper, fixed_index(x));
    const Bounds odd = bound(corners, lower, upper, fixed_index(x + 1));
    const auto one = hn::Set(d, std::uint8_t{1});
    auto marks = hn::IfThenElseZero(is_at_most(pixels, to_bytes(even.low, odd.low)), one);
    const auto most = hn::IfThenElseZero(is_at_most(pixels, to_bytes(even.high, odd.high)), one);
    if (!hn::AllTrue(d, hn::Eq(marks, most))) {
        std::uint8_t thresholds[kBlock];
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
    const hn::CappedTag<std::uint32_t, kBlock / 4> d;
    const hn::Rebind<std::uint8_t, decltype(d)> du8;
    std::uint8_t bytes[kBlock];
    hn::StoreU(marks, Bytes(), bytes);
    for (std::size_t i = 0; i < hn::Lanes(Bytes()); i += hn::Lanes(d))
        hn::StoreU(hn::PromoteTo(d, hn::LoadU(du8, bytes + i)), d, map + i);
}

enum class Shade { Light, Dark, Mixed };

// Light or Dark when all kBlock pixels are so by every threshold between the tiles.
HWY_INLINE Shade shade_of_block(const Corners& corners, const std::uint8_t* pixels)
{
    const hn::CappedTag<std::uint8_t, kBlock> d;
    auto darkest = hn::LoadU(d, pixels);
    auto lightest = darkest;
    for (std::size_t x = hn::Lanes(d); x < kBlock; x += hn::Lanes(d)) {
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
HWY_INLINE void mark_block(const Corners& corners, const Fraction& lower, const Fraction& upper, std::size_t x,
                           const std::uint8_t* pixels, Mark* map)
{
    const Bytes d;
    const Shade shade = shade_of_block(corners, pixels);
    const auto common = hn::Set(d, std::uint8_t{shade == Shade::Dark});
    for (std::size_t i = 0; i < kBlock; i += hn::Lanes(d)) {
        const bool is_mixed = shade == Shade::Mixed;
        store(is_mixed ? mark_vector(corners, lower, upper, x + i, hn::LoadU(d, pixels + i)) : common, map + i);
    }
}

// lower, upper: the vertical fraction and its complement
template <class Mark>
HWY_INLINE void mark_row(const Corners& corners, const Fraction& lower, const Fraction& upper,
                         const std::uint8_t* pixels, std::size_t width, Mark* map)
{
    std::size_t x = 0;
    for (; x + kBlock <= width; x += kBlock)
        mark_block(corners, lower, upper, x, pixels + x, map + x);
    if (x == width)
        return;
    std::uint8_t last[kBlock] = {}; // the row may end where memory ends
    Mark last_map[kBlock];
    std::memcpy(last, pixels + x, width - x);
    mark_block(corners, lower, upper, x, last, last_map);
    std::memcpy(map + x, last_map, (width - x) * sizeof(Mark));
}

void mark_row8(const Corners& corners, const Fraction& lower, const Fraction& upper, const std::uint8_t* pixels,
               std::size_t width, std::uint8_t* map)
{
    mark_row(corners, lower, upper, pixels, width, map);
}

void mark_row32(const Corners& corners, const Fraction& lower, const Fraction& upper, const std::uint8_t* pixels,
                std::size_t width, std::uint32_t* map)
{
    mark_row(corners, lower, upper, pixels, width, map);
}

} // namespace
} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE

extern "C" {
int omp_get_max_threads(void);
int omp_get_thread_num(void);
}

namespace panoval
{
namespace
{

HWY_EXPORT(mark_row8);
HWY_EXPORT(mark_row32);

void mark_row(const Corners& corners, const Fraction& lower, const Fraction& upper, const std::uint8_t* pixels,
              std::size_t width, std::uint8_t* map)
{
    HWY_DYNAMIC_DISPATCH(mark_row8)(corners, lower, upper, pixels, width, map);
}

void mark_row(const Corners& corners, const Fraction& lower, const Fraction& upper, const std::uint8_t* pixels,
              std::size_t width, std::uint32_t* map)
{
    HWY_DYNAMIC_DISPATCH(mark_row32)(corners, lower, upper, pixels, width, map);
}

// Tiles of one dimension. All have the same length but for the last, which has what is left.
struct Axis {
    std::int32_t pixels;
    std::int32_t tile;  // pixels of a tile
    std::int32_t count; // tiles
};

Axis divide(std::int32_t pixels, std::int32_t divisions)
{
    const std::int32_t tile = pixels / divisions;
    return {pixels, tile, (pixels - 1) / tile + 1};
}

// Where a pixel lies between the centres of two tiles. Beyond the outermost centres both are the outermost tile.
struct Position {
    std::int32_t before;
    std::int32_t after;
    double fraction; // 0 at the centre of the tile before, towards 1 at that of the tile after
};

Position locate(const Axis& axis, std::int32_t pixel)
{
    const std::int32_t shifted = pixel + axis.tile / 2;
    const std::int32_t tile = shifted / axis.tile;
    const double fraction = static_cast<double>(shifted % axis.tile) / static_cast<double>(axis.tile);
    return {std::max(tile - 1, 0), std::min(tile, axis.count - 1), fraction};
}

struct Grid {
    Axis x;
    Axis y;
    HeapArray<std::uint8_t> thresholds; // of the tiles, row by row
};

struct Counts {
    std::uint32_t of_level[kGreyLevels];
};

// More threads than this share their tables: a host may have set a number of threads that no memory holds tables for.
constexpr std::int32_t kMostSlots = 64;

// One table for each thread that may share the loop over the tiles; here the calling thread runs it alone. A host that
// calls from a parallel region of its own may have a higher thread number than this region's maximum.
bool threshold_tiles(Grid& grid, const std::uint8_t* image)
{
    const std::int32_t slot_count = std::clamp(omp_get_max_threads(), 1, kMostSlots);
    const auto slots = allocate<Counts>(to_count(slot_count));
    grid.thresholds = allocate<std::uint8_t>(to_count(grid.x.count) * to_count(grid.y.count));
    if (slots == nullptr || grid.thresholds == nullptr)
        return false;
    std::uint32_t* const counts = slots[to_count(omp_get_thread_num() % slot_count)].of_level;
    std::uint8_t* threshold = grid.thresholds.get();
    const std::size_t stride = to_count(grid.x.pixels);
    for (std::int32_t ty = 0; ty < grid.y.count; ++ty)
        for (std::int32_t tx = 0; tx < grid.x.count; ++tx) {
            const std::int32_t x = tx * grid.x.tile;
            const std::int32_t y = ty * grid.y.tile;
            const std::int32_t width = std::min(grid.x.tile, grid.x.pixels - x);
            const std::int32_t height = std::min(grid.y.tile, grid.y.pixels - y);
            count_levels(image + to_count(y) * stride + to_count(x), stride, to_count(width), to_count(height), counts);
            *threshold++ = low_byte(otsu_threshold(counts, wrapping_mul(width, height)));
        }
    return true;
}

void set(Corner& corner, std::size_t i, double value)
{
    corner.value[i] = value;
    corner.fixed[fixed_index(i)] = static_cast<std::uint16_t>(truncate_to_int(256 * value));
}

Fraction fraction_of(double value)
{
    return {value, static_cast<std::uint16_t>(std::max(truncate_to_int(65536 * value) - 1, 0))};
}

void fill_corners(const Grid& grid, const Position* columns, std::size_t width, const Position& row, Corners& corners)
{
    const std::uint8_t* const lower = grid.thresholds.get() + to_count(row.after) * to_count(grid.x.count);
    const std::uint8_t* const upper = grid.thresholds.get() + to_count(row.before) * to_count(grid.x.count);
    corners.lowest = 255;
    corners.highest = 0;
    for (std::size_t i = 0; i < width; ++i) {
        const Position& column = columns[i];
        for (const std::uint8_t* const tiles : {lower, upper}) {
            corners.lowest = std::min({corners.lowest, tiles[column.before], tiles[column.after]});
            corners.highest = std::max({corners.highest, tiles[column.before], tiles[column.after]});
        }
        set(corners.lower_right, i, lower[column.after] * column.fraction);
        set(corners.lower_left, i, lower[column.before] * (1 - column.fraction));
        set(corners.upper_right, i, upper[column.after] * column.fraction);
        set(corners.upper_left, i, upper[column.before] * (1 - column.fraction));
    }
}

// A strip of columns from x on.
template <class Mark>
void mark_strip(const Grid& grid, const std::uint8_t* image, std::int32_t x, Mark* map)
{
    const std::size_t width = std::min(kStrip, to_count(grid.x.pixels - x));
    Position columns[kStrip];
    for (std::size_t i = 0; i < width; ++i)
        columns[i] = locate(grid.x, x + static_cast<std::int32_t>(i));
    Corners corners = {};
    Position row{-1, -1, 0};
    for (std::int32_t y = 0; y < grid.y.pixels; ++y) {
        const Position position = locate(grid.y, y);
        if (position.before != row.before || position.after != row.after)
            fill_corners(grid, columns, width, position, corners);
        row = position;
        const std::size_t begin = to_count(y) * to_count(grid.x.pixels) + to_count(x);
        mark_row(corners, fraction_of(row.fraction), fraction_of(1 - row.fraction), image + begin, width, map + begin);
    }
}

template <class Mark>
bool mark_dark(std::int32_t width, std::int32_t height, const std::uint8_t* image, Mark* map, std::int32_t divisions)
{
    if (width < 1 || height < 1)
        return true;
    if (divisions < 1 || divisions > std::min(width, height)) {
        std::fill_n(map, to_count(width) * to_count(height), Mark{0});
        return true;
    }
    Grid grid{divide(width, divisions), divide(height, divisions), nullptr};
    if (!threshold_tiles(grid, image))
        return false;
    for (std::int32_t x = 0; x < width; x += static_cast<std::int32_t>(kStrip))
        mark_strip(grid, image, x, map);
    return true;
}

} // namespace

bool adaptive_tile_threshold(std::int32_t width, std::int32_t height, const std::uint8_t* image, std::uint32_t* map,
                             std::int32_t divisions)
{
    return mark_dark(width, height, image, map, divisions);
}

bool adaptive_tile_threshold(std::int32_t width, std::int32_t height, const std::uint8_t* image, std::uint8_t* map,
                             std::int32_t divisions)
{
    return mark_dark(width, height, image, map, divisions);
}

} // namespace panoval
#endif
