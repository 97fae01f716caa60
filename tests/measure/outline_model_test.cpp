// SPDX-License-Identifier: MIT
#include "measure/outline_model.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

namespace
{

using panoval::measure::Box;
using panoval::measure::DistanceTo;
using panoval::measure::kPlanes;
using panoval::measure::Outline;
using panoval::measure::OutlineModel;
using panoval::test::Random;

constexpr double kPi = 3.14159265358979323846;

double cumulative(double z)
{
    return 0.5 * std::erfc(-z / std::sqrt(2.0));
}

// Integral of the cumulative distribution.
double ramp(double z)
{
    return z * cumulative(z) + std::exp(-z * z / 2) / std::sqrt(2 * kPi);
}

// The blurred box, integrated from a place on.
double covered_up_to(double distance, double blur)
{
    return blur * (ramp((distance + 0.5) / blur) - ramp((distance - 0.5) / blur));
}

// What a pixel sees of an ellipse, by area: chords of many heights, each from its left end to its right one.
double coverage(const PanovalMeasureEllipse& e, double blur, double x, double y)
{
    const double c = std::cos(e.angle), s = std::sin(e.angle);
    const double a = c * c / (e.semi_major * e.semi_major) + s * s / (e.semi_minor * e.semi_minor);
    const double b = c * s * (1 / (e.semi_major * e.semi_major) - 1 / (e.semi_minor * e.semi_minor));
    const double d = s * s / (e.semi_major * e.semi_major) + c * c / (e.semi_minor * e.semi_minor);
    const double height = std::sqrt(a / (a * d - b * b));
    constexpr int kChords = 600;
    double sum = 0;
    for (int i = 0; i < kChords; ++i) {
        const double angle = -kPi / 2 + (i + 0.5) * kPi / kChords;
        const double dy = height * std::sin(angle);
        const double half = std::sqrt(std::max(0.0, b * b * dy * dy - a * (d * dy * dy - 1))) / a;
        const double middle = e.x - b * dy / a;
        const double down = e.y + dy - y;
        const double weight = cumulative((down + 0.5) / blur) - cumulative((down - 0.5) / blur);
        sum += weight * height * std::cos(angle) * kPi / kChords *
               (covered_up_to(middle + half - x, blur) - covered_up_to(middle - half - x, blur));
    }
    return sum;
}

PanovalMeasureEllipse random_ellipse(Random& random, double least_minor)
{
    const double major = random.real(3, 14);
    return {random.real(-0.5, 0.5), random.real(-0.5, 0.5), major, std::max(least_minor, major * random.real(0.3, 1)),
            random.real(-1.5, 1.5)};
}

constexpr Box kBox = {-40, -40, 81, 81};

TEST(OutlineModel, CoversWhatTheAreaIntegralSays)
{
    Random random(1);
    OutlineModel model;
    for (const double blur : {0.1, 0.2, 0.4, 1.0, 2.5}) {
        ASSERT_TRUE(model.reserve(kBox, 16, blur, blur));
        for (int n = 0; n < 6; ++n) {
            const PanovalMeasureEllipse ellipse = random_ellipse(random, 1.2);
            ASSERT_TRUE(model.sample(panoval::measure::outline_of(ellipse), blur));
            for (std::int32_t y = -20; y <= 20; ++y) {
                const float* const planes = model.row(y);
                const float* const covered = planes + panoval::measure::kCoverage * model.stride();
                for (int k = 0; k < 3; ++k) {
                    const auto x = static_cast<std::int32_t>(random.integer(-20, 20));
                    ASSERT_NEAR(static_cast<double>(covered[x + 40]), coverage(ellipse, blur, x, y), 1e-4)
                        << "x " << x << ", y " << y << ", blur " << blur << ", axes " << ellipse.semi_major << ", "
                        << ellipse.semi_minor;
                }
            }
        }
    }
}

double covered_at(OutlineModel& model, const Outline& outline, double blur, std::int32_t x, std::int32_t y)
{
    EXPECT_TRUE(model.sample(outline, blur));
    return model.row(y)[panoval::measure::kCoverage * model.stride() + static_cast<std::size_t>(x + 40)];
}

TEST(OutlineModel, HasDerivativesThatAreTheDifferences)
{
    Random random(2);
    OutlineModel model;
    ASSERT_TRUE(model.reserve(kBox, 20, 0.3, 2));
    for (int n = 0; n < 200; ++n) {
        const double blur = random.real(0.35, 1.5);
        const Outline outline = panoval::measure::outline_of(random_ellipse(random, 1.5));
        const auto x = static_cast<std::int32_t>(random.integer(-12, 12));
        const auto y = static_cast<std::int32_t>(random.integer(-12, 12));
        ASSERT_TRUE(model.sample(outline, blur));
        const float* const planes = model.row(y);
        std::array<double, kPlanes> said{};
        for (std::size_t plane = 0; plane < kPlanes; ++plane)
            said[plane] = planes[plane * model.stride() + static_cast<std::size_t>(x + 40)];
        constexpr double kStep = 1e-4;
        double Outline::*const elements[] = {&Outline::x, &Outline::y, &Outline::mean, &Outline::skew_x,
                                             &Outline::skew_y};
        for (std::size_t i = 0; i < 5; ++i) {
            Outline more = outline;
            Outline less = outline;
            more.*elements[i] += kStep;
            less.*elements[i] -= kStep;
            const double difference =
                (covered_at(model, more, blur, x, y) - covered_at(model, less, blur, x, y)) / (2 * kStep);
            EXPECT_NEAR(said[i], difference, 4e-3) << "element " << i;
        }
        const double more = std::sqrt(blur * blur + kStep);
        const double less = std::sqrt(blur * blur - kStep);
        const double difference =
            (covered_at(model, outline, more, x, y) - covered_at(model, outline, less, x, y)) / (2 * kStep);
        EXPECT_NEAR(said[panoval::measure::kByBlur], difference, 4e-3) << "blur " << blur;
    }
}

TEST(OutlineModel, RefusesWhatIsBeyondItsRoom)
{
    OutlineModel model;
    ASSERT_TRUE(model.reserve(kBox, 20, 0.3, 2));
    EXPECT_TRUE(model.sample({0, 0, 15, 2, 1}, 1));
    EXPECT_FALSE(model.sample({0, 0, 15, 2, 1}, 3)) << "blur";
    EXPECT_FALSE(model.sample({0, 0, 15, 2, 1}, 0.05)) << "blur";
    EXPECT_FALSE(model.sample({30, 0, 15, 2, 1}, 1)) << "out of the box";
    EXPECT_FALSE(model.sample({0, 0, 60, 0, 0}, 1)) << "larger than the box";
    EXPECT_FALSE(model.sample({0, 0, 5, 6, 0}, 1)) << "no ellipse";
    EXPECT_FALSE(model.sample({std::nan(""), 0, 15, 2, 1}, 1));
    EXPECT_TRUE(model.sample({0, 0, 15, 2, 1}, 1)) << "still usable";
}

TEST(Outline, IsTheEllipseItWasMadeOf)
{
    Random random(3);
    for (int n = 0; n < 1000; ++n) {
        const PanovalMeasureEllipse ellipse = random_ellipse(random, 1);
        const PanovalMeasureEllipse again = panoval::measure::ellipse_of(panoval::measure::outline_of(ellipse));
        EXPECT_NEAR(again.semi_major, ellipse.semi_major, 1e-12);
        EXPECT_NEAR(again.semi_minor, ellipse.semi_minor, 1e-12);
        EXPECT_NEAR(std::cos(2 * (again.angle - ellipse.angle)), 1, 1e-9 + (ellipse.semi_major == ellipse.semi_minor));
        EXPECT_GT(again.angle, -kPi / 2);
        EXPECT_LE(again.angle, kPi / 2);
    }
    const PanovalMeasureEllipse swapped =
        panoval::measure::ellipse_of(panoval::measure::outline_of({1, 2, 5, 9, 0.25}));
    EXPECT_NEAR(swapped.semi_major, 9, 1e-12) << "the longer axis first";
    EXPECT_NEAR(swapped.angle, 0.25 - kPi / 2, 1e-12);
}

TEST(DistanceTo, IsExactOnTheOutlineAndNeverMoreThanTheDepth)
{
    const PanovalMeasureEllipse ellipse = {3, 4, 20, 9, 0.6};
    const DistanceTo distance(panoval::measure::outline_of(ellipse));
    for (int i = 0; i < 64; ++i) {
        const double t = i * kPi / 32;
        const double u = ellipse.semi_major * std::cos(t), v = ellipse.semi_minor * std::sin(t);
        const double x = ellipse.x + u * std::cos(0.6) - v * std::sin(0.6);
        const double y = ellipse.y + u * std::sin(0.6) + v * std::cos(0.6);
        EXPECT_NEAR(distance.distance(distance.place(x, y)), 0, 1e-12);
        // 0.1 outward along the normal
        double nx = std::cos(t) / ellipse.semi_major, ny = std::sin(t) / ellipse.semi_minor;
        const double length = std::hypot(nx, ny);
        nx /= length;
        ny /= length;
        const double out_x = x + 0.1 * (nx * std::cos(0.6) - ny * std::sin(0.6));
        const double out_y = y + 0.1 * (nx * std::sin(0.6) + ny * std::cos(0.6));
        EXPECT_NEAR(distance.distance(distance.place(out_x, out_y)), 0.1, 2e-3);
    }
    EXPECT_NEAR(distance.place(3, 4).depth, 9, 1e-12);
}

} // namespace
