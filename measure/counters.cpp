// SPDX-License-Identifier: MIT
// Rays go from the outline outwards until levels come back to those inside: there a stroke ends. Places are compared by
// how many times the outline's radius in their direction they are away, which perspective changes little.
#include "measure/counters.h"

#include "core/numbers.h"
#include "measure/picture.h"
#include "measure/silhouette.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <optional>
#include <span>

namespace panoval::measure
{

namespace
{

constexpr std::size_t kRays = 48;
constexpr std::size_t kPairs = kRays / 2;          // of opposite ones
constexpr double kCosine = 0.99144486137381041114; // of pi / 24
constexpr double kSine = 0.13052619222005159155;
constexpr double kSound = 0.5;      // quality
constexpr double kReachShare = 2.2; // of the semi-minor axis: strokes around a smaller hole are no strokes
constexpr double kReachMore = 3;    // pixels
constexpr double kStep = 0.5;       // pixels between places, at least
constexpr double kMostSteps = 128;

// Of the contrast. A thin stroke's blur leaves it short of its level.
constexpr double kBack = 0.5;              // where levels are those inside again
constexpr double kRise = 0.3;              // above the lowest level on the way
constexpr double kAway = 0.6;              // which is below this one
constexpr double kOnOutline = 1;           // pixels between an edge and the outline that explains it
constexpr double kOnBlurred = 0.5;         // and of its blur
constexpr double kEvenPixels = 0.5;        // between edges that are concentric
constexpr double kEvenShare = 0.06;        // and of the semi-minor axis
constexpr std::size_t kCorners = 2;        // rays beside an open one that meet the corner of what ends there
constexpr double kApart = 0.8;             // times the radius: two rings around it, at least
constexpr double kOnRing = 0.15;           // pixels between a ring and the edges of marks that lie on it
constexpr std::size_t kFewestOnRings = 20; // rays that end there
constexpr double kNoisePixels = 3;         // times the edge's spread times noise by contrast: what noise moves edges by
constexpr double kAlikePixels = 0.5;       // between the edges on opposite sides
constexpr double kAlikeShare = 0.15;       // and of the stroke's width

// Where doubt begins, and where it is complete: shares of rays or of pairs of them.
constexpr double kEnclosed[2] = {0.78, 0.88};
constexpr std::size_t kMostOpen = 10; // rays: more leave less than these
constexpr double kUneven[2] = {0.03, 0.07};
constexpr double kLopsided[2] = {0.02, 0.08};
constexpr double kAskew[2] = {0.015, 0.025}; // of the half width of what encloses it
constexpr double kThick[2] = {0.95, 1.05};   // times the radius: where it ends, strokes that enclose holes are thinner
constexpr double kMostDoubt = 0.9;

// Turned by the angle between rays.
Point next_of(const Point& direction) noexcept
{
    return {direction.x * kCosine - direction.y * kSine, direction.y * kCosine + direction.x * kSine};
}

// The picture between its samples.
class Levels
{
public:
    explicit Levels(const PanovalMeasureImage& image) noexcept : image_(image) {}

    // Not a number outside the picture.
    double at(const Point& place) const noexcept
    {
        const bool is_inside =
            place.x >= 0 && place.y >= 0 && place.x < image_.width - 1 && place.y < image_.height - 1;
        if (!is_inside)
            return NAN;
        const std::int32_t left = truncate_to_int(place.x);
        const std::int32_t top = truncate_to_int(place.y);
        double upper[2];
        double lower[2];
        read_samples(image_, left, top, 2, upper);
        read_samples(image_, left, top + 1, 2, lower);
        const double u = place.x - left;
        const double v = place.y - top;
        const double above = upper[0] + u * (upper[1] - upper[0]);
        const double below = lower[0] + u * (lower[1] - lower[0]);
        return above + v * (below - above);
    }

private:
    const PanovalMeasureImage& image_;
};

struct Ray {
    Point start;
    Point normal; // of length 1
};

std::array<Ray, kRays> rays_of(const Outline& outline) noexcept
{
    const double a = outline.mean + outline.skew_x;
    const double b = outline.skew_y;
    const double c = outline.mean - outline.skew_x;
    std::array<Ray, kRays> rays;
    Point direction = {1, 0};
    for (Ray& ray : rays) {
        const auto [u, v] = direction;
        ray.start = {outline.x + a * u + b * v, outline.y + b * u + c * v};
        const double x = c * u - b * v;
        const double y = a * v - b * u;
        const double length = std::sqrt(x * x + y * y);
        ray.normal = {x / length, y / length};
        direction = next_of(direction);
    }
    return rays;
}

// What lies around a target.
class Surroundings
{
public:
    Surroundings(const Levels& levels, const MeasuredTarget& target) noexcept
        : levels_(levels), measured_(target.measured), outline_(target.measured.model.outline),
          noise_(target.target.noise), semi_minor_(outline_.semi_minor()),
          reach_(kReachShare * semi_minor_ + kReachMore)
    {
    }

    // False: more rays than these meet nothing.
    bool find_ends(std::size_t most_open) noexcept
    {
        const std::array<Ray, kRays> rays = rays_of(outline_);
        std::size_t open = 0;
        for (std::size_t i = 0; i < kRays; ++i) {
            ends_[i] = end_along(rays[i]);
            open += ends_[i] ? 0 : 1;
            if (open > most_open)
                return false;
        }
        return true;
    }

    // Outlines on which edges may lie touch this.
    Disk reach() const noexcept { return {outline_.x, outline_.y, outline_.semi_major() + reach_ + kOnOutline}; }

    // Takes the edges away that lie on an outline.
    void explain_by(const MeasuredModel& other) noexcept
    {
        const Outline& outline = other.model.outline;
        const double most = outline.semi_major() + outline_.semi_major() + reach_ + kOnOutline;
        const double dx = outline.x - outline_.x;
        const double dy = outline.y - outline_.y;
        if (dx * dx + dy * dy > most * most)
            return;
        const DistanceTo distance(outline);
        const double near = kOnOutline + kOnBlurred * other.model.blur;
        for (std::size_t i = 0; i < kRays; ++i)
            if (ends_[i] && std::fabs(distance.distance(distance.place(ends_[i]->x, ends_[i]->y))) < near)
                ends_[i].reset();
    }

    // 0 to 1.
    double doubt() const noexcept
    {
        const Widths widths = widths_of_strokes();
        const std::span<const double> known = widths.known();
        const double enclosed = ramp(static_cast<double>(known.size()) / kRays, kEnclosed);
        if (!(enclosed > 0))
            return 0;
        const double middle = known[known.size() / 2];
        const double off = std::min(share_off(widths.by_ray, {middle, middle}, known.size()),
                                    share_off(widths.by_ray, rings_of(known), known.size()));
        const double doubt =
            enclosed * (1 - ramp(middle, kThick)) * ramp(off, kUneven) * ramp(share_unlike(widths.by_ray), kLopsided);
        return doubt > 0 ? doubt * ramp(share_askew(DistanceTo(outline_)), kAskew) : 0;
    }

    // There are ends.
    bool has_rings() const noexcept
    {
        const Widths widths = widths_of_strokes();
        const std::span<const double> known = widths.known();
        const Rings rings = rings_of(known);
        const double near = kOnRing / semi_minor_;
        const auto on = std::count_if(known.begin(), known.end(), [&](double width) {
            return std::min(std::fabs(width - rings.near), std::fabs(width - rings.far)) < near;
        });
        return on >= static_cast<std::ptrdiff_t>(kFewestOnRings);
    }

private:
    // Of strokes, by the radius in their direction.
    struct Widths {
        std::array<double, kRays> by_ray; // 0 = no edge
        std::array<double, kRays> sorted; // those that are known, in ascending order
        std::size_t count = 0;            // of these

        std::span<const double> known() const noexcept { return std::span(sorted).first(count); }
    };

    Widths widths_of_strokes() const noexcept
    {
        const DistanceTo distance(outline_);
        Widths widths;
        for (std::size_t i = 0; i < kRays; ++i) {
            widths.by_ray[i] = ends_[i] ? distance.place(ends_[i]->x, ends_[i]->y).length - 1 : 0;
            if (ends_[i])
                widths.sorted[widths.count++] = widths.by_ray[i];
        }
        std::sort(widths.sorted.begin(), widths.sorted.begin() + static_cast<std::ptrdiff_t>(widths.count));
        return widths;
    }

    static double ramp(double value, const double (&limits)[2]) noexcept
    {
        return std::clamp((value - limits[0]) / (limits[1] - limits[0]), 0.0, 1.0);
    }

    std::optional<Point> end_along(const Ray& ray) const noexcept
    {
        const double step = std::max(kStep, reach_ / kMostSteps);
        double lowest = 1;
        const std::int32_t count = truncate_to_int(reach_ / step);
        for (std::int32_t i = 1; i <= count; ++i) {
            const Point place = {ray.start.x + i * step * ray.normal.x, ray.start.y + i * step * ray.normal.y};
            const double share = share_inside(place);
            if (std::isnan(share))
                return std::nullopt;
            lowest = std::min(lowest, share);
            if (lowest < kAway && share > std::max(kBack, lowest + kRise))
                return place;
        }
        return std::nullopt;
    }

    // 1 at the level inside, 0 at that outside.
    double share_inside(const Point& place) const noexcept
    {
        const double dx = place.x - measured_.reference_x;
        const double dy = place.y - measured_.reference_y;
        const double outside = measured_.model.outside.at(dx, dy);
        const double contrast = measured_.model.inside.at(dx, dy) - outside;
        return (levels_.at(place) - outside) / contrast;
    }

    // By which noise lets the end of a stroke be off, pixels.
    double chance() const noexcept
    {
        const TargetModel& model = measured_.model;
        const double contrast = std::fabs(model.inside.level - model.outside.level);
        return kNoisePixels * std::sqrt(model.blur * model.blur + 1.0 / 12) * noise_ / contrast;
    }

    // Where rays end at outlines about the same centre: one, or the other one through gaps in it.
    struct Rings {
        double near;
        double far;
    };

    // Of widths in ascending order.
    static Rings rings_of(std::span<const double> widths) noexcept
    {
        const double between = (widths.front() + widths.back()) / 2;
        const auto farther = std::upper_bound(widths.begin(), widths.end(), between);
        const auto count = static_cast<std::size_t>(farther - widths.begin());
        const double near = widths[count / 2];
        const double far = widths[std::min((count + widths.size()) / 2, widths.size() - 1)];
        return far - near > kApart ? Rings{near, far} : Rings{near, near};
    }

    // Whether what a ray meets has an end or a step there, on either side.
    static bool is_at_corner(const std::array<double, kRays>& widths, const Rings& rings, std::size_t ray) noexcept
    {
        const double most = rings.far > rings.near ? (rings.far - rings.near) / 2 : HUGE_VAL;
        for (const std::size_t turn : {std::size_t{1}, kRays - 1})
            for (std::size_t step = 0; step < kCorners; ++step) {
                const double here = widths[(ray + step * turn) % kRays];
                const double next = widths[(ray + (step + 1) * turn) % kRays];
                if (!(next > 0) || std::fabs(next - here) > most)
                    return true;
            }
        return false;
    }

    // Of the strokes' ends those that are not where the rings are.
    double share_off(const std::array<double, kRays>& widths, const Rings& rings, std::size_t count) const noexcept
    {
        const double even = (kEvenPixels + chance()) / semi_minor_ + kEvenShare;
        double off = 0;
        for (std::size_t i = 0; i < kRays; ++i) {
            const bool is_on_ring =
                std::fabs(widths[i] - rings.near) <= even || std::fabs(widths[i] - rings.far) <= even;
            off += widths[i] > 0 && !is_on_ring && !is_at_corner(widths, rings, i) ? 1 : 0;
        }
        return off / static_cast<double>(count);
    }

    // Of the pairs of opposite rays those whose strokes differ in width.
    double share_unlike(const std::array<double, kRays>& widths) const noexcept
    {
        const double chance_of_two = 1.5 * chance();
        double unlike = 0;
        for (std::size_t i = 0; i < kPairs; ++i) {
            const double one = widths[i] > 0 ? widths[i] : kReachShare;
            const double other = widths[i + kPairs] > 0 ? widths[i + kPairs] : kReachShare;
            const double alike = (kAlikePixels + chance_of_two) / semi_minor_ + kAlikeShare * std::min(one, other);
            unlike += std::fabs(one - other) > alike ? 1 : 0;
        }
        return unlike / kPairs;
    }

    // How far the middles of the strokes' ends across all directions are from one centre, by half their width: 0 for
    // frames, plates and cells of grids, wherever in them the target lies.
    double share_askew(const DistanceTo& distance) const noexcept
    {
        std::array<Point, kPairs> directions;
        std::array<double, kPairs> middles;
        Point direction = {1, 0};
        Point centre = {0, 0};
        double width = 0;
        for (std::size_t i = 0; i < kPairs; ++i) {
            const Span span = span_along(direction, distance);
            directions[i] = direction;
            middles[i] = (span.low + span.high) / 2;
            width += (span.high - span.low) / 2 / kPairs;
            centre.x += middles[i] * direction.x * 2 / kPairs;
            centre.y += middles[i] * direction.y * 2 / kPairs;
            direction = next_of(direction);
        }
        double squares = 0;
        for (std::size_t i = 0; i < kPairs; ++i) {
            const double off = middles[i] - centre.x * directions[i].x - centre.y * directions[i].y;
            squares += off * off;
        }
        return std::sqrt(squares / kPairs) / width;
    }

    struct Span {
        double low = HUGE_VAL;
        double high = -HUGE_VAL;
    };

    // Of the strokes' ends, where the outline is the unit circle.
    Span span_along(const Point& direction, const DistanceTo& distance) const noexcept
    {
        Span span;
        for (const std::optional<Point>& end : ends_) {
            if (!end)
                continue;
            const DistanceTo::Place place = distance.place(end->x, end->y);
            const double along = direction.x * place.u + direction.y * place.v;
            span.low = std::min(span.low, along);
            span.high = std::max(span.high, along);
        }
        return span;
    }

    const Levels& levels_;
    const MeasuredModel& measured_;
    const Outline& outline_;
    double noise_;
    double semi_minor_;
    double reach_;                                 // pixels
    std::array<std::optional<Point>, kRays> ends_; // of the strokes around it
};

double doubt_of(const Levels& levels, const std::vector<MeasuredTarget>& targets, const Vicinity& vicinity,
                std::size_t index)
{
    Surroundings surroundings(levels, targets[index]);
    if (!surroundings.find_ends(kMostOpen))
        return 0;
    for (const std::size_t k : vicinity.near(surroundings.reach()))
        if (k != index && targets[k].target.quality >= kSound)
            surroundings.explain_by(targets[k].measured);
    return surroundings.doubt();
}

} // namespace

bool has_rings_of_marks(const PanovalMeasureImage& image, const MeasuredTarget& target) noexcept
{
    const Levels levels(image);
    Surroundings surroundings(levels, target);
    return surroundings.find_ends(kRays - kFewestOnRings) && surroundings.has_rings();
}

void doubt_counters(const PanovalMeasureImage& image, std::vector<MeasuredTarget>& targets)
{
    const Levels levels(image);
    const Vicinity vicinity = vicinity_of(targets);
    std::vector<double> doubts(targets.size(), 0); // of all before any changes: each may explain another
    for (std::size_t i = 0; i < targets.size(); ++i)
        if (targets[i].target.quality >= kSound)
            doubts[i] = doubt_of(levels, targets, vicinity, i);
    for (std::size_t i = 0; i < targets.size(); ++i)
        targets[i].target.quality *= 1 - kMostDoubt * doubts[i];
}

} // namespace panoval::measure
