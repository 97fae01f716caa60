// SPDX-License-Identifier: MIT
#include "measure/grid_growth.h"

#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace
{

using panoval::measure::find_neighbours;
using panoval::measure::GridPoint;
using panoval::measure::kNeighbours;
using panoval::test::Random;

// By a look at all of them.
std::vector<std::int32_t> nearest_to(const std::vector<GridPoint>& points, std::size_t own)
{
    std::vector<std::pair<double, std::int32_t>> others;
    for (std::size_t k = 0; k < points.size(); ++k) {
        const double dx = points[own].x - points[k].x;
        const double dy = points[own].y - points[k].y;
        if (k != own)
            others.emplace_back(dx * dx + dy * dy, static_cast<std::int32_t>(k));
    }
    std::sort(others.begin(), others.end());
    others.resize(std::min(others.size(), kNeighbours));
    std::vector<std::int32_t> nearest;
    for (const auto& other : others)
        nearest.push_back(other.second);
    return nearest;
}

void expect_nearest(const std::vector<GridPoint>& points, const char* what)
{
    const auto neighbours = find_neighbours(points);
    ASSERT_EQ(neighbours.size(), points.size()) << what;
    for (std::size_t n = 0; n < points.size(); ++n)
        EXPECT_EQ(neighbours[n], nearest_to(points, n)) << what << ", point " << n;
}

std::vector<GridPoint> scattered(std::size_t count, double width, double height, std::uint64_t seed)
{
    Random random(seed);
    std::vector<GridPoint> points(count);
    for (GridPoint& point : points) {
        point.x = random.real(0, width);
        point.y = random.real(0, height);
    }
    return points;
}

TEST(FindNeighbours, HasTheNearestOnes)
{
    expect_nearest(scattered(500, 900, 600, 1), "scattered");
    expect_nearest(scattered(60, 1000, 0, 2), "in a line");
    expect_nearest(scattered(40, 0, 0, 3), "at one place");
    for (std::size_t count = 0; count <= kNeighbours + 2; ++count)
        expect_nearest(scattered(count, 200, 200, count), "few");
}

TEST(FindNeighbours, HasTheFirstOfThoseAsFarAway)
{
    std::vector<GridPoint> points;
    for (int i = 0; i < 12; ++i)
        for (int j = 0; j < 9; ++j)
            points.push_back({20.0 * i, 20.0 * j});
    expect_nearest(points, "a grid");
}

TEST(FindNeighbours, ReachesFromOneClusterToAnother)
{
    std::vector<GridPoint> points = scattered(5, 3, 3, 4);
    for (const GridPoint& point : scattered(7, 3, 3, 5))
        points.push_back({point.x + 5000, point.y + 800});
    points.push_back({1e300, 40});
    expect_nearest(points, "clusters");
}

} // namespace
