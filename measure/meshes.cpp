// SPDX-License-Identifier: MIT
// Lobes of the outlines of look-alikes side by side, averaged: noise and what is one outline's own become small, and
// what they have in common stays. Dots on a grid have nothing in common but that they are round.
#include "measure/meshes.h"

#include "core/numbers.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace panoval::measure
{

namespace
{

constexpr double kAlike = 0.65;        // the least ratio of look-alikes' axes
constexpr double kNext = 1.8;          // distance of centres by the sum of semi-major axes: lines as thick as meshes
constexpr std::size_t kMostSteps = 5;  // from one to the next: further away the lines' directions may be others
constexpr std::size_t kFewest = 3;     // of which something may be said to be common
constexpr double kLeastQuality = 0.05; // less is no outline at all
constexpr double kMostNoise = 1.3;     // of the picture's: corners make residuals, too, which are no noise
constexpr double kChance = 8;          // squared deviations of two numbers
constexpr std::size_t kOrders = 2;     // three and four corners; noise after a blur makes large ones of higher orders
constexpr double kLeastLeft = 0.15;    // by the blur: less is made of errors of the blur
constexpr double kLeastOwn = 0.4;      // share of the common lobes that an outline has itself
constexpr double kOwnChance = 2;       // deviations by which noise may have made it less
// Of the semi-minor axis: root mean square of common lobes at which half of the quality is left. Meshes have 0.05 to
// 0.12, dots on boards whose neighbours were taken away at most 0.02.
constexpr double kHalfLobe = 0.03;

using Lobe = Bulges::Lobe;

bool is_like(double one, double other) noexcept
{
    return std::min(one, other) >= kAlike * std::max(one, other);
}

bool are_look_alikes(const PanovalMeasureTarget& one, const PanovalMeasureTarget& other) noexcept
{
    return one.polarity == other.polarity && is_like(one.ellipse.semi_major, other.ellipse.semi_major) &&
           is_like(one.ellipse.semi_minor, other.ellipse.semi_minor);
}

// For each target the look-alikes beside it.
using Links = std::vector<std::vector<std::size_t>>;

Links links_of(const std::vector<MeasuredTarget>& targets)
{
    std::vector<std::size_t> by_rows;
    for (std::size_t i = 0; i < targets.size(); ++i)
        if (targets[i].target.quality >= kLeastQuality)
            by_rows.push_back(i);
    std::stable_sort(by_rows.begin(), by_rows.end(), [&](std::size_t one, std::size_t other) {
        return targets[one].target.ellipse.y < targets[other].target.ellipse.y;
    });
    Links links(targets.size());
    for (std::size_t n = 0; n < by_rows.size(); ++n) {
        const PanovalMeasureTarget& one = targets[by_rows[n]].target;
        const double most = kNext * (1 + 1 / kAlike) * one.ellipse.semi_major;
        for (std::size_t k = n + 1; k < by_rows.size(); ++k) {
            const PanovalMeasureTarget& other = targets[by_rows[k]].target;
            const double dx = other.ellipse.x - one.ellipse.x;
            const double dy = other.ellipse.y - one.ellipse.y;
            if (dy > most)
                break;
            const double reach = kNext * (one.ellipse.semi_major + other.ellipse.semi_major);
            if (dx * dx + dy * dy > reach * reach || !are_look_alikes(one, other))
                continue;
            links[by_rows[n]].push_back(by_rows[k]);
            links[by_rows[k]].push_back(by_rows[n]);
        }
    }
    return links;
}

// The target itself and what is some steps away, in the order in which it is reached.
class Surroundings
{
public:
    explicit Surroundings(const Links& links) : links_(links), reached_from_(links.size(), links.size()) {}

    const std::vector<std::size_t>& of(std::size_t target)
    {
        members_.assign(1, target);
        reached_from_[target] = target;
        std::size_t begin = 0;
        for (std::size_t step = 0; step < kMostSteps; ++step) {
            const std::size_t end = members_.size();
            for (; begin < end; ++begin)
                for (const std::size_t next : links_[members_[begin]])
                    if (reached_from_[next] != target) {
                        reached_from_[next] = target;
                        members_.push_back(next);
                    }
        }
        return members_;
    }

private:
    const Links& links_;
    std::vector<std::size_t> reached_from_; // the last target from which each was reached
    std::vector<std::size_t> members_;
};

// What the outlines of some targets have in common.
class CommonLobes
{
public:
    CommonLobes(double picture_noise, const std::vector<MeasuredTarget>& targets)
        : most_noise_(kMostNoise * picture_noise), targets_(targets)
    {
    }

    // Mean square of the strongest order that the first of them has, too, in pixels squared and without what noise
    // makes.
    double square(const std::vector<std::size_t>& members) const
    {
        double most = 0;
        for (std::size_t order = 0; order < kOrders; ++order) {
            const Lobe common = mean(members, order);
            const double beyond_chance = common.square() - kChance * common.noise_gain / 2;
            if (common.left >= kLeastLeft && beyond_chance > most && has_part_in(common, members.front(), order))
                most = beyond_chance;
        }
        return most;
    }

private:
    double variance(std::size_t target, std::size_t order) const noexcept
    {
        const double noise = std::min(targets_[target].target.noise, most_noise_);
        return noise * noise * targets_[target].bulges.lobes[order].noise_gain;
    }

    // Each by what is known of it; noise_gain is the variance.
    Lobe mean(const std::vector<std::size_t>& members, std::size_t order) const noexcept
    {
        Lobe sum;
        double weights = 0;
        for (const std::size_t member : members) {
            const double own = variance(member, order);
            if (!(own > 0))
                continue;
            const Lobe& lobe = targets_[member].bulges.lobes[order];
            sum.cosine += lobe.cosine / own;
            sum.sine += lobe.sine / own;
            sum.left += lobe.left / own;
            weights += 1 / own;
        }
        if (!(weights > 0))
            return {};
        return {sum.cosine / weights, sum.sine / weights, 1 / weights, sum.left / weights};
    }

    // As far as noise lets it be seen.
    bool has_part_in(const Lobe& common, std::size_t target, std::size_t order) const noexcept
    {
        const Lobe& own = targets_[target].bulges.lobes[order];
        const double length = std::sqrt(common.cosine * common.cosine + common.sine * common.sine);
        const double along = (own.cosine * common.cosine + own.sine * common.sine) / length;
        return along >= kLeastOwn * length - kOwnChance * std::sqrt(variance(target, order));
    }

    double most_noise_;
    const std::vector<MeasuredTarget>& targets_;
};

} // namespace

void doubt_meshes(double picture_noise, std::vector<MeasuredTarget>& targets)
{
    const Links links = links_of(targets);
    const CommonLobes common(picture_noise, targets);
    Surroundings surroundings(links);
    for (std::size_t i = 0; i < targets.size(); ++i) {
        const std::vector<std::size_t>& members = surroundings.of(i);
        if (members.size() < kFewest)
            continue;
        const double half = kHalfLobe * targets[i].target.ellipse.semi_minor;
        const double ratio = common.square(members) / (half * half);
        targets[i].target.quality /= 1 + ratio * ratio;
    }
}

} // namespace panoval::measure
