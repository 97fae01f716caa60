// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_cost.h"

#include "core/median.h"
#include "core/numbers.h"
#include "mosaic/base/parallel.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr std::uint64_t kSamples = 4096;       // cells of an overlap that its noise is estimated from
constexpr std::uint64_t kScatter = 0x9E3779B1; // takes them from all over the overlap
constexpr std::size_t kFewestRatios = 16;
constexpr float kMostRatio = 4;                     // beyond, two pictures are not the same scene
constexpr float kNoiseAllowance = 4;                // differences up to twice the usual one are noise
constexpr float kSaturation = 2000;                 //
constexpr std::int64_t kReach = 32;                 // pixels that a seam keeps from what differs, if it can
constexpr std::int32_t kUnrepelled = 8 * kCostUnit; // costs up to which nothing differs
constexpr float kEdgeCost = 3;                      // of a step along a picture's edge, over that of one in the middle

std::int32_t to_cost(float steps)
{
    return truncate_to_int(static_cast<double>(steps * static_cast<float>(kCostUnit)));
}

// Each value becomes at least a part of its neighbours' largest one.
void spread(const Rect& cells, std::int32_t part, std::vector<std::int32_t>& costs, std::vector<std::int32_t>& scratch)
{
    const auto width = static_cast<std::size_t>(cells.width);
    const auto height = static_cast<std::size_t>(cells.height);
    scratch.resize(costs.size());
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x) {
            const std::int32_t* const at = costs.data() + y * width + x;
            const std::int32_t left = x > 0 ? at[-1] : kNotShared;
            const std::int32_t right = x + 1 < width ? at[1] : kNotShared;
            scratch[y * width + x] = std::max(*at, std::max(left, right));
        }
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x) {
            const std::int32_t* const at = scratch.data() + y * width + x;
            const std::int32_t above = y > 0 ? *(at - width) : kNotShared;
            const std::int32_t below = y + 1 < height ? *(at + width) : kNotShared;
            std::int32_t& cost = costs[y * width + x];
            if (cost != kNotShared)
                cost = std::max(cost, std::max(*at, std::max(above, below)) / part);
        }
}

// How far from what differs a seam keeps if it can, in cells: the bands of blending reach about as far.
std::int64_t reach_in_cells(std::int64_t cell)
{
    return std::max<std::int64_t>(2, (kReach + cell - 1) / cell);
}

// Adds a cost that falls with the distance from cells that differ, to nothing at the reach: the largest over all cells
// of their own repulsion less the way from them, in two passes as for chamfer distances.
void repel(const Rect& cells, std::int64_t reach, std::vector<std::int32_t>& costs, std::vector<std::int32_t>& scratch)
{
    constexpr std::int32_t kMost = 24 * kCostUnit; // beside a cell that differs much
    const auto straight = static_cast<std::int32_t>(kMost / reach);
    const std::int32_t diagonal = straight * 7 / 5;
    const std::int64_t pitch = cells.width + 2; // with a frame of nothing
    scratch.assign(static_cast<std::size_t>(pitch * (cells.height + 2)), 0);
    const auto at = [&](std::int64_t x, std::int64_t y) { return scratch.data() + (y + 1) * pitch + x + 1; };
    for (std::int64_t y = 0; y < cells.height; ++y)
        for (std::int64_t x = 0; x < cells.width; ++x) {
            const std::int32_t cost = costs[static_cast<std::size_t>(y * cells.width + x)];
            std::int32_t* const p = at(x, y);
            const std::int32_t beside = std::max(p[-1], p[-pitch]) - straight;
            const std::int32_t corner = std::max(p[-pitch - 1], p[-pitch + 1]) - diagonal;
            *p = std::max(std::clamp(cost - kUnrepelled, 0, kMost), std::max(beside, corner));
        }
    for (std::int64_t y = cells.height - 1; y >= 0; --y)
        for (std::int64_t x = cells.width - 1; x >= 0; --x) {
            std::int32_t* const p = at(x, y);
            const std::int32_t beside = std::max(p[1], p[pitch]) - straight;
            const std::int32_t corner = std::max(p[pitch + 1], p[pitch - 1]) - diagonal;
            *p = std::max(*p, std::max(beside, corner));
            std::int32_t& cost = costs[static_cast<std::size_t>(y * cells.width + x)];
            if (cost != kNotShared)
                cost += *p * *p / kMost;
        }
}

// The inner part of a rectangle that is larger by a margin on all sides.
void copy_inner(const std::vector<std::int32_t>& from, const Rect& inner, std::int64_t margin, std::int32_t* out)
{
    const std::int64_t pitch = inner.width + 2 * margin;
    for (std::int64_t y = 0; y < inner.height; ++y)
        std::copy_n(from.data() + (y + margin) * pitch + margin, inner.width, out + y * inner.width);
}

} // namespace

float difference_cost(float ratio)
{
    const float excess = std::min(std::max(ratio - kNoiseAllowance, 0.f), kSaturation);
    return excess * (1 + excess * (1.f / 16));
}

CellCosts::CellCosts(const Layout& layout, const std::vector<Overlap>& overlaps, const CellGrid& grid,
                     const std::vector<ReducedPicture>& pictures, std::size_t threads)
    : layout_(layout), grid_(grid), pictures_(pictures), threads_(threads),
      channels_(static_cast<std::size_t>(layout.channels))
{
    for (const Overlap& overlap : overlaps) {
        if (pairs_.empty() || pairs_.back().first != overlap.first || pairs_.back().second != overlap.second) {
            pairs_.emplace_back();
            pairs_.back().first = overlap.first;
            pairs_.back().second = overlap.second;
        }
        pairs_.back().regions.push_back(grid.cells_of(overlap.region));
    }
    run_in_parallel(pairs_.size(), threads, [&](std::size_t i) { measure(pairs_[i]); });
}

const PicturePair* CellCosts::find_pair(std::size_t first, std::size_t second) const
{
    const auto at = std::lower_bound(pairs_.begin(), pairs_.end(), std::pair(first, second),
                                     [](const PicturePair& pair, const std::pair<std::size_t, std::size_t>& key) {
                                         return std::pair(pair.first, pair.second) < key;
                                     });
    return at != pairs_.end() && at->first == first && at->second == second ? &*at : nullptr;
}

// Exposures that the corrections leave different by a factor must not hide what moved. Two features a sample.
void CellCosts::measure_ratio(PicturePair& pair, const std::vector<const std::uint16_t*>& samples) const
{
    const auto darkest = static_cast<std::uint16_t>(layout_.bits == 8 ? 512 : 32);
    pair.mean_ratio = 0;
    for (std::size_t c = 0; c < channels_; ++c) {
        std::vector<float> ratios;
        for (std::size_t i = 0; i + 1 < samples.size(); i += 2)
            if (samples[i][c] > darkest && samples[i + 1][c] > darkest)
                ratios.push_back(static_cast<float>(samples[i + 1][c]) / static_cast<float>(samples[i][c]));
        if (ratios.size() >= kFewestRatios)
            pair.ratio[c] = std::clamp(median_of(std::span(ratios)), 1 / kMostRatio, kMostRatio);
        pair.mean_ratio += pair.ratio[c] / static_cast<float>(channels_);
    }
}

void CellCosts::measure(PicturePair& pair) const
{
    std::vector<const std::uint16_t*> samples;
    double brightness = 0;
    std::int32_t depth = 1;
    for (const Rect& region : pair.regions) {
        const auto cells = static_cast<std::uint64_t>(region.pixels());
        const std::uint64_t count = std::min(cells, kSamples);
        for (std::uint64_t k = 0; k < count; ++k) {
            const std::uint64_t at = count == cells ? k : k * kScatter % cells;
            const auto width = static_cast<std::uint64_t>(region.width);
            const std::int64_t column = grid_.column_inside(region.x + static_cast<std::int64_t>(at % width));
            const std::int64_t row = region.y + static_cast<std::int64_t>(at / width);
            const ReducedPicture& a = pictures_[pair.first];
            const ReducedPicture& b = pictures_[pair.second];
            const std::int64_t ia = a.index(column, row);
            const std::int64_t ib = b.index(column, row);
            assert(ia >= 0 && ib >= 0); // an overlap's cells are cells of both
            if (a.cover(ia) == Cover::None || b.cover(ib) == Cover::None)
                continue;
            depth = std::max(depth, std::min(a.distance_of(column, row), b.distance_of(column, row)));
            samples.push_back(a.features(ia));
            samples.push_back(b.features(ib));
            brightness += static_cast<double>(a.features(ia)[0]);
        }
    }
    pair.depth = static_cast<float>(depth);
    if (samples.empty())
        return;
    measure_ratio(pair, samples);
    std::vector<float> differences;
    for (std::size_t i = 0; i + 1 < samples.size(); i += 2)
        differences.push_back(difference(pair, samples[i], samples[i + 1]));
    // What rounding leaves: a quarter of an 8-bit level, of 16-bit samples a part of their brightness.
    const double mean = brightness / static_cast<double>(differences.size());
    const double rounding = layout_.bits == 8 ? 32.0 : 8.0 + mean / 512;
    pair.inverse_noise = 1.f / (median_of(std::span(differences)) + static_cast<float>(rounding * rounding));
}

float CellCosts::ratio_between(const PicturePair& pair, std::int64_t column_a, std::int64_t row_a,
                               std::int64_t column_b, std::int64_t row_b) const
{
    const ReducedPicture& a = pictures_[pair.first];
    const ReducedPicture& b = pictures_[pair.second];
    const std::int64_t ia = a.index(column_a, row_a);
    const std::int64_t ib = b.index(column_b, row_b);
    return ia < 0 || ib < 0 ? -1 : ratio_at(pair, ia, ib);
}

CellCosts::Step CellCosts::step_at(const PicturePair& pair, std::int64_t column, std::int64_t row) const
{
    const ReducedPicture& a = pictures_[pair.first];
    const ReducedPicture& b = pictures_[pair.second];
    const std::int64_t ia = a.index(column, row);
    const std::int64_t ib = b.index(column, row);
    if (ia < 0 || ib < 0 || !a.is_covered(ia) || !b.is_covered(ib))
        return {-1, 0};
    const auto distance = static_cast<float>(std::min(a.distance_of(column, row), b.distance_of(column, row)));
    const float outwards = 1 - std::min(distance / pair.depth, 1.f);
    return {difference(pair, a.features(ia), b.features(ib)) * pair.inverse_noise,
            1 + kEdgeCost * (outwards * outwards)};
}

void CellCosts::fill(const PicturePair& pair, const Rect& cells, std::int32_t* out) const
{
    const std::int64_t margin = reach_in_cells(grid_.cell);
    const Rect grown = cells.grown(margin);
    std::vector<std::int32_t> costs(static_cast<std::size_t>(grown.pixels()), kNotShared);
    std::size_t i = 0;
    for (std::int64_t row = grown.y; row < grown.bottom(); ++row)
        for (std::int64_t x = grown.x; x < grown.right(); ++x, ++i) {
            const std::int64_t column = grid_.column_inside(x);
            const Step step = column < 0 ? Step{-1, 0} : step_at(pair, column, row);
            if (step.ratio >= 0)
                costs[i] = to_cost(difference_cost(step.ratio) + step.way);
        }
    std::vector<std::int32_t> scratch;
    spread(grown, 4, costs, scratch);
    repel(grown, margin, costs, scratch);
    copy_inner(costs, cells, margin, out);
}

// Differences must not drown in a large cell: their squares' root of the mean square.
std::int32_t CellCosts::coarse_cost(const PicturePair& pair, std::int64_t factor, std::int64_t column,
                                    std::int64_t row) const
{
    float sum = 0;
    float steps = 0;
    float count = 0;
    const std::int64_t right = std::min((column + 1) * factor, grid_.columns());
    const std::int64_t bottom = std::min((row + 1) * factor, grid_.rows());
    for (std::int64_t y = row * factor; y < bottom; ++y)
        for (std::int64_t x = column * factor; x < right; ++x)
            if (const Step step = step_at(pair, x, y); step.ratio >= 0) {
                const float excess = std::min(step.ratio, kSaturation);
                sum += excess * excess;
                steps += step.way;
                ++count;
            }
    return count > 0 ? to_cost(difference_cost(std::sqrt(sum / count)) + steps / count) : kNotShared;
}

void CellCosts::fill_coarse(const PicturePair& pair, const CellGrid& coarse, std::int64_t factor, const Rect& cells,
                            std::int32_t* out) const
{
    std::vector<std::int32_t> costs(static_cast<std::size_t>(cells.pixels()), kNotShared);
    run_in_parallel(static_cast<std::size_t>(cells.height), threads_, [&](std::size_t i) {
        const std::int64_t row = cells.y + static_cast<std::int64_t>(i);
        std::int32_t* const to = costs.data() + i * static_cast<std::size_t>(cells.width);
        for (std::int64_t x = 0; x < cells.width; ++x)
            if (const std::int64_t column = coarse.column_inside(cells.x + x); column >= 0)
                to[x] = coarse_cost(pair, factor, column, row);
    });
    std::vector<std::int32_t> scratch;
    spread(cells, 8, costs, scratch);
    repel(cells, reach_in_cells(coarse.cell), costs, scratch);
    std::copy(costs.begin(), costs.end(), out);
}

} // namespace panoval::mosaic
