// SPDX-License-Identifier: MIT
// What a neighbour adds to samples is its step of levels times the share of each pixel that it covers, which its own
// measurement tells as exactly as the target's.
#include "measure/neighbours.h"

#include "core/numbers.h"
#include "measure/refinement.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace panoval::measure
{

namespace
{

constexpr double kLeastGap = 0.75;       // pixels; outlines that are nearer touch or cross
constexpr double kSpreads = 3.6;         // of an edge that reach to where it is not felt
constexpr double kFlat = 4;              // pixels between edges that a measurement wants
constexpr double kConcentric = 0.5;      // pixels that the centres of a ring's outlines are apart, at most
constexpr double kConcentricShare = 0.1; // and of the larger semi-minor axis
constexpr double kMostMoved = 0.5;       // pixels that the second measurement may be off the first
constexpr int kPoints = 32;
constexpr int kMostRounds = 10;
constexpr double kAtRest = 0.1;     // of a target's sigma: neighbours that have moved by less say nothing new
constexpr double kUnsettled = 0.3;  // and by whose way left a record is not settled
constexpr double kMostRatio = 0.95; // of moves: the way that is left is at most nineteen times the last one

double spread_of(const MeasuredModel& measured) noexcept
{
    return std::sqrt(measured.model.blur * measured.model.blur + 1.0 / 12);
}

double reach_between(const MeasuredModel& one, const MeasuredModel& other) noexcept
{
    return kSpreads * (spread_of(one) + spread_of(other)) + kFlat;
}

// Distances of points of an outline from another one, below 0 inside it.
struct Distances {
    double least = HUGE_VAL;
    double most = -HUGE_VAL;
};

Distances distances_from(const Outline& other, const Outline& outline) noexcept
{
    constexpr double kCosine = 0.98078528040323044913; // of pi / 16
    constexpr double kSine = 0.19509032201612826785;
    const DistanceTo distance(other);
    Distances distances;
    double u = 1;
    double v = 0;
    for (int n = 0; n < kPoints; ++n) {
        const double x = outline.x + (outline.mean + outline.skew_x) * u + outline.skew_y * v;
        const double y = outline.y + outline.skew_y * u + (outline.mean - outline.skew_x) * v;
        const double here = distance.distance(distance.place(x, y));
        distances.least = std::min(distances.least, here);
        distances.most = std::max(distances.most, here);
        const double next = v * kCosine + u * kSine;
        u = u * kCosine - v * kSine;
        v = next;
    }
    return distances;
}

// Whether `other` is within reach of `one`, and where.
bool is_near(const MeasuredModel& one, const MeasuredModel& other, bool& is_around) noexcept
{
    const Outline& a = one.model.outline;
    const Outline& b = other.model.outline;
    const double reach = reach_between(one, other);
    const double dx = a.x - b.x;
    const double dy = a.y - b.y;
    const double most = a.semi_major() + b.semi_major() + reach;
    if (dx * dx + dy * dy > most * most)
        return false;
    const Distances from_other = distances_from(b, a);
    const Distances from_one = distances_from(a, b);
    is_around = from_other.most < -kLeastGap;
    if (!is_around && from_one.most >= -kLeastGap && std::min(from_other.least, from_one.least) < kLeastGap)
        return false; // they cross
    return std::min({std::fabs(from_other.least), std::fabs(from_other.most), std::fabs(from_one.least),
                     std::fabs(from_one.most)}) < reach;
}

Move move_between(const PanovalMeasureEllipse& before, const PanovalMeasureEllipse& after) noexcept
{
    return {{after.x - before.x, after.y - before.y, after.semi_major - before.semi_major,
             after.semi_minor - before.semi_minor}};
}

// What is left of the way, in units of the last move, when each move is the same share of the one before.
double share_left(const Move& move, const Move& before) noexcept
{
    const double square = before.square();
    const double ratio = square > 0 ? std::min(std::sqrt(move.square() / square), kMostRatio) : 0;
    return ratio / (1 - ratio);
}

Disk disk_around(const Outline& outline, double beyond) noexcept
{
    return {outline.x, outline.y, outline.semi_major() + beyond};
}

// None when none of them has moved.
std::vector<Neighbour> neighbours_of(const std::vector<MeasuredTarget>& targets, const Vicinity& vicinity,
                                     std::size_t index)
{
    const MeasuredTarget& one = targets[index];
    std::vector<Neighbour> neighbours;
    bool has_moved = false;
    if (!one.is_sound)
        return neighbours;
    const double beyond = kSpreads * spread_of(one.measured) + kFlat;
    for (const std::size_t k : vicinity.near(disk_around(one.measured.model.outline, beyond))) {
        bool is_around = false;
        if (k == index || !targets[k].is_sound || !is_near(one.measured, targets[k].measured, is_around))
            continue;
        neighbours.push_back({targets[k].measured, is_around});
        has_moved |= targets[k].moved > kAtRest * std::min(one.target.sigma_x, one.target.sigma_y);
    }
    return has_moved ? neighbours : std::vector<Neighbour>();
}

// False: no memory. What is measured worse without its neighbours stays as it was.
bool measure_again(Refinement& refinement, const std::vector<Neighbour>& neighbours, double picture_noise,
                   MeasuredTarget& measured)
{
    PanovalMeasureTarget& target = measured.target;
    target.flags |= PANOVAL_MEASURE_NEIGHBOUR;
    PanovalMeasureTarget again = {};
    const std::int32_t code = refinement.run_without(neighbours, target.ellipse, HUGE_VAL, again);
    const Move move = move_between(target.ellipse, again.ellipse);
    measured.moved = 0;
    measured.way_left = {};
    if (code != PANOVAL_MEASURE_OK || again.polarity != target.polarity || !(move.largest() < kMostMoved))
        return code != PANOVAL_MEASURE_NO_MEMORY;
    if (picture_noise > 0)
        again.quality = quality_of(again, refinement.bulges(), picture_noise);
    again.quality = std::max(again.quality, target.quality); // what was found stays found
    again.flags |= target.flags & (PANOVAL_MEASURE_NEIGHBOUR | PANOVAL_MEASURE_SATURATED);
    target = again;
    measured.measured = refinement.measured();
    measured.bulges = refinement.bulges();
    const double share = share_left(move, measured.last_move);
    measured.moved = move.largest() * std::max(1.0, share);
    measured.way_left = move;
    for (double& d : measured.way_left.by)
        d *= share;
    measured.last_move = move;
    return true;
}

// Edges of a ring that is narrow against its blur are measured in turn many times before they have come to rest. What
// is left of the way is a guess, and may be as wrong as it is long.
void widen_by_the_way_left(MeasuredTarget& measured) noexcept
{
    PanovalMeasureTarget& target = measured.target;
    const std::array<double, 4>& way = measured.way_left.by;
    for (std::size_t i = 0; i < way.size(); ++i)
        for (std::size_t k = 0; k < way.size(); ++k)
            target.covariance[5 * i + k] += way[i] * way[k];
    target.sigma_x = std::sqrt(target.covariance[0]);
    target.sigma_y = std::sqrt(target.covariance[6]);
    target.sigma_major = std::sqrt(target.covariance[12]);
    target.sigma_minor = std::sqrt(target.covariance[18]);
    target.flags |= PANOVAL_MEASURE_NOT_CONVERGED;
}

} // namespace

double Move::largest() const noexcept
{
    double most = 0;
    for (const double d : by)
        most = std::max(most, std::fabs(d));
    return most;
}

double Move::square() const noexcept
{
    double sum = 0;
    for (const double d : by)
        sum += d * d;
    return sum;
}

bool is_concentric(const Outline& one, const Outline& other) noexcept
{
    const double dx = one.x - other.x;
    const double dy = one.y - other.y;
    const double near = kConcentric + kConcentricShare * std::max(one.semi_minor(), other.semi_minor());
    return dx * dx + dy * dy <= near * near;
}

Disk disk_of_centres(const Outline& outline) noexcept
{
    return {outline.x, outline.y, kConcentric + kConcentricShare * outline.semi_minor()};
}

bool take_away(const Neighbour& neighbour, OutlineModel& outlines, Patch& patch) noexcept
{
    const TargetModel& model = neighbour.measured.model;
    const Box& box = patch.box();
    const Box own = box_around(model.outline, kReach * model.blur + 2);
    if (!outlines.reserve(own, model.outline.semi_major(), model.blur, model.blur))
        return false;
    if (!outlines.sample(model.outline, model.blur))
        return true;
    for (std::int32_t y = box.y; y < box.y + box.height; ++y) {
        const bool is_covered = y >= own.y && y < own.y + own.height;
        if (!is_covered && !neighbour.is_around)
            continue;
        const float* const coverage = is_covered ? outlines.coverage_row(y) + kCoverage * outlines.stride() : nullptr;
        for (std::int32_t x = box.x; x < box.x + box.width; ++x) {
            const bool is_known = is_covered && x >= own.x && x < own.x + own.width;
            const double share = is_known ? static_cast<double>(coverage[to_count(x - own.x)]) : 0;
            const double dx = x - neighbour.measured.reference_x;
            const double dy = y - neighbour.measured.reference_y;
            const double step = model.outside.at(dx, dy) - model.inside.at(dx, dy);
            patch.add(x, y, static_cast<float>(step * (neighbour.is_around ? share - 1 : share)));
        }
    }
    return true;
}

Disk influence_of(const MeasuredModel& measured) noexcept
{
    return disk_around(measured.model.outline, 2 * kSpreads * spread_of(measured)); // another's edge may be as blurred
}

Vicinity vicinity_of(const std::vector<MeasuredTarget>& targets)
{
    Vicinity vicinity;
    for (std::size_t i = 0; i < targets.size(); ++i)
        vicinity.put(i, influence_of(targets[i].measured));
    return vicinity;
}

std::vector<Neighbour> neighbours_beside(const Outline& outline, const std::vector<MeasuredTarget>& targets,
                                         const Vicinity& vicinity)
{
    std::vector<Neighbour> neighbours;
    for (const std::size_t k : vicinity.near(disk_around(outline, kFlat))) {
        const MeasuredTarget& other = targets[k];
        if (!other.is_sound)
            continue;
        MeasuredModel one = other.measured; // its blur stands for that of the outline, too
        one.model.outline = outline;
        bool is_around = false;
        if (is_near(one, other.measured, is_around))
            neighbours.push_back({other.measured, is_around});
    }
    return neighbours;
}

bool measure_without_neighbours(Refinement& refinement, double picture_noise, std::vector<MeasuredTarget>& targets)
{
    Vicinity vicinity = vicinity_of(targets);
    bool are_at_rest = false;
    for (int round = 0; round < kMostRounds && !are_at_rest; ++round) {
        are_at_rest = true;
        for (std::size_t i = 0; i < targets.size(); ++i) {
            const std::vector<Neighbour> neighbours = neighbours_of(targets, vicinity, i);
            if (neighbours.empty())
                continue;
            are_at_rest = false;
            if (!measure_again(refinement, neighbours, picture_noise, targets[i]))
                return false;
            vicinity.put(i, influence_of(targets[i].measured));
        }
    }
    for (MeasuredTarget& measured : targets)
        if (measured.way_left.largest() > kUnsettled * std::min(measured.target.sigma_x, measured.target.sigma_y))
            widen_by_the_way_left(measured);
    return true;
}

} // namespace panoval::measure
