// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/oval_fit.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

namespace
{

using panoval::test::for_each_failing_allocation;
using panoval::test::Guarded;
using panoval::test::Random;
using panoval::test::same_bits;

constexpr double kPi = 3.141592653589793;

struct Ellipse {
    double x0, y0, major, minor, angle;
};

// count points, evenly spread over the parameter, moved by noise of the given size.
std::vector<double> points_on(const Ellipse& ellipse, int count, double noise = 0, std::uint64_t seed = 1)
{
    Random random(seed);
    std::vector<double> points;
    for (int i = 0; i < count; ++i) {
        const double phi = 0.05 + 2 * kPi * i / count;
        const double u = ellipse.major * std::cos(phi);
        const double v = ellipse.minor * std::sin(phi);
        points.push_back(ellipse.x0 + u * std::cos(ellipse.angle) - v * std::sin(ellipse.angle) +
                         random.real(-noise, noise));
        points.push_back(ellipse.y0 + u * std::sin(ellipse.angle) + v * std::cos(ellipse.angle) +
                         random.real(-noise, noise));
    }
    return points;
}

std::int32_t count_of(const std::vector<double>& points)
{
    return static_cast<std::int32_t>(points.size() / 2);
}

OvalFit fit(const std::vector<double>& points)
{
    OvalFit result = {};
    EXPECT_EQ(oval_fit(count_of(points), points.data(), &result), 1);
    return result;
}

void expect_twin(const std::vector<double>& points)
{
    const Guarded<double> input(points);
    Guarded<OvalFit> actual(1);
    OvalFit expected = *actual.data(); // what neither writes stays alike
    const std::int32_t returned = oval_fit(count_of(points), input.data(), actual.data());
    EXPECT_EQ(returned, panoval::reference::oval_fit(count_of(points), points.data(), &expected));
    EXPECT_TRUE(actual.intact() && input.intact());
    EXPECT_TRUE(same_bits(input.values(), points)) << "the points are read only";
    EXPECT_TRUE(same_bits(reinterpret_cast<const double*>(actual.data()), &expected.coef_a, 13));
}

TEST(OvalFit, FindsCentreAxesAndAngleOfAnEllipse)
{
    const OvalFit found = fit(points_on({120, 80, 30, 18, 0.3}, 40));
    EXPECT_EQ(found.coef_a, 1.0);
    EXPECT_NEAR(found.x0, 120, 1e-6);
    EXPECT_NEAR(found.y0, 80, 1e-6);
    EXPECT_NEAR(found.semi_major, 30, 1e-6);
    EXPECT_NEAR(found.semi_minor, 18, 1e-6);
    EXPECT_NEAR(found.theta, 0.3, 1e-7);
    EXPECT_NEAR(found.rms, 0, 1e-6);
}

TEST(OvalFit, WritesTheConicThatThePointsLieOn)
{
    // x*x/100 + y*y/25 = 1 around (7, -3), times 100
    const OvalFit found = fit(points_on({7, -3, 10, 5, 0}, 24));
    EXPECT_NEAR(found.coef_b, 0, 1e-9);
    EXPECT_NEAR(found.coef_c, 4, 1e-9);
    EXPECT_NEAR(found.coef_d, -14, 1e-9);
    EXPECT_NEAR(found.coef_e, 24, 1e-9);
    EXPECT_NEAR(found.coef_f, 49 + 36 - 100, 1e-8);
}

TEST(OvalFit, FindsACircle)
{
    const OvalFit found = fit(points_on({50, 40, 20, 20, 0}, 31));
    EXPECT_NEAR(found.coef_b, 0, 1e-9);
    EXPECT_NEAR(found.coef_c, 1, 1e-9);
    EXPECT_NEAR(found.semi_major, 20, 1e-7);
    EXPECT_NEAR(found.semi_minor, 20, 1e-7);
    EXPECT_GE(found.semi_major, found.semi_minor);
    EXPECT_NEAR(found.rms, 0, 1e-6);
}

TEST(OvalFit, HasNoAngleForACircleToTheLastBit)
{
    // B = 0 and C = 1 exactly: the angle is the arctangent of 0 / 0, and axes and residual follow it.
    const OvalFit found = fit({5, 0, -5, 0, 0, 5, 0, -5, 3, 4, -3, -4});
    EXPECT_EQ(found.coef_b, 0.0);
    EXPECT_EQ(found.coef_c, 1.0);
    EXPECT_EQ(found.coef_f, -25.0);
    EXPECT_EQ(found.x0, 0.0);
    EXPECT_TRUE(std::isnan(found.theta));
    EXPECT_TRUE(std::isnan(found.semi_major));
    EXPECT_TRUE(std::isnan(found.semi_minor));
    EXPECT_TRUE(std::isnan(found.rms));
    EXPECT_EQ(found.max_residual, 0.0);
}

TEST(OvalFit, TurnsTheAngleByARightAngleWhereTheMajorAxisIsUpright)
{
    for (const double turn : {-0.2, -1e-3, 1e-3, 0.2}) {
        const OvalFit found = fit(points_on({60, 60, 25, 10, kPi / 2 + turn}, 36));
        EXPECT_NEAR(found.theta, kPi / 2 + turn, 1e-7);
        EXPECT_NEAR(found.semi_major, 25, 1e-6);
        EXPECT_NEAR(found.semi_minor, 10, 1e-6);
    }
}

TEST(OvalFit, KeepsTheAngleBetweenMinus45And135Degrees)
{
    for (int degrees = -44; degrees <= 134; degrees += 2) {
        const OvalFit found = fit(points_on({60, 60, 25, 10, degrees * kPi / 180}, 36));
        EXPECT_NEAR(found.theta, degrees * kPi / 180, 1e-6) << degrees << " degrees";
    }
}

TEST(OvalFit, NeedsSixPoints)
{
    const std::vector<double> points = points_on({10, 10, 4, 3, 0.2}, 6);
    OvalFit untouched;
    std::memset(&untouched, 0x5A, sizeof untouched);
    for (const std::int32_t count : {5, 1, 0, -1, std::numeric_limits<std::int32_t>::min()}) {
        OvalFit result = untouched;
        EXPECT_EQ(oval_fit(count, points.data(), &result), 0);
        EXPECT_EQ(std::memcmp(&result, &untouched, sizeof result), 0);
    }
    EXPECT_NEAR(fit(points).semi_major, 4, 1e-7);
}

TEST(OvalFit, MeasuresTheFocalSumAgainstTheMajorAxis)
{
    // Points alternate between 0.1 inside and outside a circle of radius 20: both distances change by 0.1.
    std::vector<double> points = points_on({0, 0, 20, 20, 0}, 40);
    for (std::size_t i = 0; i < 40; ++i) {
        const double factor = i % 2 == 0 ? 20.1 / 20 : 19.9 / 20;
        points[2 * i] *= factor;
        points[2 * i + 1] *= factor;
    }
    const OvalFit found = fit(points);
    EXPECT_NEAR(found.rms, 0.2, 1e-3);
    EXPECT_NEAR(found.max_residual, 0.2, 5e-3);
}

TEST(OvalFit, ReportsNoNegativeLargestResidual)
{
    for (std::uint64_t seed = 0; seed < 50; ++seed)
        EXPECT_GE(fit(points_on({30, 20, 9, 6, 0.1}, 12, 0.3, seed)).max_residual, 0.0);
}

TEST(OvalFit, FollowsTheOtherPointsRatherThanAFarOutlier)
{
    std::vector<double> points = points_on({50, 50, 20, 12, 0.5}, 60, 0.05);
    points[0] += 15;
    const OvalFit found = fit(points);
    EXPECT_NEAR(found.x0, 50, 0.2);
    EXPECT_NEAR(found.y0, 50, 0.2);
    EXPECT_NEAR(found.semi_major, 20, 0.3);
    EXPECT_NEAR(found.semi_minor, 12, 0.3);
    EXPECT_GT(found.max_residual, 5);

    OvalFit twin = {};
    panoval::reference::OvalFitTrace trace;
    panoval::reference::oval_fit(count_of(points), points.data(), &twin, &trace);
    EXPECT_LT(trace.weights[0], 1e-3);
}

TEST(OvalFit, FailsOnAHyperbolaAndWritesItsCoefficients)
{
    std::vector<double> points; // (x - 5)^2 - (y - 3)^2 = 4, both branches
    for (const double t : {0.25, 0.5, 1.0, 2.0, 4.0}) {
        points.insert(points.end(), {5 + t + 1 / t, 3 + t - 1 / t});
        points.insert(points.end(), {5 - t - 1 / t, 3 - t + 1 / t});
    }
    OvalFit result;
    std::memset(&result, 0xFF, sizeof result);
    EXPECT_EQ(oval_fit(count_of(points), points.data(), &result), 0);
    EXPECT_EQ(result.coef_a, 1.0);
    EXPECT_NEAR(result.coef_b, 0, 1e-6);
    EXPECT_NEAR(result.coef_c, -1, 1e-6);
    EXPECT_NEAR(result.coef_d, -10, 1e-5);
    EXPECT_NEAR(result.coef_e, 6, 1e-5);
    EXPECT_NEAR(result.coef_f, 25 - 9 - 4, 1e-5);
}

TEST(OvalFit, FailsOnPointsThatAreNotNumbers)
{
    for (const double odd : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity()}) {
        std::vector<double> points = points_on({50, 50, 20, 12, 0.5}, 12);
        points[7] = odd;
        OvalFit result = {};
        EXPECT_EQ(oval_fit(12, points.data(), &result), 0);
    }
}

TEST(OvalFit, FailsOnAConicWithAnInfiniteCoefficient)
{
    // So flat that what the squares of y are multiplied with is beyond all numbers.
    const std::vector<double> points = {
        -0.00012899252244962022, 1.1065720975414491e-158,  -0.00026150248004412532, -9.6807671351324667e-159,
        -0.003237722856420008,   -9.0566592584149813e-159, -0.0044468834812961232,  1.1559895505737556e-158,
        3.9732674491196821e-05,  -9.42240422634885e-159,   -0.0036503128968062575,  -7.6816874939647394e-159,
        0.00066665470773772599,  -3.3413745103841251e-159, 0.00083994778753699077,  1.0225345514536926e-158};
    OvalFit result = {};
    EXPECT_EQ(oval_fit(8, points.data(), &result), 0);
    EXPECT_TRUE(std::isinf(result.coef_c));
    expect_twin(points);
}

TEST(OvalFit, StaysDefinedForPointsOnALineAndForOnePoint)
{
    std::vector<double> line;
    for (int i = 0; i < 20; ++i)
        line.insert(line.end(), {10.0 + i, 30.0 + 2 * i});
    expect_twin(line);
    expect_twin(std::vector<double>(24, 7.0));
    expect_twin(std::vector<double>(24, 0.0));
}

TEST(OvalFit, EqualsItsTwinForEveryCount)
{
    panoval::test::for_each_target([] {
        for (int count = 0; count <= 67; ++count)
            for (const double noise : {0.0, 0.02, 0.5})
                expect_twin(points_on({200, 150, 14, 9, 0.7}, count, noise, static_cast<std::uint64_t>(count)));
    });
}

TEST(OvalFit, EqualsItsTwinForMorePointsThanItTakesAtOnce)
{
    for (const int count : {511, 512, 513, 1024, 1100})
        for (const double noise : {0.0, 0.4}) {
            auto points = points_on({200, 150, 90, 60, 0.7}, count, noise, static_cast<std::uint64_t>(count));
            for (std::size_t i = 0; i < points.size(); i += 37)
                points[i] += 40 * noise;
            SCOPED_TRACE(testing::Message() << count << " points, noise " << noise);
            expect_twin(points);
        }
}

TEST(OvalFit, EqualsItsTwinForManyShapes)
{
    Random random(5);
    for (int i = 0; i < 400; ++i) {
        const double major = random.real(2, 200);
        const Ellipse ellipse = {random.real(-100, 4000), random.real(-100, 3000), major, major * random.real(0.05, 1),
                                 random.real(-kPi, kPi)};
        SCOPED_TRACE(i);
        expect_twin(points_on(ellipse, static_cast<int>(random.integer(6, 400)), random.real(0, 1.5), random.next()));
    }
}

TEST(OvalFit, EqualsItsTwinWithOutliers)
{
    Random random(6);
    for (int i = 0; i < 100; ++i) {
        auto points = points_on({300, 200, 40, 25, 0.2}, 80, 0.1, random.next());
        for (int k = 0; k < 1 + i % 20; ++k)
            points[static_cast<std::size_t>(random.integer(0, 159))] += random.real(-30, 30);
        SCOPED_TRACE(i);
        expect_twin(points);
    }
}

TEST(OvalFit, EqualsItsTwinOnScatterThatIsNoEllipse)
{
    for (std::uint64_t seed = 0; seed < 200; ++seed)
        expect_twin(panoval::test::noise<double>(2 * (6 + seed % 40), -50, 50, seed));
}

// A circle sheared by 2^-20: the axes differ by less than their last bit, the angle is still that of the shear.
TEST(OvalFit, EqualAxesDoNotChangePlaces)
{
    constexpr double kUnit[][2] = {{1, 0},  {0.8, 0.6},   {0, 1},  {-0.6, 0.8},
                                   {-1, 0}, {-0.8, -0.6}, {0, -1}, {0.6, -0.8}};
    std::vector<double> points;
    for (const auto& [x, y] : kUnit) {
        points.push_back(50 + 5 * x + 0x1p-20 * (5 * y));
        points.push_back(40 + 5 * y + 0x1p-20 * (5 * x));
    }
    OvalFit result = {};
    ASSERT_EQ(oval_fit(8, points.data(), &result), 1);
    EXPECT_EQ(result.semi_major, result.semi_minor);
    EXPECT_EQ(result.theta, -0.78539816339744828);
}

TEST(OvalFit, WithoutMemoryReturnsZeroAndLeavesTheRecord)
{
    const std::vector<double> points = points_on({50, 50, 20, 12, 0.5}, 30);
    for_each_failing_allocation([&](const auto& heap) {
        OvalFit result = {};
        result.rms = -7;
        const std::int32_t returned = oval_fit(30, points.data(), &result);
        EXPECT_EQ(returned, heap.has_failed() ? 0 : 1);
        EXPECT_EQ(result.rms == -7, returned == 0);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
