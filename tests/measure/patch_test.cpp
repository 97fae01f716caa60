// SPDX-License-Identifier: MIT
#include "measure/patch.h"

#include "measure/picture.h"
#include "panoval_measure.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace
{

using panoval::measure::Box;
using panoval::measure::check_image;
using panoval::measure::LevelPlane;
using panoval::measure::Part;
using panoval::measure::Patch;
using panoval::measure::PlaneSums;
using panoval::measure::RowSums;

constexpr std::int32_t kWidth = 12;
constexpr std::int32_t kHeight = 9;

// Samples 10 x + y.
struct Ramp {
    Ramp()
    {
        for (std::int32_t y = 0; y < kHeight; ++y)
            for (std::int32_t x = 0; x < kWidth; ++x)
                samples.push_back(static_cast<float>(10 * x + y));
    }
    float& at(std::int32_t x, std::int32_t y) { return samples[static_cast<std::size_t>(y * kWidth + x)]; }
    PanovalMeasureImage image() const { return {samples.data(), kWidth, kHeight, 4 * kWidth, PANOVAL_MEASURE_F32, 0}; }
    std::vector<float> samples;
};

// Of samples in one row, at places counted from the origin.
PlaneSums sums_of_row(const std::vector<double>& xs, double level)
{
    PlaneSums sums;
    sums.origin = 100;
    for (const double x : xs) {
        RowSums one = {};
        one.count = 1;
        one.x = x;
        one.xx = x * x;
        one.v = level + 2 * x;
        one.vx = one.v * x;
        one.vv = one.v * one.v;
        sums.add_row(one, 3);
    }
    return sums;
}

TEST(PlaneSums, FitNoPlaneToTooFewSamples)
{
    LevelPlane plane = {7, 7, 7};
    PlaneSums none;
    none.origin = 100;
    EXPECT_FALSE(none.fit(plane));
    EXPECT_EQ(plane.level, 100) << "the origin";
    EXPECT_FALSE(sums_of_row({-1, 1}, 5).fit(plane));
    EXPECT_EQ(plane.level, 105) << "the mean";
    EXPECT_EQ(plane.slope_x, 0);
}

TEST(PlaneSums, FitNoPlaneToSamplesOfOneRow)
{
    LevelPlane plane = {7, 7, 7};
    EXPECT_FALSE(sums_of_row({-3, -2, -1, 0, 1, 2, 3}, 5).fit(plane));
    EXPECT_EQ(plane.level, 105);
    EXPECT_EQ(plane.slope_x, 0);
    EXPECT_EQ(plane.slope_y, 0);
}

// Places that lie askew about the origin.
TEST(PlaneSums, FitThePlaneOfSamplesThatLieOnOne)
{
    PlaneSums sums;
    sums.origin = 100;
    for (int y = 0; y < 4; ++y)
        for (int x = y; x < y * y + 3; ++x) {
            RowSums one = {};
            one.count = 1;
            one.x = x;
            one.xx = x * x;
            one.v = 2 + 3 * x - 5 * y;
            one.vx = one.v * x;
            one.vv = one.v * one.v;
            sums.add_row(one, y);
        }
    LevelPlane plane;
    ASSERT_TRUE(sums.fit(plane));
    EXPECT_NEAR(plane.level, 102, 1e-9);
    EXPECT_NEAR(plane.slope_x, 3, 1e-9);
    EXPECT_NEAR(plane.slope_y, -5, 1e-9);
    EXPECT_NEAR(sums.squared_residuals(plane), 0, 1e-6);
}

TEST(PatchCopy, HasTheSamplesOfItsBox)
{
    const Ramp ramp;
    const Box box = {3, 2, 4, 5};
    Patch patch;
    ASSERT_TRUE(patch.copy(ramp.image(), box));
    for (std::int32_t y = box.y; y < box.y + box.height; ++y)
        for (std::int32_t x = box.x; x < box.x + box.width; ++x)
            EXPECT_EQ(patch.sample(x, y), 10 * x + y);
}

TEST(PatchCopy, HasZerosOutsideThePicture)
{
    const Ramp ramp;
    Patch patch;
    ASSERT_TRUE(patch.copy(ramp.image(), {-2, -1, 20, 12}));
    EXPECT_EQ(patch.sample(-1, 3), 0);
    EXPECT_EQ(patch.sample(3, -1), 0);
    EXPECT_EQ(patch.sample(13, 3), 0);
    EXPECT_EQ(patch.sample(3, 10), 0);
    EXPECT_EQ(patch.sample(11, 8), 118);
    EXPECT_TRUE(patch.is_in_picture(11, 8));
    EXPECT_FALSE(patch.is_in_picture(12, 8));
    EXPECT_FALSE(patch.is_in_picture(-1, 8));
    EXPECT_FALSE(patch.is_in_picture(11, 9));
    EXPECT_FALSE(patch.is_in_picture(11, -1));
}

TEST(PatchCopy, BearsABoxBesideThePicture)
{
    const Ramp ramp;
    Patch patch;
    for (const Box& box : {Box{20, 2, 5, 4}, Box{-30, 2, 5, 4}, Box{2, 20, 5, 4}, Box{2, -30, 5, 4}}) {
        ASSERT_TRUE(patch.copy(ramp.image(), box));
        for (std::int32_t y = box.y; y < box.y + box.height; ++y)
            for (std::int32_t x = box.x; x < box.x + box.width; ++x)
                EXPECT_EQ(patch.sample(x, y), 0) << x << ", " << y;
    }
}

TEST(PatchCopy, SaysThatMemoryIsShortAndServesAgainLater)
{
    const Ramp ramp;
    panoval::test::for_each_failing_allocation([&ramp](panoval::test::FailingHeap& heap) {
        Patch patch;
        const bool is_copied = patch.copy(ramp.image(), {0, 0, 8, 8});
        EXPECT_EQ(is_copied, !heap.has_failed());
        ASSERT_TRUE(patch.copy(ramp.image(), {1, 1, 8, 8}));
        EXPECT_EQ(patch.sample(8, 8), 88);
    });
}

struct Line {
    Line(const Patch& patch, double x, double y, double dx, double dy, std::size_t count)
    {
        patch.read_line(x, y, dx, dy, count, values, is_known);
    }
    double values[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
    bool is_known[8] = {};
};

TEST(PatchReadLine, InterpolatesBetweenFourSamples)
{
    const Ramp ramp;
    Patch patch;
    ASSERT_TRUE(patch.copy(ramp.image(), {0, 0, kWidth, kHeight}));
    const Line line(patch, 1.5, 2.25, 1, 0.5, 3);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_TRUE(line.is_known[i]);
        EXPECT_NEAR(line.values[i], 15 + 2.25 + 10.5 * static_cast<double>(i), 1e-5);
    }
    EXPECT_EQ(line.values[3], -1) << "untouched";
    const Line nothing(patch, 1.5, 2.25, 1, 0.5, 0);
    EXPECT_EQ(nothing.values[0], -1);
}

TEST(PatchReadLine, KnowsNothingOutsideThePictureOrTheBox)
{
    const Ramp ramp;
    Patch patch;
    ASSERT_TRUE(patch.copy(ramp.image(), {0, 0, kWidth, kHeight}));
    const Line right(patch, 9, 4, 1, 0, 4);
    EXPECT_TRUE(right.is_known[1]);
    EXPECT_FALSE(right.is_known[2]) << "no sample beside the last one";
    const Line left(patch, 1, 4, -1, 0, 3);
    EXPECT_TRUE(left.is_known[1]);
    EXPECT_FALSE(left.is_known[2]);
    const Line up(patch, 4, 1, 0, -1, 3);
    EXPECT_TRUE(up.is_known[1]);
    EXPECT_FALSE(up.is_known[2]);
    const Line down(patch, 4, 6, 0, 1, 3);
    EXPECT_TRUE(down.is_known[1]);
    EXPECT_FALSE(down.is_known[2]);
    ASSERT_TRUE(patch.copy(ramp.image(), {2, 2, 5, 5}));
    EXPECT_FALSE(Line(patch, 1.5, 4, 1, 0, 1).is_known[0]);
    EXPECT_FALSE(Line(patch, 6.5, 4, 1, 0, 1).is_known[0]);
}

TEST(PatchReadLine, KnowsNoPlaceBesideASampleThatIsNoNumber)
{
    Ramp ramp;
    ramp.at(4, 4) = std::numeric_limits<float>::quiet_NaN();
    Patch patch;
    ASSERT_TRUE(patch.copy(ramp.image(), {0, 0, kWidth, kHeight}));
    const Line line(patch, 2.5, 4.5, 1, 0, 4);
    EXPECT_TRUE(line.is_known[0]);
    EXPECT_FALSE(line.is_known[1]);
    EXPECT_FALSE(line.is_known[2]);
    EXPECT_TRUE(line.is_known[3]);
}

TEST(PatchClassify, MakesAliensOfSamplesThatAreNoNumbers)
{
    Ramp ramp;
    ramp.at(9, 4) = std::numeric_limits<float>::infinity();  // on the outline
    ramp.at(5, 4) = std::numeric_limits<float>::quiet_NaN(); // too far inside to matter
    Patch patch;
    ASSERT_TRUE(patch.copy(ramp.image(), {-1, -1, kWidth + 2, kHeight + 2}));
    patch.classify({5, 4, 4, 0, 0}, {1, 1, 2, 2});
    EXPECT_EQ(patch.part(9, 4), Part::kAlien);
    EXPECT_EQ(patch.part(5, 4), Part::kNone);
    EXPECT_EQ(patch.part(10, 4), Part::kEdge);
    EXPECT_EQ(patch.part(8, 4), Part::kInside);
    EXPECT_EQ(patch.part(11, 4), Part::kOutside);
    EXPECT_EQ(patch.part(12, 4), Part::kNone) << "outside the picture";
}

TEST(HighestSample, IsTheEndOfWholeLevels)
{
    EXPECT_EQ(panoval::measure::highest_sample(PANOVAL_MEASURE_U8), 255);
    EXPECT_EQ(panoval::measure::highest_sample(PANOVAL_MEASURE_U16), 65535);
    EXPECT_EQ(panoval::measure::highest_sample(PANOVAL_MEASURE_F32), 0) << "none";
}

TEST(CheckImage, NamesWhatIsWrong)
{
    const Ramp ramp;
    const auto code = [&](const auto& change) {
        PanovalMeasureImage image = ramp.image();
        change(image);
        return check_image(&image);
    };
    EXPECT_EQ(check_image(nullptr), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(code([](auto&) {}), PANOVAL_MEASURE_OK);
    EXPECT_EQ(code([](auto& image) { image.width = 0; }), PANOVAL_MEASURE_BAD_IMAGE);
    EXPECT_EQ(code([](auto& image) { image.height = -1; }), PANOVAL_MEASURE_BAD_IMAGE);
    EXPECT_EQ(code([](auto& image) { image.sample_type = 9; }), PANOVAL_MEASURE_BAD_SAMPLE_TYPE);
    EXPECT_EQ(code([](auto& image) { image.data = nullptr; }), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(code([](auto& image) { image.stride = 4 * kWidth - 1; }), PANOVAL_MEASURE_BAD_IMAGE);
}

} // namespace
