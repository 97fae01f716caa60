// SPDX-License-Identifier: MIT
#include "detect/conic_residuals.h"
#include "tests/reference/conic_residuals.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <vector>

namespace
{

using panoval::test::for_each_target;
using panoval::test::Guarded;
using panoval::test::noise;
using panoval::test::same_bits;

TEST(ConicResiduals, AreTheNegativeOfTheConicAtThePoint)
{
    for_each_target([] {
        const double xy[] = {2, 3};
        double residual = 0;
        panoval::conic_residuals({5, 7, 11, 13, 17}, xy, 1, &residual);
        EXPECT_EQ(residual, -(4.0 + 5 * 6 + 7 * 9 + 11 * 2 + 13 * 3 + 17));
    });
}

TEST(FocalResiduals, CompareTheSumOfBothDistances)
{
    for_each_target([] {
        const double xy[] = {3, 4};
        double residual = 0;
        panoval::focal_residuals({0, 0, 3, 16, 10}, xy, 1, &residual);
        EXPECT_EQ(residual, 5.0 + 12.0 - 10.0);
    });
}

TEST(ConicResiduals, EqualTheirTwinsForEveryCount)
{
    for_each_target([] {
        for (std::size_t count = 0; count <= 67; ++count) {
            const auto xy = noise<double>(2 * count, -3000, 3000, count);
            const auto p = noise<double>(5, -2, 2, count + 100);
            const Guarded<double> input(xy);
            Guarded<double> actual(count);
            std::vector<double> expected(count);

            panoval::conic_residuals({p[0], p[1], p[2], p[3], p[4]}, input.data(), count, actual.data());
            panoval::reference::conic_residuals({p[0], p[1], p[2], p[3], p[4]}, xy.data(), count, expected.data());
            EXPECT_TRUE(actual.intact() && same_bits(actual.values(), expected)) << count << " points";

            panoval::focal_residuals({p[0], p[1], p[2], p[3], p[4]}, input.data(), count, actual.data());
            panoval::reference::focal_residuals({p[0], p[1], p[2], p[3], p[4]}, xy.data(), count, expected.data());
            EXPECT_TRUE(actual.intact() && same_bits(actual.values(), expected)) << count << " points";
        }
    });
}

TEST(DesignRows, EqualTheirTwinsForEveryCount)
{
    for_each_target([] {
        for (std::size_t count = 0; count <= 67; ++count) {
            const auto xy = noise<double>(2 * count, -3000, 3000, count);
            const Guarded<double> input(xy);
            Guarded<double> actual(5 * count);
            std::vector<double> expected(5 * count);
            panoval::design_rows(input.data(), count, reinterpret_cast<double(*)[5]>(actual.data()));
            panoval::reference::design_rows(xy.data(), count, reinterpret_cast<double(*)[5]>(expected.data()));
            EXPECT_TRUE(actual.intact() && same_bits(actual.values(), expected)) << count << " points";
        }
    });
}

TEST(LowerWeights, LeavesThoseOfResidualsWithinTheLimit)
{
    for_each_target([] {
        const double nan = std::numeric_limits<double>::quiet_NaN();
        const double residuals[] = {0, 3, -3, 3.5, -4, nan};
        double weights[] = {1, 1, 1, 1, 0.5, 0.25};
        panoval::lower_weights(residuals, 6, 3, 2, weights);
        const double expected[] = {1, 1, 1, 4 / 12.25, 0.125, 0.25};
        EXPECT_EQ(std::memcmp(weights, expected, sizeof expected), 0);
    });
}

TEST(LowerWeights, EqualsItsTwinForEveryCount)
{
    for_each_target([] {
        for (std::size_t count = 0; count <= 67; ++count) {
            const Guarded<double> residuals(noise<double>(count, -5, 5, count));
            auto expected = noise<double>(count, 0, 1, count + 100);
            Guarded<double> actual(expected);
            panoval::lower_weights(residuals.data(), count, 2.5, 1.7, actual.data());
            panoval::reference::lower_weights(residuals.data(), count, 2.5, 1.7, expected.data());
            EXPECT_TRUE(actual.intact() && same_bits(actual.values(), expected)) << count << " points";
        }
    });
}

} // namespace
