// SPDX-License-Identifier: MIT
#include "measure/meshes.h"

#include "measure/neighbours.h"
#include "panoval_measure.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace
{

using panoval::measure::doubt_meshes;
using panoval::measure::MeasuredTarget;

// Round targets side by side, each with three corners as large.
std::vector<MeasuredTarget> row_of(std::size_t count, double corners)
{
    std::vector<MeasuredTarget> targets(count);
    for (std::size_t i = 0; i < count; ++i) {
        PanovalMeasureTarget& target = targets[i].target;
        target.ellipse = {20.0 + 12 * static_cast<double>(i), 30, 5, 5, 0};
        target.polarity = PANOVAL_MEASURE_BRIGHT;
        target.quality = 0.8;
        target.noise = 1;
        targets[i].bulges.lobes[0] = {corners, 0, 1e-6, 0.8};
    }
    return targets;
}

TEST(DoubtMeshes, TakesQualityFromOutlinesWithCornersInCommon)
{
    auto targets = row_of(4, 0.5);
    doubt_meshes(1, targets);
    for (const MeasuredTarget& one : targets)
        EXPECT_LT(one.target.quality, 0.1);
    auto round = row_of(4, 0.01);
    doubt_meshes(1, round);
    for (const MeasuredTarget& one : round)
        EXPECT_GT(one.target.quality, 0.79);
}

TEST(DoubtMeshes, SaysNothingOfTwo)
{
    auto targets = row_of(2, 0.5);
    doubt_meshes(1, targets);
    EXPECT_EQ(targets[0].target.quality, 0.8);
}

TEST(DoubtMeshes, LeavesOneThatHasNoPartInWhatIsCommon)
{
    auto targets = row_of(5, 0.5);
    targets[2].bulges.lobes[0].cosine = -0.5;
    doubt_meshes(1, targets);
    EXPECT_EQ(targets[2].target.quality, 0.8);
    EXPECT_LT(targets[1].target.quality, 0.2);
}

TEST(DoubtMeshes, PassesOverWhatTheBlurLeftTooLittleOf)
{
    auto targets = row_of(4, 0.5);
    for (MeasuredTarget& one : targets)
        one.bulges.lobes[0].left = 0.12;
    doubt_meshes(1, targets);
    EXPECT_EQ(targets[0].target.quality, 0.8);
}

TEST(DoubtMeshes, KnowsNothingWhereNoiseIsUnknown)
{
    auto targets = row_of(4, 0.5);
    for (MeasuredTarget& one : targets)
        one.bulges.lobes[0].noise_gain = 0;
    doubt_meshes(1, targets);
    EXPECT_EQ(targets[0].target.quality, 0.8);
}

// As far apart as neighbours may be, the smaller ones above.
TEST(DoubtMeshes, LooksAsFarDownAsTheLargerOfTwoReaches)
{
    auto targets = row_of(4, 0.5);
    double y = 30;
    for (MeasuredTarget& one : targets) {
        const double axis = &one == targets.data() ? 5 : 7.5;
        y += &one == targets.data() ? 0 : 1.75 * (axis + (&one == &targets[1] ? 5 : 7.5));
        one.target.ellipse = {20, y, axis, axis, 0};
    }
    targets[3].target.quality = 0.01; // leaves three, which say something only where the first is linked
    doubt_meshes(1, targets);
    EXPECT_LT(targets[0].target.quality, 0.2);
}

TEST(DoubtMeshes, ComparesWhatLooksAlike)
{
    const auto quality_with = [](const auto& change) {
        auto targets = row_of(5, 0.5);
        for (std::size_t i = 1; i < 5; i += 2)
            change(targets[i].target);
        doubt_meshes(1, targets);
        return targets[2].target.quality;
    };
    EXPECT_LT(quality_with([](PanovalMeasureTarget&) {}), 0.2);
    EXPECT_EQ(quality_with([](PanovalMeasureTarget& t) { t.polarity = PANOVAL_MEASURE_DARK; }), 0.8);
    EXPECT_EQ(quality_with([](PanovalMeasureTarget& t) { t.ellipse.semi_major = 8; }), 0.8);
    EXPECT_EQ(quality_with([](PanovalMeasureTarget& t) { t.ellipse.semi_minor = 3; }), 0.8);
    EXPECT_EQ(quality_with([](PanovalMeasureTarget& t) { t.quality = 0.01; }), 0.8) << "no outlines at all";
}

} // namespace
