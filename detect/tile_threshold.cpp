// SPDX-License-Identifier: MIT
// A threshold for every pixel: each tile of the image has one of its own, and between the tiles' centres they are
// interpolated in double, every term truncated by itself. What a term has in common with the other rows of pixels
// between the same tiles, the threshold times the horizontal fraction, is its first product and computed once. Where
// the pixels of a block lie beyond the thresholds of all tiles around, nothing is interpolated.
#include "detect/tile_threshold.h"

#include "core/heap.h"
#include "core/numbers.h"
#include "detect/level_counts.h"
#include "detect/tile_otsu.h"

#include <algorithm>

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
constexpr std::size_t kStrip = 128;
constexpr std::size_t kBlock = 32; // columns that are decided together; divides kStrip
constexpr std::size_t kPad = 8;    // lanes of the widest vector of doubles

// Products of thresholds with horizontal fractions, for the tiles below and above a row of pixels, to its right and
// left.
struct Corners {
    double lower_right[kStrip + kPad];
    double lower_left[kStrip + kPad];
    double upper_right[kStrip + kPad];
    double upper_left[kStrip + kPad];

    // Of the tiles around. The four terms add up to a mean of their thresholds and each loses less than 1, so that the
    // sum lies between lowest - 4 and highest. Rounding cannot carry it beyond: it is a whole number.
    std::uint8_t lowest;
    std::uint8_t highest;
};

} // namespace
} // namespace panoval
#endif

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{

namespace hn = hwy::HWY_NAMESPACE;
using Doubles = hn::ScalableTag<double>;
using V = hn::Vec<Doubles>;

// Each term is positive: truncated is floored.
HWY_INLINE V term(const double* corner, V fraction)
{
    return hn::Floor(hn::Mul(hn::LoadU(Doubles(), corner), fraction));
}

// The thresholds of count columns from x on; whole vectors are written.
HWY_INLINE void interpolate(const Corners& corners, double lower, double upper, std::size_t x, std::size_t count,
                            std::uint8_t* thresholds)
{
    const Doubles d;
    const hn::Rebind<std::int32_t, Doubles> di32;
    const hn::Rebind<std::uint8_t, Doubles> du8;
    const V fy = hn::Set(d, lower);
    const V rest = hn::Set(d, upper);
    for (const std::size_t end = x + count; x < end; x += hn::Lanes(d), thresholds += hn::Lanes(d)) {
        const V below = hn::Add(term(corners.lower_right + x, fy), term(corners.lower_left + x, fy));
        const V above = hn::Add(term(corners.upper_right + x, rest), term(corners.upper_left + x, rest));
        hn::StoreU(hn::DemoteTo(du8, hn::DemoteTo(di32, hn::Add(below, above))), du8, thresholds);
    }
}

template <class D>
HWY_INLINE hn::Vec<D> dark(D d, const std::uint8_t* pixels, const std::uint8_t* thresholds)
{
    const auto pixel = hn::LoadU(d, pixels);
    const auto is_dark = hn::Eq(hn::Min(pixel, hn::LoadU(d, thresholds)), pixel);
    return hn::IfThenElseZero(is_dark, hn::Set(d, std::uint8_t{1}));
}

HWY_INLINE void mark(const std::uint8_t* pixels, const std::uint8_t* thresholds, std::size_t count, std::uint8_t* map)
{
    const hn::ScalableTag<std::uint8_t> d;
    std::size_t x = 0;
    for (; x + hn::Lanes(d) <= count; x += hn::Lanes(d))
        hn::StoreU(dark(d, pixels + x, thresholds + x), d, map + x);
    for (; x < count; ++x)
        map[x] = pixels[x] <= thresholds[x] ? 1 : 0;
}

HWY_INLINE void mark(const std::uint8_t* pixels, const std::uint8_t* thresholds, std::size_t count, std::uint32_t* map)
{
    const hn::ScalableTag<std::uint32_t> d;
    const hn::Rebind<std::uint8_t, decltype(d)> du8;
    std::size_t x = 0;
    for (; x + hn::Lanes(d) <= count; x += hn::Lanes(d))
        hn::StoreU(hn::PromoteTo(d, dark(du8, pixels + x, thresholds + x)), d, map + x);
    for (; x < count; ++x)
        map[x] = pixels[x] <= thresholds[x] ? 1 : 0;
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

// lower, upper: the vertical fraction and its complement
template <class Mark>
HWY_INLINE void mark_row(const Corners& corners, double lower, double upper, const std::uint8_t* pixels,
                         std::size_t width, Mark* map)
{
    std::uint8_t thresholds[kBlock + kPad];
    for (std::size_t x = 0; x < width; x += kBlock) {
        const std::size_t count = std::min(kBlock, width - x);
        const Shade shade = count == kBlock ? shade_of_block(corners, pixels + x) : Shade::Mixed;
        if (shade != Shade::Mixed) {
            std::fill_n(map + x, kBlock, static_cast<Mark>(shade == Shade::Dark ? 1 : 0));
            continue;
        }
        interpolate(corners, lower, upper, x, count, thresholds);
        mark(pixels + x, thresholds, count, map + x);
    }
}

void mark_row8(const Corners& corners, double lower, double upper, const std::uint8_t* pixels, std::size_t width,
               std::uint8_t* map)
{
    mark_row(corners, lower, upper, pixels, width, map);
}

void mark_row32(const Corners& corners, double lower, double upper, const std::uint8_t* pixels, std::size_t width,
                std::uint32_t* map)
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

void mark_row(const Corners& corners, double lower, double upper, const std::uint8_t* pixels, std::size_t width,
              std::uint8_t* map)
{
    HWY_DYNAMIC_DISPATCH(mark_row8)(corners, lower, upper, pixels, width, map);
}

void mark_row(const Corners& corners, double lower, double upper, const std::uint8_t* pixels, std::size_t width,
              std::uint32_t* map)
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

// One table for each thread that may share the loop over the tiles; here the calling thread runs it alone. A host that
// calls from a parallel region of its own may have a higher thread number than this region's maximum.
bool threshold_tiles(Grid& grid, const std::uint8_t* image)
{
    const std::int32_t thread = omp_get_thread_num();
    const auto slots = allocate<Counts>(to_count(std::max(omp_get_max_threads(), thread + 1)));
    grid.thresholds = allocate<std::uint8_t>(to_count(grid.x.count) * to_count(grid.y.count));
    if (slots == nullptr || grid.thresholds == nullptr)
        return false;
    std::uint32_t* const counts = slots[to_count(thread)].of_level;
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
        corners.lower_right[i] = lower[column.after] * column.fraction;
        corners.lower_left[i] = lower[column.before] * (1 - column.fraction);
        corners.upper_right[i] = upper[column.after] * column.fraction;
        corners.upper_left[i] = upper[column.before] * (1 - column.fraction);
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
        mark_row(corners, row.fraction, 1 - row.fraction, image + begin, width, map + begin);
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
