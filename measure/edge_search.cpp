// SPDX-License-Identifier: MIT
// Rays across an outline, their steepest places, and a robust fit of the five elements to them. A displacement of the
// outline along its normal is linear in the elements, so that a few rounds of reweighted least squares do.
#include "measure/edge_search.h"

#include "core/median.h"
#include "core/numbers.h"

#include <Eigen/Cholesky>
#include <Eigen/Core>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace panoval::measure
{

namespace
{

constexpr std::size_t kMostRays = 64;
constexpr double kFewRays = 64;         // up to this mean radius half of them do
constexpr std::size_t kMostSteps = 129; // places of a ray; wider searches take longer steps
constexpr double kStep = 0.5;           // pixels between places, at least
constexpr double kProximity = 0.5;      // what an edge at the end of a ray counts, against one at the start
constexpr double kLeastShare = 0.35;    // of the rays must agree
constexpr int kFitRounds = 8;
constexpr int kSearchRounds = 3;
constexpr double kArrived = 0.3;         // pixels that the last round may have moved the outline
constexpr double kLeastTolerance = 0.15; // pixels that a place may be off without losing weight

constexpr double kEdgeEnds = 0.08;   // of the steepest slope
constexpr double kOtherLevel = 0.35; // of the contrast: levels so far off are of something else

// Share of the radius and pixels that the surroundings reach.
constexpr double kFlatShare = 0.6;
constexpr double kLeastFlat = 4;
constexpr double kMostFlat = 40;

using Vector5 = Eigen::Matrix<double, 5, 1>;
using Matrix5 = Eigen::Matrix<double, 5, 5>;

struct Ray {
    double u = 0, v = 0; // direction on the unit circle that the outline's matrix maps
    double x = 0, y = 0; // on the outline
    double normal_x = 0, normal_y = 0;
    bool has_edge = false;
    double offset = 0;   // of the edge along the normal
    double strength = 0; // difference of levels around it
};

struct Rays {
    std::array<Ray, kMostRays> all;
    std::size_t count = kMostRays;
    Ray* begin() noexcept { return all.data(); }
    Ray* end() noexcept { return all.data() + count; }
    const Ray* begin() const noexcept { return all.data(); }
    const Ray* end() const noexcept { return all.data() + count; }
};

struct Search {
    double inward = 0; // pixels
    double outward = 0;
    double step = kStep;
    std::size_t count = 0; // places
};

void place_rays(const Outline& outline, Rays& rays) noexcept
{
    // The unit circle in 64 or 32 equal steps, by the angle's sum.
    const bool has_few = outline.mean_radius() <= kFewRays;
    const double turn_cos = has_few ? 0.98078528040323044913 : 0.99518472667219688624; // of pi / 16 and pi / 32
    const double turn_sin = has_few ? 0.19509032201612826785 : 0.098017140329560601994;
    rays.count = has_few ? kMostRays / 2 : kMostRays;
    double u = 1;
    double v = 0;
    const double a = outline.mean + outline.skew_x;
    const double b = outline.skew_y;
    const double c = outline.mean - outline.skew_x;
    for (Ray& ray : rays) {
        ray.u = u;
        ray.v = v;
        ray.x = outline.x + a * u + b * v;
        ray.y = outline.y + b * u + c * v;
        const double nx = c * u - b * v;
        const double ny = a * v - b * u;
        const double length = std::sqrt(nx * nx + ny * ny);
        ray.normal_x = nx / length;
        ray.normal_y = ny / length;
        const double next = v * turn_cos + u * turn_sin;
        u = u * turn_cos - v * turn_sin;
        v = next;
    }
}

Search make_search(const Outline& outline, double reach) noexcept
{
    Search search;
    search.inward = std::min(reach, 0.85 * outline.semi_minor());
    search.outward = reach;
    search.step = std::max(kStep, (search.inward + search.outward) / static_cast<double>(kMostSteps - 1));
    search.count = to_count(truncate_to_int((search.inward + search.outward) / search.step)) + 1;
    return search;
}

// Levels along a ray; a place outside the picture has no level.
struct Profile {
    std::array<double, kMostSteps> level;
    std::array<bool, kMostSteps> is_known;
};

void read_profile(const Patch& patch, const Ray& ray, const Search& search, Profile& profile) noexcept
{
    const double begin = -search.inward;
    patch.read_line(ray.x + begin * ray.normal_x, ray.y + begin * ray.normal_y, search.step * ray.normal_x,
                    search.step * ray.normal_y, search.count, profile.level.data(), profile.is_known.data());
}

// The steepest place where levels change by the sign, those nearby first.
void find_steepest(const Profile& profile, const Search& search, double sign, Ray& ray) noexcept
{
    ray.has_edge = false;
    double best = 0;
    const std::size_t span = search.step < 1 ? 2 : 1; // steps to either side: about a pixel
    const auto slope = [&](std::size_t i) { return sign * (profile.level[i + span] - profile.level[i - span]); };
    for (std::size_t i = span; i + span < search.count; ++i) {
        if (!profile.is_known[i - span] || !profile.is_known[i + span])
            continue;
        const double t = static_cast<double>(i) * search.step - search.inward;
        const double rise = slope(i);
        const double score = rise * (1 - (1 - kProximity) * std::fabs(t) / search.outward);
        if (!(score > best))
            continue;
        best = score;
        ray.has_edge = true;
        ray.offset = t;
        ray.strength = rise;
        if (i > span && i + span + 1 < search.count && profile.is_known[i - span - 1] &&
            profile.is_known[i + span + 1]) {
            const double before = slope(i - 1);
            const double after = slope(i + 1);
            const double bend = before - 2 * rise + after;
            if (bend < 0)
                ray.offset += search.step * std::clamp((before - after) / (2 * bend), -0.5, 0.5);
        }
    }
}

// What a ray's edge says about the outline's change.
struct Equation {
    double row[5];
    double offset;
};

Equation equation_of(const Ray& ray) noexcept
{
    return {{ray.normal_x, ray.normal_y, ray.normal_x * ray.u + ray.normal_y * ray.v,
             ray.normal_x * ray.u - ray.normal_y * ray.v, ray.normal_x * ray.v + ray.normal_y * ray.u},
            ray.offset};
}

double expected_offset(const Equation& equation, const Vector5& change) noexcept
{
    return Eigen::Map<const Vector5>(equation.row).dot(change);
}

// Their sums; of the matrix the lower triangle, which is what the solution reads.
void add_equation(const Equation& equation, double weight, Matrix5& normal, Vector5& rhs) noexcept
{
    for (int i = 0; i < 5; ++i) {
        const double weighted = weight * equation.row[i];
        for (int j = 0; j <= i; ++j)
            normal(i, j) += weighted * equation.row[j];
        rhs[i] += weight * equation.offset * equation.row[i];
    }
}

double median_of(std::array<double, kMostRays> values, std::size_t count) noexcept
{
    return panoval::median_of(std::span(values.data(), count));
}

// Moves the outline onto the rays' edges. Returns the share of all rays that are near the result.
double fit_rays(const Rays& rays, Outline& outline, double reach) noexcept
{
    double strongest = 0;
    for (const Ray& ray : rays)
        strongest = std::max(strongest, ray.has_edge ? ray.strength : 0);
    std::array<Equation, kMostRays> equations;
    std::size_t count = 0;
    for (const Ray& ray : rays)
        if (ray.has_edge && !(ray.strength < 0.1 * strongest))
            equations[count++] = equation_of(ray);
    if (count < rays.count / 4)
        return 0;
    Vector5 change = Vector5::Zero();
    double tolerance = std::max(reach, 2 * kLeastTolerance);
    double share = 0;
    for (int round = 0; round < kFitRounds; ++round) {
        Matrix5 normal = Matrix5::Zero();
        Vector5 rhs = Vector5::Zero();
        std::array<double, kMostRays> deviations;
        for (std::size_t i = 0; i < count; ++i) {
            const double residual = equations[i].offset - expected_offset(equations[i], change);
            deviations[i] = std::fabs(residual);
            const double relative = residual / tolerance;
            if (std::fabs(relative) >= 1)
                continue;
            const double bell = 1 - relative * relative;
            add_equation(equations[i], bell * bell, normal, rhs);
        }
        // A trace of damping keeps the elements in place that the rays leave open.
        for (int i = 0; i < 5; ++i)
            normal(i, i) += 1e-3;
        change = normal.ldlt().solve(rhs);
        const double spread = 1.5 * median_of(deviations, count);
        tolerance = std::max({0.7 * tolerance, 3 * spread, 3 * kLeastTolerance});
        share = static_cast<double>(std::count_if(deviations.begin(),
                                                  deviations.begin() + static_cast<std::ptrdiff_t>(count),
                                                  [&](double d) { return d < std::max(3 * spread, 1.0); })) /
                static_cast<double>(rays.count);
    }
    outline.x += change[0];
    outline.y += change[1];
    outline.mean += change[2];
    outline.skew_x += change[3];
    outline.skew_y += change[4];
    return share;
}

// Which way levels change from the inside out: the sign whose edges are the stronger ones. Leaves the rays at its
// edges.
double find_sign(const Patch& patch, const Search& search, Rays& rays) noexcept
{
    std::array<double, kMostRays> rises{};
    std::array<double, kMostRays> falls{};
    std::array<Ray, kMostRays> falling;
    Profile profile;
    const auto weight_of = [&](const Ray& ray) {
        return ray.has_edge ? ray.strength * (1 - 0.5 * std::fabs(ray.offset) / search.outward) : 0;
    };
    for (std::size_t i = 0; i < rays.count; ++i) {
        read_profile(patch, rays.all[i], search, profile);
        falling[i] = rays.all[i];
        find_steepest(profile, search, 1, rays.all[i]);
        find_steepest(profile, search, -1, falling[i]);
        rises[i] = weight_of(rays.all[i]);
        falls[i] = weight_of(falling[i]);
    }
    if (median_of(rises, rays.count) >= median_of(falls, rays.count))
        return 1;
    std::copy_n(falling.begin(), rays.count, rays.all.begin());
    return -1;
}

// The mean profile across the outline gives levels and blur.
bool read_levels(const Patch& patch, const Rays& rays, double sign, double reach, EdgeGuess& guess) noexcept
{
    const Search search = make_search(guess.outline, reach);
    std::array<double, kMostSteps> sums{};
    std::array<double, kMostSteps> counts{};
    Profile profile;
    for (const Ray& ray : rays) {
        if (!ray.has_edge)
            continue;
        read_profile(patch, ray, search, profile);
        for (std::size_t i = 0; i < search.count; ++i) {
            if (!profile.is_known[i])
                continue;
            sums[i] += profile.level[i];
            counts[i] += 1;
        }
    }
    // As far as places are known without a gap: samples that are not numbers may lie all around.
    const std::size_t middle = to_count(truncate_to_int(search.inward / search.step + 0.5));
    std::size_t first = middle;
    while (first > 0 && counts[first - 1] > 0)
        --first;
    std::size_t end = middle;
    while (end < search.count && counts[end] > 0)
        ++end;
    if (middle < first + 2 || middle + 4 > end)
        return false;
    const std::size_t last = end - 1;
    for (std::size_t i = first; i < end; ++i)
        sums[i] /= counts[i];
    const auto slope = [&](std::size_t i) { return sign * (sums[i + 1] - sums[i - 1]) / (2 * search.step); };
    const double steepest = std::max({slope(middle - 1), slope(middle), slope(middle + 1)});
    // Levels are where the edge ends; another one may begin there.
    std::size_t inner = middle - 1;
    while (inner > first + 1 && slope(inner) > kEdgeEnds * steepest)
        --inner;
    std::size_t outer = middle + 1;
    while (outer + 1 < last && slope(outer) > kEdgeEnds * steepest)
        ++outer;
    guess.inside = (sums[inner] + sums[inner - 1]) / 2;
    guess.outside = (sums[outer] + sums[outer + 1]) / 2;
    const double contrast = std::fabs(guess.outside - guess.inside);
    if (!(steepest * contrast > 0))
        return false;
    // A blurred step is steepest in its middle. The box pixel, the interpolation and the difference widen it, too.
    const double spread = contrast / (steepest * 2.5066282746310002);
    const double variance = spread * spread - 1.0 / 12 - 1.0 / 6 - search.step * search.step / 3;
    guess.blur = std::sqrt(std::max(variance, 0.09));
    return true;
}

// Levels beside the edge, pixel by pixel; most = flat_reach and twice where the edge ends.
struct Flank {
    std::array<double, kMostSteps> level;
    std::array<bool, kMostSteps> is_known;
};

// Along the rays, from where the edge has ended, the places where levels leave those of the target and its
// surroundings.
void measure_free_reach(const Patch& patch, const Rays& rays, EdgeGuess& guess) noexcept
{
    const double begin = 2.5 * std::sqrt(guess.blur * guess.blur + 1.0 / 12) + 0.5;
    const double most = flat_reach(guess.outline) + 2 * begin;
    const double limits[2] = {std::min(most, 0.9 * guess.outline.semi_minor()), most};
    const double limit = kOtherLevel * std::fabs(guess.outside - guess.inside);
    double* const levels[2] = {&guess.inside, &guess.outside};
    double* const reaches[2] = {&guess.free_inside, &guess.free_outside};
    std::array<Flank, kMostRays> flanks;
    for (std::size_t side = 0; side < 2; ++side) {
        *reaches[side] = HUGE_VAL;
        const double direction = side == 0 ? -1 : 1;
        const std::size_t count =
            begin < limits[side] ? std::min(kMostSteps, to_count(truncate_to_int(limits[side] - begin)) + 1) : 0;
        if (count == 0)
            continue;
        std::array<double, kMostRays> values{};
        std::size_t known = 0;
        for (std::size_t i = 0; i < rays.count; ++i) {
            const Ray& ray = rays.all[i];
            const double from = direction * begin;
            Flank& flank = flanks[i];
            patch.read_line(ray.x + from * ray.normal_x, ray.y + from * ray.normal_y, direction * ray.normal_x,
                            direction * ray.normal_y, count, flank.level.data(), flank.is_known.data());
            if (flank.is_known[0])
                values[known++] = flank.level[0];
        }
        // The level where the edge has ended, of all rays: one that noise moved would end every ray at once.
        if (known > rays.count / 4)
            *levels[side] = median_of(values, known);
        for (std::size_t i = 0; i < rays.count; ++i) {
            std::size_t step = 0;
            while (step < count &&
                   !(flanks[i].is_known[step] && std::fabs(flanks[i].level[step] - *levels[side]) > limit))
                ++step;
            values[i] = step < count ? begin + static_cast<double>(step) : HUGE_VAL;
        }
        const auto rank = static_cast<std::ptrdiff_t>(rays.count / 4); // a neighbour on one side does not count
        std::nth_element(values.begin(), values.begin() + rank,
                         values.begin() + static_cast<std::ptrdiff_t>(rays.count));
        *reaches[side] = values[static_cast<std::size_t>(rank)];
    }
}

bool is_sound(const Outline& outline, const Outline& start, double reach) noexcept
{
    const double moved_x = outline.x - start.x;
    const double moved_y = outline.y - start.y;
    return outline.semi_minor() > 0.3 && outline.semi_minor() > 0.1 * outline.semi_major() &&
           moved_x * moved_x + moved_y * moved_y <= 4 * reach * reach && outline.mean <= start.mean + 2 * reach;
}

} // namespace

double search_reach(const Outline& start) noexcept
{
    return std::max(2.5, 0.25 * start.mean_radius() + 1);
}

double flat_reach(const Outline& outline) noexcept
{
    return std::clamp(kFlatShare * outline.mean_radius(), kLeastFlat, kMostFlat);
}

bool find_edge(const Patch& patch, const Outline& start, double reach, EdgeGuess& guess) noexcept
{
    Rays rays;
    Outline outline = start;
    double sign = 0;
    Profile profile;
    for (int round = 0; round < kSearchRounds; ++round) {
        const double now = round == 0 ? reach : std::max(2.5, reach / 2);
        const Search search = make_search(outline, now);
        const Outline before = outline;
        place_rays(outline, rays);
        if (round == 0) {
            sign = find_sign(patch, search, rays);
        } else {
            for (Ray& ray : rays) {
                read_profile(patch, ray, search, profile);
                find_steepest(profile, search, sign, ray);
            }
        }
        guess.share = fit_rays(rays, outline, now);
        if (guess.share < kLeastShare || !is_sound(outline, start, reach))
            return false;
        const double moved =
            std::fabs(outline.x - before.x) + std::fabs(outline.y - before.y) + std::fabs(outline.mean - before.mean);
        if (round > 0 && moved < kArrived)
            break;
    }
    place_rays(outline, rays);
    guess.outline = outline;
    if (!read_levels(patch, rays, sign, std::max(3.0, std::min(reach, 8.0)), guess))
        return false;
    measure_free_reach(patch, rays, guess);
    return true;
}

void look_around(const Patch& patch, EdgeGuess& guess) noexcept
{
    Rays rays;
    place_rays(guess.outline, rays);
    measure_free_reach(patch, rays, guess);
}

} // namespace panoval::measure
