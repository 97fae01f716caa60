// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict_tone.h"

#include "mosaic/verdict/displacement.h"
#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

// Two pictures of one light that changes slowly across an overlap, with noise of twelve levels.
OverlapCells noisy_slope(std::uint64_t seed)
{
    OverlapCells cells;
    cells.width = 60;
    cells.height = 200;
    cells.channels = 1;
    Random random = seeded(seed);
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        const double x = static_cast<double>(i % cells.width) / 60;
        const double y = static_cast<double>(i / cells.width) / 200;
        const double light = 100 + 50 * y + 30 * x * y;
        cells.first.push_back(static_cast<float>(light + 12 * scene_detail::normal(random)));
        cells.second.push_back(static_cast<float>(light + 12 * scene_detail::normal(random)));
    }
    cells.known.assign(cells.cells(), 1);
    cells.clipped.assign(cells.cells(), 0);
    return cells;
}

// There terms of the level and of the place can cancel each other out.
TEST(ToneModel, FindsNoCurveInNoiseWhereTheLevelFollowsThePlace)
{
    for (std::uint64_t seed = 1; seed <= 40; ++seed)
        EXPECT_LT(ToneModel(noisy_slope(seed)).curve(), 1) << "seed " << seed;
}

TEST(ToneModel, FindsACurveBeyondNoise)
{
    OverlapCells cells = noisy_slope(1);
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        cells.first[i] = i % 7 < 3 ? 60.F : 160.F;
        cells.second[i] = cells.first[i] + (i % 7 < 3 ? 6.F : -6.F);
    }
    EXPECT_NEAR(ToneModel(cells).curve(), 6, 3);
}

// A fit to all of it would lean so far that it never came back.
TEST(ToneModel, LeavesOutAThingOnASixthOfTheOverlap)
{
    Random random = seeded(7);
    OverlapCells cells = noisy_slope(1);
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        const std::size_t x = i % cells.width;
        const std::size_t y = i / cells.width;
        cells.first[i] = static_cast<float>(120 + 0.2 * static_cast<double>(y) + scene_detail::normal(random));
        cells.second[i] = static_cast<float>(static_cast<double>(cells.first[i]) + scene_detail::normal(random));
        if (x >= 18 && x < 42 && y >= 110)
            cells.second[i] += 100.F;
    }
    const ToneModel tone(cells);
    EXPECT_LT(tone.curve(), 1);
    EXPECT_LT(tone.unevenness(), 1);
    EXPECT_NEAR(tone.spread(0), 1, 0.5);
}

TEST(ToneModel, OfNothingKnownIsNone)
{
    OverlapCells cells = noisy_slope(1);
    cells.known.assign(cells.cells(), 0);
    const ToneModel tone(cells);
    EXPECT_EQ(tone.spread(0), 0);
    EXPECT_EQ(tone.curve(), 0);
    EXPECT_EQ(tone.unevenness(), 0);
    EXPECT_EQ(tone.offset(), 0);
}

// Where masks leave single cells, none has a neighbour that tells its level without its own noise.
TEST(ToneModel, OfSingleCellsTakesTheirOwnLevels)
{
    OverlapCells cells = noisy_slope(1);
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        const std::size_t x = i % cells.width;
        const std::size_t y = i / cells.width;
        cells.known[i] = x % 2 == 0 && y % 2 == 0 ? 1 : 0;
        cells.first[i] = (x / 2 + y / 2) % 3 == 0 ? 60.F : 160.F;
        cells.second[i] = cells.first[i] + (cells.first[i] < 100 ? 6.F : -6.F);
    }
    EXPECT_NEAR(ToneModel(cells).curve(), 6, 1);
}

// A few stars are less than the spread of brightness takes in.
TEST(FindEmpty, KnowsAPictureOfOneValueBesideAFewStars)
{
    OverlapCells cells = noisy_slope(1);
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        cells.first[i] = 8;
        cells.second[i] = i % 97 == 0 ? 120.F : 8.F;
    }
    EXPECT_EQ(find_empty(cells).first, Emptiness::Possible);
    EXPECT_EQ(find_empty(cells).second, Emptiness::No);
    cells.second = cells.first;
    EXPECT_EQ(find_empty(cells).first, Emptiness::No);
}

} // namespace

} // namespace panoval::mosaic::test
