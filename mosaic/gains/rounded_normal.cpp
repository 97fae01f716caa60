// SPDX-License-Identifier: MIT
// The density is Euler's, at nodes; between them the integral is a cubic that has its values and slopes there.
#include "mosaic/gains/rounded_normal.h"

#include "core/elementary.h"
#include "core/numbers.h"

#include <algorithm>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

constexpr double kReach = 6; // standard deviations
constexpr int kNodesEach = 16;
constexpr double kStep = 1.0 / kNodesEach;
constexpr double kPeak = 0.39894228040143267794; // 1 / sqrt(2 pi)
constexpr double kLikely = 5;                    // standard deviations; farther samples do not occur

} // namespace

NormalTable::NormalTable()
{
    const int count = 2 * static_cast<int>(kReach) * kNodesEach + 1;
    double below = 0;
    for (int k = 0; k < count; ++k) {
        const double z = k * kStep - kReach;
        const double density = kPeak * exp(-0.5 * z * z);
        if (k > 0) {
            // The trapezoid with the slopes at its ends, -z density.
            const double before = nodes_.back().density;
            const double slopes = -(z - kStep) * before + z * density;
            below += 0.5 * kStep * (before + density) + kStep * kStep / 12 * slopes;
        }
        nodes_.push_back({below, density});
    }
}

NormalTable::Value NormalTable::at(double z) const
{
    if (z <= -kReach)
        return {0, 0};
    if (z >= kReach)
        return {1, 0};
    const double place = (z + kReach) * kNodesEach;
    const auto k = std::min(static_cast<std::size_t>(truncate_to_int(place)), nodes_.size() - 2);
    const double t = place - static_cast<double>(k);
    const Value& left = nodes_[k];
    const Value& right = nodes_[k + 1];
    const double rise = right.below - left.below;
    const double bend_left = kStep * left.density - rise;
    const double bend_right = rise - kStep * right.density;
    const double bend = bend_left * (1 - t) + bend_right * t;
    return {left.below + rise * t + t * (1 - t) * bend,
            (rise + (1 - 2 * t) * bend + t * (1 - t) * (bend_right - bend_left)) * kNodesEach};
}

void SampleChances::compute(const std::vector<double>& means, const std::vector<double>& variances,
                            const NormalTable& normal)
{
    begin_.resize(means.size());
    end_.resize(means.size());
    chance_.resize(means.size() * samples_);
    by_mean_.resize(means.size() * samples_);
    by_variance_.resize(means.size() * samples_);
    const double last = static_cast<double>(samples_ - 1);
    for (std::size_t k = 0; k < means.size(); ++k) {
        const double deviation = std::sqrt(variances[k]);
        const double reach = kLikely * deviation + 1;
        begin_[k] = static_cast<std::size_t>(truncate_to_int(std::clamp(means[k] - reach, 0.0, last)));
        end_[k] = static_cast<std::size_t>(truncate_to_int(std::clamp(means[k] + reach, 0.0, last))) + 1;
        NormalTable::Value below{};
        double z_below = 0;
        for (std::size_t n = begin_[k]; n < end_[k]; ++n) {
            const double z = (static_cast<double>(n) + 0.5 - means[k]) / deviation;
            const NormalTable::Value above = n + 1 < samples_ ? normal.at(z) : NormalTable::Value{1, 0};
            const std::size_t at = k * samples_ + n;
            chance_[at] = above.below - below.below;
            by_mean_[at] = (below.density - above.density) / deviation;
            by_variance_[at] = (below.density * z_below - above.density * z) / (2 * variances[k]);
            below = above;
            z_below = z;
        }
    }
}

} // namespace panoval::mosaic
