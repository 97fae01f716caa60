// SPDX-License-Identifier: MIT
// The seams on cells: found as a whole on large ones, then drawn more finely near them.
#pragma once

#include "mosaic/seams/seam_cells.h"
#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_map.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace panoval::mosaic
{

// A label for each cell of a grid.
class CellLabels
{
public:
    explicit CellLabels(const CellGrid& grid) : grid_(&grid), labels_(static_cast<std::size_t>(grid.count()), kNobody)
    {
    }
    const CellGrid& grid() const { return *grid_; }

    // The column must lie inside; of a row outside the label is nobody.
    std::int32_t& at(std::int64_t column, std::int64_t row)
    {
        return labels_[static_cast<std::size_t>(row * grid_->columns() + column)];
    }
    std::int32_t at(std::int64_t column, std::int64_t row) const
    {
        return labels_[static_cast<std::size_t>(row * grid_->columns() + column)];
    }
    std::int32_t* row(std::int64_t row) { return labels_.data() + static_cast<std::size_t>(row * grid_->columns()); }
    const std::int32_t* row(std::int64_t row) const
    {
        return labels_.data() + static_cast<std::size_t>(row * grid_->columns());
    }
    // Of any column and row: goes round where the canvas does, nobody's otherwise.
    std::int32_t around(std::int64_t column, std::int64_t row) const
    {
        const std::int64_t inside = grid_->column_inside(column);
        return inside < 0 || row < 0 || row >= grid_->rows() ? kNobody : at(inside, row);
    }

private:
    const CellGrid* grid_;
    std::vector<std::int32_t> labels_;
};

// Gives features to cells of the costs' pictures that have none yet.
using ReduceParts = std::function<void(const std::vector<PicturePart>&)>;

// kept: of each cell the picture that must keep a pixel of it, or kNobody; empty where there is none at all
CellLabels find_cell_labels(const CellCosts& costs, std::int64_t factor, const std::vector<std::int32_t>& kept,
                            const ReduceParts& reduce_parts, std::size_t threads);

} // namespace panoval::mosaic
