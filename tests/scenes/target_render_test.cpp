// SPDX-License-Identifier: MIT
// The renderer against what is known in closed form.
#include "tests/scenes/scene_kinds.h"
#include "tests/scenes/target_scene.h"

#include <gtest/gtest.h>

#include <cmath>

namespace panoval::test
{

namespace
{

constexpr double kPi = 3.14159265358979323846;

struct Moments {
    double area = 0, x = 0, y = 0, xx = 0, xy = 0, yy = 0;
};

// Of the share of target in each pixel.
Moments moments_of(const TargetScene& scene, double contrast)
{
    const std::vector<double> samples = render_exact(scene);
    Moments m;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double share = (samples[i] - scene.background) / contrast;
        const auto x = static_cast<double>(i % static_cast<std::size_t>(scene.width));
        const auto y = static_cast<double>(i / static_cast<std::size_t>(scene.width));
        m.area += share;
        m.x += share * x;
        m.y += share * y;
        m.xx += share * x * x;
        m.xy += share * x * y;
        m.yy += share * y * y;
    }
    m.x /= m.area;
    m.y /= m.area;
    m.xx = m.xx / m.area - m.x * m.x;
    m.xy = m.xy / m.area - m.x * m.y;
    m.yy = m.yy / m.area - m.y * m.y;
    return m;
}

TargetScene one_ellipse(double a, double b, double angle, double blur)
{
    const auto side = static_cast<std::int32_t>(2 * a + 12 * blur + 8);
    TargetScene scene{.width = side, .height = side + 3, .shapes = {}, .targets = {}, .blur = blur};
    add_target(scene, side / 2 + 0.237, side / 2 + 1.371, a, b, angle, 40, 200);
    return scene;
}

TEST(TargetRender, EllipsesHaveTheMomentsOfTheirShapeBlurAndPixel)
{
    for (const double a : {3.0, 7.3, 31.0})
        for (const double aspect : {0.4, 0.73, 1.0})
            // Without blur, pixels alone do not keep the moments.
            for (const double blur : {0.5, 0.9, 2.0}) {
                const double angle = 0.6;
                const TargetScene scene = one_ellipse(a, a * aspect, angle, blur);
                const Moments m = moments_of(scene, 40 - 200);
                const double along = a * a / 4;
                const double across = along * aspect * aspect;
                const double spread = blur * blur + 1.0 / 12; // of optics and pixel
                const double c = std::cos(angle);
                const double s = std::sin(angle);
                SCOPED_TRACE(testing::Message() << a << ' ' << aspect << ' ' << blur);
                EXPECT_NEAR(m.area / (kPi * a * a * aspect), 1, 1e-4);
                EXPECT_NEAR(m.x, scene.targets[0].x, 3e-4);
                EXPECT_NEAR(m.y, scene.targets[0].y, 3e-4);
                EXPECT_NEAR(m.xx, along * c * c + across * s * s + spread, 1e-3 * along);
                EXPECT_NEAR(m.yy, along * s * s + across * c * c + spread, 1e-3 * along);
                EXPECT_NEAR(m.xy, (along - across) * c * s, 1e-3 * along);
            }
}

TEST(TargetRender, AStraightEdgeIsTheIntegralOfTheErrorFunctionOverThePixel)
{
    for (const double blur : {0.4, 0.7, 1.3}) {
        TargetScene scene{.width = 41, .height = 9, .shapes = {}, .targets = {}, .blur = blur};
        const double edge = 20.31;
        scene.background = 10;
        scene.shapes.push_back(
            {.kind = Shape::Kind::Rectangle, .x = edge + 100, .y = 4, .a = 100, .b = 100, .grey = 110});
        const std::vector<double> samples = render_exact(scene);
        // The integral of Phi(t / s) is t Phi + s phi.
        const auto integral = [&](double t) {
            return t * 0.5 * std::erfc(-t / blur / std::sqrt(2.0)) +
                   blur / std::sqrt(2 * kPi) * std::exp(-t * t / (2 * blur * blur));
        };
        for (std::int32_t x = 0; x < 41; ++x) {
            const double expected = 10 + 100 * (integral(x + 0.5 - edge) - integral(x - 0.5 - edge));
            // An edge along the cells has a variance that is off by a twelfth of a cell's square at most.
            EXPECT_NEAR(samples[static_cast<std::size_t>(4 * 41 + x)], expected, 0.03) << blur << " at " << x;
        }
    }
}

TEST(TargetRender, BandsMeetWithoutASeam)
{
    TargetScene tall{.width = 40, .height = 100, .shapes = {}, .targets = {}, .blur = 1.0};
    add_target(tall, 20, 31.5, 12, 9, 0.4, 40, 200); // across the first two bands
    TargetScene shifted = tall;
    shifted.shapes[0].y += 16; // in the middle of the second
    const std::vector<double> one = render_exact(tall);
    const std::vector<double> other = render_exact(shifted);
    for (std::size_t i = 0; i < 40u * 80u; ++i)
        EXPECT_NEAR(one[i], other[i + 16u * 40u], 1e-3);
}

TEST(TargetRender, NoiseHasItsDeviationAndStandsBehindTheBlur)
{
    TargetScene scene{.width = 300, .height = 300, .shapes = {}, .targets = {}, .noise = 5};
    std::vector<double> samples = render_exact(scene);
    add_noise(scene, samples);
    double sum = 0;
    double square = 0;
    double neighbours = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        sum += samples[i] - 200;
        square += (samples[i] - 200) * (samples[i] - 200);
        neighbours += (samples[i] - 200) * (samples[i - 1] - 200);
    }
    const auto count = static_cast<double>(samples.size());
    EXPECT_NEAR(sum / count, 0, 0.08);
    EXPECT_NEAR(std::sqrt(square / count), 5, 0.06);
    EXPECT_NEAR(neighbours / square, 0, 0.015);
}

TEST(TargetRender, CirclesOfAPlaneBecomeTheEllipsesOfTheirPoints)
{
    const std::array<double, 9> h = {300, 40, 320, -20, 260, 240, 0.3, -0.2, 1.1};
    const TrueTarget target = imaged_circle(h, 0.2, -0.1, 0.15);
    for (int i = 0; i < 12; ++i) {
        const double t = i * kPi / 6;
        const double px = 0.2 + 0.15 * std::cos(t);
        const double py = -0.1 + 0.15 * std::sin(t);
        const double w = h[6] * px + h[7] * py + h[8];
        const double dx = (h[0] * px + h[1] * py + h[2]) / w - target.x;
        const double dy = (h[3] * px + h[4] * py + h[5]) / w - target.y;
        const double along = (dx * std::cos(target.angle) + dy * std::sin(target.angle)) / target.a;
        const double across = (dy * std::cos(target.angle) - dx * std::sin(target.angle)) / target.b;
        EXPECT_NEAR(along * along + across * across, 1, 1e-9);
    }
    EXPECT_GT(target.a, target.b);
    EXPECT_GT(std::hypot(target.x - target.circle_x, target.y - target.circle_y), 0.1) << "perspective moves it";
}

TEST(TargetRender, ScenesDependOnTheirSeedAlone)
{
    const SceneConditions conditions;
    Random one(5);
    Random two(5);
    EXPECT_EQ(render_8_bit(board_scene(conditions, random_view(one), 9)),
              render_8_bit(board_scene(conditions, random_view(two), 9)));
    EXPECT_NE(render_8_bit(scatter_scene(conditions, 9, 1)), render_8_bit(scatter_scene(conditions, 9, 2)));
    for (const Clutter clutter : kAllClutter)
        EXPECT_GE(cluttered_scene(conditions, 10, clutter, 3).targets.size(), 5u);
    EXPECT_GE(ring_scene(conditions, 10, 3).targets.size(), 12u);
    EXPECT_GE(pair_scene(conditions, 6, 1, 3).targets.size(), 4u);
}

} // namespace

} // namespace panoval::test
