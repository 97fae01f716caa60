// SPDX-License-Identifier: MIT
#include "panoval_measure.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace
{

using panoval::test::Random;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// A camera that looks at a tilted plane of circles.
struct View {
    double focal = 1500;
    double px = 640;
    double py = 480;
    double tilt = 0.5; // of the plane
    double turn = 0.4; // of the tilt's axis
    double distance = 12;

    // Plane (X, Y) to the picture.
    std::array<double, 9> homography() const
    {
        const double c = std::cos(tilt), s = std::sin(tilt), a = std::cos(turn), b = std::sin(turn);
        // Columns: the plane's axes and its origin in the camera's coordinates.
        const double r1[3] = {a * a + b * b * c, a * b * (1 - c), -b * s};
        const double r2[3] = {a * b * (1 - c), b * b + a * a * c, a * s};
        const double o[3] = {0.3, -0.2, distance};
        std::array<double, 9> h{};
        const double* const columns[3] = {r1, r2, o};
        for (std::size_t i = 0; i < 3; ++i) {
            h[i] = focal * columns[i][0] + px * columns[i][2];
            h[3 + i] = focal * columns[i][1] + py * columns[i][2];
            h[6 + i] = columns[i][2];
        }
        return h;
    }
};

void map(const std::array<double, 9>& h, double x, double y, double& u, double& v)
{
    const double w = h[6] * x + h[7] * y + h[8];
    u = (h[0] * x + h[1] * y + h[2]) / w;
    v = (h[3] * x + h[4] * y + h[5]) / w;
}

// The image of a circle, from its dual conic: H diag(r^2 I - c c') H'.
PanovalMeasureEllipse image_of_circle(const std::array<double, 9>& h, double x, double y, double r)
{
    const double dual[3][3] = {{r * r - x * x, -x * y, -x}, {-x * y, r * r - y * y, -y}, {-x, -y, -1}};
    double d[3][3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            d[i][j] = 0;
            for (int k = 0; k < 3; ++k)
                for (int l = 0; l < 3; ++l)
                    d[i][j] +=
                        h[static_cast<std::size_t>(3 * i + k)] * dual[k][l] * h[static_cast<std::size_t>(3 * j + l)];
        }
    const double u = d[0][2] / d[2][2], v = d[1][2] / d[2][2];
    const double pxx = u * u - d[0][0] / d[2][2], pxy = u * v - d[0][1] / d[2][2], pyy = v * v - d[1][1] / d[2][2];
    const double mean = (pxx + pyy) / 2;
    const double off = std::hypot((pxx - pyy) / 2, pxy);
    return {u, v, std::sqrt(mean + off), std::sqrt(mean - off), std::atan2(2 * pxy, pxx - pyy) / 2};
}

constexpr double kDegree = 3.14159265358979323846 / 180;

TEST(CentreByHomography, IsExactForEveryTilt)
{
    for (int degrees = 0; degrees <= 75; degrees += 5) {
        const View view{.tilt = degrees * kDegree, .turn = degrees * 0.1};
        const auto h = view.homography();
        const auto ellipse = image_of_circle(h, 0.5, 0.7, 0.8);
        double x = 0, y = 0;
        map(h, 0.5, 0.7, x, y);
        PanovalMeasurePoint centre = {};
        ASSERT_EQ(panoval_measure_centre_by_homography(&ellipse, nullptr, h.data(), &centre), PANOVAL_MEASURE_OK);
        EXPECT_NEAR(centre.x, x, 1e-8) << degrees;
        EXPECT_NEAR(centre.y, y, 1e-8) << degrees;
        EXPECT_EQ(centre.var_x, 0);
        if (degrees >= 30) {
            EXPECT_GT(std::hypot(ellipse.x - x, ellipse.y - y), 0.5) << "the ellipse's own centre is elsewhere";
        }
    }
}

TEST(CentreByFocalLength, IsOneOfItsTwoAnswers)
{
    for (int degrees = 0; degrees <= 70; degrees += 5) {
        const View view{.tilt = degrees * kDegree, .turn = 1 - degrees * 0.1};
        const auto h = view.homography();
        const auto ellipse = image_of_circle(h, -0.5, 0.9, 0.8);
        double x = 0, y = 0;
        map(h, -0.5, 0.9, x, y);
        PanovalMeasureCirclePose poses[2] = {};
        ASSERT_EQ(panoval_measure_centre_by_focal_length(&ellipse, nullptr, view.focal, view.px, view.py, poses),
                  PANOVAL_MEASURE_OK);
        const auto miss = [&](const PanovalMeasureCirclePose& p) { return std::hypot(p.centre.x - x, p.centre.y - y); };
        const auto& right = miss(poses[0]) < miss(poses[1]) ? poses[0] : poses[1];
        EXPECT_LT(miss(right), 1e-5) << degrees;
        EXPECT_NEAR(std::hypot(right.normal[0], right.normal[1], right.normal[2]), 1, 1e-12);
        EXPECT_NEAR(-right.normal[2], std::cos(view.tilt), 1e-5);
        const double depth = view.distance - 0.5 * -std::sin(view.turn) * std::sin(view.tilt) +
                             0.9 * std::cos(view.turn) * std::sin(view.tilt);
        const double away_x = (x - view.px) / view.focal, away_y = (y - view.py) / view.focal;
        EXPECT_NEAR(right.distance, depth * std::hypot(1, away_x, away_y) / 0.8, 1e-4);
        EXPECT_GE(std::fabs(poses[0].normal[2]), std::fabs(poses[1].normal[2]));
    }
}

TEST(CentreByRings, NeedsNoCamera)
{
    for (int degrees = 0; degrees <= 75; degrees += 5)
        for (const double inner_radius : {0.3, 0.5, 0.7}) {
            const View view{.tilt = degrees * kDegree, .turn = degrees * 0.2};
            const auto h = view.homography();
            const auto outer = image_of_circle(h, 1.5, -0.4, 0.8);
            const auto inner = image_of_circle(h, 1.5, -0.4, inner_radius);
            double x = 0, y = 0;
            map(h, 1.5, -0.4, x, y);
            PanovalMeasurePoint centre = {};
            ASSERT_EQ(panoval_measure_centre_by_rings(&outer, nullptr, &inner, nullptr, &centre), PANOVAL_MEASURE_OK)
                << degrees;
            EXPECT_NEAR(centre.x, x, 1e-6) << degrees;
            EXPECT_NEAR(centre.y, y, 1e-6) << degrees;
        }
}

// Rows and columns of other scales, and a horizon nearer than the outline's size.
TEST(CentreByRings, NeedsNoSquarePixels)
{
    const double depth = std::sqrt(2.0);
    for (const auto& h :
         {std::array<double, 9>{9, 0, 0, 0, 0, 1, 0, 1, depth}, std::array<double, 9>{0, 0, 1, 9, 0, 0, 0, 1, depth}}) {
        const auto outer = image_of_circle(h, 0, 0, 1);
        const auto inner = image_of_circle(h, 0, 0, 0.5);
        double x = 0, y = 0;
        map(h, 0, 0, x, y);
        PanovalMeasurePoint centre = {};
        ASSERT_EQ(panoval_measure_centre_by_rings(&outer, nullptr, &inner, nullptr, &centre), PANOVAL_MEASURE_OK);
        EXPECT_NEAR(centre.x, x, 1e-6);
        EXPECT_NEAR(centre.y, y, 1e-6);
    }
}

TEST(CentreByRings, RefusesCirclesThatAreNotConcentric)
{
    const PanovalMeasureEllipse outer = {100, 100, 30, 25, 0.3};
    const PanovalMeasureEllipse beside = {112, 95, 10, 6, 1.2};
    const PanovalMeasureEllipse same = {100, 100, 29.5, 24.6, 0.3};
    PanovalMeasurePoint centre = {1, 2, 3, 4, 5};
    EXPECT_EQ(panoval_measure_centre_by_rings(&outer, nullptr, &beside, nullptr, &centre),
              PANOVAL_MEASURE_NOT_CONCENTRIC);
    EXPECT_EQ(panoval_measure_centre_by_rings(&outer, nullptr, &same, nullptr, &centre),
              PANOVAL_MEASURE_NOT_CONCENTRIC);
    EXPECT_EQ(panoval_measure_centre_by_rings(&same, nullptr, &outer, nullptr, &centre),
              PANOVAL_MEASURE_NOT_CONCENTRIC);
    for (double distance = 1e3; distance < 1e100; distance *= 1e3) {
        const PanovalMeasureEllipse away = {distance, 95, 10, 6, 1.2};
        EXPECT_EQ(panoval_measure_centre_by_rings(&outer, nullptr, &away, nullptr, &centre),
                  PANOVAL_MEASURE_NOT_CONCENTRIC)
            << distance;
    }
    EXPECT_EQ(centre.x, 1) << "untouched";
}

// Ellipses that wander by a given covariance make centres that wander by the reported one.
template <class Locate>
void expect_true_variance(const PanovalMeasureEllipse& ellipse, const Locate& locate)
{
    const double sigmas[5] = {0.02, 0.03, 0.015, 0.025, 0.0008};
    std::vector<double> covariance(25, 0.0);
    for (std::size_t i = 0; i < 5; ++i)
        covariance[6 * i] = sigmas[i] * sigmas[i];
    const PanovalMeasurePoint said = locate(ellipse, covariance.data());
    Random random(3);
    double sums[3] = {};
    constexpr int kCount = 20000;
    for (int n = 0; n < kCount; ++n) {
        double moves[5];
        for (int i = 0; i < 5; ++i)
            moves[i] = sigmas[i] * std::sqrt(3.0) * random.real(-1, 1);
        const PanovalMeasureEllipse moved = {ellipse.x + moves[0], ellipse.y + moves[1], ellipse.semi_major + moves[2],
                                             ellipse.semi_minor + moves[3], ellipse.angle + moves[4]};
        const PanovalMeasurePoint place = locate(moved, nullptr);
        sums[0] += (place.x - said.x) * (place.x - said.x);
        sums[1] += (place.x - said.x) * (place.y - said.y);
        sums[2] += (place.y - said.y) * (place.y - said.y);
    }
    EXPECT_NEAR(sums[0] / kCount / said.var_x, 1, 0.05);
    EXPECT_NEAR(sums[2] / kCount / said.var_y, 1, 0.05);
    EXPECT_NEAR(sums[1] / kCount, said.cov_xy, 0.05 * std::sqrt(said.var_x * said.var_y));
}

TEST(CentreByHomography, PassesTheCovarianceOn)
{
    const auto h = View{.tilt = 1}.homography();
    expect_true_variance(image_of_circle(h, 0.5, 0.7, 0.8), [&](const auto& ellipse, const double* covariance) {
        PanovalMeasurePoint centre = {};
        EXPECT_EQ(panoval_measure_centre_by_homography(&ellipse, covariance, h.data(), &centre), PANOVAL_MEASURE_OK);
        return centre;
    });
}

// Elements that only move together.
TEST(CentreByHomography, PassesOnWhatElementsHaveInCommon)
{
    const auto h = View{.tilt = 1}.homography();
    const PanovalMeasureEllipse e = image_of_circle(h, 0.5, 0.7, 0.8);
    const double move[5] = {0.002, -0.003, 0.004, 0.001, 0.0005};
    std::vector<double> covariance;
    for (const double one : move)
        for (const double other : move)
            covariance.push_back(one * other);
    const auto centre_of = [&](double sign) {
        const PanovalMeasureEllipse moved = {e.x + sign * move[0], e.y + sign * move[1], e.semi_major + sign * move[2],
                                             e.semi_minor + sign * move[3], e.angle + sign * move[4]};
        PanovalMeasurePoint centre = {};
        EXPECT_EQ(panoval_measure_centre_by_homography(&moved, covariance.data(), h.data(), &centre),
                  PANOVAL_MEASURE_OK);
        return centre;
    };
    const PanovalMeasurePoint said = centre_of(0);
    const PanovalMeasurePoint after = centre_of(1);
    const PanovalMeasurePoint before = centre_of(-1);
    const double dx = (after.x - before.x) / 2;
    const double dy = (after.y - before.y) / 2;
    EXPECT_NEAR(said.var_x / (dx * dx), 1, 1e-3);
    EXPECT_NEAR(said.cov_xy / (dx * dy), 1, 1e-3);
    EXPECT_NEAR(said.var_y / (dy * dy), 1, 1e-3);
}

TEST(CentreByFocalLength, PassesTheCovarianceOn)
{
    const View view{.tilt = 0.8};
    expect_true_variance(
        image_of_circle(view.homography(), 0.5, 0.7, 0.8), [&](const auto& ellipse, const double* covariance) {
            PanovalMeasureCirclePose poses[2] = {};
            EXPECT_EQ(panoval_measure_centre_by_focal_length(&ellipse, covariance, view.focal, view.px, view.py, poses),
                      PANOVAL_MEASURE_OK);
            return poses[0].normal[0] > poses[1].normal[0] ? poses[0].centre : poses[1].centre;
        });
}

TEST(CentreByFocalLength, EachAnswerHasACovarianceOfItsOwn)
{
    constexpr double kStep = 1e-4;
    const View view{.tilt = 0.5, .turn = 0.6};
    const auto ellipse = image_of_circle(view.homography(), 0.5, 0.7, 0.8);
    using Poses = std::array<PanovalMeasureCirclePose, 2>;
    const auto poses_of = [&](const PanovalMeasureEllipse& seen, const double* covariance) {
        Poses poses = {};
        EXPECT_EQ(panoval_measure_centre_by_focal_length(&seen, covariance, view.focal, view.px, view.py, poses.data()),
                  PANOVAL_MEASURE_OK);
        return poses;
    };
    double PanovalMeasureEllipse::*const parts[] = {&PanovalMeasureEllipse::x, &PanovalMeasureEllipse::y,
                                                    &PanovalMeasureEllipse::semi_major,
                                                    &PanovalMeasureEllipse::semi_minor, &PanovalMeasureEllipse::angle};
    for (std::size_t part = 0; part < 5; ++part) {
        std::vector<double> covariance(25, 0.0);
        covariance[6 * part] = kStep * kStep;
        PanovalMeasureEllipse more = ellipse, less = ellipse;
        more.*parts[part] += kStep;
        less.*parts[part] -= kStep;
        const Poses said = poses_of(ellipse, covariance.data()), above = poses_of(more, nullptr),
                    below = poses_of(less, nullptr);
        for (std::size_t k = 0; k < 2; ++k) {
            const double dx = (above[k].centre.x - below[k].centre.x) / 2;
            const double dy = (above[k].centre.y - below[k].centre.y) / 2;
            const double size = dx * dx + dy * dy;
            EXPECT_NEAR(said[k].centre.var_x, dx * dx, 1e-3 * size) << part << ", " << k;
            EXPECT_NEAR(said[k].centre.var_y, dy * dy, 1e-3 * size) << part << ", " << k;
            EXPECT_NEAR(said[k].centre.cov_xy, dx * dy, 1e-3 * size) << part << ", " << k;
        }
    }
}

TEST(CentreByFocalLength, NormalsPointTowardsTheCamera)
{
    const auto ellipse = image_of_circle(View{.tilt = 0.9, .turn = 0.4}.homography(), 0.5, 0.7, 0.8);
    const double focal = 500;
    for (const double away_x : {-800.0, -100.0, 700.0})
        for (const double away_y : {-600.0, 100.0, 900.0}) {
            PanovalMeasureCirclePose poses[2] = {};
            ASSERT_EQ(panoval_measure_centre_by_focal_length(&ellipse, nullptr, focal, ellipse.x - away_x,
                                                             ellipse.y - away_y, poses),
                      PANOVAL_MEASURE_OK);
            for (const auto& pose : poses)
                EXPECT_LT(pose.normal[0] * away_x + pose.normal[1] * away_y + pose.normal[2] * focal, 0)
                    << away_x << ", " << away_y;
        }
}

TEST(CentreByRings, PassesTheCovarianceOfEachRingOn)
{
    const auto h = View{.tilt = 0.8}.homography();
    const auto outer = image_of_circle(h, 0.5, 0.7, 0.8);
    const auto inner = image_of_circle(h, 0.5, 0.7, 0.4);
    expect_true_variance(outer, [&](const auto& ellipse, const double* covariance) {
        PanovalMeasurePoint centre = {};
        EXPECT_EQ(panoval_measure_centre_by_rings(&ellipse, covariance, &inner, nullptr, &centre), PANOVAL_MEASURE_OK);
        return centre;
    });
    expect_true_variance(inner, [&](const auto& ellipse, const double* covariance) {
        PanovalMeasurePoint centre = {};
        EXPECT_EQ(panoval_measure_centre_by_rings(&outer, nullptr, &ellipse, covariance, &centre), PANOVAL_MEASURE_OK);
        return centre;
    });
}

// Whatever an ellipse's numbers: a finite centre, or the reason why there is none and nothing written.
template <class Locate>
void expect_finite_or_refused(std::int32_t refusal, const Locate& locate)
{
    const double sizes[] = {1e-300, 1e-170, 1e-80, 1, 1e77, 1.15785e77, 1e80, 1e150, 1e300};
    int found = 0;
    int refused = 0;
    for (const double major : sizes)
        for (const double share : {1.0, 0.5, 1e-9, 1e-160})
            for (const double x : sizes)
                for (const double spread : {0.0, 1e-30, 1.0, 1e200}) {
                    const std::vector<double> covariance(25, spread);
                    const PanovalMeasureEllipse ellipse = {x, -2 * x, major, std::max(major * share, 1e-308), 0.3};
                    PanovalMeasurePoint centre = {7, 7, 7, 7, 7};
                    const std::int32_t code = locate(ellipse, covariance.data(), centre);
                    const double sum = centre.x + centre.y + centre.var_x + centre.cov_xy + centre.var_y;
                    EXPECT_TRUE(std::isfinite(sum) || code == PANOVAL_MEASURE_OK)
                        << major << ", " << share << ", " << x;
                    for (const double value : {centre.x, centre.y, centre.var_x, centre.cov_xy, centre.var_y})
                        EXPECT_TRUE(std::isfinite(value)) << major << ", " << share << ", " << x << ", " << spread;
                    if (code == PANOVAL_MEASURE_OK) {
                        ++found;
                        continue;
                    }
                    ++refused;
                    EXPECT_EQ(code, refusal);
                    EXPECT_EQ(sum, 35) << "untouched";
                }
    EXPECT_GT(found, 0);
    EXPECT_GT(refused, 0);
}

TEST(CentreByHomography, BearsNumbersNearTheEndsOfTheirRange)
{
    const auto h = View{}.homography();
    expect_finite_or_refused(PANOVAL_MEASURE_BAD_HOMOGRAPHY,
                             [&](const auto& ellipse, const double* covariance, PanovalMeasurePoint& centre) {
                                 return panoval_measure_centre_by_homography(&ellipse, covariance, h.data(), &centre);
                             });
}

TEST(CentreByFocalLength, BearsNumbersNearTheEndsOfTheirRange)
{
    for (const double focal : {1e-200, 1.0, 1e77, 1e200})
        expect_finite_or_refused(PANOVAL_MEASURE_BAD_ELLIPSE, [focal](const auto& ellipse, const double* covariance,
                                                                      PanovalMeasurePoint& centre) {
            PanovalMeasureCirclePose poses[2] = {};
            poses[0].centre = centre;
            const std::int32_t code = panoval_measure_centre_by_focal_length(&ellipse, covariance, focal, 0, 0, poses);
            centre = poses[0].centre;
            return code;
        });
}

TEST(CentreByRings, BearsNumbersNearTheEndsOfTheirRange)
{
    expect_finite_or_refused(PANOVAL_MEASURE_NOT_CONCENTRIC, [](const auto& ellipse, const double* covariance,
                                                                PanovalMeasurePoint& centre) {
        PanovalMeasureEllipse inner = ellipse;
        inner.semi_major /= 2;
        inner.semi_minor /= 2;
        return inner.semi_minor > 0 ? panoval_measure_centre_by_rings(&ellipse, covariance, &inner, covariance, &centre)
                                    : PANOVAL_MEASURE_NOT_CONCENTRIC;
    });
}

TEST(CentreByRings, RefusesAVarianceBeyondTheRangeOfNumbers)
{
    const PanovalMeasureEllipse outer = {100, 100, 30, 25, 0.3};
    const PanovalMeasureEllipse inner = {100, 100, 15, 12.5, 0.3};
    std::array<double, 25> covariance{};
    for (std::size_t i = 0; i < 25; i += 6)
        covariance[i] = 1.7e308;
    PanovalMeasurePoint centre = {1, 2, 3, 4, 5};
    ASSERT_EQ(panoval_measure_centre_by_rings(&outer, nullptr, &inner, nullptr, &centre), PANOVAL_MEASURE_OK);
    EXPECT_NEAR(centre.x, 100, 1e-9);
    EXPECT_EQ(panoval_measure_centre_by_rings(&outer, covariance.data(), &inner, covariance.data(), &centre),
              PANOVAL_MEASURE_NOT_CONCENTRIC);
    EXPECT_NEAR(centre.x, 100, 1e-9) << "untouched";
}

// What these have in common is a point at infinity.
TEST(CentreByRings, RefusesEllipsesThatTouchOnTwoSides)
{
    const PanovalMeasureEllipse outer = {100, 100, 10, 10, 0};
    const PanovalMeasureEllipse inner = {100, 100, 14, 10, 0};
    PanovalMeasurePoint centre = {1, 2, 3, 4, 5};
    EXPECT_EQ(panoval_measure_centre_by_rings(&outer, nullptr, &inner, nullptr, &centre),
              PANOVAL_MEASURE_NOT_CONCENTRIC);
    EXPECT_EQ(centre.x, 1) << "untouched";
}

TEST(Perspective, NamesWhatIsWrong)
{
    const auto h = View{}.homography();
    const PanovalMeasureEllipse good = {600, 500, 30, 25, 0.3};
    PanovalMeasureEllipse nan = good;
    nan.angle = kNan;
    PanovalMeasureEllipse flat = good;
    flat.semi_minor = 0;
    PanovalMeasurePoint centre = {1, 2, 3, 4, 5};
    const auto by = panoval_measure_centre_by_homography;
    EXPECT_EQ(by(nullptr, nullptr, h.data(), &centre), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(by(&good, nullptr, nullptr, &centre), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(by(&good, nullptr, h.data(), nullptr), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(by(&nan, nullptr, h.data(), &centre), PANOVAL_MEASURE_NOT_A_NUMBER);
    EXPECT_EQ(by(&flat, nullptr, h.data(), &centre), PANOVAL_MEASURE_BAD_ELLIPSE);
    const double singular[9] = {1, 2, 3, 2, 4, 6, 0, 0, 1};
    EXPECT_EQ(by(&good, nullptr, singular, &centre), PANOVAL_MEASURE_BAD_HOMOGRAPHY);
    const double common[9] = {1, 0, 1, 2, 1, 3, 0, 1, 1};
    EXPECT_EQ(by(&good, nullptr, common, &centre), PANOVAL_MEASURE_BAD_HOMOGRAPHY)
        << "the last column is the others' sum";
    const double without_rows[9] = {1, 0, 0, 2, 0, 0, 3, 0, 1};
    EXPECT_EQ(by(&good, nullptr, without_rows, &centre), PANOVAL_MEASURE_BAD_HOMOGRAPHY) << "a column of zeros";
    // The plane vanishes in x = 600, through the ellipse.
    const double across[9] = {600, 0, 1, 0, 1, 0, 1, 0, 0};
    EXPECT_EQ(by(&good, nullptr, across, &centre), PANOVAL_MEASURE_BAD_HOMOGRAPHY);
    const std::vector<double> nans(25, kNan);
    EXPECT_EQ(by(&good, nans.data(), h.data(), &centre), PANOVAL_MEASURE_NOT_A_NUMBER);
    EXPECT_EQ(by(&good, nullptr, nans.data(), &centre), PANOVAL_MEASURE_NOT_A_NUMBER);
    EXPECT_EQ(centre.x, 1) << "untouched";

    PanovalMeasureCirclePose poses[2] = {};
    const auto by_focal = panoval_measure_centre_by_focal_length;
    EXPECT_EQ(by_focal(&good, nullptr, 0, 0, 0, poses), PANOVAL_MEASURE_BAD_OPTION);
    EXPECT_EQ(by_focal(&good, nullptr, -5, 0, 0, poses), PANOVAL_MEASURE_BAD_OPTION);
    EXPECT_EQ(by_focal(&good, nullptr, kNan, 0, 0, poses), PANOVAL_MEASURE_NOT_A_NUMBER);
    EXPECT_EQ(by_focal(nullptr, nullptr, 1, 0, 0, poses), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(by_focal(&good, nullptr, 1, 0, 0, nullptr), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(by_focal(&flat, nullptr, 1, 0, 0, poses), PANOVAL_MEASURE_BAD_ELLIPSE);
    EXPECT_EQ(by_focal(&good, nans.data(), 1, 0, 0, poses), PANOVAL_MEASURE_NOT_A_NUMBER);

    const auto by_rings = panoval_measure_centre_by_rings;
    EXPECT_EQ(by_rings(nullptr, nullptr, &good, nullptr, &centre), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(by_rings(&good, nullptr, nullptr, nullptr, &centre), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(by_rings(&good, nullptr, &good, nullptr, nullptr), PANOVAL_MEASURE_NULL_ARGUMENT);
    EXPECT_EQ(by_rings(&good, nullptr, &flat, nullptr, &centre), PANOVAL_MEASURE_BAD_ELLIPSE);
    EXPECT_EQ(by_rings(&good, nans.data(), &good, nullptr, &centre), PANOVAL_MEASURE_NOT_A_NUMBER);
}

} // namespace
