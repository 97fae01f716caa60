// SPDX-License-Identifier: MIT
// What a seam costs where it separates two pictures: next to nothing where they agree within their noise, and far more
// than any detour where they do not.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/seams/seam_cells.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

inline constexpr std::int32_t kNotShared = -1;               // cost of a place that not both pictures cover
inline constexpr std::int32_t kCostUnit = 16;                // of one step through the middle of pictures that agree
inline constexpr std::int32_t kCostApart = 2000 * kCostUnit; // of neighbours from pictures that share neither place

// Grows with the square of the difference, beyond its noise with the fourth power: a thing of moderate contrast is
// dearer than a long way round it through small differences. Saturates.
//
// ratio  square of a difference over that of the noise
float difference_cost(float ratio);

// Two pictures that overlap, perhaps in two places of a canvas that goes round.
struct PicturePair {
    std::size_t first = 0; // < second
    std::size_t second = 0;
    std::vector<Rect> regions;              // in cells; columns may reach beyond the grid's last one
    std::array<float, 4> ratio{1, 1, 1, 1}; // what a channel of the first one is to be multiplied with still
    float mean_ratio = 1;
    float inverse_noise = 1; // 1 / square of the difference that is usual for the two, in units of features
    float depth = 1;         // how deep their overlap is: the largest distance to the nearer of the two's edges
};

// Of two cells, by their features; without the pair's noise.
template <std::size_t kChannels>
float feature_difference(const PicturePair& pair, const std::uint16_t* a, const std::uint16_t* b)
{
    constexpr float kRoughnessWeight = 0.5f;
    float sum = 0;
    for (std::size_t c = 0; c < kChannels; ++c) {
        const float d = static_cast<float>(a[c]) * pair.ratio[c] - static_cast<float>(b[c]);
        sum += d * d;
    }
    const float rough = static_cast<float>(a[kChannels]) * pair.mean_ratio - static_cast<float>(b[kChannels]);
    return sum / static_cast<float>(kChannels) + kRoughnessWeight * (rough * rough);
}

// All pairs of a layout on reduced copies of the pictures.
class CellCosts
{
public:
    CellCosts(const Layout& layout, const std::vector<Overlap>& overlaps, const CellGrid& grid,
              const std::vector<ReducedPicture>& pictures, std::size_t threads);

    const CellGrid& grid() const { return grid_; }
    const std::vector<ReducedPicture>& pictures() const { return pictures_; }
    const std::vector<PicturePair>& pairs() const { return pairs_; }

    // Null where the two do not overlap. first < second
    const PicturePair* find_pair(std::size_t first, std::size_t second) const;

    // Square of the difference between a cell of the first picture and one of the second over that of the pair's noise;
    // negative where not each of them covers its own.
    float ratio_between(const PicturePair& pair, std::int64_t column_a, std::int64_t row_a, std::int64_t column_b,
                        std::int64_t row_b) const;

    // As well, between cells by where they lie in the pictures' copies.
    float ratio_at(const PicturePair& pair, std::int64_t index_a, std::int64_t index_b) const
    {
        const ReducedPicture& a = pictures_[pair.first];
        const ReducedPicture& b = pictures_[pair.second];
        if (!a.is_covered(index_a) || !b.is_covered(index_b))
            return -1;
        return difference(pair, a.features(index_a), b.features(index_b)) * pair.inverse_noise;
    }

    // Costs of a rectangle of cells, whose columns may lie outside the grid; what is near a dear cell is dear, too.
    void fill(const PicturePair& pair, const Rect& cells, std::int32_t* out) const;

    // As fill, for a grid whose cells are `factor` times as large. The rectangle counts in those.
    void fill_coarse(const PicturePair& pair, const CellGrid& coarse, std::int64_t factor, const Rect& cells,
                     std::int32_t* out) const;

private:
    // What a seam's step through a cell costs, in two parts.
    struct Step {
        float ratio; // as ratio_between(), of one cell
        float way;   // in any case: least in the middle of the overlap; known where the ratio is
    };

    Step step_at(const PicturePair& pair, std::int64_t column, std::int64_t row) const;
    float difference(const PicturePair& pair, const std::uint16_t* a, const std::uint16_t* b) const
    {
        switch (channels_) {
        case 1:
            return feature_difference<1>(pair, a, b);
        case 3:
            return feature_difference<3>(pair, a, b);
        default:
            return feature_difference<4>(pair, a, b);
        }
    }
    void measure(PicturePair& pair) const;
    void measure_ratio(PicturePair& pair, const std::vector<const std::uint16_t*>& samples) const;
    std::int32_t coarse_cost(const PicturePair& pair, std::int64_t factor, std::int64_t column, std::int64_t row) const;

    const Layout& layout_;
    const CellGrid& grid_;
    const std::vector<ReducedPicture>& pictures_;
    const std::size_t threads_;
    const std::size_t channels_;
    std::vector<PicturePair> pairs_; // sorted by first, second
};

} // namespace panoval::mosaic
