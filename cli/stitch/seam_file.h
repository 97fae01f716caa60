// SPDX-License-Identifier: MIT
// The seams of a plan in a file beside it, cut into squares, so that the task of a tile reads what lies around the tile
// and no more.
//
//   squares, row by row of them   the rows of each as cli/stitch/seam_runs.h has them
//   index                         where each square starts, and where the last one ends: 8 bytes each, lowest first
//   end                           "PVSEAMS1", side, width, height, where the index starts: 8 bytes each; the id: 16
#pragma once

#include "cli/stitch/seam_runs.h"
#include "image/output_file.h"
#include "panoval_mosaic.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace panoval::cli
{

inline constexpr std::int64_t kSeamSquare = 1024; // pixels on a side

// The squares of a canvas.
struct SeamGrid {
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::int64_t side = kSeamSquare;

    std::int64_t columns() const { return (width + side - 1) / side; }
    std::int64_t rows() const { return (height + side - 1) / side; }
    std::int64_t square_width(std::int64_t column) const { return std::min(side, width - column * side); }
    std::int64_t square_height(std::int64_t row) const { return std::min(side, height - row * side); }
};

// Writes seams as they stand in a plan's text. name: of the plan, for messages.
void write_seam_file(image::OutputFile& output, const SeamGrid& grid, std::string_view text, const std::string& id,
                     const std::string& name);

// Which squares are needed.
class SeamSelection
{
public:
    SeamSelection(const SeamGrid& grid, bool wraps)
        : grid_(grid), wraps_(wraps), chosen_(static_cast<std::size_t>(grid.columns() * grid.rows()))
    {
    }

    // What lies within `reach` of a rectangle of the canvas.
    void add(const PanovalMosaicRect& rect, std::int64_t reach);
    bool has(std::int64_t row, std::int64_t column) const
    {
        return chosen_[static_cast<std::size_t>(row * grid_.columns() + column)];
    }
    bool has_row(std::int64_t row) const;

private:
    void add_columns(std::int64_t row, std::int64_t first, std::int64_t end);

    const SeamGrid grid_;
    const bool wraps_;
    std::vector<bool> chosen_;
};

// The text that a plan of these seams would have, with nobody's pixels in all squares that are not selected. Fails,
// naming the file, where it is not the one with this id and grid.
std::string read_seam_file(const std::string& name, const SeamGrid& grid, const std::string& id,
                           const SeamSelection& selection);

} // namespace panoval::cli
