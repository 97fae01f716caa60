// SPDX-License-Identifier: MIT
// The built main library with another libmath put in the place of ours through the loader's search path, and what the
// oval fit and the gain compensation ask of it. Run once without the stand-in (OwnLibmath) and once with it (StandIn).
#include "libmath/libmath.h"
#include "panoval.h"
#include "tests/libmath/standin.h"
#include "tests/reference/oval_fit.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/scene.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <utility>
#include <vector>

namespace
{

using panoval::test::Observation;
using panoval::test::StandInState;

// Null when the libmath that is loaded is not the stand-in.
StandInState* loaded_standin()
{
    using Get = StandInState* (*)();
#ifdef _WIN32
    const HMODULE library = GetModuleHandleA("libmath.dll");
    const auto get = reinterpret_cast<Get>(reinterpret_cast<void*>(GetProcAddress(library, "standin_state")));
#else
    const auto get = reinterpret_cast<Get>(dlsym(RTLD_DEFAULT, "standin_state"));
#endif
    return get == nullptr ? nullptr : get();
}

// 12 points on an ellipse around (40, 30) with semi-axes 9 and 5, turned by 0.4.
std::vector<double> ellipse_points()
{
    std::vector<double> points;
    for (int i = 0; i < 12; ++i) {
        const double phi = 0.1 + i * 0.5235;
        const double u = 9 * std::cos(phi);
        const double v = 5 * std::sin(phi);
        points.push_back(40 + u * std::cos(0.4) - v * std::sin(0.4));
        points.push_back(30 + u * std::sin(0.4) + v * std::cos(0.4));
    }
    return points;
}

void expect_the_ellipse(const OvalFit& fit)
{
    EXPECT_NEAR(fit.x0, 40, 1e-6);
    EXPECT_NEAR(fit.y0, 30, 1e-6);
    EXPECT_NEAR(fit.semi_major, 9, 1e-6);
    EXPECT_NEAR(fit.semi_minor, 5, 1e-6);
    EXPECT_NEAR(fit.theta, 0.4, 1e-6);
    EXPECT_NEAR(fit.rms, 0, 1e-6);
}

TEST(OwnLibmath, IsLoadedWithoutAnotherOnTheLibraryPath)
{
    EXPECT_EQ(loaded_standin(), nullptr);
    OvalFit fit;
    const std::vector<double> points = ellipse_points();
    ASSERT_EQ(oval_fit(12, points.data(), &fit), 1);
    expect_the_ellipse(fit);
}

class StandIn : public testing::Test
{
protected:
    void SetUp() override
    {
        state = loaded_standin();
        ASSERT_NE(state, nullptr) << "the stand-in is not on the library path";
        *state = StandInState{};
    }

    // The solution of solve_lsq's next call; the calls after the last scripted one solve.
    void script(double b, double c, double d, double e, double f)
    {
        double* const answer = state->answer[state->answers++];
        const double values[] = {b, c, d, e, f};
        std::copy(values, values + 5, answer);
    }

    std::int32_t fit(const std::vector<double>& points)
    {
        result = OvalFit{};
        count = static_cast<std::int32_t>(points.size() / 2);
        return oval_fit(count, points.data(), &result);
    }

    std::int32_t passes() const { return state->calls[panoval::test::kSolveLsq]; }
    const Observation& seen(std::int32_t pass, std::int32_t point) const
    {
        return state->observations[pass * count + point];
    }

    StandInState* state = nullptr;
    std::int32_t count = 0;
    OvalFit result = {};
};

TEST_F(StandIn, TakesThePlaceOfOursWithoutARebuild)
{
    ASSERT_EQ(fit(ellipse_points()), 1);
    expect_the_ellipse(result);
    EXPECT_GT(passes(), 1);
    EXPECT_EQ(state->calls[panoval::test::kPnrml], 12 * passes());
}

TEST_F(StandIn, IsGivenOneObservationForEachPointInOrder)
{
    const std::vector<double> points = ellipse_points();
    ASSERT_EQ(fit(points), 1);
    for (std::int32_t pass = 0; pass < passes(); ++pass)
        for (std::int32_t i = 0; i < count; ++i) {
            const double x = points[static_cast<std::size_t>(2 * i)];
            const double y = points[static_cast<std::size_t>(2 * i + 1)];
            const double row[5] = {x * y, y * y, x, y, 1};
            EXPECT_TRUE(panoval::test::same_bits(seen(pass, i).row, row, 5));
        }
}

TEST_F(StandIn, FindsTheSumsAndTheSolutionClearedBeforeEachPass)
{
    ASSERT_EQ(fit(ellipse_points()), 1);
    EXPECT_GT(passes(), 1);
    EXPECT_TRUE(state->equations_were_zero);
    EXPECT_TRUE(state->solution_was_zero);
}

TEST_F(StandIn, SeesTheCircleThroughTheFirstPointAroundTheMeanAtFirst)
{
    // mean (10, 20), R = 5; the points at distance 5 have residual 0, the others R*R minus their squared distance
    const std::vector<double> points = {15, 20, 5, 20, 10, 25, 10, 15, 10, 20, 10, 20};
    fit(points);
    const double expected[] = {0, 0, 0, 0, 25, 25};
    for (std::int32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(seen(0, i).value, expected[i]) << "point " << i;
        EXPECT_EQ(seen(0, i).weight, 1.0);
    }
}

TEST_F(StandIn, HasItsCorrectionsAddedInTheOrderBCDEF)
{
    script(0.5, 0.25, 3, 5, 7);
    script(0, 0, 0, 0, 0);
    fit({1, 2, 1, -2, -1, 2, -1, -2, 0, 0, 0, 0}); // mean (0, 0), R*R = 5: the start is (0, 1, 0, 0, -5)
    // B = 0.5, C = 1.25, D = 3, E = 5, F = 2 at (1, 2)
    EXPECT_EQ(seen(1, 0).value, -(1 + 0.5 * 1 * 2 + 1.25 * 2 * 2 + 3 * 1 + 5 * 2 + 2.0));
}

TEST_F(StandIn, GivesTheBitsOfTheTwinThatAlsoCallsIt)
{
    panoval::test::Random random(8);
    for (int i = 0; i < 60; ++i) {
        std::vector<double> points = ellipse_points();
        for (double& coordinate : points)
            coordinate += random.real(-0.05, 0.05) * i;
        const std::int32_t returned = fit(points);
        OvalFit expected = {};
        EXPECT_EQ(returned, panoval::reference::oval_fit(count, points.data(), &expected));
        EXPECT_TRUE(panoval::test::same_bits(&result.coef_a, &expected.coef_a, 13)) << i;
    }
}

TEST_F(StandIn, IsWhatTheEllipseFinderFitsWith)
{
    const auto picture = panoval::test::render({64, 48, {{30.25, 22.5, 14, 9}}});
    EllipseRegion* regions = nullptr;
    ASSERT_EQ(find_ellipse(picture.data(), 64, 48, &regions, 1, 5, 1), 1u);
    EXPECT_GT(passes(), 1);
    EXPECT_EQ(state->calls[panoval::test::kPnrml], regions[0].point_count * passes());
    EXPECT_NEAR(regions[0].cx, 30.25, 0.2);
    EXPECT_NEAR(regions[0].cy, 22.5, 0.2);
    std::free(regions[0].points);
    std::free(regions);
}

TEST_F(StandIn, IsNotAskedForItsResult)
{
    state->result = -1;
    ASSERT_EQ(fit(ellipse_points()), 1);
    expect_the_ellipse(result);
}

TEST_F(StandIn, StopsAfterTheFirstPassThatFitsWithin001)
{
    // The start circle fits to the last bit, and its correction is still added.
    script(0.25, 0.5, 0, 0, 0);
    EXPECT_EQ(fit({5, 0, -5, 0, 0, 5, 0, -5, 3, 4, -3, -4}), 1);
    EXPECT_EQ(passes(), 1);
    EXPECT_EQ(result.coef_b, 0.25);
    EXPECT_EQ(result.coef_c, 1.5);
}

// Residuals of the start circle: six times 0 and twice 0.03
std::vector<double> circle_with_two_points_inside()
{
    return {5, 0, -5, 0, 0, 5, 0, -5, 3, 4, -3, -4, 4, 2.995, -4, -2.995};
}

TEST_F(StandIn, ReweightsOnceTheCorrectionsAreAllSmall)
{
    for (int i = 0; i < 3; ++i)
        script(9e-7, 0, -9e-7, 0, 0);
    fit(circle_with_two_points_inside());
    // v = 0.029975, rms = 0.015 (half of it): above 1.5 times, so the weight falls to 0.25; then rms falls
    EXPECT_EQ(seen(0, 6).weight, 1.0);
    EXPECT_NEAR(seen(1, 6).weight, 0.25, 1e-3);
    EXPECT_EQ(seen(1, 0).weight, 1.0);
}

TEST_F(StandIn, DoesNotReweightWhileOneCorrectionIsNotSmall)
{
    for (int i = 0; i < 3; ++i)
        script(0, 0, 0, 0, 1e-6); // not below 1e-6
    fit(circle_with_two_points_inside());
    for (std::int32_t pass = 0; pass < 3; ++pass)
        EXPECT_EQ(seen(pass, 6).weight, 1.0) << "pass " << pass;
}

TEST_F(StandIn, LowersWeightsOnlyAboveOneAndAHalfTimesTheRms)
{
    for (const double excess : {0.0, 0x1p-23}) {
        *state = StandInState{};
        script(0, -1, 0, -1, 0); // from here on a residual is its point's y
        script(0, 0, 0, 0, 0);
        const double y = 3 + excess;
        fit({0, 0, 0, 0, 0, 3, 0, -3, 0, y, 0, -y, 0, 1, 0, -1, 0, 1, 0, -1}); // rms 2, or hardly more
        EXPECT_EQ(seen(1, 2).value, 3.0);
        EXPECT_EQ(seen(2, 2).weight, 1.0);
        EXPECT_EQ(seen(2, 6).weight, 1.0);
        EXPECT_NEAR(seen(2, 4).weight, excess > 0 ? 4.0 / 9 : 1.0, 1e-6);
        EXPECT_NEAR(seen(2, 5).weight, excess > 0 ? 4.0 / 9 : 1.0, 1e-6);
    }
}

TEST_F(StandIn, ReweightsWhenTheFitGotWorse)
{
    script(0, 0, 0, 0, -0.003); // residuals 0.003 and 0.033
    fit(circle_with_two_points_inside());
    EXPECT_EQ(seen(1, 6).weight, 1.0);
    EXPECT_NEAR(seen(2, 6).weight, 0.256, 1e-3);
    EXPECT_EQ(seen(2, 0).weight, 1.0);
}

TEST_F(StandIn, DoesNotReweightWhenTheFitGotBetter)
{
    script(0, 0, 0, 0, 0.003); // residuals -0.003 and 0.027
    fit(circle_with_two_points_inside());
    EXPECT_EQ(seen(2, 6).weight, 1.0);
}

TEST_F(StandIn, ReweightsAlwaysFromTheTwentySeventhPass)
{
    for (int i = 0; i < 50; ++i)
        script(0, 0, 0, 0, 1e-4); // never small, and the rms falls slowly from 0.015 to 0.0132
    fit(circle_with_two_points_inside());
    EXPECT_EQ(seen(26, 6).weight, 1.0);
    EXPECT_LT(seen(27, 6).weight, 0.7);
    EXPECT_EQ(seen(27, 0).weight, 1.0);
}

TEST_F(StandIn, ReweightsEvenInTheLastPassOfAFitThatConverged)
{
    // Two points stay 0.022 inside, which is an rms of 0.011. The 27th pass finds the other six moved towards them: it
    // is the first below 0.01, and the weights that it leaves are those of the geometric residual.
    const std::vector<double> points = {5, 0, -5, 0, 0, 5, 0, -5, 3, 4, -3, -4, 4, 2.9963, -4, -2.9963};
    for (int i = 0; i < 25; ++i)
        script(0, 0, 0, 0, 1e-6);
    script(0, 0, 0, 0, 0.0055);
    script(0, 0.5, 0, 0, 0);
    ASSERT_EQ(fit(points), 1);
    ASSERT_EQ(passes(), 27);
    double squares = 0;
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(seen(26, i).weight, 1.0);
        squares += seen(26, i).value * seen(26, i).value;
    }
    const double rms = std::sqrt(squares / 8);
    ASSERT_LT(rms, 0.01);
    ASSERT_GT(seen(26, 6).value, 1.5 * rms);
    const double lowered = rms / seen(26, 6).value * (rms / seen(26, 6).value);
    const double focal = std::sqrt(result.semi_major * result.semi_major - result.semi_minor * result.semi_minor);
    double weight_sum = 0;
    double square_sum = 0;
    for (std::size_t i = 0; i < 8; ++i) {
        const double x = points[2 * i];
        const double y = points[2 * i + 1];
        const double d = std::hypot(x - focal, y) + std::hypot(x + focal, y) - 2 * result.semi_major;
        weight_sum += i < 6 ? 1 : lowered;
        square_sum += (i < 6 ? 1 : lowered) * d * d;
    }
    EXPECT_NEAR(result.rms, std::sqrt(square_sum / weight_sum), 1e-9);
}

TEST_F(StandIn, LeavesAStalledFitWhoseRmsStaysExactly001)
{
    // With C = 0 and E = -0.01 the residuals are 0.02, -0.02 and six times 0.
    script(0, -1, 0, -0.01, 0);
    script(0, 0, 0, 0, 0);    // sets the mark; the rms still changed
    script(0, 0, 0, 0, 0.25); // the mark stays without a reweighting, and this correction is the last
    fit({0, 0, 0, 2, 0, -2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(passes(), 3);
    EXPECT_EQ(seen(2, 1).value, 0.02);
    EXPECT_EQ(seen(2, 1).weight, 1.0);
    EXPECT_EQ(result.coef_f, 0.25);
}

TEST_F(StandIn, IsAskedFiftyTimesAtMost)
{
    for (int i = 0; i < 64; ++i)
        script(0, 0, 0, 0, 1);
    fit(circle_with_two_points_inside());
    EXPECT_EQ(passes(), 50);
}

TEST_F(StandIn, FailsTheFitWithAnInfiniteCoefficient)
{
    const double infinity = std::numeric_limits<double>::infinity();
    for (int unknown = 0; unknown < 5; ++unknown) {
        *state = StandInState{};
        double c[5] = {0, 0, 0, 0, 0};
        c[unknown] = infinity;
        for (int i = 0; i < 50; ++i)
            script(c[0], c[1], c[2], c[3], c[4]);
        EXPECT_EQ(fit(ellipse_points()), 0) << "unknown " << unknown;
        EXPECT_EQ(result.coef_a, 1.0);
    }
}

TEST_F(StandIn, FailsTheFitWithACoefficientThatIsNotANumber)
{
    script(NAN, 0, 0, 0, 0);
    EXPECT_EQ(fit({5, 0, -5, 0, 0, 5, 0, -5, 3, 4, -3, -4}), 0);
}

TEST_F(StandIn, KeepsTheAngleWhereBothAxesAreEqual)
{
    script(0, -0x1p-53, 0, 0, 0); // C is the double next below 1, which rounding takes out of the axes
    ASSERT_EQ(fit({5, 0, -5, 0, 0, 5, 0, -5, 3, 4, -3, -4}), 1);
    EXPECT_EQ(result.semi_major, 5.0);
    EXPECT_EQ(result.semi_minor, 5.0);
    EXPECT_EQ(result.theta, 0.0);
    EXPECT_EQ(result.rms, 0.0);
}

TEST_F(StandIn, FailsTheFitOfAParabola)
{
    script(2, 0, 0, 0, 0); // B*B - 4*C = 0
    EXPECT_EQ(fit({5, 0, -5, 0, 0, 5, 0, -5, 3, 4, -3, -4}), 0);
    EXPECT_EQ(result.coef_b, 2.0);
    EXPECT_EQ(result.coef_c, 1.0);
    EXPECT_EQ(result.coef_f, -25.0);
}

TEST_F(StandIn, LowersTheWeightOfAFarOutlierAlone)
{
    std::vector<double> points = ellipse_points();
    points[0] += 4;
    points[1] += 4;
    fit(points);
    const std::int32_t last = passes() - 1;
    EXPECT_LT(seen(last, 0).weight, 1.0);
    EXPECT_GT(seen(last, 0).weight, 0.0);
    EXPECT_EQ(seen(last, 6).weight, 1.0);
}

// Two flat images of 8 x 8 pixels in the same place.
struct FlatPair {
    FlatPair()
    {
        for (int i = 0; i < 2; ++i) {
            images[i] = {8, 8, 1, 1, 64, 64, pixels[i].data()};
            masks[i] = {8, 8, 1, covered.data()};
        }
    }

    // The solution of the 2 x 2 system with the pixel count divided out.
    static void expect_gains(const double* gains)
    {
        const double a = 200 + 0.02 * 100 * 100;
        const double b = -0.02 * 100 * 120;
        const double d = 200 + 0.02 * 120 * 120;
        EXPECT_NEAR(gains[0], (d - b) * 200 / (a * d - b * b), 1e-12);
        EXPECT_NEAR(gains[1], (a - b) * 200 / (a * d - b * b), 1e-12);
    }

    std::vector<std::uint8_t> pixels[2] = {std::vector<std::uint8_t>(64, 100), std::vector<std::uint8_t>(64, 120)};
    std::vector<std::uint8_t> covered = std::vector<std::uint8_t>(64, 255);
    Mat images[2];
    Matb masks[2];
    Point corners[2] = {{3, 4}, {3, 4}};
};

TEST_F(StandIn, InvertsTheSystemOfAllGains)
{
    const FlatPair pair;
    GainCompensator gc = {};
    gain_compensator_init(&gc, 2, pair.corners, pair.images, pair.masks);
    EXPECT_EQ(state->calls[panoval::test::kMatrixInvert], 1);
    EXPECT_TRUE(state->scratch_was_zero);
    EXPECT_EQ(state->calls[panoval::test::kMatrixSymmetricInvert], 0);
    EXPECT_EQ(state->calls[panoval::test::kMatrixMult], 1);
    FlatPair::expect_gains(gc.gains.data);
    gain_compensator_free(&gc);
}

TEST_F(StandIn, InvertsTheSymmetricSystemOfGainsMeasuredPairByPair)
{
    const FlatPair pair;
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 2);
    for (const auto& [i, j] : {std::pair(0, 0), std::pair(0, 1), std::pair(1, 1)})
        gain_compensator_init_step(&gc, i, j, pair.corners[i], &pair.images[i], &pair.masks[i], pair.corners[j],
                                   &pair.images[j], &pair.masks[j]);
    gain_compensator_init_end(&gc);
    EXPECT_EQ(state->calls[panoval::test::kMatrixInvert], 0);
    EXPECT_EQ(state->calls[panoval::test::kMatrixSymmetricInvert], 1);
    EXPECT_EQ(state->calls[panoval::test::kMatrixMult], 1);
    FlatPair::expect_gains(gc.gains.data);
    gain_compensator_free(&gc);
}

} // namespace
