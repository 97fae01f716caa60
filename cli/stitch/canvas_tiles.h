// SPDX-License-Identifier: MIT
// The canvas cut into tiles that are blended one after the other, or two at a time: the blender's floats, by far the
// most memory that a panorama takes, are then those of the tiles at work. Tiles overlap by what the bands see, so that
// the panorama is the same, bit for bit, as that of a single canvas.
#pragma once

#include "cli/stitch/panorama_plan.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace panoval::cli
{

// Columns or rows of the canvas, the last one excluded.
struct CanvasSpan {
    std::int32_t first = 0; // to blend
    std::int32_t end = 0;
    std::int32_t first_kept = 0; // of those, the ones that go into the panorama
    std::int32_t end_kept = 0;

    std::int32_t length() const { return end - first; }
    std::int32_t kept() const { return end_kept - first_kept; }
};

struct CanvasTile {
    CanvasSpan columns;
    CanvasSpan rows;

    std::uint64_t pixels() const
    {
        return static_cast<std::uint64_t>(columns.length()) * static_cast<std::uint64_t>(rows.length());
    }
};

// Tiles are counted row by row, from the left.
struct CanvasGrid {
    std::vector<CanvasSpan> columns;
    std::vector<CanvasSpan> rows;

    std::size_t size() const { return columns.size() * rows.size(); }
    CanvasTile tile(std::size_t index) const { return {columns[index % columns.size()], rows[index / columns.size()]}; }
    std::uint64_t most_pixels() const; // of a tile
};

// The canvas in at most so many columns and rows of tiles, all with about as many pixels to blend; fewer where they
// would overlap by more than is their own, or where no border between them leaves every sum as it is.
CanvasGrid cut_canvas(const PanoramaPlan& plan, int bands, std::size_t most_columns, std::size_t most_rows);

// What the multi-band blender takes for so many pixels of the canvas, in bytes.
std::uint64_t multi_band_bytes(const PanoramaPlan& plan, std::uint64_t pixels);
std::uint64_t multi_band_bytes(const PanoramaPlan& plan); // for all of it

// What a multi-band panorama of this plan may take in all, in bytes: as much as the blender of the whole canvas and a
// little more.
std::uint64_t memory_budget(const PanoramaPlan& plan);

// The grid that takes the least time of those that let at_once tiles and other_bytes fit the memory budget, if there
// is one. bits: of the panorama's samples.
std::optional<CanvasGrid> grid_within_budget(const PanoramaPlan& plan, int bands, int bits, std::uint64_t other_bytes,
                                             std::size_t at_once);

} // namespace panoval::cli
