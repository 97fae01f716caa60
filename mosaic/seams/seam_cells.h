// SPDX-License-Identifier: MIT
// Reduced copies of the pictures on one grid of square cells that covers the canvas: what is compared first, before any
// pixel is. A copy holds of each cell the corrected mean of each channel, and how rough the picture is there.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/base/progress.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace panoval::mosaic
{

// Cell (column, row) holds the canvas's pixels from (column * cell, row * cell) on; those at the right and lower edge
// may be smaller. Where the canvas goes round, the first column follows the last one.
struct CellGrid {
    std::int64_t cell; // pixels along a side
    std::int64_t width;
    std::int64_t height;
    bool wraps;

    CellGrid(const Layout& layout, std::int64_t cell_size)
        : CellGrid(cell_size, layout.width, layout.height, layout.wraps)
    {
    }
    CellGrid(std::int64_t cell_size, std::int64_t canvas_width, std::int64_t canvas_height, bool does_wrap)
        : cell(cell_size), width(canvas_width), height(canvas_height), wraps(does_wrap),
          columns_((width + cell - 1) / cell), rows_((height + cell - 1) / cell)
    {
    }
    // Of the same canvas, each cell of so many of these along a side.
    CellGrid coarser(std::int64_t factor) const { return {factor * cell, width, height, wraps}; }

    std::int64_t columns() const { return columns_; }
    std::int64_t rows() const { return rows_; }
    std::int64_t count() const { return columns() * rows(); }
    Rect all() const { return {0, 0, columns(), rows()}; }

    // The column inside the grid; -1 where there is none.
    std::int64_t column_inside(std::int64_t column) const
    {
        if (column >= 0 && column < columns())
            return column;
        return wraps ? (column % columns() + columns()) % columns() : -1;
    }
    // The pixels of a column or row that lies inside.
    std::int64_t column_width(std::int64_t column) const { return std::min(cell, width - column * cell); }
    std::int64_t row_height(std::int64_t row) const { return std::min(cell, height - row * cell); }

    // The cells of a rectangle of the canvas that may reach beyond its right edge where it goes round: columns count
    // on there, to at most one round.
    Rect cells_of(const Rect& rect) const;

private:
    std::int64_t columns_; // divisions are slow, and these numbers are asked for at every cell
    std::int64_t rows_;
};

enum class Cover : std::uint8_t { None, Partly, Wholly };

// One picture, reduced.
class ReducedPicture
{
public:
    // Its features stay unset; coverage and distances are known for a picture without a mask.
    ReducedPicture(const Layout& layout, std::size_t picture, const CellGrid& grid);

    const Rect& cells() const { return cells_; } // columns may reach beyond the grid's last one
    bool has_mask() const { return has_mask_; }

    // Where a cell of the grid lies in the copy, or -1.
    std::int64_t index(std::int64_t column, std::int64_t row) const
    {
        std::int64_t x = column - cells_.x;
        if (x < 0 && wraps_)
            x += grid_columns_;
        const std::int64_t y = row - cells_.y;
        return x >= 0 && x < cells_.width && y >= 0 && y < cells_.height ? y * cells_.width + x : -1;
    }

    Cover cover(std::int64_t index) const
    {
        if (!has_mask_)
            return std::min(column_cover_[at(index % cells_.width)], row_cover_[at(index / cells_.width)]);
        return mask_cover_[at(index)];
    }

    // Whether it covers all of so many cells, which lie beside each other in one row of the copy.
    bool covers_wholly(std::int64_t first_index, std::int64_t count) const;
    bool is_covered(std::int64_t index) const { return !has_mask_ || mask_cover_[at(index)] != Cover::None; }

    // About how many pixels the farthest one of the cell at column x and row y of the copy lies from the edge of what
    // the picture covers; 0: not covered.
    std::int32_t distance_at(std::int64_t x, std::int64_t y) const
    {
        return has_mask_ ? mask_distance_[at(y * cells_.width + x)]
                         : std::min(column_distance_[at(x)], row_distance_[at(y)]);
    }

    // Of a cell of the grid that lies in the copy.
    std::int32_t distance_of(std::int64_t column, std::int64_t row) const
    {
        const std::int64_t x = column - cells_.x;
        return distance_at(x < 0 ? x + grid_columns_ : x, row - cells_.y);
    }

    // A mean for each channel, then the roughness.
    const std::uint16_t* features(std::int64_t index) const { return features_.data() + at(index) * feature_count_; }
    std::uint16_t* features(std::int64_t index) { return features_.data() + at(index) * feature_count_; }

    Cover* mask_cover_row(std::int64_t row) { return mask_cover_.data() + row * cells_.width; }
    void measure_mask_distances(std::int64_t cell);

    static std::size_t bytes(const Layout& layout, std::size_t picture, const CellGrid& grid);

private:
    static std::size_t at(std::int64_t i) { return static_cast<std::size_t>(i); }
    void measure_rectangle(const Rect& rect, const CellGrid& grid);

    Rect cells_;
    std::int64_t grid_columns_;
    bool wraps_;
    bool has_mask_;
    std::size_t feature_count_;
    std::vector<std::uint16_t> features_;
    std::vector<Cover> column_cover_; // without a mask, as the product of columns and rows
    std::vector<Cover> row_cover_;
    std::vector<std::int32_t> column_distance_;
    std::vector<std::int32_t> row_distance_;
    std::vector<Cover> mask_cover_; // with a mask, of each cell
    std::vector<std::int32_t> mask_distance_;
};

// Cells of a picture's copy, in columns and rows of the grid as in ReducedPicture::cells().
struct PicturePart {
    std::size_t picture;
    Rect cells;
};

// How many units of a feature a sample's unit is; corrected samples may be twice as large as the largest one.
double feature_scale(const Layout& layout);

// Which cells get features when the pictures are reduced.
enum class Features : std::uint8_t {
    OfShared, // what overlaps with other pictures
    OfAll
};

// Reduces all pictures.
std::vector<ReducedPicture> reduce_pictures(const Layout& layout, const std::vector<Overlap>& overlaps,
                                            const Corrections& corrections, const CellGrid& grid, Features features,
                                            PictureReader& reader, std::size_t threads, Progress& progress,
                                            double part_of_progress);

// Reduces pictures before corrections are known: whoever reads them for these need not read them again for the seams.
class EarlyReduction
{
public:
    // Everything that is passed, but the grid, must outlive it.
    EarlyReduction(const Layout& layout, const std::vector<Overlap>& overlaps, const CellGrid& grid,
                   PictureReader& reader);
    ~EarlyReduction();

    // Each picture once; several at a time.
    void reduce(std::size_t picture);

    // Once all are reduced: the same as reduce_pictures() gives for features of all cells.
    std::vector<ReducedPicture> take(const Corrections& corrections, std::size_t threads);

private:
    struct Work;
    std::unique_ptr<Work> work_;
};

// Gives features to more cells of such pictures.
void reduce_parts(const Layout& layout, const std::vector<PicturePart>& parts, const Corrections& corrections,
                  const CellGrid& grid, PictureReader& reader, std::size_t threads,
                  std::vector<ReducedPicture>& pictures);

} // namespace panoval::mosaic
