// SPDX-License-Identifier: MIT
#include "measure/adjustment.h"

#include "panoval_measure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace
{

using panoval::measure::adjust;
using panoval::measure::AdjustmentInput;
using panoval::measure::AdjustmentResult;
using panoval::measure::Outline;
using panoval::measure::OutlineModel;
using panoval::measure::Part;
using panoval::measure::Patch;
using panoval::measure::TargetModel;

constexpr std::int32_t kSide = 40;
constexpr double kBlur = 0.8;
constexpr double kMargin = 2 + panoval::measure::kReach * kBlur; // that an outline has to keep from its box

TargetModel model_of(const Outline& outline, double inside, double outside)
{
    TargetModel model;
    model.outline = outline;
    model.blur = kBlur;
    model.inside.level = inside;
    model.outside.level = outside;
    return model;
}

// Samples that the model draws itself: an adjustment has nothing to leave.
class Drawn
{
public:
    explicit Drawn(const TargetModel& truth)
    {
        EXPECT_TRUE(outlines_.sample(truth.outline, truth.blur));
        for (std::int32_t y = 0; y < kSide; ++y) {
            const float* const planes = outlines_.row(y);
            for (std::size_t x = 0; x < kSide; ++x)
                samples_.push_back(
                    static_cast<float>(panoval::measure::predict(truth, planes, outlines_.stride(), x, 0, 0)));
        }
        copy();
    }
    explicit Drawn(const std::vector<float>& samples) : samples_(samples) { copy(); }

    AdjustmentResult adjusted(TargetModel& model)
    {
        patch_.classify(model.outline, {4, 4, 6, 8});
        AdjustmentInput input;
        input.patch = &patch_;
        input.reference_x = model.outline.x;
        input.reference_y = model.outline.y;
        input.least_blur = kBlur; // a smaller one would make room in the box
        input.largest_blur = 2 * kBlur;
        input.tie.weight = 1;
        panoval::measure::LevelPlane plane;
        double spread = 0;
        input.flat_inside = patch_.fit_flat(Part::kInside, input.reference_x, input.reference_y, 1, plane, spread);
        input.flat_outside = patch_.fit_flat(Part::kOutside, input.reference_x, input.reference_y, 1, plane, spread);
        return adjust(input, outlines_, model);
    }

private:
    static OutlineModel reserved()
    {
        OutlineModel outlines;
        EXPECT_TRUE(outlines.reserve({0, 0, kSide, kSide}, 12, kBlur, 2 * kBlur));
        return outlines;
    }
    void copy()
    {
        const PanovalMeasureImage image = {samples_.data(), kSide, kSide, 4 * kSide, PANOVAL_MEASURE_F32, 0};
        EXPECT_TRUE(patch_.copy(image, {0, 0, kSide, kSide}));
    }

    OutlineModel outlines_ = reserved();
    std::vector<float> samples_;
    Patch patch_;
};

TEST(Adjust, FindsTheOutlineThatDrewTheSamples)
{
    Drawn drawn(model_of({20.3, 19.6, 6, 0.7, -0.3}, 200, 50));
    TargetModel model = model_of({20, 20, 6.3, 0, 0}, 190, 60);
    const AdjustmentResult result = drawn.adjusted(model);
    EXPECT_TRUE(result.has_converged);
    EXPECT_NEAR(model.outline.x, 20.3, 1e-4);
    EXPECT_NEAR(model.outline.y, 19.6, 1e-4);
    EXPECT_NEAR(model.outline.mean, 6, 1e-4);
    EXPECT_NEAR(model.outline.skew_x, 0.7, 1e-4);
    EXPECT_NEAR(model.outline.skew_y, -0.3, 1e-4);
    EXPECT_NEAR(model.blur, kBlur, 1e-4);
    EXPECT_NEAR(model.inside.level, 200, 0.02);
    EXPECT_LT(result.largest_residual, 0.01) << "of levels";
}

TEST(Adjust, SaysThatTheOutlineHasLeftItsBox)
{
    Drawn drawn(model_of({20, 20, 6, 0, 0}, 200, 50));
    TargetModel model = model_of({8, 20, 6, 0, 0}, 200, 50);
    const AdjustmentResult result = drawn.adjusted(model);
    EXPECT_TRUE(result.has_left);
    EXPECT_FALSE(result.has_converged);
    EXPECT_EQ(model.outline, (Outline{8, 20, 6, 0, 0})) << "as it was";
}

TEST(Adjust, LeavesAnOutlineThatNoSampleShows)
{
    Drawn drawn(model_of({20, 20, 6, 0, 0}, 50, 50));
    TargetModel model = model_of({20, 20, 6, 0, 0}, 50, 50);
    const AdjustmentResult result = drawn.adjusted(model);
    EXPECT_TRUE(result.has_converged);
    EXPECT_EQ(model.outline, (Outline{20, 20, 6, 0, 0}));
    EXPECT_NEAR(result.inverse(panoval::measure::kX, panoval::measure::kX), 1, 1e-12)
        << "of one sample: nothing is known of it";
}

// The samples ask for more to the left and for more of a radius, where there is no room left. The step of the model's
// own is so low that even what is left of a step by all of the damping is too far.
TEST(Adjust, GivesUpWhereEveryStepLeavesTheBox)
{
    std::vector<float> samples;
    for (std::int32_t y = 0; y < kSide; ++y)
        for (std::int32_t x = 0; x < kSide; ++x)
            samples.push_back(std::hypot(x - 9, y - 20) < 7.5 ? 9000.0f : 50.0f);
    Drawn drawn(samples);
    const double radius = 7;
    const Outline start = {radius + kMargin + 1e-12, 20, radius, 0, 0};
    TargetModel model = model_of(start, 50.001, 50);
    const AdjustmentResult result = drawn.adjusted(model);
    EXPECT_FALSE(result.has_converged);
    EXPECT_FALSE(result.has_left);
    EXPECT_EQ(model.outline, start);
    EXPECT_LT(result.iterations, 20) << "long before all steps are used up";
}

} // namespace
