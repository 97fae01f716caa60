// SPDX-License-Identifier: MIT
#include "measure/outline.h"

#include "measure/outline_model.h"
#include "measure/row_spans.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

namespace
{

using panoval::measure::Box;
using panoval::measure::DistanceTo;
using panoval::measure::ellipse_of;
using panoval::measure::kPi;
using panoval::measure::least_widening;
using panoval::measure::OutlineModel;
using panoval::measure::Span;
using panoval::measure::transform_covariance;
using panoval::measure::WidenedOutline;

TEST(EllipseOf, GivesAnglesAboveMinusARightAngle)
{
    EXPECT_EQ(ellipse_of({0, 0, 5, -2, -0.0}).angle, kPi / 2);
    EXPECT_EQ(ellipse_of({0, 0, 5, -2, 0.0}).angle, kPi / 2);
    EXPECT_EQ(ellipse_of({0, 0, 5, 2, 0}).angle, 0);
    EXPECT_NEAR(ellipse_of({0, 0, 5, 0, -2}).angle, -kPi / 4, 1e-15);
}

std::array<double, 25> diagonal(double x, double y, double mean, double skew_x, double skew_y)
{
    std::array<double, 25> covariance{};
    covariance[0] = x;
    covariance[6] = y;
    covariance[12] = mean;
    covariance[18] = skew_x;
    covariance[24] = skew_y;
    return covariance;
}

TEST(TransformCovariance, OfACircleLeavesItsDirectionOpen)
{
    const auto covariance = diagonal(1, 2, 3, 4, 5);
    std::array<double, 25> result{};
    EXPECT_FALSE(transform_covariance({0, 0, 10, 0, 0}, covariance.data(), result.data()));
    EXPECT_EQ(result[0], 1);
    EXPECT_EQ(result[6], 2);
    EXPECT_EQ(result[12], 7) << "the longer axis along x";
    EXPECT_EQ(result[18], 7);
    EXPECT_EQ(result[24], kPi * kPi / 12);
}

TEST(TransformCovariance, OfAnEllipseIsThatOfItsAxes)
{
    const auto covariance = diagonal(1, 2, 0.03, 0.04, 0.05);
    std::array<double, 25> result{};
    EXPECT_TRUE(transform_covariance({0, 0, 10, 0, 4}, covariance.data(), result.data())) << "at 45 degrees";
    EXPECT_DOUBLE_EQ(result[12], 0.03 + 0.05);
    EXPECT_DOUBLE_EQ(result[24], 0.04 / (8 * 8));
}

// Three deviations of the skew across it.
TEST(TransformCovariance, KnowsADirectionFromThreeDeviationsOn)
{
    const auto covariance = diagonal(1, 2, 0.03, 0.04, 0.04);
    std::array<double, 25> result{};
    EXPECT_FALSE(transform_covariance({0, 0, 10, 0.59, 0}, covariance.data(), result.data()));
    EXPECT_TRUE(transform_covariance({0, 0, 10, 0.61, 0}, covariance.data(), result.data()));
}

TEST(DistanceTo, IsMinusTheSemiMinorAxisInTheCentre)
{
    const DistanceTo distance({7, 9, 5, 1, 0});
    EXPECT_EQ(distance.distance(distance.place(7, 9)), -4);
    EXPECT_NEAR(distance.distance(distance.place(7, 13)), 0, 1e-12);
    EXPECT_NEAR(distance.distance(distance.place(13.5, 9)), 0.5, 0.03);
}

TEST(LeastWidening, IsThatOfTheAxesMeans)
{
    EXPECT_EQ(least_widening({0, 0, 5, 0, 0}), 1);
    EXPECT_DOUBLE_EQ(least_widening({0, 0, 5, 3, 0}), 4.0 / 5);
    EXPECT_EQ(least_widening({}), 1) << "of a point";
}

TEST(WidenedOutline, IsCutToTheColumnsAskedFor)
{
    const WidenedOutline circle({10, 10, 4, 0, 0}, 1);
    const auto columns = [&](std::int32_t y, const Span& within) {
        const Span span = circle.columns(y, within);
        return std::array{span.begin, span.end};
    };
    EXPECT_EQ(columns(10, {0, 50}), (std::array{5, 16}));
    EXPECT_EQ(columns(13, {0, 50}), (std::array{6, 15}));
    EXPECT_EQ(columns(10, {8, 12}), (std::array{8, 12}));
    EXPECT_EQ(columns(10, {30, 50}), (std::array{30, 30})) << "beside it";
    EXPECT_EQ(columns(16, {0, 50}), (std::array{0, 0})) << "below it";
    const Span none = WidenedOutline({10, 10, 4, 0, 0}, -4).columns(10, {2, 50});
    EXPECT_EQ(none.begin, none.end) << "narrowed to nothing";
}

TEST(OutlineModelSample, RefusesWhatReachesOutOfTheBox)
{
    OutlineModel model;
    const Box box = {0, 0, 41, 41};
    ASSERT_TRUE(model.reserve(box, 12, 0.5, 1));
    const auto fits = [&](double x, double y) { return model.sample({x, y, 12, 0, 0}, 1); };
    EXPECT_TRUE(fits(20, 20));
    EXPECT_FALSE(fits(17, 20)) << "left";
    EXPECT_FALSE(fits(23, 20)) << "right";
    EXPECT_FALSE(fits(20, 17)) << "above";
    EXPECT_FALSE(fits(20, 23)) << "below";
    EXPECT_TRUE(fits(20, 20));
    EXPECT_TRUE(fits(20, 20)) << "what is sampled";
}

TEST(OutlineModelSample, RefusesWhatIsBeyondWhatIsReserved)
{
    OutlineModel model;
    ASSERT_TRUE(model.reserve({0, 0, 141, 141}, 12, 0.5, 1));
    const auto fits = [&](double mean, double skew, double blur) {
        return model.sample({70, 70, mean, skew, 0}, blur);
    };
    EXPECT_TRUE(fits(12, 0, 0.5));
    EXPECT_FALSE(fits(40, 0, 0.5)) << "too long";
    EXPECT_FALSE(fits(12, 0, 0.1)) << "too many samples";
    EXPECT_FALSE(fits(12, 0, 4)) << "too wide a window";
    EXPECT_FALSE(fits(6, 6, 0.5)) << "a line";
    EXPECT_FALSE(fits(6, 7, 0.5)) << "turned inside out";
}

TEST(OutlineModelReserve, SaysThatMemoryIsShort)
{
    panoval::test::for_each_failing_allocation([](panoval::test::FailingHeap& heap) {
        OutlineModel model;
        const bool is_reserved = model.reserve({0, 0, 41, 41}, 12, 0.5, 1);
        EXPECT_EQ(is_reserved, !heap.has_failed());
        EXPECT_EQ(model.sample({20, 20, 12, 0, 0}, 1), is_reserved);
    });
}

} // namespace
