// SPDX-License-Identifier: MIT
#include "measure/detect_oval.h"

#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <vector>

namespace
{

using panoval::measure::distance_from;
using panoval::measure::is_oval;
using panoval::measure::LevelLine;
using panoval::measure::OutlinePoint;
using panoval::measure::Oval;
using panoval::measure::oval_of_closed_line;
using panoval::measure::ovals_of_arcs;
using panoval::test::Random;

constexpr double kPi = 3.14159265358979323846;

// Points of an ellipse along x, from one angle to another, the last one left out.
std::vector<OutlinePoint> arc(double x, double y, double a, double b, double from, double to, std::size_t count)
{
    std::vector<OutlinePoint> points;
    for (std::size_t i = 0; i < count; ++i) {
        const double angle = from + (to - from) * static_cast<double>(i) / static_cast<double>(count);
        points.push_back({x + a * std::cos(angle), y + b * std::sin(angle)});
    }
    return points;
}

LevelLine open_line(const std::vector<OutlinePoint>& points)
{
    return {points, false};
}

TEST(OvalOfClosedLine, HasTheMomentsOfAnEllipse)
{
    Oval oval;
    ASSERT_TRUE(oval_of_closed_line(arc(12, 7, 9, 5, 0, 2 * kPi, 200), oval));
    EXPECT_NEAR(oval.x, 12, 1e-9);
    EXPECT_NEAR(oval.y, 7, 1e-9);
    EXPECT_NEAR(oval.a, 9, 0.01);
    EXPECT_NEAR(oval.b, 5, 0.01);
    EXPECT_NEAR(std::fabs(oval.ux), 1, 1e-9);
    EXPECT_TRUE(oval.is_dark) << "from x to y: clockwise as seen";
    ASSERT_TRUE(oval_of_closed_line(arc(12, 7, 9, 5, 2 * kPi, 0, 200), oval));
    EXPECT_FALSE(oval.is_dark);
}

TEST(OvalOfClosedLine, HasAnAxisAlongXWhereTheLineIsAsWideAsHigh)
{
    Oval oval;
    ASSERT_TRUE(oval_of_closed_line({{0, 0}, {4, 0}, {4, 4}, {0, 4}}, oval));
    EXPECT_EQ(oval.ux, 1);
    EXPECT_EQ(oval.uy, 0);
    EXPECT_EQ(oval.a, oval.b);
}

TEST(OvalOfClosedLine, RefusesWhatEnclosesNothing)
{
    Oval oval;
    EXPECT_FALSE(oval_of_closed_line({{0, 0}, {5, 0}, {5, 5}}, oval)) << "three points";
    EXPECT_FALSE(oval_of_closed_line({{0, 0}, {5, 0}, {9, 0}, {3, 0}}, oval)) << "a line";
    // An eight: squares of 4 and of minus 9 far apart, whose moments together are no ellipse's.
    EXPECT_FALSE(oval_of_closed_line(
        {{0, 0}, {2, 0}, {2, 2}, {0, 2}, {0, 0}, {40, 0}, {40, 3}, {43, 3}, {43, 0}, {40, 0}}, oval));
    // Beyond what is squared safely.
    EXPECT_FALSE(oval_of_closed_line({{-4e9, -4e9}, {4e9, -4e9}, {4e9, 4e9}, {-4e9, 4e9}}, oval));
}

TEST(OvalOfClosedLine, RefusesALineThatWindsTwice)
{
    Oval oval;
    EXPECT_FALSE(oval_of_closed_line(arc(12, 7, 9, 5, 0, 4 * kPi, 400), oval));
}

TEST(DistanceFrom, IsExactOnTheAxesAndMinusTheSemiMinorAxisInTheCentre)
{
    const Oval oval = {.x = 3, .y = 4, .a = 6, .b = 2};
    EXPECT_NEAR(distance_from(oval, {10, 4}), 1, 0.1);
    EXPECT_NEAR(distance_from(oval, {3, 6}), 0, 1e-12);
    EXPECT_LT(distance_from(oval, {3, 5}), -0.8);
    EXPECT_EQ(distance_from(oval, {3, 4}), -2);
}

TEST(OvalsOfArcs, FindsTheEllipseOfMostOfAnOutline)
{
    const auto ovals = ovals_of_arcs(open_line(arc(30, 20, 14, 10, 0.3, 0.3 + 1.6 * kPi, 90)), 3, 50);
    ASSERT_EQ(ovals.size(), 1u);
    EXPECT_NEAR(ovals[0].x, 30, 1e-6);
    EXPECT_NEAR(ovals[0].a, 14, 1e-6);
    EXPECT_NEAR(ovals[0].b, 10, 1e-6);
    EXPECT_NEAR(ovals[0].covered, 0.8, 0.05);
    EXPECT_TRUE(ovals[0].is_dark);
}

TEST(OvalsOfArcs, KeepsToTheAxesThatAreAskedFor)
{
    const LevelLine line = open_line(arc(30, 20, 14, 10, 0, 1.6 * kPi, 90));
    EXPECT_EQ(ovals_of_arcs(line, 10.5, 50).size(), 0u);
    EXPECT_EQ(ovals_of_arcs(line, 3, 13.5).size(), 0u);
    EXPECT_EQ(ovals_of_arcs(line, 9.5, 14.5).size(), 1u);
}

TEST(OvalsOfArcs, RefusesLinesThatShowLessThanMostOfOne)
{
    EXPECT_EQ(ovals_of_arcs(open_line(arc(30, 20, 14, 10, 0, 1.2 * kPi, 90)), 3, 50).size(), 0u) << "a rim";
    EXPECT_EQ(ovals_of_arcs(open_line(arc(30, 20, 14, 10, 0, 1.8 * kPi, 15)), 3, 50).size(), 0u) << "15 points";
}

TEST(OvalsOfArcs, TakesAHyperbolaForNoEllipse)
{
    std::vector<OutlinePoint> points;
    for (double t = -1.8; t <= 1.8; t += 0.05)
        points.push_back({10 * std::sinh(t), 4 * std::cosh(t)});
    EXPECT_EQ(ovals_of_arcs(open_line(points), 1, 1e6).size(), 0u);
}

// More than a dozen times as long as wide.
TEST(OvalsOfArcs, RefusesSlivers)
{
    EXPECT_EQ(ovals_of_arcs(open_line(arc(100, 20, 90, 6, 0, 1.9 * kPi, 300)), 1, 200).size(), 0u);
}

// An eight of two rings that touch: its waist is a few points long.
TEST(OvalsOfArcs, TellsTheRingsOfAnEightApart)
{
    std::vector<OutlinePoint> points = arc(20, 20, 6, 6, 0.2 * kPi, 1.8 * kPi, 36);
    for (const OutlinePoint& p : arc(30.5, 20, 6, 6, -0.8 * kPi, 0.8 * kPi, 36))
        points.push_back(p);
    const auto ovals = ovals_of_arcs({points, true}, 3, 50);
    ASSERT_EQ(ovals.size(), 2u);
    EXPECT_NEAR(ovals[0].x + ovals[1].x, 50.5, 0.2);
    for (const Oval& oval : ovals) {
        EXPECT_NEAR(oval.y, 20, 0.1);
        EXPECT_NEAR(oval.a, 6, 0.2);
        EXPECT_NEAR(oval.b, 6, 0.2);
    }
}

// Each of the gentle bends turns by less than a radian.
TEST(OvalsOfArcs, PassesOverGentleWaves)
{
    std::vector<OutlinePoint> points;
    for (int x = 0; x < 120; ++x)
        points.push_back({static_cast<double>(x), 2.2 * std::sin(x * 2 * kPi / 30)});
    EXPECT_EQ(ovals_of_arcs(open_line(points), 0.1, 1e6).size(), 0u);
}

TEST(OvalsOfArcs, BearsPointsThatAreRepeated)
{
    std::vector<OutlinePoint> points = arc(30, 20, 14, 10, 0, 1.8 * kPi, 90);
    points.insert(points.begin() + 40, 20, points[40]);
    const auto ovals = ovals_of_arcs(open_line(points), 3, 50);
    ASSERT_EQ(ovals.size(), 1u);
    EXPECT_NEAR(ovals[0].a, 14, 1e-6);
}

TEST(OvalsOfArcs, FindsNoneInOnePoint)
{
    EXPECT_EQ(ovals_of_arcs(open_line(std::vector<OutlinePoint>(40, {30, 20})), 1, 50).size(), 0u);
}

// Seven places, of which five more would do: the others are these again, and tell no direction.
TEST(OvalsOfArcs, RefusesAnOutlineOfFewPlaces)
{
    const auto places = [](std::size_t count) {
        std::vector<OutlinePoint> points;
        for (const OutlinePoint& p : arc(30, 20, 14, 10, 0, 2 * kPi, count))
            points.insert(points.end(), 3, p);
        return LevelLine{points, true};
    };
    EXPECT_EQ(ovals_of_arcs(places(7), 3, 50).size(), 0u);
    EXPECT_GE(ovals_of_arcs(places(40), 3, 50).size(), 1u);
}

// Wavy lines about small ellipses: some ovals are near the points that they were fitted to, but not near all of the
// line.
TEST(OvalsOfArcs, AreNearTheirLines)
{
    Random random(3);
    int found = 0;
    constexpr int kTrials = 12000;
    for (int trial = 0; trial < kTrials; ++trial) {
        const double a = random.real(1.6, 3.2), b = random.real(1.5, 2.5);
        const double end = random.real(5.2, 6.2), wave = random.real(0.15, 0.45), phase = random.real(0, 6);
        const auto bumps = static_cast<double>(random.integer(4, 6));
        LevelLine line = {arc(30, 20, a, b, 0, end, static_cast<std::size_t>(random.integer(45, 75))), trial % 2 == 0};
        for (OutlinePoint& p : line.points) {
            const double angle = std::atan2(p.y - 20, p.x - 30);
            const double off = wave * std::sin(bumps * angle + phase) + random.real(-0.25, 0.25);
            p.x += off * std::cos(angle);
            p.y += off * std::sin(angle);
        }
        for (const Oval& oval : ovals_of_arcs(line, 1, 50)) {
            ++found;
            EXPECT_TRUE(is_oval(oval)) << trial;
        }
    }
    EXPECT_GT(found, kTrials / 100);
}

// The line is on the other side of what it goes round than its turns say: an outline's points all run around one way.
TEST(OvalsOfArcs, TellsDarkFromBrightByTheDirectionOfTravel)
{
    const auto ovals = ovals_of_arcs(open_line(arc(30, 20, 14, 10, 1.7 * kPi, 0, 90)), 3, 50);
    ASSERT_EQ(ovals.size(), 1u);
    EXPECT_FALSE(ovals[0].is_dark);
}

} // namespace
