// SPDX-License-Identifier: MIT
// Marks of a code are no targets; what is in its middle is one, and dots around a dot are.
#include "measure/ring_marks.h"

#include "panoval_measure.h"
#include "tests/measure/best_quality.h"
#include "tests/scenes/target_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace panoval::test
{

namespace
{

constexpr std::int32_t kSide = 100;
constexpr double kMiddle = 49.8;
constexpr double kRadius = 6;
constexpr double kTurn = 0.52359877559829887308; // of one mark of twelve

struct Place {
    double x, y;
};

// Of a circle's point, in a plane that is seen at a slant.
Place seen(double turn, double distance)
{
    return {kMiddle + distance * kRadius * std::cos(turn), kMiddle + 0.85 * distance * kRadius * std::sin(turn)};
}

TargetScene scene_of_dot()
{
    TargetScene scene;
    scene.width = scene.height = kSide;
    scene.noise = 3;
    scene.blur = 1;
    scene.shapes.push_back({Shape::Kind::Ellipse, kMiddle, kMiddle, kRadius, 0.85 * kRadius, 0, 40});
    return scene;
}

// A piece of a ring that is 0.7 radii thick.
void add_mark(TargetScene& scene, double first, double turn)
{
    for (double at = first; at <= first + turn - 0.05; at += 0.05) {
        const Place from = seen(at, 2.05);
        const Place to = seen(at + 0.05, 2.05);
        const double length = std::hypot(to.x - from.x, to.y - from.y);
        scene.shapes.push_back({Shape::Kind::Rectangle, (from.x + to.x) / 2, (from.y + to.y) / 2, length / 2 + 0.2,
                                0.35 * kRadius * 0.93, std::atan2(to.y - from.y, to.x - from.x), 40});
    }
}

// The best quality about a place.
double quality_at(const TargetScene& scene, const Place& place)
{
    return best_quality(render_8_bit(scene), kSide, [&place](const PanovalMeasureEllipse& e) {
        return std::hypot(e.x - place.x, e.y - place.y) < 1.5;
    });
}

TEST(RingMarks, AreNoTargets)
{
    for (const double first : {0.2, 1.3, 2.9}) {
        TargetScene scene = scene_of_dot();
        add_mark(scene, first, kTurn);
        add_mark(scene, first + 3 * kTurn, 3 * kTurn);
        add_mark(scene, first + 8 * kTurn, kTurn);
        EXPECT_LT(quality_at(scene, seen(first + kTurn / 2, 2.05)), 0.5) << first;
        EXPECT_LT(quality_at(scene, seen(first + 8.5 * kTurn, 2.05)), 0.5) << first;
        EXPECT_GT(quality_at(scene, {kMiddle, kMiddle}), 0.5) << first;
    }
}

TEST(RingMarks, AreNotDotsOfABoard)
{
    TargetScene scene = scene_of_dot();
    for (int i = 0; i < 6; ++i) {
        const Place place = seen(0.3 + 2 * kTurn * i, 2.6);
        scene.shapes.push_back({Shape::Kind::Ellipse, place.x, place.y, kRadius, 0.85 * kRadius, 0, 40});
    }
    for (int i = 0; i < 6; ++i)
        EXPECT_GT(quality_at(scene, seen(0.3 + 2 * kTurn * i, 2.6)), 0.5) << i;
}

TEST(RingMarks, AreNotSmallDotsAroundALargeOne)
{
    TargetScene scene = scene_of_dot();
    for (int i = 0; i < 6; ++i) {
        const Place place = seen(0.3 + 2 * kTurn * i, 2.3);
        scene.shapes.push_back({Shape::Kind::Ellipse, place.x, place.y, 0.6 * kRadius, 0.6 * 0.85 * kRadius, 0, 40});
    }
    for (int i = 0; i < 6; ++i)
        EXPECT_GT(quality_at(scene, seen(0.3 + 2 * kTurn * i, 2.3)), 0.5) << i;
}

TEST(RingMarks, AreNotTwoTargetsBesideAThird)
{
    // As far from the dot as a ring would be, and lying along it.
    TargetScene scene = scene_of_dot();
    for (const double turn : {0.4, 2.9}) {
        const Place place = seen(turn, 2.05);
        scene.shapes.push_back(
            {Shape::Kind::Ellipse, place.x, place.y, kRadius, 0.5 * kRadius, turn + 1.5707963267948966, 40});
    }
    for (const double turn : {0.4, 2.9})
        EXPECT_GT(quality_at(scene, seen(turn, 2.05)), 0.5) << turn;
}

TEST(RingMarks, AreNotWide)
{
    // A large ellipse, clear in its form, beside a larger one and a stroke that lies as far from that.
    TargetScene scene;
    scene.width = scene.height = kSide;
    scene.noise = 3;
    scene.blur = 1;
    scene.shapes.push_back({Shape::Kind::Ellipse, 60, 60, 16, 16, 0, 40});
    scene.shapes.push_back({Shape::Kind::Ellipse, 60, 24, 13, 6.2, 0, 40});
    scene.shapes.push_back({Shape::Kind::Rectangle, 24, 60, 6.2, 17, 0, 40});
    EXPECT_GT(quality_at(scene, {60, 24}), 0.5);
}

} // namespace

} // namespace panoval::test
