// SPDX-License-Identifier: MIT
#include "measure/neighbours.h"

#include "measure/patch.h"
#include "panoval_measure.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

using panoval::measure::MeasuredTarget;
using panoval::measure::Neighbour;
using panoval::measure::Outline;
using panoval::measure::OutlineModel;
using panoval::measure::Patch;
using panoval::measure::take_away;
using panoval::measure::vicinity_of;

MeasuredTarget measured_at(double x, double mean, double skew)
{
    MeasuredTarget target;
    target.measured.model.outline = {x, 20, mean, skew, 0};
    target.measured.model.blur = 0.7;
    target.measured.model.inside.level = 50;
    target.measured.model.outside.level = 200;
    target.is_sound = true;
    return target;
}

std::vector<Neighbour> neighbours_beside(const Outline& outline, const std::vector<MeasuredTarget>& targets)
{
    return panoval::measure::neighbours_beside(outline, targets, vicinity_of(targets));
}

TEST(NeighboursBeside, AreTheSoundOnesWithinReach)
{
    std::vector<MeasuredTarget> targets = {measured_at(20, 5, 0), measured_at(90, 5, 0), measured_at(32, 6, 0)};
    EXPECT_EQ(neighbours_beside({20, 20, 8, 0, 0}, {targets[1]}).size(), 0u) << "out of reach";
    const auto beside = neighbours_beside({45, 20, 5, 0, 0}, targets);
    ASSERT_EQ(beside.size(), 1u);
    EXPECT_EQ(beside[0].measured.model.outline.x, 32);
    EXPECT_FALSE(beside[0].is_around);
    targets[2].is_sound = false;
    EXPECT_EQ(neighbours_beside({45, 20, 5, 0, 0}, targets).size(), 0u);
    const auto around = neighbours_beside({20, 20, 3, 0, 0}, {targets[0]});
    ASSERT_EQ(around.size(), 1u);
    EXPECT_TRUE(around[0].is_around);
}

// A picture of 40 x 40 samples, all 50.
struct Flat {
    std::vector<float> samples = std::vector<float>(40 * 40, 50.0f);
    PanovalMeasureImage image() const { return {samples.data(), 40, 40, 160, PANOVAL_MEASURE_F32, 0}; }
};

TEST(TakeAway, LeavesTheLevelOutsideOrInside)
{
    const Flat flat;
    Patch patch;
    OutlineModel outlines;
    const Neighbour beside = {measured_at(20, 6, 0).measured, false};
    ASSERT_TRUE(patch.copy(flat.image(), {0, 0, 40, 40}));
    ASSERT_TRUE(take_away(beside, outlines, patch));
    EXPECT_NEAR(patch.sample(20, 20), 200, 0.1);
    EXPECT_NEAR(patch.sample(2, 2), 50, 0.1) << "as it was";
    const Neighbour around = {beside.measured, true};
    ASSERT_TRUE(patch.copy(flat.image(), {0, 0, 40, 40}));
    ASSERT_TRUE(take_away(around, outlines, patch));
    EXPECT_NEAR(patch.sample(20, 20), 50, 0.1) << "as it was";
    EXPECT_NEAR(patch.sample(2, 2), -100, 0.1) << "less the step";
}

TEST(TakeAway, LeavesThePatchWhereTheNeighbourIsALine)
{
    const Flat flat;
    Patch patch;
    OutlineModel outlines;
    ASSERT_TRUE(patch.copy(flat.image(), {0, 0, 40, 40}));
    EXPECT_TRUE(take_away({measured_at(20, 5, 5).measured, false}, outlines, patch));
    EXPECT_EQ(patch.sample(20, 20), 50);
}

TEST(TakeAway, SaysThatMemoryIsShort)
{
    const Flat flat;
    Patch patch;
    ASSERT_TRUE(patch.copy(flat.image(), {0, 0, 40, 40}));
    panoval::test::for_each_failing_allocation([&](panoval::test::FailingHeap& heap) {
        OutlineModel outlines;
        const bool is_taken = take_away({measured_at(20, 6, 0).measured, false}, outlines, patch);
        EXPECT_EQ(is_taken, !heap.has_failed());
    });
}

TEST(Move, HasASizeAndALargestPart)
{
    const panoval::measure::Move move = {{3, 0, -4, 0}};
    EXPECT_EQ(move.largest(), 4);
    EXPECT_EQ(move.square(), 25);
    EXPECT_EQ(panoval::measure::Move{}.square(), 0);
}

} // namespace
