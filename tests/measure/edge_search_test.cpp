// SPDX-License-Identifier: MIT
#include "measure/edge_search.h"

#include "measure/patch.h"
#include "panoval_measure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace
{

using panoval::measure::Box;
using panoval::measure::EdgeGuess;
using panoval::measure::find_edge;
using panoval::measure::Outline;
using panoval::measure::Patch;

constexpr std::int32_t kSide = 64;
constexpr double kMiddle = 31.7;
constexpr double kRadius = 10;
constexpr double kInside = 140;
constexpr double kOutside = 200;

// A disk whose edge is as wide as a pixel. Between the two radii samples are not numbers.
std::vector<float> disk_with_gap(double from, double to)
{
    std::vector<float> samples;
    for (std::int32_t y = 0; y < kSide; ++y)
        for (std::int32_t x = 0; x < kSide; ++x) {
            const double radius = std::hypot(x - kMiddle, y - kMiddle);
            const double share = std::clamp(kRadius + 0.5 - radius, 0.0, 1.0);
            const bool is_known = radius < from || radius > to;
            samples.push_back(is_known ? static_cast<float>(kOutside + share * (kInside - kOutside))
                                       : std::numeric_limits<float>::quiet_NaN());
        }
    return samples;
}

// False: no edge.
bool find_disk(const std::vector<float>& samples, EdgeGuess& guess)
{
    const PanovalMeasureImage image = {samples.data(), kSide, kSide, 4 * kSide, PANOVAL_MEASURE_F32, 0};
    Patch patch;
    EXPECT_TRUE(patch.copy(image, Box{0, 0, kSide, kSide}));
    return find_edge(patch, Outline{kMiddle, kMiddle, kRadius, 0, 0}, 8, guess);
}

TEST(FindEdge, ReadsLevelsOfKnownSamplesOnly)
{
    for (const double near : {1.7, 2.2, 3.0}) {
        EdgeGuess outside;
        ASSERT_TRUE(find_disk(disk_with_gap(kRadius + near, kRadius + near + 2.5), outside)) << near;
        EXPECT_NEAR(outside.outside, kOutside, 3) << near;
        EXPECT_NEAR(outside.inside, kInside, 3) << near;
        EXPECT_LT(outside.blur, 0.8) << near;
        EdgeGuess inside;
        ASSERT_TRUE(find_disk(disk_with_gap(kRadius - near - 2.5, kRadius - near), inside)) << near;
        EXPECT_NEAR(inside.outside, kOutside, 3) << near;
        EXPECT_NEAR(inside.inside, kInside, 3) << near;
        EXPECT_LT(inside.blur, 0.8) << near;
    }
}

TEST(FindEdge, FindsNoneWhereItsSamplesAreNotNumbers)
{
    EdgeGuess guess;
    EXPECT_FALSE(find_disk(disk_with_gap(kRadius - 1.5, kRadius + 1.5), guess));
}

} // namespace
