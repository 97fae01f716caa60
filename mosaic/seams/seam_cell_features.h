// SPDX-License-Identifier: MIT
// The numbers that a cell of a reduced picture is known by, and how corrections change them.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/seams/seam_cells.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// Rounded, within what a feature holds.
std::uint16_t to_feature(double value);

// Brings cells to the panorama's exposure.
class FeatureCorrector
{
public:
    // All of them must outlive it.
    FeatureCorrector(const Layout& layout, const Corrections& corrections, const CellGrid& grid);

    // One cell. Column and row count in the grid, the column perhaps beyond its last one.
    void correct(std::size_t picture, std::int64_t column, std::int64_t row, std::uint16_t* features) const;

    // All cells of a picture.
    void correct(std::size_t picture, ReducedPicture& copy) const;

private:
    double falloff_at(std::size_t picture, std::int64_t column, std::int64_t row) const;

    const Layout& layout_;
    const Corrections& corrections_;
    const CellGrid& grid_;
    const std::size_t channels_;
    const bool is_flat_;
    std::vector<double> mean_gains_; // of each picture
};

} // namespace panoval::mosaic
