// SPDX-License-Identifier: MIT
// Gauss-Newton over the blocks of all overlaps. In each overlap only what deviates from its own mean ratio counts, so
// that neither gains nor white balance have a say. A prior holds what the overlaps do not tell to what lenses are like:
// a falloff in proportion to the squared distance, and not much else. The standard error comes from the sums over large
// parts of the overlaps, in which neighbouring blocks may err alike.
#include "mosaic/gains/gain_falloff.h"

#include "core/elementary.h"
#include "mosaic/base/parallel.h"
#include "mosaic/base/small_solve.h"
#include "mosaic/gains/gain_pair.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

using Vector = std::array<double, 3>;

constexpr Vector kPrior{0.5, 0.2, 0.1}; // standard deviations of the coefficients
constexpr double kModelSpread = 0.004;  // of single blocks, beside their pair's spread
constexpr double kLargestError = 0.1;   // of the corners' logarithm; beyond it the falloff is not determined
constexpr double kDarkestCorner = 0.15; // lenses do not do worse
constexpr double kBrightestCorner = 1.5;
constexpr std::size_t kCells = 4; // an overlap has up to 4 x 4 large parts

struct Evidence {
    NormalEquations<3> equations;
    std::array<Vector, 3> scatter{}; // sum over large parts of gradient times gradient

    void add(const Evidence& other)
    {
        equations.add(other.equations);
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < 3; ++j)
                scatter[i][j] += other.scatter[i][j];
    }
    void add_scatter(const Vector& gradient)
    {
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < 3; ++j)
                scatter[i][j] += gradient[i] * gradient[j];
    }
};

// d log(F) / dc at q.
Vector log_slopes(const Falloff& falloff, double q)
{
    const double inverse = 1 / falloff.at(q);
    return {q * inverse, q * q * inverse, q * q * q * inverse};
}

std::size_t part_of(double at)
{
    const double k = std::floor(0.5 * (at + 1) * kCells);
    return k <= 0 ? std::size_t{0} : k >= kCells - 1 ? kCells - 1 : static_cast<std::size_t>(k);
}

// How each block's ratio depends on the coefficients, less the mean over the overlap.
std::vector<Vector> centred_slopes(const BlockRadii& radii, const Falloff& falloff, const std::vector<double>& weights)
{
    std::vector<Vector> slopes(weights.size());
    Vector mean{};
    double total = 0;
    for (std::size_t k = 0; k < weights.size(); ++k) {
        const Vector first = log_slopes(falloff, radii.first[k]);
        const Vector second = log_slopes(falloff, radii.second[k]);
        for (std::size_t m = 0; m < 3; ++m) {
            slopes[k][m] = first[m] - second[m];
            mean[m] += weights[k] * slopes[k][m];
        }
        total += weights[k];
    }
    for (Vector& slope : slopes)
        for (std::size_t m = 0; m < 3; ++m)
            slope[m] -= mean[m] / total;
    return slopes;
}

Evidence pair_evidence(const FalloffPair& pair, const Falloff& falloff)
{
    Evidence evidence;
    const BlockLevels levels = flatten(*pair.levels, *pair.radii, falloff);
    const RatioEstimate ratio = estimate_ratio(levels);
    double total = 0;
    double used = 0;
    for (const double weight : ratio.weights) {
        total += weight;
        used += weight > 0 ? 1 : 0;
    }
    if (ratio.kind != RatioEstimate::Kind::Known || total <= 0)
        return evidence;
    const std::vector<Vector> slopes = centred_slopes(*pair.radii, falloff, ratio.weights);
    const double unit = used / total / (ratio.spread * ratio.spread + kModelSpread * kModelSpread);
    std::array<Vector, kCells * kCells> gradients{};
    for (std::size_t k = 0; k < levels.blocks.size(); ++k) {
        const double w = ratio.weights[k] * unit;
        evidence.equations.add(slopes[k], ratio.ratios[k], w);
        // What the pair's own plane explains is no error here; the rest is.
        Vector& gradient = gradients[part_of(levels.blocks[k].y) * kCells + part_of(levels.blocks[k].x)];
        for (std::size_t i = 0; i < 3; ++i)
            gradient[i] += w * slopes[k][i] * ratio.residuals[k];
    }
    for (const Vector& gradient : gradients)
        evidence.add_scatter(gradient);
    return evidence;
}

Evidence all_evidence(const std::vector<FalloffPair>& pairs, const Falloff& falloff, std::size_t threads)
{
    std::vector<Evidence> parts(pairs.size());
    run_in_parallel(pairs.size(), threads, [&](std::size_t p) { parts[p] = pair_evidence(pairs[p], falloff); });
    Evidence sums;
    for (const Evidence& part : parts)
        sums.add(part);
    for (std::size_t i = 0; i < 3; ++i) {
        const double weight = 1 / (kPrior[i] * kPrior[i]);
        sums.equations.add_prior(i, weight, -falloff.c[i]); // for the step that is solved for
        sums.scatter[i][i] += weight;
    }
    return sums;
}

bool is_plausible(const Falloff& falloff)
{
    for (int k = 0; k <= 20; ++k) {
        const double brightness = falloff.at(0.05 * k);
        if (!(brightness >= kDarkestCorner && brightness <= kBrightestCorner))
            return false;
    }
    return true;
}

double corner_error(const Evidence& evidence, const Falloff& falloff)
{
    const Vector direction = evidence.equations.solve(log_slopes(falloff, 1));
    double variance = 0;
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            variance += direction[i] * evidence.scatter[i][j] * direction[j];
    return std::sqrt(std::max(variance, 0.0));
}

} // namespace

Falloff estimate_falloff(const std::vector<FalloffPair>& pairs, std::size_t threads)
{
    constexpr int kRounds = 8;
    Falloff falloff;
    double error = 1;
    for (int round = 0; round < kRounds; ++round) {
        const Evidence evidence = all_evidence(pairs, falloff, threads);
        const Vector step = evidence.equations.solve();
        for (std::size_t m = 0; m < 3; ++m)
            falloff.c[m] += step[m];
        if (!is_plausible(falloff))
            return {};
        error = corner_error(evidence, falloff);
    }
    return error <= kLargestError ? falloff : Falloff{};
}

} // namespace panoval::mosaic
