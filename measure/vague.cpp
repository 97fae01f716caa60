// SPDX-License-Identifier: MIT
// Limits are those that 3,456 dots of 3 pixels, with a contrast of eight deviations of the noise and a blur of 0.4 to
// 1.3, leave room for: their contrast is measured as 6.3 deviations at least, their smaller axis to a quarter.
#include "measure/vague.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace panoval::measure
{

namespace
{

constexpr double kHalfKnown = 0.4; // deviation of the semi-minor axis, of itself, at which half of the quality is left
constexpr double kHalfClear = 6;   // contrast by noise at which half is left, of the smallest targets
constexpr double kSmallest = 3.3;  // semi-minor axis, pixels, up to which targets are of these
constexpr double kSmall = 3.9;     // from which on contrast is no doubt
constexpr double kNoDoubt = 0.98;  // of the quality left
constexpr double kSound = 0.5;     // quality

// A half at 1, nearly all soon below, nearly nothing soon above.
double share_left(double ratio, int doublings) noexcept
{
    double power = ratio;
    for (int i = 0; i < doublings; ++i)
        power *= power;
    return 1 / (1 + power);
}

double share_left(const PanovalMeasureTarget& target, double picture_noise) noexcept
{
    const double axis = target.ellipse.semi_minor;
    const double contrast = std::fabs(target.level_inside - target.level_outside);
    const double smallness = std::clamp((kSmall - axis) / (kSmall - kSmallest), 0.0, 1.0);
    return share_left(target.sigma_minor / (kHalfKnown * axis), 3) *
           share_left(smallness * kHalfClear * picture_noise / contrast, 4);
}

// Edges that are near to each other are each given some of the other's contrast; but two of them are no chance.
bool is_of_ring(const std::vector<MeasuredTarget>& targets, std::size_t index) noexcept
{
    const Outline& own = targets[index].measured.model.outline;
    for (std::size_t k = 0; k < targets.size(); ++k)
        if (k != index && targets[k].target.quality >= kSound && is_concentric(own, targets[k].measured.model.outline))
            return true;
    return false;
}

} // namespace

void doubt_vague(double picture_noise, std::vector<MeasuredTarget>& targets)
{
    std::vector<double> shares(targets.size(), 1); // of all before any changes: each may be another's ring
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const double share = share_left(targets[i].target, picture_noise);
        if (share < kNoDoubt && targets[i].target.quality >= kSound && !is_of_ring(targets, i))
            shares[i] = share;
    }
    for (std::size_t i = 0; i < targets.size(); ++i)
        targets[i].target.quality *= shares[i];
}

} // namespace panoval::measure
