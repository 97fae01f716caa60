// SPDX-License-Identifier: MIT
#include "detect/conic_residuals.h"
#include "tests/reference/conic_residuals.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

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

} // namespace
