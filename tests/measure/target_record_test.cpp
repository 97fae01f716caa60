// SPDX-License-Identifier: MIT
#include "measure/target_record.h"

#include "panoval_measure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace
{

using panoval::measure::AdjustmentInput;
using panoval::measure::Bulges;
using panoval::measure::make_record;
using panoval::measure::Matrix12;
using panoval::measure::Measurement;
using panoval::measure::OutlineModel;
using panoval::measure::Patch;
using panoval::measure::quality_of;

constexpr std::int32_t kSide = 40;

// A circle of 200 on 50 about a pixel's centre, drawn by the model itself, as an adjustment without residuals has it.
class Circle
{
public:
    explicit Circle(double contrast = 150, double radius = 5)
    {
        m.model.outline = {20, 20, radius, 0, 0};
        m.model.blur = 0.8;
        m.model.outside.level = 50;
        m.model.inside.level = 50 + contrast;
        EXPECT_TRUE(outlines.reserve({0, 0, kSide, kSide}, 8, 0.5, 1));
        EXPECT_TRUE(outlines.sample(m.model.outline, m.model.blur));
        for (std::int32_t y = 0; y < kSide; ++y) {
            const float* const planes = outlines.row(y);
            for (std::size_t x = 0; x < kSide; ++x)
                samples.push_back(
                    static_cast<float>(panoval::measure::predict(m.model, planes, outlines.stride(), x, 0, 0)));
        }
        m.reach = {4, 4, 5, 8};
        m.edge_reach = 4;
        m.adjustment.inverse = Matrix12::Identity() * 1e-4;
        m.adjustment.edge_count = 200;
        m.adjustment.has_converged = true;
        input.reference_x = input.reference_y = 20;
        input.flat_outside.count = 300;
        m.input = &input;
    }
    bool record()
    {
        EXPECT_TRUE(patch.copy({samples.data(), kSide, rows, 4 * kSide, PANOVAL_MEASURE_F32, 0}, {0, 0, kSide, kSide}));
        patch.classify(m.model.outline, m.reach);
        input.patch = &patch;
        return make_record(m, outlines, target, bulges);
    }

    Measurement m;
    AdjustmentInput input;
    std::vector<float> samples;
    std::int32_t rows = kSide; // that the picture has of them
    PanovalMeasureTarget target = {};
    Bulges bulges;

private:
    OutlineModel outlines;
    Patch patch;
};

TEST(MakeRecord, TellsOfASoundCircle)
{
    Circle circle;
    ASSERT_TRUE(circle.record());
    EXPECT_EQ(circle.target.ellipse.semi_major, 5);
    EXPECT_EQ(circle.target.ellipse.semi_minor, 5);
    EXPECT_EQ(circle.target.flags, PANOVAL_MEASURE_ROUND);
    EXPECT_EQ(circle.target.edge_share, 1);
    EXPECT_EQ(circle.target.polarity, PANOVAL_MEASURE_BRIGHT);
    EXPECT_EQ(circle.target.chi_square, 1) << "no noise at all";
    EXPECT_GT(circle.target.quality, 0.9);
    EXPECT_NEAR(circle.bulges.square, 0, 1e-6);
    // Of three lobes on a radius of 5, behind a blur of 0.8 and a pixel's own.
    EXPECT_NEAR(circle.bulges.lobes[0].left, std::exp(-9 * (0.64 + 1.0 / 12) / 25 / 2), 1e-12);
}

TEST(MakeRecord, RefusesWhatHasNoContrast)
{
    Circle circle(0);
    EXPECT_FALSE(circle.record());
    EXPECT_EQ(circle.target.edge_share, 0);
    EXPECT_EQ(circle.target.quality, 0);
    EXPECT_EQ(circle.bulges.count, 0);
}

// What the samples leave open by more than half an axis is no measurement.
TEST(MakeRecord, RefusesWhatTheSamplesLeaveOpen)
{
    Circle circle;
    circle.m.adjustment.inverse = Matrix12::Identity() * 1e4;
    circle.m.adjustment.edge_cost = 200;
    EXPECT_FALSE(circle.record());
}

TEST(MakeRecord, FlagsSaturationAtEitherEnd)
{
    for (const float end : {0.0f, 255.0f}) {
        Circle circle;
        circle.m.highest_sample = 255;
        ASSERT_TRUE(circle.record());
        EXPECT_FALSE(circle.target.flags & PANOVAL_MEASURE_SATURATED);
        for (std::size_t i = 0; i < 5; ++i)
            circle.samples[(13 + i) * kSide + 20] = end;
        circle.target = {};
        circle.record();
        EXPECT_TRUE(circle.target.flags & PANOVAL_MEASURE_SATURATED) << end;
    }
}

TEST(MakeRecord, FlagsATargetAtThePicturesEdge)
{
    Circle circle;
    circle.rows = 25; // its band ends at row 29
    ASSERT_TRUE(circle.record());
    EXPECT_EQ(circle.target.flags, PANOVAL_MEASURE_ROUND | PANOVAL_MEASURE_BORDER);
}

TEST(MakeRecord, RefusesAnOutlineBeyondItsBox)
{
    Circle circle;
    circle.m.model.outline.x = 34;
    EXPECT_FALSE(circle.record());
    EXPECT_EQ(circle.target.edge_share, 0);
    EXPECT_EQ(circle.bulges.count, 0);
}

// The pixel in the very centre lies in no direction.
TEST(MakeRecord, TakesTheCentreOfASmallTargetForItsEdge)
{
    Circle circle(150, 2);
    ASSERT_TRUE(circle.record());
    EXPECT_EQ(circle.target.edge_share, 1);
    EXPECT_NEAR(circle.bulges.square, 0, 1e-6);
}

TEST(MakeRecord, FlagsWhatTheAdjustmentSays)
{
    Circle circle;
    circle.m.adjustment.has_converged = false;
    ASSERT_TRUE(circle.record());
    EXPECT_EQ(circle.target.flags, PANOVAL_MEASURE_ROUND | PANOVAL_MEASURE_NOT_CONVERGED);
    Circle blurred;
    blurred.m.model.blur = 1.26; // a quarter of its axes
    blurred.record();
    EXPECT_TRUE(blurred.target.flags & PANOVAL_MEASURE_BLURRED);
}

TEST(MakeRecord, LeavesSamplesOutThatAreNotNumbers)
{
    Circle circle;
    for (const std::size_t x : {15u, 25u})
        circle.samples[20 * kSide + x] = std::numeric_limits<float>::quiet_NaN();
    ASSERT_TRUE(circle.record());
    EXPECT_EQ(circle.target.flags, PANOVAL_MEASURE_ROUND);
    EXPECT_EQ(circle.target.edge_share, 1);
    EXPECT_NEAR(circle.bulges.square, 0, 1e-6);
}

struct Costs {
    double edge; // of 200 samples
    double flat; // of as many as that
    double flat_count;
};

PanovalMeasureTarget with_costs(const Costs& costs)
{
    Circle circle;
    circle.m.adjustment.edge_cost = costs.edge;
    circle.m.adjustment.flat_cost = costs.flat;
    circle.input.flat_outside.count = costs.flat_count;
    EXPECT_TRUE(circle.record());
    return circle.target;
}

// Of both together where chance explains what they differ by, otherwise of the edge.
TEST(MakeRecord, TellsTheNoiseOfItsEdgeAndOfWhatIsFlat)
{
    const PanovalMeasureTarget alike = with_costs({200, 300, 300});
    EXPECT_NEAR(alike.chi_square, 200.0 / 194 / (300.0 / 294), 1e-6);
    const double together = 500.0 / 488;
    const PanovalMeasureTarget more = with_costs({800, 300, 300});
    EXPECT_NEAR(more.chi_square, 800.0 / 194 / (300.0 / 294), 1e-6);
    EXPECT_NEAR(more.sigma_x / alike.sigma_x, std::sqrt(800.0 / 194 / together), 0.005);
    const PanovalMeasureTarget less = with_costs({50, 300, 300});
    EXPECT_NEAR(less.sigma_x / alike.sigma_x, std::sqrt(50.0 / 194 / together), 0.005);
    const PanovalMeasureTarget few = with_costs({800, 0, 25});
    EXPECT_EQ(few.chi_square, 1) << "too few of them to tell";
    EXPECT_NEAR(few.sigma_x / alike.sigma_x, std::sqrt(800.0 / 194 / together), 0.005);
}

TEST(MakeRecord, SeesNoEdgeInABandWithoutPixels)
{
    Circle circle;
    circle.m.edge_reach = 0;
    EXPECT_FALSE(circle.record());
    EXPECT_EQ(circle.target.edge_share, 0);
}

TEST(QualityOf, IsNoneWithoutContrast)
{
    PanovalMeasureTarget target = {};
    target.level_inside = target.level_outside = 90;
    target.edge_share = 1;
    target.ellipse = {20, 20, 5, 5, 0};
    EXPECT_EQ(quality_of(target, {}, 1), 0);
    target.level_inside = 190;
    target.blur = 0.7;
    EXPECT_GT(quality_of(target, {}, 1), 0.9);
    target.edge_share = 0.6;
    EXPECT_EQ(quality_of(target, {}, 1), 0) << "the rim of something that is hidden";
}

} // namespace
