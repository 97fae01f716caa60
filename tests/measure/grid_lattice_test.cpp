// SPDX-License-Identifier: MIT
#include "measure/grid_lattice.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace
{

using panoval::measure::bounds_of;
using panoval::measure::fit_lattice;
using panoval::measure::GridPoint;
using panoval::measure::Lattice;
using panoval::measure::LatticePlace;
using panoval::measure::Window;

// Places of `columns` x `rows`, row after row, and the point of each.
struct Grown {
    std::vector<GridPoint> points;
    std::vector<LatticePlace> places;
};

template <class PointAt>
Grown grown(std::int32_t columns, std::int32_t rows, const PointAt& point_at)
{
    Grown all;
    for (std::int32_t j = 0; j < rows; ++j)
        for (std::int32_t i = 0; i < columns; ++i) {
            all.places.push_back({static_cast<std::int32_t>(all.points.size()), i, j});
            all.points.push_back(point_at(i, j));
        }
    return all;
}

TEST(FitLattice, PlacesEveryPoint)
{
    const Grown all = grown(9, 7, [](int i, int j) { return GridPoint{50 + 30.0 * i + 2.0 * j, 80 + 28.0 * j}; });
    const Lattice lattice = fit_lattice(all.points, all.places);
    EXPECT_EQ(lattice.places.size(), all.points.size());
    EXPECT_TRUE(lattice.between.empty());
}

// Each has its place, and a view that gives it is found, but none that leads back.
TEST(FitLattice, IsEmptyWhereABoardIsSeenFromItsEdge)
{
    const Grown all = grown(4, 4, [](int i, int j) { return GridPoint{30.0 * i + 137.0 * j, 0}; });
    EXPECT_TRUE(fit_lattice(all.points, all.places).places.empty());
}

TEST(FitLattice, EndsAfterMorePlacesThanAnyBoardHas)
{
    constexpr std::int32_t kLong = 4300;
    const Grown all = grown(kLong, 2, [](int i, int j) { return GridPoint{10.0 * i, 10.0 * j}; });
    const Lattice lattice = fit_lattice(all.points, all.places);
    std::int32_t last = 0;
    for (const LatticePlace& p : lattice.places)
        last = std::max(last, p.i);
    EXPECT_EQ(last, 4096);
    EXPECT_EQ(lattice.places.size(), 2u * 4097);
}

std::int32_t point_at(const Lattice& lattice, std::int32_t i, std::int32_t j)
{
    const auto found = std::find_if(lattice.places.begin(), lattice.places.end(),
                                    [i, j](const LatticePlace& p) { return p.i == i && p.j == j; });
    return found == lattice.places.end() ? -1 : found->point;
}

// Whichever of the two comes first.
TEST(FitLattice, HasTheNearestOfThePointsAtAPlace)
{
    constexpr double kStep = 20;
    Grown all = grown(5, 5, [](int i, int j) { return GridPoint{kStep * i, kStep * j}; });
    const auto added = static_cast<std::int32_t>(all.points.size());
    all.points.push_back({0.18 * kStep, 0});
    EXPECT_EQ(point_at(fit_lattice(all.points, all.places), 0, 0), 0);
    std::swap(all.points.front(), all.points.back());
    all.places.front().point = added;
    const Lattice lattice = fit_lattice(all.points, all.places);
    EXPECT_EQ(point_at(lattice, 0, 0), added);
    EXPECT_EQ(lattice.places.size(), all.places.size());
}

TEST(BoundsOf, HoldAllPlaces)
{
    const Window window = bounds_of({{0, 2, -3}, {1, 2, -3}, {2, -1, -5}});
    EXPECT_EQ(window.i, -1);
    EXPECT_EQ(window.i_end, 3);
    EXPECT_EQ(window.j, -5);
    EXPECT_EQ(window.j_end, -2);
    EXPECT_EQ(bounds_of({}).size(), 0);
}

} // namespace
