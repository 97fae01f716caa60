// SPDX-License-Identifier: MIT
// The likelihood of a ratio: for each pair of samples the length of the range of light that gives both, as if any light
// in it were as likely. Pairs count with the root of how often they occur, as neighbouring pixels are no independent
// witnesses. The maximum is looked for on a grid, twice.
#include "mosaic/gains/gain_rounded.h"

#include "core/elementary.h"

#include <algorithm>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

constexpr std::size_t kSide = SamplePairs::kSide;

struct Cell {
    double first;
    double second;
    double weight;
    double count;
};

std::vector<Cell> cells_of(const SamplePairs& pairs)
{
    std::vector<Cell> cells;
    for (std::size_t i = 1; i < pairs.count.size(); ++i) { // but two blacks
        const std::size_t first = i / kSide;
        const std::size_t second = i % kSide;
        const double count = pairs.count[i];
        if (count > 0)
            cells.push_back({static_cast<double>(first), static_cast<double>(second), std::sqrt(count), count});
    }
    return cells;
}

// Of the first picture's light; not positive where no light gives both samples.
double common_light(const Cell& cell, double ratio)
{
    const double low = std::max({cell.first - 0.5, (cell.second - 0.5) * ratio, 0.0});
    return std::min(cell.first + 0.5, (cell.second + 0.5) * ratio) - low;
}

double likelihood(const std::vector<Cell>& cells, double ratio)
{
    constexpr double kOutside = 1e-3;          // what is left for pairs that should not be
    const double scale = 1 / std::sqrt(ratio); // neither picture's samples are the unit
    double sum = 0;
    for (const Cell& cell : cells)
        sum += cell.weight * log(std::max(common_light(cell, ratio) * scale, 0.0) + kOutside);
    return sum;
}

struct Maximum {
    double at = 0;    // logarithm of a ratio
    double width = 0; // of where the likelihood is nearly as large
};

Maximum search(const std::vector<Cell>& cells, double middle, double reach, int steps)
{
    constexpr double kNearly = 6;
    std::vector<double> found;
    Maximum best{middle, 0};
    std::size_t largest = 0;
    const double step = reach / steps;
    for (int k = -steps; k <= steps; ++k) {
        found.push_back(likelihood(cells, exp(middle + k * step)));
        if (found.back() > found[largest])
            largest = found.size() - 1;
    }
    best.at = middle + (static_cast<double>(largest) - steps) * step;
    for (const double value : found)
        best.width += value > found[largest] - kNearly ? step : 0;
    return best;
}

RoundedRatio search_inside(const std::vector<Cell>& cells, const RatioRange& range)
{
    constexpr int kSteps = 30; // to either side
    const double low = log(range.low);
    const double high = log(range.high);
    return {search(cells, (low + high) / 2, (high - low) / 2, kSteps).at, kErrorOfWidth * (high - low)};
}

double share_outside(const std::vector<Cell>& cells, double ratio)
{
    double outside = 0;
    double all = 0;
    for (const Cell& cell : cells) {
        outside += common_light(cell, ratio) <= 0 ? cell.count : 0;
        all += cell.count;
    }
    return outside / all;
}

} // namespace

std::optional<RoundedRatio> find_rounded_ratio(const SamplePairs& pairs, const RatioRange& range)
{
    constexpr double kFewest = 200;       // samples
    constexpr double kMostOutside = 0.01; // of them
    constexpr double kFar = 0.5;          // of the logarithm, from the ratio of sums
    constexpr double kNear = 0.003;
    const std::vector<Cell> cells = cells_of(pairs);
    double first = 0;
    double second = 0;
    double count = 0;
    for (const Cell& cell : cells) {
        first += cell.count * cell.first;
        second += cell.count * cell.second;
        count += cell.count;
    }
    if (count < kFewest || first <= 0 || second <= 0)
        return std::nullopt;
    if (range.is_known())
        return search_inside(cells, range);
    const Maximum rough = search(cells, log(first / second), kFar, 250);
    const Maximum fine = search(cells, rough.at, kNear, 15);
    if (share_outside(cells, exp(fine.at)) > kMostOutside)
        return std::nullopt;
    return RoundedRatio{fine.at, kErrorOfWidth * std::max(rough.width, fine.width)};
}

} // namespace panoval::mosaic
