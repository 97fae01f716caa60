// SPDX-License-Identifier: MIT
// Fits of which two passes in a row have the same rms to the last bit while they still move: such a pass lowers no
// weight. Far from the origin corrections are large beside what they change.
#include "panoval.h"
#include "tests/reference/oval_fit.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

namespace
{

using panoval::test::Random;
using panoval::test::same_bits;

// Points without any order, some ten thousand pixels apart.
std::vector<double> scattered_points(std::uint64_t seed)
{
    Random random(seed);
    const auto count = 6 + random.integer(0, 10);
    std::vector<double> points;
    for (std::int64_t i = 0; i < 2 * count; ++i)
        points.push_back(1e5 * (1 + random.real(-1, 1) * 0.1));
    return points;
}

TEST(OvalFitOfEqualRms, LowersNoWeight)
{
    for (const std::uint64_t seed : {76u, 1288u, 2788u, 3088u, 3382u}) {
        const auto points = scattered_points(seed);
        const auto count = static_cast<std::int32_t>(points.size() / 2);
        OvalFit actual{};
        OvalFit expected{};
        EXPECT_EQ(oval_fit(count, points.data(), &actual),
                  panoval::reference::oval_fit(count, points.data(), &expected));
        EXPECT_TRUE(same_bits(&actual.coef_a, &expected.coef_a, 13)) << "seed " << seed;
    }
}

} // namespace
