// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_graph.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

using Whose = Suspicion::Whose;

// Edges of a grid, each pair of neighbours once, with the ratios of given brightnesses.
std::vector<GainEdge> grid_edges(std::size_t columns, std::size_t rows, const std::vector<double>& brightness)
{
    std::vector<GainEdge> edges;
    const auto add = [&](std::size_t a, std::size_t b) {
        edges.push_back({a, b, brightness[a] - brightness[b], 0.001, true});
    };
    for (std::size_t j = 0; j < rows; ++j)
        for (std::size_t i = 0; i < columns; ++i) {
            if (i + 1 < columns)
                add(j * columns + i, j * columns + i + 1);
            if (j + 1 < rows)
                add(j * columns + i, (j + 1) * columns + i);
        }
    return edges;
}

TEST(GainGraph, GroupsAreCountedInTheOrderOfTheirFirstPictures)
{
    const std::vector<GainEdge> edges{{3, 1, 0, 0, true}, {4, 0, 0, 0, true}, {2, 0, 0, 0, false}};
    EXPECT_EQ(find_groups(5, edges), (std::vector<std::size_t>{0, 1, 2, 1, 0}));
}

TEST(GainGraph, ConsistentRatiosAreMetExactly)
{
    const std::vector<double> truth{0.3, -0.2, 0.1, 0.4, -0.5, 0};
    const auto solved = solve_brightness(6, grid_edges(3, 2, truth));
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_NEAR(solved[i] - solved[0], truth[i] - truth[0], 1e-12);
}

TEST(GainGraph, AWildEdgeMovesNobodyAndIsFound)
{
    const std::vector<double> truth(12, 0.0);
    auto edges = grid_edges(4, 3, truth);
    edges[7].log_ratio += 0.5;
    const auto solved = solve_brightness(12, edges);
    for (const double brightness : solved)
        EXPECT_NEAR(brightness, 0, 1e-4);
    const auto found = find_contradictions(edges, solved);
    for (std::size_t k = 0; k < edges.size(); ++k)
        EXPECT_EQ(found[k], k == 7) << k;
}

TEST(GainGraph, TheAnchorOrTheMeanOfEachGroupIsZero)
{
    const std::vector<std::size_t> groups{0, 0, 1, 1, 1};
    const std::vector<double> weights{1, 1, 0.5, 0.5, 0};
    std::vector<double> brightness{1, 3, 10, 14, 100};
    settle_groups(brightness, groups, weights, 5);
    EXPECT_EQ(brightness, (std::vector<double>{-1, 1, -2, 2, 88})) << "the last one does not count";
    settle_groups(brightness, groups, weights, 1);
    EXPECT_EQ(brightness, (std::vector<double>{-2, 0, -2, 2, 88}));
}

TEST(GainGraph, TheMeanOfAGroupIsWeighted)
{
    std::vector<double> brightness{0, 4};
    settle_groups(brightness, std::vector<std::size_t>{0, 0}, std::vector<double>{1, 0.25}, 2);
    EXPECT_DOUBLE_EQ(brightness[0], -0.8);
    EXPECT_DOUBLE_EQ(brightness[1], 3.2);
}

TEST(GainGraph, APictureInTheMiddleOfAChainIsToBlameNotItsNeighbours)
{
    const std::vector<Suspicion> edges{{0, 1, 100, Whose::Either}, {1, 2, 100, Whose::Either}};
    EXPECT_EQ(find_outliers(3, edges), (std::vector<std::size_t>{1}));
}

TEST(GainGraph, AnEndOfAChainIsToBlameWhereItsNeighbourFitsTheRest)
{
    const std::vector<Suspicion> edges{{0, 1, 100, Whose::Nobody}, {1, 2, 100, Whose::Either}};
    EXPECT_EQ(find_outliers(3, edges), (std::vector<std::size_t>{2}));
}

TEST(GainGraph, OfTwoPicturesNobodyKnowsUnlessOneIsBlank)
{
    const std::vector<Suspicion> unclear{{0, 1, 100, Whose::Either}};
    EXPECT_TRUE(find_outliers(2, unclear).empty());
    const std::vector<Suspicion> black{{0, 1, 100, Whose::Second}};
    EXPECT_EQ(find_outliers(2, black), (std::vector<std::size_t>{1}));
}

// Without it, nothing speaks against the others any more.
TEST(GainGraph, WhatSpeaksAgainstMostOfAPictureOutweighsMoreThanHalfOfAnother)
{
    const std::vector<Suspicion> edges{{0, 1, 100, Whose::Either},
                                       {1, 2, 50, Whose::Either},
                                       {1, 3, 10, Whose::Nobody},
                                       {0, 3, 60, Whose::Nobody},
                                       {2, 3, 100, Whose::Nobody}};
    EXPECT_EQ(find_outliers(4, edges), (std::vector<std::size_t>{1}));
}

TEST(GainGraph, ASmallBadOverlapDoesNotOutvoteALargeGoodOne)
{
    const std::vector<Suspicion> edges{
        {0, 1, 1000, Whose::Nobody}, {0, 2, 10, Whose::Either}, {1, 2, 5, Whose::Nobody}};
    EXPECT_EQ(find_outliers(3, edges), (std::vector<std::size_t>{2}));
}

} // namespace

} // namespace panoval::mosaic::test
