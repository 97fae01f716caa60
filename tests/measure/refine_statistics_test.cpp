// SPDX-License-Identifier: MIT
// The limits that physics sets, reached: errors without noise, the spread of centres against the bound, and reported
// uncertainties against true ones. Fixed seeds; every limit leaves room for the chance of the count drawn and no more.
#include "panoval_measure.h"
#include "tests/scenes/target_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace panoval::test
{

namespace
{

constexpr double kPi = 3.14159265358979323846;
constexpr double kContrast = 150;

struct Cell {
    double radius; // semi-major axis
    double aspect;
    double blur;
    double noise; // share of the contrast
    bool is_bright = false;
    double light = 0; // relative change of all levels a pixel to the right
    double haze = 0;  // levels a pixel that are added
};

std::string name_of(const Cell& cell)
{
    return "R " + std::to_string(cell.radius) + ", aspect " + std::to_string(cell.aspect) + ", blur " +
           std::to_string(cell.blur) + ", noise " + std::to_string(cell.noise);
}

TargetScene random_scene(const Cell& cell, Random& random)
{
    TargetScene scene;
    scene.width = scene.height = 2 * static_cast<std::int32_t>(std::ceil(1.7 * cell.radius + 6 * cell.blur + 6));
    const double background = cell.is_bright ? 200 - kContrast : 200;
    scene.background = background;
    scene.blur = cell.blur;
    scene.light_x = cell.light * scene.width;
    add_target(scene, scene.width / 2 + random.real(-0.5, 0.5), scene.height / 2 + random.real(-0.5, 0.5), cell.radius,
               cell.radius * cell.aspect, random.real(-1.5, 1.5), cell.is_bright ? 200 : 200 - kContrast, background);
    return scene;
}

PanovalMeasureEllipse random_start(const TrueTarget& truth, Random& random)
{
    const double off = std::min(1.0, 0.1 * truth.b);
    return {truth.x + random.real(-off, off), truth.y + random.real(-off, off), truth.a + random.real(-off, off),
            truth.b + random.real(-off, off), truth.angle};
}

PanovalMeasureTarget refine(const std::vector<float>& samples, std::int32_t width, const PanovalMeasureEllipse& start)
{
    const PanovalMeasureImage image = {samples.data(), width, width, std::int64_t{4} * width, PANOVAL_MEASURE_F32, 0};
    PanovalMeasureTarget target = {};
    EXPECT_EQ(panoval_measure_refine(&image, &start, 1, &target), PANOVAL_MEASURE_OK);
    return target;
}

// The Cramer-Rao bound of the centre for noise of the contrast's size: C^2 / (2 sqrt(pi) s_e) times the integral of n
// n' along the outline, inverted; s_e is the blur with the pixel's width.
struct Bound {
    double xx, xy, yy; // covariance
};

Bound bound_of(const TrueTarget& truth, double blur)
{
    const double spread = std::sqrt(blur * blur + 1.0 / 12);
    double xx = 0, xy = 0, yy = 0;
    constexpr int kSteps = 2000;
    for (int i = 0; i < kSteps; ++i) {
        const double t = 2 * kPi * i / kSteps;
        // Normal times length of the outline, along the axes.
        const double u = truth.b * std::cos(t), v = truth.a * std::sin(t);
        const double length = std::hypot(u, v);
        const double nx = (u * std::cos(truth.angle) - v * std::sin(truth.angle)) / length;
        const double ny = (u * std::sin(truth.angle) + v * std::cos(truth.angle)) / length;
        xx += nx * nx * length;
        xy += nx * ny * length;
        yy += ny * ny * length;
    }
    const double scale = 2 * kPi / kSteps / (2 * std::sqrt(kPi) * spread);
    const double determinant = scale * (xx * yy - xy * xy);
    return {yy / determinant, -xy / determinant, xx / determinant};
}

struct Statistics {
    double count = 0;
    double over_bound = 0;    // squared errors in units of the bound's covariance, summed: 2 per target at the bound
    double over_reported = 0; // and of the reported one
    double inside_95 = 0;
    double beyond_5 = 0;
    double largest = 0; // squared error in units of the bound's covariance

    void add(double dx, double dy, const Bound& bound, double noise, const PanovalMeasureTarget& target)
    {
        const auto square = [dx, dy](double xx, double xy, double yy) {
            return (dx * dx * yy - 2 * dx * dy * xy + dy * dy * xx) / (xx * yy - xy * xy);
        };
        const double reported = square(target.covariance[0], target.covariance[1], target.covariance[6]);
        count += 1;
        const double squared = square(bound.xx, bound.xy, bound.yy) / (noise * noise);
        over_bound += squared;
        largest = std::max(largest, squared);
        over_reported += reported;
        inside_95 += reported < 5.9915 ? 1 : 0;
        beyond_5 += reported > 25 + 2 * std::log(2.0) ? 1 : 0;
    }
};

Statistics run_cell(const Cell& cell, int geometries, int repeats, Random& random)
{
    Statistics statistics;
    for (int n = 0; n < geometries; ++n) {
        const TargetScene scene = random_scene(cell, random);
        const TrueTarget& truth = scene.targets.front();
        std::vector<double> exact = render_exact(scene);
        for (std::size_t i = 0; i < exact.size(); ++i)
            exact[i] += cell.haze * static_cast<double>(i % static_cast<std::size_t>(scene.width));
        const Bound bound = bound_of(truth, cell.blur);
        for (int repeat = 0; repeat < repeats; ++repeat) {
            std::vector<float> samples(exact.size());
            for (std::size_t i = 0; i < exact.size(); ++i)
                samples[i] = static_cast<float>(exact[i] + kContrast * cell.noise * normal_value(random));
            const PanovalMeasureTarget target = refine(samples, scene.width, random_start(truth, random));
            statistics.add(target.ellipse.x - truth.x, target.ellipse.y - truth.y, bound, cell.noise, target);
        }
    }
    return statistics;
}

TEST(RefineStatistics, HasNoErrorsWithoutNoise)
{
    Random random(1);
    for (const double radius : {5.0, 6.5, 10.0, 24.0, 60.0})
        for (const double aspect : {1.0, 0.7, 0.4})
            for (const double share : {0.04, 0.1, 0.2}) {
                const Cell cell = {radius, aspect, std::min(2.0, share * radius * aspect), 0};
                if (cell.blur < 0.2)
                    continue;
                const TargetScene scene = random_scene(cell, random);
                const TrueTarget& truth = scene.targets.front();
                const std::vector<double> exact = render_exact(scene);
                const auto target = refine({exact.begin(), exact.end()}, scene.width, random_start(truth, random));
                EXPECT_NEAR(target.ellipse.x, truth.x, 0.0014) << name_of(cell);
                EXPECT_NEAR(target.ellipse.y, truth.y, 0.0014) << name_of(cell);
                EXPECT_NEAR(target.ellipse.semi_major, truth.a, 0.01) << name_of(cell);
                EXPECT_NEAR(target.ellipse.semi_minor, truth.b, 0.01) << name_of(cell);
            }
}

TEST(RefineStatistics, ReachesTheBoundAndKnowsItsErrors)
{
    constexpr int kGeometries = 10;
    constexpr int kRepeats = 30;
    // Relative chance of a root mean square over 2 * 300 numbers.
    const double chance = 1 / std::sqrt(2.0 * 2 * kGeometries * kRepeats);
    Random random(2);
    std::vector<double> ratios;
    Statistics all;
    for (const double noise : {0.005, 0.03, 0.1})
        for (Cell cell : {Cell{4, 1, 0.4, 0}, Cell{4, 1, 1, 0}, Cell{4, 0.7, 0.7, 0}, Cell{7, 0.4, 0.5, 0},
                          Cell{7, 0.7, 1.6, 0}, Cell{10, 1, 2, 0}, Cell{10, 0.5, 0.6, 0}, Cell{15, 0.8, 0.4, 0},
                          Cell{20, 0.4, 1.2, 0}, Cell{40, 0.7, 2, 0}}) {
            cell.noise = noise;
            const Statistics s = run_cell(cell, kGeometries, kRepeats, random);
            const double ratio = std::sqrt(s.over_bound / (2 * s.count));
            EXPECT_LT(ratio, 1.10 * (1 + 2.5 * chance)) << name_of(cell);
            EXPECT_NEAR(std::sqrt(s.over_reported / (2 * s.count)), 1, 0.07 + 2.5 * chance) << name_of(cell);
            ratios.push_back(ratio);
            all.count += s.count;
            all.over_reported += s.over_reported;
            all.inside_95 += s.inside_95;
            all.beyond_5 += s.beyond_5;
        }
    std::nth_element(ratios.begin(), ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2), ratios.end());
    EXPECT_LT(ratios[ratios.size() / 2], 1.05);
    EXPECT_NEAR(std::sqrt(all.over_reported / (2 * all.count)), 1, 0.03);
    EXPECT_NEAR(all.inside_95 / all.count, 0.95, 0.01);
    EXPECT_LE(all.beyond_5, 2) << "of " << all.count;
}

// Noise makes them smaller still, and each is measured nevertheless.
TEST(RefineStatistics, MeasuresThinTargetsInStrongNoise)
{
    Random random(8);
    const Statistics s = run_cell({4, 0.4, 0.4, 0.1}, 15, 20, random);
    const double chance = 1 / std::sqrt(4 * s.count);
    EXPECT_LT(std::sqrt(s.over_bound / (2 * s.count)), 1.10 * (1 + 2 * chance));
    EXPECT_NEAR(std::sqrt(s.over_reported / (2 * s.count)), 1, 0.07 + 2.5 * chance);
}

// The blur is half of the smaller axis, and more than the search can see; what it takes for the surroundings is not.
TEST(RefineStatistics, HasNoOutliersInStrongBlur)
{
    Random random(9);
    const Statistics s = run_cell({10, 0.4, 2, 0.1}, 20, 40, random);
    EXPECT_LT(std::sqrt(s.largest), 5.5);
    EXPECT_LT(std::sqrt(s.over_bound / (2 * s.count)), 1.10 * (1 + 1.5 / std::sqrt(4 * s.count)));
}

// Gaps of two pixels between targets, whose edges each reach the next one's.
TEST(RefineStatistics, ReachesTheBoundOnADenseBoard)
{
    constexpr int kSide = 12;
    const Cell cell = {4, 0.9, 0.8, 0.02};
    Random random(10);
    TargetScene scene{.width = 10 * kSide + 20, .height = 10 * kSide + 20, .shapes = {}, .targets = {}};
    scene.background = 200;
    scene.blur = cell.blur;
    scene.noise = cell.noise * kContrast;
    std::vector<PanovalMeasureEllipse> starts;
    for (int n = 0; n < kSide * kSide; ++n) {
        add_target(scene, 15 + 10 * (n % kSide) + random.real(-0.3, 0.3),
                   15 + 10 * (n / kSide) + random.real(-0.3, 0.3), 4, 3.6, 0.3, 50, 200);
        starts.push_back(random_start(scene.targets.back(), random));
    }
    std::vector<double> samples = render_exact(scene);
    add_noise(scene, samples);
    const std::vector<float> floats(samples.begin(), samples.end());
    const PanovalMeasureImage image = {
        floats.data(), scene.width, scene.height, std::int64_t{4} * scene.width, PANOVAL_MEASURE_F32, 0};
    std::vector<PanovalMeasureTarget> targets(starts.size());
    ASSERT_EQ(panoval_measure_refine(&image, starts.data(), kSide * kSide, targets.data()), PANOVAL_MEASURE_OK);
    Statistics s;
    for (std::size_t n = 0; n < targets.size(); ++n) {
        const TrueTarget& truth = scene.targets[n];
        s.add(targets[n].ellipse.x - truth.x, targets[n].ellipse.y - truth.y, bound_of(truth, cell.blur), cell.noise,
              targets[n]);
        EXPECT_TRUE(targets[n].flags & PANOVAL_MEASURE_NEIGHBOUR) << n;
    }
    const double chance = 1 / std::sqrt(4 * s.count);
    EXPECT_LT(std::sqrt(s.over_bound / (2 * s.count)), 1.10 * (1 + 1.5 * chance));
    EXPECT_NEAR(std::sqrt(s.over_reported / (2 * s.count)), 1, 0.07 + 1.5 * chance);
}

// The inside of a bright target has the larger share of what light changes: its slope must not follow the noise of the
// surroundings' one.
TEST(RefineStatistics, ReachesTheBoundForBrightTargetsToo)
{
    Random random(4);
    for (const Cell& cell : {Cell{8, 0.71, 0.64, 0.01, true}, Cell{14, 1, 1.2, 0.03, true}}) {
        const Statistics s = run_cell(cell, 20, 40, random);
        const double chance = 1 / std::sqrt(4 * s.count);
        EXPECT_LT(std::sqrt(s.over_bound / (2 * s.count)), 1.05 * (1 + 1.5 * chance)) << name_of(cell);
        EXPECT_NEAR(std::sqrt(s.over_reported / (2 * s.count)), 1, 0.03 + 1.5 * chance) << name_of(cell);
    }
}

// Whether light falls off or haze lies over one side follows from the samples; what the inside's slope is follows from
// that.
TEST(RefineStatistics, StaysNearTheBoundInChangingLight)
{
    Random random(6);
    for (const Cell& cell : {Cell{12, 0.8, 0.8, 0.005, false, 0.002, 0}, Cell{12, 0.8, 0.8, 0.005, true, 0.002, 0},
                             Cell{12, 0.8, 0.8, 0.005, false, 0, 0.3}, Cell{30, 0.6, 2, 0.01, false, 0.002, 0},
                             Cell{30, 0.6, 2, 0.01, true, 0, 0.3}}) {
        const Statistics s = run_cell(cell, 10, 20, random);
        const double chance = 1 / std::sqrt(4 * s.count);
        EXPECT_LT(std::sqrt(s.over_bound / (2 * s.count)), 1.12 * (1 + 2 * chance)) << name_of(cell);
        EXPECT_NEAR(std::sqrt(s.over_reported / (2 * s.count)), 1, 0.07 + 2.5 * chance) << name_of(cell);
    }
}

// Noise alone gives them a longer and a shorter axis.
TEST(RefineStatistics, KnowsTheErrorsOfTheAxesOfCircles)
{
    Random random(7);
    double squares[2] = {};
    constexpr int kCount = 400;
    for (int n = 0; n < kCount; ++n) {
        const TargetScene scene = random_scene({10, 1, 0.8, 0}, random);
        std::vector<float> samples;
        for (const double sample : render_exact(scene))
            samples.push_back(static_cast<float>(sample + 0.03 * kContrast * normal_value(random)));
        const PanovalMeasureTarget t = refine(samples, scene.width, random_start(scene.targets.front(), random));
        squares[0] += (t.ellipse.semi_major - 10) * (t.ellipse.semi_major - 10) / (t.sigma_major * t.sigma_major);
        squares[1] += (t.ellipse.semi_minor - 10) * (t.ellipse.semi_minor - 10) / (t.sigma_minor * t.sigma_minor);
    }
    for (const double square : squares)
        EXPECT_NEAR(std::sqrt(square / kCount), 1, 0.07 + 2.5 / std::sqrt(2.0 * kCount));
}

TEST(RefineStatistics, ReachesTheBoundForTargetsOfAHundredPixels)
{
    Random random(5);
    const Cell cell = {100, 0.8, 0.8, 0.02};
    const Statistics s = run_cell(cell, 8, 20, random);
    const double chance = 1 / std::sqrt(4 * s.count);
    EXPECT_LT(std::sqrt(s.over_bound / (2 * s.count)), 1.05 * (1 + 2 * chance));
    EXPECT_NEAR(std::sqrt(s.over_reported / (2 * s.count)), 1, 0.05 + 2 * chance);
}

TEST(RefineStatistics, KnowsTheErrorsOfAxesAndAngleToo)
{
    Random random(3);
    const Cell cell = {12, 0.7, 0.8, 0.03};
    double squares[5] = {};
    double blur = 0;
    constexpr int kCount = 400;
    for (int n = 0; n < kCount; ++n) {
        const TargetScene scene = random_scene(cell, random);
        const TrueTarget& truth = scene.targets.front();
        const std::vector<double> exact = render_exact(scene);
        std::vector<float> samples(exact.size());
        for (std::size_t i = 0; i < exact.size(); ++i)
            samples[i] = static_cast<float>(exact[i] + kContrast * cell.noise * normal_value(random));
        const PanovalMeasureTarget t = refine(samples, scene.width, random_start(truth, random));
        const double turn = std::remainder(t.ellipse.angle - truth.angle, kPi);
        const double errors[] = {(t.ellipse.x - truth.x) / t.sigma_x, (t.ellipse.y - truth.y) / t.sigma_y,
                                 (t.ellipse.semi_major - truth.a) / t.sigma_major,
                                 (t.ellipse.semi_minor - truth.b) / t.sigma_minor, turn / t.sigma_angle};
        for (std::size_t i = 0; i < 5; ++i)
            squares[i] += errors[i] * errors[i];
        blur += (t.blur - cell.blur) * (t.blur - cell.blur) / (t.sigma_blur * t.sigma_blur);
        EXPECT_NEAR(t.noise, kContrast * cell.noise, 0.1 * kContrast * cell.noise);
    }
    for (const double square : squares)
        EXPECT_NEAR(std::sqrt(square / kCount), 1, 0.07 + 2.5 / std::sqrt(2.0 * kCount));
    EXPECT_NEAR(std::sqrt(blur / kCount), 1, 0.07 + 2.5 / std::sqrt(2.0 * kCount));
}

} // namespace

} // namespace panoval::test
