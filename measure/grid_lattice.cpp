// SPDX-License-Identifier: MIT
// Lattices and their windows.
#include "measure/grid_lattice.h"

#include "core/median.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <map>
#include <utility>

namespace panoval::measure
{

namespace
{

constexpr std::int32_t kCoreReach = 2;    // steps from the origin that growth alone is trusted
constexpr std::int32_t kMostReach = 4096; // more places than any board has in a row
constexpr double kLeastTolerance = 0.05;  // a target that is so near is off its place, not something else
constexpr double kManyMedians = 6;
constexpr int kFitRounds = 2; // to tell places apart is enough

std::int32_t reach_of(const LatticePlace& p) noexcept
{
    return std::max(std::abs(p.i), std::abs(p.j));
}

std::vector<PlacedPoint> placed_within(const std::vector<GridPoint>& points, const std::vector<LatticePlace>& places,
                                       std::int32_t reach)
{
    std::vector<PlacedPoint> placed;
    for (const LatticePlace& p : places)
        if (reach_of(p) <= reach)
            placed.push_back(
                {static_cast<double>(p.i), static_cast<double>(p.j), points[static_cast<std::size_t>(p.point)]});
    return placed;
}

using NearestPoints = std::map<std::pair<std::int32_t, std::int32_t>, std::pair<double, std::int32_t>>;

double tolerance_of(const NearestPoints& nearest)
{
    std::vector<double> distances;
    for (const auto& [place, point] : nearest)
        distances.push_back(std::sqrt(point.first));
    return place_tolerance(std::move(distances));
}

// Sorts points by what the homography makes of them: the nearest of those at a place, and those between places within
// the reach. Points beyond it, or behind the horizon, are neither.
Lattice place_points(const std::vector<GridPoint>& points, const Homography& to_steps, std::int32_t reach)
{
    Lattice lattice;
    NearestPoints nearest;
    for (std::size_t n = 0; n < points.size(); ++n) {
        const double depth = to_steps[6] * points[n].x + to_steps[7] * points[n].y + to_steps[8];
        const GridPoint steps = map_place(to_steps, points[n].x, points[n].y);
        if (!(depth > 0) || !(std::max(std::fabs(steps.x), std::fabs(steps.y)) < reach + 0.5))
            continue;
        const double i = std::floor(steps.x + 0.5);
        const double j = std::floor(steps.y + 0.5);
        const double square = (steps.x - i) * (steps.x - i) + (steps.y - j) * (steps.y - j);
        if (square > kPlaceTolerance * kPlaceTolerance) {
            lattice.between.push_back(steps);
            continue;
        }
        const std::pair<double, std::int32_t> here = {square, static_cast<std::int32_t>(n)};
        const auto at = nearest.emplace(std::pair{static_cast<std::int32_t>(i), static_cast<std::int32_t>(j)}, here);
        at.first->second = std::min(at.first->second, here);
    }
    const double tolerance = tolerance_of(nearest);
    for (const auto& [place, point] : nearest)
        if (point.first <= tolerance * tolerance)
            lattice.places.push_back({point.second, place.first, place.second});
    return lattice;
}

// Exchanges a window's side for the next line inwards that has a point; the window may become empty.
Window without_side(const Lattice& lattice, const Window& window, int side)
{
    Window inner = window;
    inner.i += side == 0 ? 1 : 0;
    inner.i_end -= side == 1 ? 1 : 0;
    inner.j += side == 2 ? 1 : 0;
    inner.j_end -= side == 3 ? 1 : 0;
    std::vector<LatticePlace> left;
    std::copy_if(lattice.places.begin(), lattice.places.end(), std::back_inserter(left),
                 [&inner](const LatticePlace& p) { return inner.holds(p); });
    return left.empty() ? Window{} : bounds_of(left);
}

} // namespace

double place_tolerance(std::vector<double> distances)
{
    if (distances.empty())
        return kPlaceTolerance;
    return std::clamp(kManyMedians * median_of(std::span(distances)), kLeastTolerance, kPlaceTolerance);
}

Lattice fit_lattice(const std::vector<GridPoint>& points, const std::vector<LatticePlace>& grown)
{
    Lattice lattice = {grown, {}};
    std::int32_t most = 0;
    for (const LatticePlace& p : grown)
        most = std::max(most, reach_of(p));
    for (std::int32_t reach = kCoreReach; reach < kMostReach; reach *= 2) {
        Homography from_steps;
        Homography to_steps;
        if (!fit_homography(placed_within(points, lattice.places, reach), from_steps, kFitRounds) ||
            !invert(from_steps, to_steps))
            return {};
        const std::size_t before = lattice.places.size();
        lattice = place_points(points, to_steps, 2 * reach);
        if (reach > most && lattice.places.size() <= before)
            break;
    }
    return lattice;
}

Window bounds_of(const std::vector<LatticePlace>& places) noexcept
{
    if (places.empty())
        return {};
    Window window = {places[0].i, places[0].i, places[0].j, places[0].j};
    for (const LatticePlace& p : places) {
        window.i = std::min(window.i, p.i);
        window.i_end = std::max(window.i_end, p.i + 1);
        window.j = std::min(window.j, p.j);
        window.j_end = std::max(window.j_end, p.j + 1);
    }
    return window;
}

std::int32_t count_in(const Lattice& lattice, const Window& window) noexcept
{
    return static_cast<std::int32_t>(std::count_if(lattice.places.begin(), lattice.places.end(),
                                                   [&window](const LatticePlace& p) { return window.holds(p); }));
}

std::int64_t score_of(const Lattice& lattice, const Window& window) noexcept
{
    const std::int64_t found = count_in(lattice, window);
    const std::int64_t beside = static_cast<std::int64_t>(lattice.places.size()) - found;
    const std::int64_t between =
        std::count_if(lattice.between.begin(), lattice.between.end(), [&window](const GridPoint& p) {
            return p.x > window.i && p.x < window.i_end - 1 && p.y > window.j && p.y < window.j_end - 1;
        });
    return 2 * found - window.size() - 2 * (beside + between);
}

Window trimmed_window(const Lattice& lattice)
{
    Window window = bounds_of(lattice.places);
    std::int64_t score = score_of(lattice, window);
    for (bool is_smaller = true; is_smaller;) {
        is_smaller = false;
        const Window whole = window;
        for (int side = 0; side < 4; ++side) {
            const Window inner = without_side(lattice, whole, side);
            const std::int64_t without = score_of(lattice, inner);
            if (without <= score)
                continue;
            score = without;
            window = inner;
            is_smaller = true;
        }
    }
    return window;
}

bool best_window(const Lattice& lattice, std::int32_t lines_i, std::int32_t lines_j, Window& window)
{
    const Window bounds = bounds_of(lattice.places);
    bool is_found = false;
    std::int64_t most = 0;
    for (std::int32_t j = bounds.j; j + lines_j <= bounds.j_end; ++j)
        for (std::int32_t i = bounds.i; i + lines_i <= bounds.i_end; ++i) {
            const Window here = {i, i + lines_i, j, j + lines_j};
            const std::int64_t score = score_of(lattice, here);
            if (is_found && score <= most)
                continue;
            is_found = true;
            most = score;
            window = here;
        }
    return is_found;
}

} // namespace panoval::measure
