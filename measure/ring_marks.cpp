// SPDX-License-Identifier: MIT
// All lengths are by the code's target, whose outline is taken for the unit circle: so perspective changes little.
#include "measure/ring_marks.h"

#include "measure/outline.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace panoval::measure
{

namespace
{

constexpr double kSound = 0.5; // quality
constexpr double kMostDoubt = 0.9;
constexpr double kNearest = 1.3; // distance of a mark's middle from the target's
constexpr double kFarthest = 3.2;
constexpr double kThickest = 1.3;     // across the ring; the target itself is 2
constexpr double kAcross = 1.15;      // at least so many times as long as thick
constexpr double kArc = 1.8;          // is plainly no ellipse of a board
constexpr double kOnRing = 0.05;      // by which outer ends of marks differ, of their distance
constexpr double kOnRingPixels = 0.5; // and beyond, in pixels
constexpr double kThickness = 0.25;   // by which they are of different thickness, of itself
constexpr double kApart = 0.8;        // times the longer of two marks: they are different ones
// Of the contrast: how far a mark's level inside may be off the target's, and that of its outline above it and below.
constexpr double kInside = 0.2;
constexpr double kMostAbove = 0.15;
constexpr double kMostBelow = 0.3;
constexpr double kMostSine = 0.95; // of half the angle that a mark covers
constexpr std::size_t kFewest = 2; // others on the ring; or one plain arc
// Half the thickness, of the blur in pixels, but at least of one: the form of a wider one tells that it is no ellipse.
constexpr double kWidest = 5;
constexpr double kSamePlace = 1; // pixels that a silhouette and its target differ by at most

struct Mark {
    Point middle;
    double outer;  // distance of the end from the centre
    double thick;  // across the ring
    double length; // along it
};

class Code
{
public:
    explicit Code(const Outline& outline) noexcept : outline_(outline), distance_(outline) {}

    Mark mark_of(const Silhouette& one) const noexcept
    {
        const DistanceTo::Place place = distance_.place(one.x, one.y);
        const Point radial = {place.u / place.length, place.v / place.length};
        const double thick_out = reach(one, radial);
        const double thick_in = reach(one, {-radial.x, -radial.y});
        const double length = reach(one, {-radial.y, radial.x}) + reach(one, {radial.y, -radial.x});
        const double outer = place.length + thick_out;
        // The hull ends at the chord of the inner arc, which is nearer to the centre than the arc.
        const double sine = std::min(kMostSine, length / (2 * outer));
        const double inner = (place.length - thick_in) / std::sqrt(1 - sine * sine);
        return {{place.u, place.v}, outer, outer - inner, length};
    }

    double pixels() const noexcept { return outline_.semi_minor(); }

private:
    // How far it reaches from its middle, into a direction where the outline is the unit circle.
    double reach(const Silhouette& one, const Point& direction) const noexcept
    {
        const DistanceTo::Place end = distance_.place(outline_.x + direction.x, outline_.y + direction.y);
        return one.reach_towards(bearing_of({end.u, end.v})) * end.length; // the inverse matrix is symmetric
    }

    Outline outline_;
    DistanceTo distance_;
};

bool is_mark(const Mark& mark, double length_by_thickness) noexcept
{
    const double distance = std::sqrt(mark.middle.x * mark.middle.x + mark.middle.y * mark.middle.y);
    return distance >= kNearest && distance <= kFarthest && mark.thick <= kThickest && mark.outer - mark.thick > 1 &&
           mark.length >= length_by_thickness * mark.thick;
}

bool are_apart(const Mark& one, const Mark& other) noexcept
{
    const double dx = one.middle.x - other.middle.x;
    const double dy = one.middle.y - other.middle.y;
    return std::sqrt(dx * dx + dy * dy) >= kApart * std::max(one.length, other.length);
}

Silhouette silhouette_of(const MeasuredTarget& one) noexcept
{
    return measure::silhouette_of(one.measured.model.outline, (one.target.level_inside + one.target.level_outside) / 2,
                                  one.target.polarity == PANOVAL_MEASURE_DARK);
}

class RingMarks
{
public:
    RingMarks(const SilhouetteMap& map, const std::vector<MeasuredTarget>& targets) : map_(map), targets_(targets)
    {
        for (const MeasuredTarget& target : targets)
            centres_.put(centres_count_++, disk_of(target));
    }

    bool has(std::size_t index)
    {
        const MeasuredTarget& own = targets_[index];
        const Outline& outline = own.measured.model.outline;
        if (outline.semi_minor() > kWidest * std::max(1., own.target.blur))
            return false;
        const Silhouette silhouette = silhouette_of(own);
        for (const std::size_t k : centres_.near({outline.x, outline.y, outline.semi_major()})) {
            const MeasuredTarget& code = targets_[k];
            if (k != index && code.target.quality >= kSound && code.target.polarity == own.target.polarity &&
                are_of_level(code.target, own.target) &&
                code.measured.model.outline.mean_radius() > outline.mean_radius() && is_of_ring(code, silhouette))
                return true;
        }
        return false;
    }

private:
    // As far as its marks reach.
    static Disk disk_of(const MeasuredTarget& target) noexcept
    {
        const Outline& outline = target.measured.model.outline;
        return {outline.x, outline.y, kFarthest * outline.semi_major()};
    }

    bool is_of_ring(const MeasuredTarget& target, const Silhouette& silhouette)
    {
        const Code code(target.measured.model.outline);
        const Mark own = code.mark_of(silhouette);
        if (!is_mark(own, kAcross) || !is_of_level(target.target, silhouette))
            return false;
        const Disk disk = disk_of(target);
        map_.find_near(disk.x, disk.y, disk.radius, near_);
        others_.clear();
        bool has_arc = false;
        for (const std::size_t index : near_) {
            const Silhouette& one = map_.all()[index];
            if (one.is_dark != silhouette.is_dark || one.encloses(disk.x, disk.y) || !is_of_level(target.target, one))
                continue;
            const Mark mark = code.mark_of(one);
            const double reach = kOnRing * own.outer + kOnRingPixels / code.pixels();
            if (!is_mark(mark, 1) || std::fabs(mark.outer - own.outer) > reach ||
                std::fabs(mark.thick - own.thick) > kThickness * own.thick + kOnRingPixels / code.pixels() ||
                !are_apart(mark, own) ||
                std::any_of(others_.begin(), others_.end(), [&](const Mark& other) { return !are_apart(mark, other); }))
                continue;
            has_arc = has_arc || (mark.length > kArc * mark.thick && !is_target(one));
            others_.push_back(mark);
        }
        return others_.size() >= (has_arc ? 1 : kFewest);
    }

    // Whether it is the outline of a sound target, as long as it may be.
    bool is_target(const Silhouette& one) const
    {
        const auto x = static_cast<double>(one.x);
        const auto y = static_cast<double>(one.y);
        const std::vector<std::size_t> around = centres_.near({x, y, 0});
        return std::any_of(around.begin(), around.end(), [&](std::size_t k) {
            const Outline& outline = targets_[k].measured.model.outline;
            return targets_[k].target.quality >= kSound && std::fabs(outline.x - x) <= kSamePlace &&
                   std::fabs(outline.y - y) <= kSamePlace &&
                   std::fabs(one.longest() / 2 - outline.semi_major()) <= kSamePlace;
        });
    }

    static bool are_of_level(const PanovalMeasureTarget& code, const PanovalMeasureTarget& mark) noexcept
    {
        return std::fabs(mark.level_inside - code.level_inside) <=
               kInside * std::fabs(code.level_inside - code.level_outside);
    }

    static bool is_of_level(const PanovalMeasureTarget& target, const Silhouette& mark) noexcept
    {
        const double middle = (target.level_inside + target.level_outside) / 2;
        const double above = (static_cast<double>(mark.level) - middle) / (target.level_inside - target.level_outside);
        return above <= kMostAbove && above >= -kMostBelow;
    }

    const SilhouetteMap& map_;
    const std::vector<MeasuredTarget>& targets_;
    Vicinity centres_;
    std::size_t centres_count_ = 0;
    std::vector<std::size_t> near_;
    std::vector<Mark> others_;
};

} // namespace

void doubt_ring_marks(const SilhouetteMap& silhouettes, std::vector<MeasuredTarget>& targets)
{
    RingMarks marks(silhouettes, targets);
    std::vector<bool> is_mark(targets.size()); // of all before any changes
    for (std::size_t i = 0; i < targets.size(); ++i)
        is_mark[i] = targets[i].target.quality >= kSound && marks.has(i);
    for (std::size_t i = 0; i < targets.size(); ++i)
        if (is_mark[i])
            targets[i].target.quality *= 1 - kMostDoubt;
}

} // namespace panoval::measure
