// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_cells.h"

#include "filter/chamfer_rows.h"
#include "mosaic/seams/seam_nearest.h"

#include <algorithm>

namespace panoval::mosaic
{

Rect CellGrid::cells_of(const Rect& rect) const
{
    const std::int64_t x = wraps && rect.x >= width ? rect.x - width : rect.x;
    const std::int64_t right = x + rect.width;
    const std::int64_t first = x / cell;
    const std::int64_t end = right <= width ? (right - 1) / cell + 1 : columns() + (right - width - 1) / cell + 1;
    const std::int64_t top = rect.y / cell;
    return {first, top, std::min(end - first, columns()), (rect.bottom() - 1) / cell + 1 - top};
}

ReducedPicture::ReducedPicture(const Layout& layout, std::size_t picture, const CellGrid& grid)
    : cells_(grid.cells_of(layout.pictures[picture].rect)), grid_columns_(grid.columns()), wraps_(grid.wraps),
      has_mask_(layout.pictures[picture].has_mask), feature_count_(static_cast<std::size_t>(layout.channels) + 1),
      features_(at(cells_.pixels()) * feature_count_)
{
    if (has_mask_) {
        mask_cover_.resize(at(cells_.pixels()));
        mask_distance_.resize(mask_cover_.size());
    } else {
        measure_rectangle(layout.pictures[picture].rect, grid);
    }
}

void ReducedPicture::measure_rectangle(const Rect& rect, const CellGrid& grid)
{
    std::vector<std::int64_t> columns(at(cells_.width));
    std::vector<std::int64_t> rows(at(cells_.height));
    column_distance_.resize(columns.size());
    row_distance_.resize(rows.size());
    for (std::int64_t x = 0; x < rect.width; ++x) {
        const std::int64_t x_canvas = grid.wraps ? (rect.x + x) % grid.width : rect.x + x;
        const std::size_t i = at(index(x_canvas / grid.cell, cells_.y));
        ++columns[i];
        column_distance_[i] = std::max(column_distance_[i], static_cast<std::int32_t>(std::min(x + 1, rect.width - x)));
    }
    for (std::int64_t y = 0; y < rect.height; ++y) {
        const std::size_t i = at((rect.y + y) / grid.cell - cells_.y);
        ++rows[i];
        row_distance_[i] = std::max(row_distance_[i], static_cast<std::int32_t>(std::min(y + 1, rect.height - y)));
    }
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const std::int64_t column = grid.column_inside(cells_.x + static_cast<std::int64_t>(i));
        column_cover_.push_back(columns[i] == grid.column_width(column) ? Cover::Wholly : Cover::Partly);
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::int64_t row = cells_.y + static_cast<std::int64_t>(i);
        row_cover_.push_back(rows[i] == grid.row_height(row) ? Cover::Wholly : Cover::Partly);
    }
}

bool ReducedPicture::covers_wholly(std::int64_t first_index, std::int64_t count) const
{
    const auto is_wholly = [](Cover cover) { return cover == Cover::Wholly; };
    const auto all_wholly = [&](const Cover* first) { return std::all_of(first, first + count, is_wholly); };
    if (has_mask_)
        return all_wholly(mask_cover_.data() + first_index);
    return is_wholly(row_cover_[at(first_index / cells_.width)]) &&
           all_wholly(column_cover_.data() + first_index % cells_.width);
}

void ReducedPicture::measure_mask_distances(std::int64_t cell)
{
    if (!has_mask_)
        return;
    constexpr ChamferSteps<std::int32_t> steps{kFarAway, kStraightStep, kDiagonalStep};
    const std::size_t width = at(cells_.width) + 2; // with a column of uncovered cells at either side
    const std::size_t pitch = width + 2;            // and one of frame
    std::vector<std::int32_t> frame(pitch * (at(cells_.height) + 2));
    std::vector<std::uint8_t> mask(width);
    std::vector<float> unused(width);
    for (std::int64_t y = 0; y < cells_.height; ++y) {
        for (std::int64_t x = 0; x < cells_.width; ++x)
            mask[at(x) + 1] = mask_cover_[at(y * cells_.width + x)] != Cover::None ? 1 : 0;
        std::int32_t* const row = frame.data() + (at(y) + 1) * pitch;
        forward_row(mask.data(), row - pitch, row, width, steps, true);
    }
    for (std::int64_t y = cells_.height - 1; y >= 0; --y) {
        std::int32_t* const row = frame.data() + (at(y) + 1) * pitch;
        backward_row(row + pitch, row, width, steps, true, unused.data());
        for (std::int64_t x = 0; x < cells_.width; ++x)
            mask_distance_[at(y * cells_.width + x)] = static_cast<std::int32_t>(row[at(x) + 2] * cell / kStraightStep);
    }
}

std::size_t ReducedPicture::bytes(const Layout& layout, std::size_t picture, const CellGrid& grid)
{
    const auto cells = at(grid.cells_of(layout.pictures[picture].rect).pixels());
    const std::size_t features = (static_cast<std::size_t>(layout.channels) + 1) * sizeof(std::uint16_t);
    return cells * (features + (layout.pictures[picture].has_mask ? sizeof(Cover) + sizeof(std::int32_t) : 0));
}

double feature_scale(const Layout& layout)
{
    return layout.bits == 8 ? 128.0 : 0.5;
}

} // namespace panoval::mosaic
