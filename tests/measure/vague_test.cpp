// SPDX-License-Identifier: MIT
#include "measure/vague.h"

#include "measure/neighbours.h"
#include "panoval_measure.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace
{

using panoval::measure::doubt_vague;
using panoval::measure::MeasuredTarget;
using panoval::measure::outline_of;

// What is left of a quality of 1 in noise of 5.
double quality_left(double axis, double sigma, double contrast)
{
    std::vector<MeasuredTarget> targets(1);
    PanovalMeasureTarget& target = targets[0].target;
    target.ellipse = {20, 30, 1.2 * axis, axis, 0};
    target.quality = 1;
    target.sigma_minor = sigma;
    target.level_inside = 150;
    target.level_outside = 150 + contrast;
    doubt_vague(5, targets);
    return targets[0].target.quality;
}

TEST(DoubtVague, TakesQualityFromAxesThatMayBeAnything)
{
    EXPECT_GT(quality_left(3, 0.6, 400), 0.99);
    EXPECT_NEAR(quality_left(3, 1.2, 400), 0.5, 1e-9);
    EXPECT_LT(quality_left(3, 2, 400), 0.02);
    EXPECT_GT(quality_left(30, 6, 400), 0.99);
    EXPECT_LT(quality_left(30, 20, 400), 0.02);
}

TEST(DoubtVague, TakesQualityFromTheSmallestOfLittleContrast)
{
    EXPECT_GT(quality_left(2.4, 0.1, 44), 0.98);
    EXPECT_NEAR(quality_left(2.4, 0.1, 34), 0.5, 1e-6);
    EXPECT_LT(quality_left(2, 0.1, 27), 0.05);
    EXPECT_LT(quality_left(2, 0.1, -27), 0.05) << "dark or bright";
    EXPECT_NEAR(quality_left(3.1, 0.1, 17), 0.5, 1e-6) << "larger ones half as much";
    EXPECT_GT(quality_left(3.1, 0.1, 22), 0.98);
    EXPECT_GT(quality_left(3.7, 0.1, 8), 0.99);
    EXPECT_GT(quality_left(4, 0.1, 5), 0.99) << "not small";
}

TEST(DoubtVague, LeavesRings)
{
    std::vector<MeasuredTarget> targets(2);
    for (std::size_t i = 0; i < 2; ++i) {
        const double radius = i == 0 ? 3 : 5;
        targets[i].target.ellipse = {20, 30, radius, radius, 0};
        targets[i].target.quality = 0.7;
        targets[i].target.level_outside = 12;
        targets[i].measured.model.outline = outline_of(targets[i].target.ellipse);
    }
    doubt_vague(5, targets);
    EXPECT_EQ(targets[0].target.quality, 0.7);
    targets[1].measured.model.outline.x += 3;
    doubt_vague(5, targets);
    EXPECT_LT(targets[0].target.quality, 0.1);
    EXPECT_EQ(targets[1].target.quality, 0.7);
}

// A dot of a contrast of 15 among others.
double quality_left_beside(double contrast, double radius = 3)
{
    std::vector<MeasuredTarget> targets(5);
    for (std::size_t i = 0; i < 5; ++i) {
        const double own = i == 2 ? 3 : radius;
        targets[i].target.ellipse = {20 + 9 * static_cast<double>(i), 30, own, own, 0};
        targets[i].measured.model.outline = outline_of(targets[i].target.ellipse);
        targets[i].target.quality = 0.7;
        targets[i].target.level_outside = i == 2 ? 15 : contrast;
    }
    doubt_vague(5, targets);
    return targets[2].target.quality;
}

TEST(DoubtVague, TakesTheContrastOfBoardsForThatOfTheirDots)
{
    EXPECT_GT(quality_left_beside(40), 0.68);
    EXPECT_LT(quality_left_beside(15.5), 0.1);
    EXPECT_LT(quality_left_beside(40, 6), 0.1) << "larger ones are of another kind";
    EXPECT_LT(quality_left_beside(40, 1.5), 0.1) << "smaller ones, too";
}

TEST(DoubtVague, SaysNothingWithoutNoise)
{
    std::vector<MeasuredTarget> targets(1);
    targets[0].target.ellipse = {20, 30, 3, 3, 0};
    targets[0].target.quality = 0.8;
    targets[0].target.level_outside = 1;
    doubt_vague(0, targets);
    EXPECT_EQ(targets[0].target.quality, 0.8);
}

} // namespace
