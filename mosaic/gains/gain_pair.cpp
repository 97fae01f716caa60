// SPDX-License-Identifier: MIT
// The model: the logarithm of a block's ratio is a constant, the pair's ratio r, plus a plane across the overlap (light
// that changed, vignetting), plus the slope of the scene's brightness times a shift between the two pictures. It is
// fitted by weighted least squares to e = 2 (first - r second) / (first + r second), which is about the logarithm less
// that of r and treats both pictures alike. The weight is the number of samples times the level times a robust one:
// so the constant solves sum w (first - r second) = 0, a ratio of sums, which rounding and noise do not bias as they
// bias a mean of ratios or of logarithms in dark scenes.
#include "mosaic/gains/gain_pair.h"

#include "core/elementary.h"
#include "core/median.h"
#include "mosaic/base/small_solve.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr double kLeastSpread = 0.002; // what rounding and coding alone may do
constexpr double kRounding = 0.29;     // standard deviation of a sample that is rounded, in its units
constexpr double kSuspicious = 0.02;   // a larger spread may come from a fit gone astray
constexpr double kCutoff = 4.685;      // of the biweight, in standard deviations: 95 % efficient
constexpr int kAbsoluteRounds = 6;
constexpr int kMostRounds = 30;
constexpr int kRoundsWithNewSpread = 4;
constexpr double kSettled = 1e-8;
constexpr double kBlackBesides = 8; // times brighter is the other picture, that one counts as black
constexpr double kPlanePrior = 0.1; // standard deviation of the plane's rise from the middle to the edge
constexpr double kShiftPrior = 2;   // standard deviation of a shift in pixels
constexpr std::size_t kCells = 4;   // for the error an overlap has up to 4 x 4 large parts

enum Term : std::size_t { kConstant, kPlaneX, kPlaneY, kShiftX, kShiftY, kTerms };
using Terms = std::array<double, kTerms>;

double difference(const BlockLevel& block, double ratio)
{
    const double scaled = ratio * block.second;
    const double sum = block.first + scaled;
    return sum > 0 ? 2 * (block.first - scaled) / sum : 0.0;
}

// The darker picture's level, from both.
double common_level(const BlockLevel& block, double ratio)
{
    return 0.5 * (block.first / ratio + block.second) * (ratio < 1 ? ratio : 1.0);
}

double rounding_of(double first, double second, double unit)
{
    return first > 0 && second > 0 ? kRounding * unit * std::sqrt(1 / (first * first) + 1 / (second * second)) : 0.0;
}

double biweight(double value, double cutoff)
{
    const double u = value / cutoff;
    const double v = 1 - u * u;
    return v > 0 ? v * v : 0.0;
}

RatioEstimate::Kind find_kind(const BlockLevels& levels)
{
    double first = 0;
    double second = 0;
    double samples = 0;
    for (const BlockLevel& block : levels.blocks) {
        first += block.weight * block.first;
        second += block.weight * block.second;
        samples += block.weight;
    }
    const double least = levels.darkest * samples;
    if (samples <= 0 || (first < least && second < least))
        return RatioEstimate::Kind::Nothing;
    if (first < least && second > kBlackBesides * least)
        return RatioEstimate::Kind::FirstBlack;
    if (second < least && first > kBlackBesides * least)
        return RatioEstimate::Kind::SecondBlack;
    return first > 0 && second > 0 ? RatioEstimate::Kind::Known : RatioEstimate::Kind::Nothing;
}

// For medians: bright blocks have no more to say than others, but those of which one picture shows a few units only
// have less.
double say(const BlockLevel& block, double ratio, double unit)
{
    constexpr double kFaint = 2; // in units
    const double level = std::min(block.first / ratio, block.second) * std::min(ratio, 1.0);
    return block.weight * level / (level + kFaint * unit);
}

// The median of the blocks' ratios.
double median_ratio(const BlockLevels& levels)
{
    std::vector<Weighted> values;
    for (const BlockLevel& block : levels.blocks) {
        const double sum = block.first + block.second;
        if (block.weight > 0 && sum >= 2 * levels.darkest)
            values.push_back({(block.first - block.second) / sum, say(block, 1, levels.unit)});
    }
    const double t = weighted_median(values);
    return t > -1 && t < 1 ? (1 + t) / (1 - t) : 0.0;
}

class RatioFit
{
public:
    RatioFit(const BlockLevels& levels, double ratio) : unit_(levels.unit), ratio_(ratio)
    {
        double x = 0;
        double y = 0;
        double total = 0;
        for (const BlockLevel& block : levels.blocks) {
            const bool counts = block.weight > 0 && common_level(block, ratio) >= levels.darkest;
            weights_.push_back(counts ? block.weight : 0.0);
            rounding_.push_back(counts ? rounding_of(block.first, block.second, levels.unit) : 0.0);
            const double w = weights_.back() * (block.first + ratio * block.second);
            x += w * block.x;
            y += w * block.y;
            total += w;
        }
        // The constant is the ratio in the middle of what counts.
        for (const BlockLevel& block : levels.blocks) {
            blocks_.push_back(block);
            blocks_.back().x -= total > 0 ? x / total : 0.0;
            blocks_.back().y -= total > 0 ? y / total : 0.0;
        }
        residuals_.resize(blocks_.size());
        robust_.assign(blocks_.size(), 1.0);
        update_residuals();
    }

    // Least absolute residuals of the whole model: finds planes and shifts of any size.
    void approach()
    {
        for (int round = 0; round < kAbsoluteRounds; ++round) {
            find_spread();
            for (std::size_t k = 0; k < blocks_.size(); ++k)
                robust_[k] = scale(k) / std::max(std::fabs(residuals_[k]), 0.25 * scale(k));
            improve();
        }
    }

    void fit()
    {
        for (int round = 0; round < kMostRounds; ++round) {
            if (round < kRoundsWithNewSpread)
                find_spread();
            for (std::size_t k = 0; k < blocks_.size(); ++k)
                robust_[k] = biweight(residuals_[k], kCutoff * scale(k));
            if (improve() <= kSettled && round >= kRoundsWithNewSpread)
                break;
        }
    }

    double spread() const { return spread_; }

    void keep(RatioEstimate& estimate) const
    {
        estimate.log_ratio = log(ratio_);
        estimate.spread = spread_;
        estimate.residuals = residuals_;
        for (std::size_t k = 0; k < blocks_.size(); ++k) {
            const BlockLevel& block = blocks_[k];
            const double shifted = terms_[kShiftX] * block.slope_x + terms_[kShiftY] * block.slope_y;
            estimate.ratios.push_back(difference(block, ratio_) - shifted);
            estimate.weights.push_back(weight(k));
            estimate.is_apart.push_back(weights_[k] > 0 && robust_[k] <= 0);
        }
        estimate.error = error_of_mean(estimate);
    }

private:
    static Terms basis(const BlockLevel& block) { return {1, block.x, block.y, block.slope_x, block.slope_y}; }

    // What a block may deviate by: where a scene is flat, all its pixels are rounded alike.
    double scale(std::size_t k) const { return std::sqrt(spread_ * spread_ + rounding_[k] * rounding_[k]); }

    double weight(std::size_t k) const
    {
        return weights_[k] * robust_[k] * 0.5 * (blocks_[k].first + ratio_ * blocks_[k].second);
    }

    void update_residuals()
    {
        for (std::size_t k = 0; k < blocks_.size(); ++k) {
            const Terms at = basis(blocks_[k]);
            double modelled = 0;
            for (std::size_t i = kPlaneX; i < kTerms; ++i)
                modelled += terms_[i] * at[i];
            residuals_[k] = difference(blocks_[k], ratio_) - modelled;
        }
    }

    void find_spread()
    {
        scratch_.clear();
        for (std::size_t k = 0; k < blocks_.size(); ++k)
            if (weights_[k] > 0)
                scratch_.push_back({std::fabs(residuals_[k]), say(blocks_[k], ratio_, unit_)});
        spread_ = std::max(kMedianToSigma * weighted_median(scratch_), kLeastSpread);
    }

    // One step of least squares with the robust weights as they are. Returns the change of the logarithm of the ratio.
    double improve()
    {
        NormalEquations<kTerms> equations;
        double total = 0;
        double used = 0;
        for (std::size_t k = 0; k < blocks_.size(); ++k) {
            const double w = weight(k);
            if (w <= 0)
                continue;
            equations.add(basis(blocks_[k]), difference(blocks_[k], ratio_), w);
            total += w;
            used += 1;
        }
        if (total <= 0)
            return 0;
        // A block of mean weight knows its ratio up to the spread.
        const double unit = total / used * spread_ * spread_;
        for (const Term term : {kPlaneX, kPlaneY})
            equations.add_prior(term, unit / (kPlanePrior * kPlanePrior));
        for (const Term term : {kShiftX, kShiftY})
            equations.add_prior(term, unit / (kShiftPrior * kShiftPrior));
        terms_ = equations.solve();
        const double change = std::clamp(terms_[kConstant], -1.0, 1.0);
        ratio_ *= (2 + change) / (2 - change);
        terms_[kConstant] = 0;
        update_residuals();
        return std::fabs(change);
    }

    // From the sums over large parts: neighbouring blocks err alike where the pictures show different things.
    double error_of_mean(const RatioEstimate& estimate) const
    {
        std::array<double, kCells * kCells> sums{};
        std::array<double, kCells * kCells> cell_weights{};
        double total = 0;
        double single = 0;
        double blocks = 0;
        for (std::size_t k = 0; k < blocks_.size(); ++k) {
            const double w = estimate.weights[k];
            const std::size_t cell = cell_of(blocks_[k]);
            sums[cell] += w * residuals_[k];
            cell_weights[cell] += w;
            total += w;
            single += w * w * spread_ * spread_;
            blocks += w > 0 ? 1 : 0;
        }
        if (total <= 0)
            return 1;
        double between = 0;
        double cells = 0;
        for (std::size_t cell = 0; cell < sums.size(); ++cell) {
            between += sums[cell] * sums[cell];
            cells += cell_weights[cell] > 0 ? 1 : 0;
        }
        // Few parts say little about their spread; that of single blocks bounds it from below.
        const double few = blocks < 4 ? 2 : 1;
        const double random =
            few * std::sqrt(std::max(cells > 1 ? between * cells / (cells - 1) : between, single)) / total;
        const double rounded = rounding_error(estimate.weights);
        return std::sqrt(random * random + rounded * rounded);
    }

    // Rounding errors of a scene with many levels cancel out, those of a flat one do not.
    double rounding_error(const std::vector<double>& weights) const
    {
        double total = 0;
        double rounding = 0;
        double mean = 0;
        double square = 0;
        for (std::size_t k = 0; k < blocks_.size(); ++k) {
            const double level = common_level(blocks_[k], ratio_) / unit_;
            total += weights[k];
            rounding += weights[k] * rounding_[k];
            mean += weights[k] * level;
            square += weights[k] * level * level;
        }
        const double variance = std::max(square / total - mean / total * (mean / total), 0.0);
        return rounding / total / (1 + 3 * std::sqrt(variance));
    }

    static std::size_t cell_of(const BlockLevel& block)
    {
        const auto part = [](double at) {
            const double k = std::floor(0.5 * (at + 1) * kCells);
            return k <= 0 ? std::size_t{0} : k >= kCells - 1 ? kCells - 1 : static_cast<std::size_t>(k);
        };
        return part(block.y) * kCells + part(block.x);
    }

    std::vector<BlockLevel> blocks_; // x and y from the middle of what counts
    std::vector<double> weights_;    // 0 where the block is too dark
    std::vector<double> rounding_;   // standard deviation of what rounding does to the ratio of two single samples
    std::vector<double> robust_;
    std::vector<double> residuals_;
    std::vector<Weighted> scratch_;
    double unit_;
    double ratio_;
    Terms terms_{};
    double spread_ = kLeastSpread;
};

} // namespace

namespace
{

double add_weight(double sum, const Weighted& value)
{
    return sum + value.weight;
}

// With the weights added in the order of the values, which tells where they are split in halves exactly.
double sorted_median(std::vector<Weighted>& values)
{
    std::sort(values.begin(), values.end(), [](const Weighted& a, const Weighted& b) {
        return std::pair(a.value, a.weight) < std::pair(b.value, b.weight);
    });
    double total = 0;
    for (const Weighted& value : values)
        total += value.weight;
    auto middle = values.begin();
    for (double sum = middle->weight; 2 * sum < total; sum += middle->weight) // the last sum is the total
        ++middle;
    return middle->value;
}

// The value about which the weight is split, looked for in the half that has it.
double value_in_the_middle(std::vector<Weighted>& values, double total)
{
    double below = 0;
    auto first = values.begin();
    for (auto last = values.end(); last - first > 1;) {
        const auto middle = first + (last - first) / 2;
        std::nth_element(first, middle, last, [](const Weighted& a, const Weighted& b) { return a.value < b.value; });
        const double upto = std::accumulate(first, middle, below, add_weight);
        if (2 * upto >= total) {
            last = middle;
        } else {
            below = upto;
            first = middle;
        }
    }
    return first->value;
}

} // namespace

double weighted_median(std::vector<Weighted>& values)
{
    if (values.empty())
        return 0;
    const double total = std::accumulate(values.begin(), values.end(), 0.0, add_weight);
    const double middle = value_in_the_middle(values, total);
    double below = 0;
    double upto = 0;
    for (const Weighted& value : values) {
        below += value.value < middle ? value.weight : 0.0;
        upto += value.value <= middle ? value.weight : 0.0;
    }
    // Sums of n weights in different orders differ by less than n roundings each; four of them are compared here.
    const double doubt = 4 * static_cast<double>(values.size()) * std::numeric_limits<double>::epsilon() * total;
    const bool is_certain = 2 * below < total - doubt && 2 * upto > total + doubt;
    return is_certain ? middle : sorted_median(values);
}

RatioEstimate estimate_ratio(const BlockLevels& levels)
{
    RatioEstimate estimate;
    estimate.kind = find_kind(levels);
    if (estimate.kind != RatioEstimate::Kind::Known)
        return estimate;
    const double ratio = median_ratio(levels);
    if (!(ratio > 1e-6 && ratio < 1e6)) {
        estimate.kind = RatioEstimate::Kind::Nothing;
        return estimate;
    }
    RatioFit fit(levels, ratio);
    fit.approach();
    fit.fit();
    if (fit.spread() > kSuspicious) {
        // Things that cover nearly half of an overlap may have tilted the plane: from the median they do not.
        RatioFit other(levels, ratio);
        other.fit();
        if (other.spread() < fit.spread())
            fit = other;
    }
    fit.keep(estimate);
    return estimate;
}

} // namespace panoval::mosaic
