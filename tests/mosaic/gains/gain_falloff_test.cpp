// SPDX-License-Identifier: MIT
// The falloff from blocks that are made of one.
#include "mosaic/gains/gain_falloff.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

// An overlap of 16 x 16 blocks of an even scene, from the middle to the edge in the first picture and the other way
// round in the second one.
struct MadePair {
    BlockLevels levels;
    BlockRadii radii;

    MadePair(const Falloff& falloff, double light)
    {
        constexpr int kSide = 16;
        levels.columns = levels.rows = kSide;
        for (int j = 0; j < kSide; ++j)
            for (int i = 0; i < kSide; ++i) {
                const double across = (i + 0.5) / kSide;
                const double down = 2 * (j + 0.5) / kSide - 1;
                const double q_first = 0.7 * across * across + 0.3 * down * down;
                const double q_second = 0.7 * (1 - across) * (1 - across) + 0.3 * down * down;
                BlockLevel block;
                block.first = light * falloff.at(q_first);
                block.second = light * falloff.at(q_second);
                block.weight = 256;
                block.x = 2 * across - 1;
                block.y = down;
                levels.blocks.push_back(block);
                radii.first.push_back(q_first);
                radii.second.push_back(q_second);
            }
    }
};

Falloff found_of(const Falloff& falloff, double light = 100)
{
    const MadePair pair(falloff, light);
    return estimate_falloff({{&pair.levels, &pair.radii}}, 1);
}

// One overlap cannot tell it well from light that changes across it.
TEST(EstimateFalloff, OfOneOverlapIsThatOfItsBlocksToATenth)
{
    const Falloff falloff{{-0.4, 0, 0}};
    const Falloff found = found_of(falloff);
    for (const double q : {0.25, 0.5, 0.75, 1.0})
        EXPECT_NEAR(found.at(q), falloff.at(q), 0.1) << q;
    EXPECT_NEAR(found_of({}).at(1), 1, 1e-6);
}

TEST(EstimateFalloff, IsFlatBeyondWhatLensesDo)
{
    EXPECT_TRUE(found_of({{-0.92, 0, 0}}).is_flat()) << "corners of 0.08";
    EXPECT_TRUE(found_of({{1.2, 0, 0}}).is_flat()) << "corners of 2.2";
}

TEST(EstimateFalloff, OfBlackPicturesIsFlat)
{
    EXPECT_TRUE(found_of({{-0.4, 0, 0}}, 0).is_flat());
}

TEST(Falloff, IsFlatWithoutAnyCoefficient)
{
    EXPECT_TRUE(Falloff().is_flat());
    EXPECT_FALSE((Falloff{{0.1, 0, 0}}.is_flat()));
    EXPECT_FALSE((Falloff{{0, 0.1, 0}}.is_flat()));
    EXPECT_FALSE((Falloff{{0, 0, 0.1}}.is_flat()));
}

} // namespace

} // namespace panoval::mosaic::test
