// SPDX-License-Identifier: MIT
#include "cli/stitch/canvas_tiles.h"

#include <algorithm>

namespace panoval::cli
{

namespace
{

constexpr std::size_t kMostTiles = 16; // side by side

// How far a pixel of the panorama sees, in units of the coarsest band's pixel, `unit` pixels each. Collapsing a row
// reaches coarse rows less than 2 units away, and each of these is made of rows less than 2 units away from it.
constexpr std::int32_t kReach = 4;
// A picture that begins less than that beyond the pixel goes on as its mirror image, whose rows come from as far behind
// the picture's edge.
constexpr std::int32_t kReachOfMirror = 8;
// The blender takes so many units around a picture into its bands, where the canvas has them.
constexpr std::int64_t kMargin = 3;
// The blender reduces a row four samples at a time from its first one on, and the up to three that remain in another
// order of sums. The row of a tile must end with the same ones as that of the whole canvas, or end out of sight.
constexpr std::int64_t kFour = 4;
constexpr std::int32_t kReachBeforeEnd = kReach + 1;
// How far a border between tiles may be from where it is wanted, in units.
constexpr std::int64_t kMostShift = 8;

std::int64_t round_down(std::int64_t value, std::int64_t unit)
{
    return value / unit * unit;
}

std::int64_t round_up(std::int64_t value, std::int64_t unit)
{
    return (value + unit - 1) / unit * unit;
}

// One direction of the canvas.
struct Direction {
    struct Picture {
        std::int64_t begin;
        std::int64_t end;
    };
    std::int64_t length;
    std::int64_t unit;
    bool is_along_rows; // of samples
    std::vector<Picture> pictures;

    bool has_edge_between(std::int64_t first, std::int64_t last) const
    {
        const auto is_between = [&](std::int64_t at) { return first <= at && at <= last; };
        return std::any_of(pictures.begin(), pictures.end(), [&](const Picture& picture) {
            return is_between(picture.begin) || is_between(picture.end);
        });
    }

    // Where a tile has to begin that keeps what follows a border, and where one has to end that keeps what comes
    // before.
    std::int64_t first_before(std::int64_t border) const
    {
        const bool sees_mirror = has_edge_between(border - kReach * unit, border);
        return std::max<std::int64_t>(border - (sees_mirror ? kReachOfMirror : kReach) * unit, 0);
    }
    std::int64_t end_after(std::int64_t border) const
    {
        const std::int64_t reach = is_along_rows ? kReachBeforeEnd : kReach;
        const bool sees_mirror = has_edge_between(border, border + reach * unit);
        return std::min<std::int64_t>(border + (sees_mirror ? kReachOfMirror : reach) * unit, length);
    }

    // Whether every picture that goes on before a tile and ends in it, margin included, has the same last samples
    // there.
    bool keeps_fours(std::int64_t first, std::int64_t end) const
    {
        const std::int64_t margin = kMargin * unit;
        const std::int64_t padded_end = round_up(end, unit);
        return std::none_of(pictures.begin(), pictures.end(), [&](const Picture& picture) {
            const std::int64_t begin = round_down(std::max<std::int64_t>(picture.begin - margin, 0), unit);
            const std::int64_t last = round_up(std::min(picture.end + margin, round_up(length, unit)), unit);
            return begin < first && first < picture.end && last <= padded_end && (first - begin) % (kFour * unit) != 0;
        });
    }
};

std::int64_t unit_of(int bands)
{
    return std::int64_t{1} << std::min(bands, 30);
}

Direction rows_of(const PanoramaPlan& plan, int bands)
{
    Direction rows{plan.height, unit_of(bands), false, {}};
    for (const PlacedLayer& layer : plan.layers)
        rows.pictures.push_back({layer.corner.y, std::int64_t{layer.corner.y} + layer.info.height});
    return rows;
}

Direction columns_of(const PanoramaPlan& plan, int bands)
{
    Direction columns{plan.width, unit_of(bands), true, {}};
    for (const PlacedLayer& layer : plan.layers)
        columns.pictures.push_back({layer.corner.x, std::int64_t{layer.corner.x} + layer.info.width});
    return columns;
}

// The border nearest to the wanted one at which the tile that follows, which is to end there, may begin.
std::optional<std::int64_t> find_border(const Direction& direction, std::int64_t wanted, std::int64_t end_kept,
                                        std::int64_t end)
{
    const std::int64_t middle = round_down(wanted + direction.unit / 2, direction.unit);
    for (std::int64_t shift = 0; shift <= kMostShift; ++shift)
        for (const std::int64_t border : {middle + shift * direction.unit, middle - shift * direction.unit})
            if (0 < border && border < end_kept &&
                (!direction.is_along_rows || direction.keeps_fours(direction.first_before(border), end)))
                return border;
    return std::nullopt;
}

// Tiles side by side, all about as long; none where they would overlap by more than is their own, or find no borders.
std::optional<std::vector<CanvasSpan>> cut(const Direction& direction, std::size_t tiles)
{
    const auto count = static_cast<std::int64_t>(tiles);
    const std::int64_t overlap = kReach * direction.unit;
    if (count > 1 && direction.length < count * 3 * overlap) // the library finds room for all bands in them, too
        return std::nullopt;
    // The first and the last one overlap on one side only.
    const std::int64_t length = (direction.length + 2 * overlap * (count - 1)) / count;
    std::vector<CanvasSpan> spans(tiles);
    std::int64_t end_kept = direction.length;
    std::int64_t end = direction.length;
    for (std::int64_t i = count - 1; i >= 0; --i) {
        const auto border = i == 0 ? 0 : find_border(direction, i * length - (2 * i - 1) * overlap, end_kept, end);
        if (!border)
            return std::nullopt;
        spans[static_cast<std::size_t>(i)] = {static_cast<std::int32_t>(direction.first_before(*border)),
                                              static_cast<std::int32_t>(end), static_cast<std::int32_t>(*border),
                                              static_cast<std::int32_t>(end_kept)};
        end_kept = *border;
        end = direction.end_after(*border);
    }
    return spans;
}

// All ways to cut, from a single tile on.
std::vector<std::vector<CanvasSpan>> cuts_of(const Direction& direction, std::size_t most)
{
    std::vector<std::vector<CanvasSpan>> cuts;
    for (std::size_t tiles = 1; tiles <= most; ++tiles)
        if (auto spans = cut(direction, tiles))
            cuts.push_back(std::move(*spans));
    return cuts;
}

std::uint64_t canvas_pixels(const PanoramaPlan& plan)
{
    return static_cast<std::uint64_t>(plan.width) * static_cast<std::uint64_t>(plan.height);
}

// What the tiles of a grid take: those at work with their part of the panorama, and the rows of the panorama that wait
// for the last of their tiles.
std::uint64_t bytes_of(const CanvasGrid& grid, const PanoramaPlan& plan, int bits, std::size_t at_once)
{
    const auto pixel_bytes = static_cast<std::uint64_t>(plan.channels) * static_cast<std::uint64_t>(bits / 8);
    const std::uint64_t tile_pixels = grid.most_pixels();
    std::int32_t most_rows = 0;
    for (const CanvasSpan& rows : grid.rows)
        most_rows = std::max(most_rows, rows.kept());
    const std::uint64_t waiting_pixels =
        grid.columns.size() > 1 ? static_cast<std::uint64_t>(plan.width) * static_cast<std::uint64_t>(most_rows) : 0;
    return std::min(grid.size(), at_once) * (multi_band_bytes(plan, tile_pixels) + pixel_bytes * tile_pixels) +
           std::min(grid.rows.size(), at_once) * pixel_bytes * waiting_pixels;
}

// Time, in pixels that one thread blends. To get the memory of a pixel from the system takes about as long.
std::uint64_t cost_of(const CanvasGrid& grid, std::size_t at_once)
{
    const std::size_t turns = (grid.size() + at_once - 1) / at_once;
    return (turns + std::min(grid.size(), at_once)) * grid.most_pixels();
}

} // namespace

std::uint64_t CanvasGrid::most_pixels() const
{
    std::uint64_t most = 0;
    for (std::size_t i = 0; i < size(); ++i)
        most = std::max(most, tile(i).pixels());
    return most;
}

CanvasGrid cut_canvas(const PanoramaPlan& plan, int bands, std::size_t most_columns, std::size_t most_rows)
{
    return {cuts_of(columns_of(plan, bands), most_columns).back(), cuts_of(rows_of(plan, bands), most_rows).back()};
}

std::uint64_t multi_band_bytes(const PanoramaPlan& plan, std::uint64_t pixels)
{
    // Sums and weights on the canvas, and a third more for the smaller levels.
    return 16 * pixels * static_cast<std::uint64_t>(plan.channels + 1) / 3;
}

std::uint64_t multi_band_bytes(const PanoramaPlan& plan)
{
    return multi_band_bytes(plan, canvas_pixels(plan));
}

std::uint64_t memory_budget(const PanoramaPlan& plan)
{
    return multi_band_bytes(plan) / 12 * 13;
}

std::optional<CanvasGrid> grid_within_budget(const PanoramaPlan& plan, int bands, int bits, std::uint64_t other_bytes,
                                             std::size_t at_once)
{
    const auto columns = cuts_of(columns_of(plan, bands), kMostTiles);
    const auto rows = cuts_of(rows_of(plan, bands), kMostTiles);
    std::optional<CanvasGrid> best;
    for (const auto& row_spans : rows) {
        for (const auto& column_spans : columns) {
            CanvasGrid grid{column_spans, row_spans};
            const bool fits = bytes_of(grid, plan, bits, at_once) + other_bytes <= memory_budget(plan);
            if (fits && (!best || cost_of(grid, at_once) < cost_of(*best, at_once)))
                best = std::move(grid);
        }
    }
    return best;
}

} // namespace panoval::cli
