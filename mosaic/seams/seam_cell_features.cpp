// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_cell_features.h"

#include "core/numbers.h"

#include <algorithm>

namespace panoval::mosaic
{

std::uint16_t to_feature(double value)
{
    return static_cast<std::uint16_t>(truncate_to_int(std::clamp(value + 0.5, 0.0, 65535.0)));
}

FeatureCorrector::FeatureCorrector(const Layout& layout, const Corrections& corrections, const CellGrid& grid)
    : layout_(layout), corrections_(corrections), grid_(grid), channels_(static_cast<std::size_t>(layout.channels)),
      is_flat_(corrections.falloff.is_flat())
{
    for (const ChannelGains& gains : corrections.gains) {
        double sum = 0;
        for (std::size_t c = 0; c < channels_; ++c)
            sum += gains[c] / static_cast<double>(channels_);
        mean_gains_.push_back(sum);
    }
}

void FeatureCorrector::correct(std::size_t picture, std::int64_t column, std::int64_t row,
                               std::uint16_t* features) const
{
    const double scale = is_flat_ ? 1 : 1 / falloff_at(picture, column, row);
    for (std::size_t c = 0; c < channels_; ++c)
        features[c] = to_feature(features[c] * corrections_.gains[picture][c] * scale);
    features[channels_] = to_feature(features[channels_] * mean_gains_[picture] * scale);
}

void FeatureCorrector::correct(std::size_t picture, ReducedPicture& copy) const
{
    const Rect& cells = copy.cells();
    for (std::int64_t row = 0; row < cells.height; ++row)
        for (std::int64_t column = 0; column < cells.width; ++column)
            correct(picture, cells.x + column, cells.y + row, copy.features(row * cells.width + column));
}

// At the middle of a cell; the same for all pixels of it.
double FeatureCorrector::falloff_at(std::size_t picture, std::int64_t column, std::int64_t row) const
{
    const Rect& rect = layout_.pictures[picture].rect;
    const double half_width = 0.5 * static_cast<double>(rect.width - 1);
    const double half_height = 0.5 * static_cast<double>(rect.height - 1);
    const double corner = half_width * half_width + half_height * half_height;
    const auto middle = [&](std::int64_t cell) {
        return (static_cast<double>(cell) + 0.5) * static_cast<double>(grid_.cell) - 0.5;
    };
    const double dx = middle(column) - static_cast<double>(rect.x) - half_width;
    const double dy = middle(row) - static_cast<double>(rect.y) - half_height;
    const double falloff = corrections_.falloff.at(corner > 0 ? (dx * dx + dy * dy) / corner : 0.0);
    return falloff > 0 ? falloff : 1;
}

} // namespace panoval::mosaic
