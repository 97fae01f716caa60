// SPDX-License-Identifier: MIT
#include "mosaic/verdict/patch_rows.h"

#include "tests/reference/patch_rows.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::for_each_target;
using panoval::test::Random;

constexpr std::size_t kMostCount = 41;

template <class Value>
std::vector<Value> make_values(Random& random, std::size_t count)
{
    std::vector<Value> values(count);
    for (Value& value : values)
        value = static_cast<Value>(random.integer(-20000, 60000)) / Value{37};
    return values;
}

TEST(PatchRows, BrightnessIsGreyOrHalfGreenWithAQuarterOfRedAndBlue)
{
    for_each_target([] {
        const float samples[] = {8, 16, 24, 99};
        float out = 0;
        brightness_row(samples, 4, 1, 0.5, &out);
        EXPECT_EQ(out, 8.0f);
        brightness_row(samples, 3, 1, 1, &out);
        EXPECT_EQ(out, 16.0f);
        brightness_row(samples, 1, 1, 2, &out);
        EXPECT_EQ(out, 16.0f);
    });
}

TEST(PatchRows, BrightnessEqualsItsTwinForEveryTail)
{
    for_each_target([] {
        Random random(1);
        for (const std::size_t channels : {1u, 3u, 4u})
            for (std::size_t count = 0; count < kMostCount; ++count) {
                const std::vector<float> samples = make_values<float>(random, count * channels);
                std::vector<float> out(count);
                std::vector<float> expected(count);
                brightness_row(samples.data(), channels, count, 255.0 / 65535, out.data());
                reference::brightness_row(samples.data(), channels, count, 255.0 / 65535, expected.data());
                EXPECT_EQ(out, expected) << count << " pixels of " << channels;
            }
    });
}

TEST(PatchRows, RoughnessEqualsItsTwinForEveryTail)
{
    for_each_target([] {
        Random random(2);
        for (std::size_t count = 0; count < kMostCount; ++count) {
            const std::vector<float> row = make_values<float>(random, count);
            std::vector<double> out(count, 5);
            std::vector<double> expected(count, 5);
            second_differences(row.data(), count, out.data());
            reference::second_differences(row.data(), count, expected.data());
            EXPECT_EQ(out, expected) << count << " pixels, differences";
            const std::vector<double> above = make_values<double>(random, count);
            const std::vector<double> below = make_values<double>(random, count);
            std::vector<double> rough(count);
            std::vector<double> expected_rough(count);
            roughness_row(above.data(), out.data(), below.data(), count, rough.data());
            reference::roughness_row(above.data(), out.data(), below.data(), count, expected_rough.data());
            EXPECT_EQ(rough, expected_rough) << count << " pixels, roughness";
        }
    });
}

TEST(PatchRows, WindowSumsEqualTheirTwinsForEveryTail)
{
    for_each_target([] {
        Random random(3);
        for (std::size_t count = 0; count < kMostCount; ++count) {
            const std::vector<float> values = make_values<float>(random, count);
            std::vector<double> sums = make_values<double>(random, count);
            std::vector<double> expected = sums;
            add_signed_row(values.data(), -1, count, sums.data());
            reference::add_signed_row(values.data(), -1, count, expected.data());
            EXPECT_EQ(sums, expected) << count << " pixels, a row that goes";
            const std::vector<double> before = make_values<double>(random, count);
            subtract_rows(sums.data(), before.data(), count, sums.data());
            reference::subtract_rows(expected.data(), before.data(), count, expected.data());
            EXPECT_EQ(sums, expected) << count << " pixels, sums before";
        }
    });
}

TEST(PatchRows, UnknownPixelsAre0EvenWhereNothingWasCounted)
{
    for_each_target([] {
        Random random(4);
        for (std::size_t count = 0; count < kMostCount; ++count) {
            const std::vector<float> values = make_values<float>(random, count);
            const std::vector<double> sums = make_values<double>(random, count);
            std::vector<double> counts(count);
            std::vector<std::uint8_t> known(count);
            for (std::size_t x = 0; x < count; ++x) {
                counts[x] = static_cast<double>(random.integer(0, 4));
                known[x] = counts[x] > 0 && random.integer(0, 2) > 0 ? 1 : 0;
            }
            std::vector<float> out(count, 3);
            std::vector<float> expected(count, 3);
            subtract_means(values.data(), sums.data(), counts.data(), known.data(), count, out.data());
            reference::subtract_means(values.data(), sums.data(), counts.data(), known.data(), count, expected.data());
            EXPECT_EQ(out, expected) << count << " pixels";
        }
    });
}

} // namespace

} // namespace panoval::mosaic::test
