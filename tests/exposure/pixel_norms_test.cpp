// SPDX-License-Identifier: MIT
#include "exposure/pixel_norms.h"

#include "tests/reference/pixel_norms.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/tails.h"
#include "tests/support/targets.h"

#include <cmath>
#include <limits>

namespace panoval::test
{

namespace
{

TEST(PixelNorms, OfCoveredPixelsAreTheirLengths)
{
    for_each_target([] {
        const std::uint8_t pixels[] = {2, 3, 6, 9, 9, 9};
        const std::uint8_t covered[] = {1, 0};
        double norms[] = {-1, -1};
        pixel_norms(pixels, 3, covered, 2, norms);
        EXPECT_EQ(norms[0], 7);
        EXPECT_EQ(norms[1], 0);
    });
}

TEST(PixelNorms, OfLargeSamplesWrap)
{
    for_each_target([] {
        const std::uint16_t pixels[] = {46340, 46341, 65535};
        const std::uint8_t covered[] = {1, 1, 1};
        double norms[3] = {};
        pixel_norms(pixels, 1, covered, 3, norms);
        EXPECT_EQ(norms[0], 46340);
        EXPECT_TRUE(std::isnan(norms[1])) << "the square wraps to a negative number";
        EXPECT_TRUE(std::isnan(norms[2])) << "65535 * 65535 wraps to -131071";
    });
}

// Any not-a-number is as good as another.
std::vector<double> with_plain_nan(std::vector<double> values)
{
    for (double& value : values)
        if (std::isnan(value))
            value = std::numeric_limits<double>::quiet_NaN();
    return values;
}

template <class Sample>
void compare_with_twin(std::size_t channels)
{
    for_each_tail([&](std::size_t offset, std::size_t count) {
        const auto pixels =
            noise<Sample>((offset + count) * channels, 0, std::numeric_limits<Sample>::max(), offset + count);
        const auto covered = noise<std::uint8_t>(offset + count, 0, 2, count);
        std::vector<double> actual(offset + count + 8, -7);
        auto expected = actual;
        reference::pixel_norms(pixels.data() + offset * channels, channels, covered.data() + offset, count,
                               expected.data() + offset);
        pixel_norms(pixels.data() + offset * channels, channels, covered.data() + offset, count,
                    actual.data() + offset);
        EXPECT_TRUE(same_bits(with_plain_nan(actual), with_plain_nan(expected))) << channels << " channels";
    });
}

TEST(PixelNorms, EqualTheirTwinForEveryTailAndOffset)
{
    for_each_target([] {
        for (const std::size_t channels : {1u, 2u, 3u, 4u}) {
            compare_with_twin<std::uint8_t>(channels);
            compare_with_twin<std::uint16_t>(channels);
        }
    });
}

} // namespace

} // namespace panoval::test
