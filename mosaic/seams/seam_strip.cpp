// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_strip.h"

#include <algorithm>
#include <span>

namespace panoval::mosaic
{

SeamStrip::SeamStrip(std::int64_t canvas_width, std::int64_t tile_side, std::int64_t most_rows)
    : width_(canvas_width), side_(tile_side),
      labels_(std::make_unique_for_overwrite<std::int32_t[]>(at(canvas_width * most_rows))),
      tiles_(at((canvas_width + tile_side - 1) / tile_side))
{
}

void SeamStrip::begin(std::int64_t y, std::int64_t height)
{
    y_ = y;
    height_ = height;
    std::fill(tiles_.begin(), tiles_.end(), Tile());
}

Rect SeamStrip::tile(std::int64_t number) const
{
    const std::int64_t x = number * side_;
    return {x, y_, std::min(side_, width_ - x), height_};
}

std::int32_t SeamStrip::label(std::int64_t x, std::int64_t row_number) const
{
    const Tile& tile = state(x / side_);
    return tile.is_uniform ? tile.label : row(row_number)[x];
}

void SeamStrip::spell_out(std::int64_t number)
{
    if (!is_uniform(number))
        return;
    const Rect part = tile(number);
    for (std::int64_t i = 0; i < height_; ++i)
        std::fill_n(row(i) + part.x, part.width, state(number).label);
    tiles_[at(number)].is_uniform = false;
}

void SeamStrip::pin(std::int64_t x, std::int64_t row_number, std::int32_t label)
{
    row(row_number)[x] = label;
    pinned_[at(row_number * width_ + x)] = 1;
}

bool SeamStrip::has_other(std::int32_t label, std::int64_t number, const Rect& part) const
{
    if (is_uniform(number))
        return is_seam(label, state(number).label);
    for (std::int64_t i = part.y - y_; i < part.bottom() - y_; ++i)
        if (std::any_of(row(i) + part.x, row(i) + part.right(), [label](auto other) { return is_seam(label, other); }))
            return true;
    return false;
}

void SeamStrip::copy_row(std::int64_t number, std::int32_t* to) const
{
    for (std::int64_t i = 0; i < tile_count(); ++i) {
        const Rect part = tile(i);
        if (is_uniform(i))
            std::fill_n(to + part.x, part.width, state(i).label);
        else
            std::copy_n(row(number) + part.x, part.width, to + part.x);
    }
}

void SeamStrip::list_runs(std::int64_t row_number, std::vector<SeamMap::Run>& runs) const
{
    runs.clear();
    const std::span<const std::int32_t> labels(row(row_number), at(width_));
    for (std::int64_t i = 0; i < tile_count(); ++i) {
        const Rect part = tile(i);
        if (is_uniform(i)) {
            runs.push_back({static_cast<std::int32_t>(part.right()), state(i).label});
            continue;
        }
        const std::span<const std::int32_t> to_end = labels.first(at(part.right()));
        for (std::size_t x = at(part.x); x < to_end.size();) {
            const std::int32_t label = to_end[x];
            x = end_of_run(to_end, x);
            runs.push_back({static_cast<std::int32_t>(x), label});
        }
    }
}

} // namespace panoval::mosaic
