// SPDX-License-Identifier: MIT
// Limits are between 1,072 small targets at eight deviations of the noise, alone, on dense boards, in codes and under
// thin lines, and 173 meshes of nets and of hatching, pieces of letters and gaps between dots. Those are smaller the
// more clearly they are seen; a dot of 3 pixels has a contrast of 5 deviations at least, whatever lies across it.
#include "measure/vague.h"

#include "core/median.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>

namespace panoval::measure
{

namespace
{

constexpr double kHalfKnown = 0.4; // deviation of the semi-minor axis, of itself, at which half of the quality is left
constexpr double kHalfClear = 6.8; // contrast by noise at which half is left, of the smallest targets
constexpr double kSmallest = 2.4;  // semi-minor axis, pixels, up to which targets are of these
constexpr double kSmall = 3.8;     // from which on contrast is no doubt; in between it is one of less
constexpr double kBeside = 3;      // semi-major axes of both that look-alikes' centres are apart, at most
constexpr double kAlike = 1.4;     // ratio of the semi-minor axes
constexpr std::size_t kFewest = 2; // look-alikes that tell what is common
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

// What is known of a target, as far as it matters here.
struct Knowledge {
    double contrast;
    double sigma; // of the semi-minor axis
};

Knowledge knowledge_of(const PanovalMeasureTarget& target) noexcept
{
    return {std::fabs(target.level_inside - target.level_outside), target.sigma_minor};
}

double share_left(double axis, const Knowledge& known, double picture_noise) noexcept
{
    const double smallness = std::clamp((kSmall - axis) / (kSmall - kSmallest), 0.0, 1.0);
    return share_left(known.sigma / (kHalfKnown * axis), 3) *
           share_left(smallness * kHalfClear * picture_noise / known.contrast, 4);
}

// Look-alikes' ones touch.
Disk disk_beside(const PanovalMeasureEllipse& ellipse) noexcept
{
    return {ellipse.x, ellipse.y, kBeside * ellipse.semi_major};
}

Vicinity vicinity_beside(const std::vector<MeasuredTarget>& targets)
{
    Vicinity vicinity;
    for (std::size_t i = 0; i < targets.size(); ++i)
        vicinity.put(i, disk_beside(targets[i].target.ellipse));
    return vicinity;
}

bool are_look_alikes(const PanovalMeasureTarget& one, const PanovalMeasureTarget& other) noexcept
{
    const double dx = one.ellipse.x - other.ellipse.x;
    const double dy = one.ellipse.y - other.ellipse.y;
    const double reach = kBeside * (one.ellipse.semi_major + other.ellipse.semi_major);
    return other.quality >= kSound && one.polarity == other.polarity && dx * dx + dy * dy < reach * reach &&
           other.ellipse.semi_minor < kAlike * one.ellipse.semi_minor &&
           one.ellipse.semi_minor < kAlike * other.ellipse.semi_minor;
}

// On dense boards noise gives a dot less contrast and its neighbours more; the median is that of all. Meshes are all
// alike.
Knowledge common_knowledge(const std::vector<MeasuredTarget>& targets, const Vicinity& vicinity, std::size_t index)
{
    std::vector<double> contrasts;
    std::vector<double> sigmas;
    for (const std::size_t k : vicinity.near(disk_beside(targets[index].target.ellipse)))
        if (k != index && are_look_alikes(targets[index].target, targets[k].target)) {
            const Knowledge known = knowledge_of(targets[k].target);
            contrasts.push_back(known.contrast);
            sigmas.push_back(known.sigma);
        }
    Knowledge own = knowledge_of(targets[index].target);
    if (contrasts.size() < kFewest)
        return own;
    own.contrast = std::max(own.contrast, median_of(std::span(contrasts)));
    own.sigma = std::min(own.sigma, median_of(std::span(sigmas)));
    return own;
}

// Edges that are near to each other are each given some of the other's contrast; but two of them are no chance.
bool is_of_ring(const std::vector<MeasuredTarget>& targets, const Vicinity& vicinity, std::size_t index)
{
    const Outline& own = targets[index].measured.model.outline;
    for (const std::size_t k : vicinity.near(disk_beside(targets[index].target.ellipse)))
        if (k != index && targets[k].target.quality >= kSound && is_concentric(own, targets[k].measured.model.outline))
            return true;
    return false;
}

} // namespace

void doubt_vague(double picture_noise, std::vector<MeasuredTarget>& targets)
{
    const Vicinity vicinity = vicinity_beside(targets);
    std::vector<double> shares(targets.size(), 1); // of all before any changes: each may be another's ring
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const PanovalMeasureTarget& target = targets[i].target;
        const double axis = target.ellipse.semi_minor;
        if (target.quality >= kSound && share_left(axis, knowledge_of(target), picture_noise) < kNoDoubt &&
            !is_of_ring(targets, vicinity, i))
            shares[i] = share_left(axis, common_knowledge(targets, vicinity, i), picture_noise);
    }
    for (std::size_t i = 0; i < targets.size(); ++i)
        targets[i].target.quality *= shares[i];
}

} // namespace panoval::measure
