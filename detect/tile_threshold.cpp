// SPDX-License-Identifier: MIT
// A threshold for every pixel: each tile of the image has one of its own, and between the tiles' centres they are
// interpolated in double, every term truncated by itself. What a term has in common with the other rows of pixels
// between the same tiles, the threshold times the horizontal fraction, is its first product and computed once.
#include "detect/tile_threshold.h"

#include "core/heap.h"
#include "core/numbers.h"
#include "detect/level_counts.h"
#include "detect/tile_otsu.h"
#include "detect/tile_threshold_rows.h"

#include <algorithm>

extern "C" {
int omp_get_max_threads(void);
int omp_get_thread_num(void);
}

namespace panoval
{
namespace
{

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

void fill_corners(const Grid& grid, const Position* columns, std::size_t width, const Position& row,
                  TileCorners& corners)
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
        set_column(corners.lower_right, i, lower[column.after] * column.fraction);
        set_column(corners.lower_left, i, lower[column.before] * (1 - column.fraction));
        set_column(corners.upper_right, i, upper[column.after] * column.fraction);
        set_column(corners.upper_left, i, upper[column.before] * (1 - column.fraction));
    }
}

// A strip of columns from x on.
template <class Mark>
void mark_strip(const Grid& grid, const std::uint8_t* image, std::int32_t x, Mark* map)
{
    const std::size_t width = std::min(kTileStrip, to_count(grid.x.pixels - x));
    Position columns[kTileStrip];
    for (std::size_t i = 0; i < width; ++i)
        columns[i] = locate(grid.x, x + static_cast<std::int32_t>(i));
    TileCorners corners = {};
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
    for (std::int32_t x = 0; x < width; x += static_cast<std::int32_t>(kTileStrip))
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
