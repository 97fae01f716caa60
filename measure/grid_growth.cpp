// SPDX-License-Identifier: MIT
// Growth of a lattice.
#include "measure/grid_growth.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

namespace panoval::measure
{

namespace
{

// A point is at the next place when it is off by at most this share of the step.
constexpr double kTolerance = 0.3;

struct Node {
    LatticePlace place;
    GridPoint step[2]; // along the two directions, here
};

double square_between(const GridPoint& a, const GridPoint& b) noexcept
{
    return (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
}

// The neighbour of a point nearest to a place, if it is near enough.
std::int32_t point_at(const std::vector<GridPoint>& points, const std::vector<std::int32_t>& candidates,
                      const GridPoint& place, double tolerance_square) noexcept
{
    std::int32_t best = -1;
    double least = tolerance_square;
    for (const std::int32_t candidate : candidates) {
        const double square = square_between(points[static_cast<std::size_t>(candidate)], place);
        if (square <= least) {
            least = square;
            best = candidate;
        }
    }
    return best;
}

std::vector<std::int32_t> nearest_to(const std::vector<GridPoint>& points, const Vicinity& vicinity, std::size_t own,
                                     double spacing)
{
    const auto count = static_cast<std::ptrdiff_t>(std::min(kNeighbours, points.size() - 1));
    std::vector<std::pair<double, std::int32_t>> others; // by squared distance
    std::ptrdiff_t within = 0;
    for (double reach = 2 * spacing; within < count && others.size() + 1 < points.size(); reach *= 2) {
        others.clear();
        for (const std::size_t other : vicinity.near({points[own].x, points[own].y, reach}))
            if (other != own)
                others.emplace_back(square_between(points[own], points[other]), static_cast<std::int32_t>(other));
        within = std::count_if(others.begin(), others.end(),
                               [reach](const auto& other) { return other.first <= reach * reach; });
    }
    std::partial_sort(others.begin(), others.begin() + count, others.end());
    std::vector<std::int32_t> nearest;
    for (auto other = others.begin(); other != others.begin() + count; ++other)
        nearest.push_back(other->second);
    return nearest;
}

} // namespace

double spacing_of(const std::vector<GridPoint>& points) noexcept
{
    if (points.empty())
        return 1;
    const auto by_x = [](const GridPoint& a, const GridPoint& b) { return a.x < b.x; };
    const auto by_y = [](const GridPoint& a, const GridPoint& b) { return a.y < b.y; };
    const auto [left, right] = std::minmax_element(points.begin(), points.end(), by_x);
    const auto [top, bottom] = std::minmax_element(points.begin(), points.end(), by_y);
    const double area = (right->x - left->x + 1) * (bottom->y - top->y + 1); // of a line, too
    return std::sqrt(area / static_cast<double>(points.size()));
}

Vicinity vicinity_of(const std::vector<GridPoint>& points, double spacing)
{
    Vicinity vicinity;
    for (std::size_t n = 0; n < points.size(); ++n)
        vicinity.put(n, {points[n].x, points[n].y, spacing});
    return vicinity;
}

std::vector<std::vector<std::int32_t>> find_neighbours(const std::vector<GridPoint>& points)
{
    std::vector<std::vector<std::int32_t>> neighbours;
    neighbours.reserve(points.size());
    const double spacing = spacing_of(points);
    const Vicinity vicinity = vicinity_of(points, spacing);
    for (std::size_t n = 0; n < points.size(); ++n)
        neighbours.push_back(nearest_to(points, vicinity, n, spacing));
    return neighbours;
}

std::vector<LatticePlace> grow_lattice(const std::vector<GridPoint>& points,
                                       const std::vector<std::vector<std::int32_t>>& neighbours, std::int32_t seed,
                                       std::int32_t first, std::int32_t second)
{
    const auto at = [&points](std::int32_t index) { return points[static_cast<std::size_t>(index)]; };
    const auto difference = [](const GridPoint& a, const GridPoint& b) { return GridPoint{a.x - b.x, a.y - b.y}; };
    std::vector<Node> nodes = {{{seed, 0, 0}, {difference(at(first), at(seed)), difference(at(second), at(seed))}}};
    std::map<std::pair<std::int32_t, std::int32_t>, std::int32_t> taken = {{{0, 0}, seed}};
    std::vector<bool> is_used(points.size(), false);
    is_used[static_cast<std::size_t>(seed)] = true;
    for (std::size_t next = 0; next < nodes.size(); ++next) {
        const Node node = nodes[next];
        const GridPoint here = at(node.place.point);
        for (int direction = 0; direction < 4; ++direction) {
            const std::size_t axis = direction < 2 ? 0 : 1;
            const int sign = direction % 2 == 0 ? 1 : -1;
            const LatticePlace place = {0, node.place.i + (axis == 0 ? sign : 0),
                                        node.place.j + (axis == 1 ? sign : 0)};
            if (taken.count({place.i, place.j}) > 0)
                continue;
            const GridPoint& step = node.step[axis];
            const GridPoint target = {here.x + sign * step.x, here.y + sign * step.y};
            const double reach = kTolerance * kTolerance * (step.x * step.x + step.y * step.y);
            const std::int32_t found =
                point_at(points, neighbours[static_cast<std::size_t>(node.place.point)], target, reach);
            if (found < 0 || is_used[static_cast<std::size_t>(found)])
                continue;
            Node grown = node;
            grown.place = {found, place.i, place.j};
            grown.step[axis] = {sign * (at(found).x - here.x), sign * (at(found).y - here.y)};
            nodes.push_back(grown);
            taken[{place.i, place.j}] = found;
            is_used[static_cast<std::size_t>(found)] = true;
        }
    }
    std::vector<LatticePlace> places;
    places.reserve(nodes.size());
    for (const Node& node : nodes)
        places.push_back(node.place);
    return places;
}

} // namespace panoval::measure
