// SPDX-License-Identifier: MIT
// They do where their brightness correlates, over parts of some 16 pixels or over blocks at some shift, or where the
// model of the ratio leaves little of what most blocks show. Those that do none of it may be noisy pictures of
// something flat: the mean of many blocks then varies as much less as chance wants. They disagree only where it varies
// more than that, or in a way that neighbouring parts share, as things do.
#include "mosaic/gains/gain_agreement.h"

#include "core/elementary.h"
#include "core/median.h"
#include "mosaic/base/small_solve.h"

#include <algorithm>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

constexpr double kRelated = 0.7;
constexpr double kRelatedAtShift = 0.75; // the largest of many
constexpr double kLargestShift = 14;     // in pixels
constexpr double kLargestRatio = 2.8;    // of exposures: logarithm of 16. Beyond it pictures must correlate
constexpr double kEven = 0.03;
constexpr double kClear = 2.5;  // standard deviations of what noise alone would do to neighbours
constexpr double kCoarse = 2.5; // times the variance that noise alone would leave
constexpr double kPartSide = 16;
constexpr std::size_t kFewestParts = 24;

struct Part {
    double first = 0;
    double second = 0;
    double difference = 0;
    double weight = 0;
    double samples = 0;
    double x = 0;
    double y = 0;
};

struct Parts {
    std::size_t columns = 0;
    std::size_t rows = 0;
    double blocks = 1; // in a part
    std::vector<Part> parts;
};

// How many blocks in a row make a part.
std::size_t blocks_a_part(double step)
{
    std::size_t count = 1;
    while (static_cast<double>(count) * step < kPartSide)
        ++count;
    return count;
}

Parts join(const BlockLevels& levels, const RatioEstimate& ratio, std::size_t across, std::size_t down)
{
    Parts result{(levels.columns + across - 1) / across,
                 (levels.rows + down - 1) / down,
                 static_cast<double>(across * down),
                 {}};
    result.parts.resize(result.columns * result.rows);
    for (std::size_t k = 0; k < levels.blocks.size(); ++k) {
        const BlockLevel& block = levels.blocks[k];
        Part& part = result.parts[k / levels.columns / down * result.columns + k % levels.columns / across];
        const double w = block.weight * (block.first + block.second);
        part.first += block.weight * block.first;
        part.second += block.weight * block.second;
        part.samples += block.weight;
        part.difference += w * ratio.residuals[k];
        part.weight += w;
        part.x += w * block.x;
        part.y += w * block.y;
    }
    for (Part& part : result.parts) {
        if (part.first <= 0 || part.second <= 0) {
            part.samples = 0;
            continue;
        }
        part.first = log(part.first / part.samples);
        part.second = log(part.second / part.samples);
        part.difference /= part.weight;
        part.x /= part.weight;
        part.y /= part.weight;
    }
    return result;
}

void remove_plane(std::vector<Part>& parts, double Part::*value)
{
    NormalEquations<3> equations;
    for (const Part& part : parts)
        if (part.samples > 0)
            equations.add({1, part.x, part.y}, part.*value, part.samples);
    const auto plane = equations.solve();
    for (Part& part : parts)
        part.*value -= plane[0] + plane[1] * part.x + plane[2] * part.y;
}

Parts join_to_large_parts(const BlockLevels& levels, const RatioEstimate& ratio)
{
    std::size_t across = std::min(blocks_a_part(levels.step_x), levels.columns);
    std::size_t down = std::min(blocks_a_part(levels.step_y), levels.rows);
    while (across * down > 1 && (levels.columns / across) * (levels.rows / down) < kFewestParts)
        (across >= down ? across : down) -= 1;
    Parts parts = join(levels, ratio, across, down);
    remove_plane(parts.parts, &Part::first);
    remove_plane(parts.parts, &Part::second);
    return parts;
}

// With the second picture's parts that many further on.
double correlate(const Parts& parts, std::ptrdiff_t right, std::ptrdiff_t down)
{
    double first = 0;
    double second = 0;
    double both = 0;
    const auto columns = static_cast<std::ptrdiff_t>(parts.columns);
    const auto rows = static_cast<std::ptrdiff_t>(parts.rows);
    for (std::ptrdiff_t j = std::max<std::ptrdiff_t>(0, -down); j < std::min(rows, rows - down); ++j)
        for (std::ptrdiff_t i = std::max<std::ptrdiff_t>(0, -right); i < std::min(columns, columns - right); ++i) {
            const Part& a = parts.parts[static_cast<std::size_t>(j * columns + i)];
            const Part& b = parts.parts[static_cast<std::size_t>((j + down) * columns + i + right)];
            const double weight = std::min(a.samples, b.samples);
            first += weight * a.first * a.first;
            second += weight * b.second * b.second;
            both += weight * a.first * b.second;
        }
    return first > 0 && second > 0 ? both / (std::sqrt(first) * std::sqrt(second)) : 0.0;
}

// Shifts in blocks that leave most of the overlap, up to some pixels.
std::ptrdiff_t largest_shift(double step, std::size_t count)
{
    std::ptrdiff_t shift = 0;
    while (static_cast<double>(shift + 1) * step <= kLargestShift &&
           3 * (shift + 1) <= static_cast<std::ptrdiff_t>(count))
        ++shift;
    return shift;
}

double best_correlation(const BlockLevels& levels, const Parts& blocks)
{
    const std::ptrdiff_t across = largest_shift(levels.step_x, levels.columns);
    const std::ptrdiff_t down = largest_shift(levels.step_y, levels.rows);
    double best = -1;
    for (std::ptrdiff_t j = -down; j <= down; ++j)
        for (std::ptrdiff_t i = -across; i <= across; ++i)
            best = std::max(best, correlate(blocks, i, j));
    return best;
}

double robust_variance(const std::vector<Part>& parts, double Part::*value)
{
    std::vector<Weighted> sizes;
    sizes.reserve(parts.size());
    for (const Part& part : parts)
        sizes.push_back({std::fabs(part.*value), part.samples});
    const double spread = kMedianToSigma * weighted_median(sizes);
    return spread * spread;
}

// How much of what most blocks show the ratio and its model explain; 1 is all.
double explained_share(const Parts& blocks)
{
    const double content = robust_variance(blocks.parts, &Part::first) + robust_variance(blocks.parts, &Part::second);
    return content > 0 ? 1 - robust_variance(blocks.parts, &Part::difference) / content : 0.0;
}

// Large values become smaller ones: a few things that moved must not look as if everything were different. Returns the
// variance that is left. Some weigh something: a ratio is known of blocks that both pictures show.
double limit_values(std::vector<Weighted>& values)
{
    std::vector<Weighted> sizes = values;
    for (Weighted& size : sizes)
        size.value = std::fabs(size.value);
    const double limit = 2.5 * kMedianToSigma * weighted_median(sizes);
    double sum = 0;
    double total = 0;
    for (Weighted& value : values) {
        value.value = std::clamp(value.value, -limit, limit);
        sum += value.weight * value.value * value.value;
        total += value.weight;
    }
    return sum / total;
}

double limit_differences(std::vector<Part>& parts)
{
    std::vector<Weighted> values;
    values.reserve(parts.size());
    for (const Part& part : parts)
        values.push_back({part.difference, part.samples});
    const double variance = limit_values(values);
    for (std::size_t k = 0; k < parts.size(); ++k)
        parts[k].difference = values[k].value;
    return variance;
}

struct Covariance {
    double neighbours = 0; // of a part and the next one
    double alone = 0;
    double pairs = 0;
};

Covariance covariance_of(const Parts& parts)
{
    Covariance sums;
    double count = 0;
    const auto add_pair = [&](const Part& a, const Part& b) {
        if (b.samples <= 0)
            return;
        sums.neighbours += a.difference * b.difference;
        sums.pairs += 1;
    };
    for (std::size_t j = 0; j < parts.rows; ++j)
        for (std::size_t i = 0; i < parts.columns; ++i) {
            const std::size_t k = j * parts.columns + i;
            if (parts.parts[k].samples <= 0)
                continue;
            sums.alone += parts.parts[k].difference * parts.parts[k].difference;
            count += 1;
            if (i + 1 < parts.columns)
                add_pair(parts.parts[k], parts.parts[k + 1]);
            if (j + 1 < parts.rows)
                add_pair(parts.parts[k], parts.parts[k + parts.columns]);
        }
    sums.alone /= std::max(count, 1.0);
    sums.neighbours /= std::max(sums.pairs, 1.0);
    return sums;
}

// Whether noise alone explains what the model leaves.
bool is_noise(Parts& parts, Parts& blocks, double variance)
{
    const Covariance covariance = covariance_of(parts);
    const double by_chance = kClear * covariance.alone / std::sqrt(std::max(covariance.pairs, 1.0));
    const bool is_coarse = variance * parts.blocks > kCoarse * limit_differences(blocks.parts);
    return !is_coarse && covariance.neighbours <= by_chance;
}

} // namespace

PairAgreement judge_agreement(const BlockLevels& levels, const RatioEstimate& ratio)
{
    Parts parts = join_to_large_parts(levels, ratio);
    Parts blocks = join(levels, ratio, 1, 1);
    remove_plane(blocks.parts, &Part::first);
    remove_plane(blocks.parts, &Part::second);
    const double variance = limit_differences(parts.parts);
    PairAgreement result;
    result.correlation = correlate(parts, 0, 0);
    result.unevenness = std::sqrt(variance);
    result.agrees = result.correlation >= kRelated || explained_share(blocks) >= kRelated ||
                    best_correlation(levels, blocks) >= kRelatedAtShift;
    if (!result.agrees && std::fabs(ratio.log_ratio) < kLargestRatio)
        result.agrees = result.unevenness <= kEven || is_noise(parts, blocks, variance);
    return result;
}

} // namespace panoval::mosaic
