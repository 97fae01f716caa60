// SPDX-License-Identifier: MIT
// What quality thinks of outlines that are nearly ellipses, and of ellipses that are not quite rendered as such.
#include "panoval_measure.h"
#include "tests/measure/best_quality.h"
#include "tests/scenes/target_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

namespace panoval::test
{

namespace
{

constexpr std::int32_t kSide = 100;

// The best quality that a record near the picture's middle has; 0 if there is none.
double quality_in_the_middle(const std::vector<std::uint8_t>& pixels)
{
    return best_quality(
        pixels, kSide, [](const PanovalMeasureEllipse& e) { return std::hypot(e.x - kSide / 2, e.y - kSide / 2) < 3; });
}

TargetScene scene_of(const Shape& shape, double blur, double noise)
{
    TargetScene scene;
    scene.width = scene.height = kSide;
    scene.blur = blur;
    scene.noise = noise;
    scene.shapes.push_back(shape);
    return scene;
}

TEST(Quality, TellsBlurredRectanglesFromEllipses)
{
    for (const double blur : {0.5, 0.7, 1.0})
        for (const double half : {5.0, 6.0, 9.0, 15.0})
            for (const double aspect : {1.0, 0.6}) {
                const double b = half * aspect;
                const Shape rectangle = {Shape::Kind::Rectangle, 50.2, 49.7, half, b, 0.3};
                const Shape ellipse = {Shape::Kind::Ellipse, 50.2, 49.7, 1.1 * half, 1.1 * b, 0.3};
                EXPECT_LT(quality_in_the_middle(render_8_bit(scene_of(rectangle, blur, 2))), 0.5)
                    << "blur " << blur << ", " << half << " x " << b;
                EXPECT_GT(quality_in_the_middle(render_8_bit(scene_of(ellipse, blur, 2))), 0.85)
                    << "blur " << blur << ", " << half << " x " << b;
            }
}

// A regular polygon's share of a blurred pixel: the product of what each of its sides leaves.
double polygon_share(int sides, double radius, double blur, double x, double y)
{
    const double half = std::numbers::pi / sides;
    double share = 1;
    for (int side = 0; side < sides; ++side) {
        const double turn = 0.2 + 2 * half * side;
        const double inside = radius * std::cos(half) - x * std::cos(turn) - y * std::sin(turn);
        share *= std::erfc(-inside / (blur * std::sqrt(2.0))) / 2;
    }
    return share;
}

// Small ones, too, which blur makes nearly round; of hexagons those whose lobes it leaves.
TEST(Quality, TellsPolygonsFromEllipses)
{
    Random random(11);
    for (const auto& [sides, least] : {std::pair(4, 4.0), std::pair(5, 4.0), std::pair(6, 7.0)})
        for (const double share_of_least : {1.0, 1.4, 2.5})
            for (const double blur : {0.6, 0.9}) {
                const double radius = share_of_least * least;
                std::vector<std::uint8_t> pixels;
                for (int row = 0; row < kSide; ++row)
                    for (int column = 0; column < kSide; ++column) {
                        const double share = polygon_share(sides, radius, blur, column - 50.2, row - 49.7);
                        pixels.push_back(static_cast<std::uint8_t>(200 - 150 * share + random.real(-2, 2)));
                    }
                EXPECT_LT(quality_in_the_middle(pixels), 0.5)
                    << sides << " sides, radius " << radius << ", blur " << blur;
            }
}

TEST(Quality, IsHighForUnsharpTargets)
{
    for (const double radius : {6.0, 10.0, 20.0}) {
        const Shape ellipse = {Shape::Kind::Ellipse, 50.2, 49.7, radius, 0.8 * radius, 0.3};
        EXPECT_GT(quality_in_the_middle(render_8_bit(scene_of(ellipse, 0.3 * radius, 1.5))), 0.75) << radius;
    }
}

// Every pixel is inside or outside, as in a drawing or a picture that was made smaller by leaving pixels out.
TEST(Quality, PassesOutlinesWithoutAnyBlur)
{
    Random random(7);
    for (const double radius : {6.0, 10.0, 20.0, 30.0})
        for (int repeat = 0; repeat < 4; ++repeat) {
            const double x = 50 + random.real(-0.5, 0.5), y = 50 + random.real(-0.5, 0.5);
            std::vector<std::uint8_t> pixels;
            for (int row = 0; row < kSide; ++row)
                for (int column = 0; column < kSide; ++column) {
                    const bool is_inside = std::hypot((column - x) / radius, (row - y) / (0.8 * radius)) < 1;
                    pixels.push_back(static_cast<std::uint8_t>((is_inside ? 60 : 200) + random.integer(-1, 1)));
                }
            EXPECT_GE(quality_in_the_middle(pixels), 0.5) << "radius " << radius;
        }
}

// As prints are, and prints in pictures with little noise: what is off is known well, but it is not much.
TEST(Quality, PassesPrintsThatAreSlightlyOff)
{
    for (const double radius : {8.0, 16.0, 30.0}) {
        TargetScene scene = scene_of({Shape::Kind::Ellipse, 50.2, 49.7, radius, 0.8 * radius, 0.3}, 0.8, 0.3);
        for (const double side : {-1.0, 1.0}) // two spots of ink across the outline
            scene.shapes.push_back({Shape::Kind::Ellipse, 50.2 + side * radius * std::cos(0.3),
                                    49.7 + side * radius * std::sin(0.3), 0.6, 0.6, 0});
        EXPECT_GE(quality_in_the_middle(render_8_bit(scene)), 0.6) << "radius " << radius;
    }
}

// Round things in photographs: the rim is darker than the middle, which bears a mark.
TEST(Quality, PassesShadedThingsWithMarks)
{
    for (const double radius : {14.0, 20.0}) {
        TargetScene scene = scene_of({Shape::Kind::Ellipse, 50.2, 49.7, radius, 0.9 * radius, 0.3, 60}, 0.8, 1.5);
        for (const double share : {0.95, 0.9, 0.85, 0.8})
            scene.shapes.push_back(
                {Shape::Kind::Ellipse, 50.2, 49.7, share * radius, 0.9 * share * radius, 0.3, 60 + 200 * (1 - share)});
        scene.shapes.push_back({Shape::Kind::Stroke, 50, 52, 0.3 * radius, 1.2, 1, 170});
        EXPECT_GE(quality_in_the_middle(render_8_bit(scene)), 0.5) << "radius " << radius;
    }
}

// Shades of a level or two, rounded or compressed, have closed outlines that nothing is behind.
TEST(Quality, DoubtsTerracesOfRoundedShades)
{
    for (const double contrast : {1.0, 2.0}) {
        const Shape shape = {Shape::Kind::Ellipse, 50.2, 49.7, 7, 5, 0.3, 200 - contrast};
        EXPECT_LT(quality_in_the_middle(render_8_bit(scene_of(shape, 1, 0))), 0.5) << "contrast " << contrast;
    }
}

} // namespace

} // namespace panoval::test
