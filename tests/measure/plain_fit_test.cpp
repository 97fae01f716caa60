// SPDX-License-Identifier: MIT
// The refinement beside a plain least squares fit of all samples: two ways to the same minimum.
#include "panoval_measure.h"
#include "tests/reference/plain_fit.h"
#include "tests/scenes/target_scene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace panoval::test
{

namespace
{

struct Trial {
    double a, b, angle, blur, noise, light;
};

class PlainFits : public testing::TestWithParam<Trial>
{
};

TEST_P(PlainFits, AgreeWithTheRefinement)
{
    const Trial& trial = GetParam();
    TargetScene scene;
    scene.width = scene.height = 2 * static_cast<std::int32_t>(1.6 * trial.a + 7);
    scene.blur = trial.blur;
    scene.noise = trial.noise;
    scene.light_x = trial.light * scene.width;
    const double middle = scene.width / 2 + 0.3;
    add_target(scene, middle, middle - 0.4, trial.a, trial.b, trial.angle, 60, 200);
    std::vector<double> samples = render_exact(scene);
    add_noise(scene, samples);
    const std::vector<float> floats(samples.begin(), samples.end());

    const PanovalMeasureImage image = {
        floats.data(), scene.width, scene.height, std::int64_t{4} * scene.width, PANOVAL_MEASURE_F32, 0};
    const PanovalMeasureEllipse start = {middle + 0.2, middle, trial.a + 0.2, trial.b - 0.2, trial.angle};
    PanovalMeasureTarget target;
    ASSERT_EQ(panoval_measure_refine(&image, &start, 1, &target), PANOVAL_MEASURE_OK);

    const double half = (trial.a - trial.b) / 2;
    const reference::PlainFit plain =
        reference::fit_plainly(floats, static_cast<std::size_t>(scene.width),
                               {{middle, middle - 0.4, (trial.a + trial.b) / 2, half * std::cos(2 * trial.angle),
                                 half * std::sin(2 * trial.angle), trial.blur * trial.blur, 60, 200, trial.light, 0}});
    // The refinement leaves out samples that are far away, and ends when a step is a third of a deviation.
    EXPECT_NEAR(target.ellipse.x, plain.unknowns[0], 0.3 * target.sigma_x);
    EXPECT_NEAR(target.ellipse.y, plain.unknowns[1], 0.3 * target.sigma_y);
    EXPECT_NEAR(target.ellipse.semi_major, plain.semi_major(), 0.3 * target.sigma_major);
    EXPECT_NEAR(target.ellipse.semi_minor, plain.semi_minor(), 0.3 * target.sigma_minor);
    EXPECT_NEAR(target.blur, std::sqrt(plain.unknowns[5]), 0.3 * target.sigma_blur);
}

INSTANTIATE_TEST_SUITE_P(Targets, PlainFits,
                         testing::Values(Trial{10, 7, 0.4, 0.8, 1.5, 0}, Trial{5, 4, -1, 0.6, 1, 0},
                                         Trial{14, 6, 1.2, 1.3, 4, 0}, Trial{12, 9, 0.1, 0.9, 1, 0.003}));

} // namespace

} // namespace panoval::test
