// SPDX-License-Identifier: MIT
#include "mosaic/pictures/scaled_rows.h"

#include "tests/reference/scaled_rows.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <limits>
#include <memory>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

constexpr ChannelFactors kFactors{1.25f, 0.7f, 1.0f / 3, 1.9f};

// The samples end where the block ends, so that a read behind them is found.
struct Raw {
    std::unique_ptr<std::uint8_t[]> bytes;
    RawRow row;

    Raw(std::size_t sample_bytes, std::size_t pixels, std::size_t channels)
    {
        const std::size_t size = pixels * channels * sample_bytes;
        const auto values = panoval::test::noise<std::uint8_t>(size, 0, 255, 7 * pixels + channels);
        bytes = std::make_unique<std::uint8_t[]>(size);
        std::copy(values.begin(), values.end(), bytes.get());
        row = {bytes.get(), sample_bytes, pixels, channels};
    }
};

template <class Body>
void for_each_row(const Body& body)
{
    for (const std::size_t sample_bytes : {1u, 2u})
        for (const std::size_t channels : {1u, 3u, 4u})
            for (std::size_t pixels = 0; pixels < 40; ++pixels) {
                const Raw raw(sample_bytes, pixels, channels);
                SCOPED_TRACE(testing::Message() << sample_bytes << " bytes, " << channels << " x " << pixels);
                body(raw.row, pixels * channels);
            }
}

TEST(ScaledRows, EqualTheirTwinOnEveryTarget)
{
    panoval::test::for_each_target([] {
        for_each_row([](const RawRow& row, std::size_t count) {
            std::vector<float> actual(count), expected(count), composite(count, 31.7f);
            scale_row(row, kFactors, actual.data());
            reference::scale_row(row, kFactors, expected.data());
            ASSERT_EQ(actual, expected);
            difference_row(row, kFactors, composite.data(), actual.data());
            reference::difference_row(row, kFactors, composite.data(), expected.data());
            ASSERT_EQ(actual, expected);
        });
    });
}

template <class Sample>
void expect_finished(const RawRow& row, std::size_t count, float scale, float largest)
{
    std::vector<Sample> actual(count), expected(count);
    finish_scaled_row(row, kFactors, scale, actual.data(), sizeof(Sample));
    reference::finish_scaled_row(row, kFactors, scale, largest, expected.data());
    ASSERT_EQ(actual, expected);
}

TEST(ScaledRows, OutputEqualsItsTwinOnEveryTarget)
{
    panoval::test::for_each_target([] {
        for_each_row([](const RawRow& row, std::size_t count) {
            const bool is_wide = row.sample_bytes == 2;
            expect_finished<std::uint8_t>(row, count, is_wide ? 1.0f / 257 : 1.0f, 255.0f);
            expect_finished<std::uint16_t>(row, count, is_wide ? 1.0f : 257.0f, 65535.0f);
        });
    });
}

void expect_rounded(const std::vector<float>& values, float largest)
{
    std::vector<std::uint16_t> actual(values.size()), expected(values.size());
    round_row(values.data(), values.size(), largest, actual.data());
    reference::round_row(values.data(), values.size(), largest, expected.data());
    ASSERT_EQ(actual, expected) << values.size() << " values up to " << largest;
}

TEST(ScaledRows, WholeSamplesEqualTheirTwinOnEveryTarget)
{
    constexpr float kLimit = std::numeric_limits<float>::infinity();
    const float odd[] = {0.49999997f, 0.5f,     -0.5f,  -0.49999997f, 254.49998f, 254.5f, 255.49f, 65534.496f,
                         65534.5f,    65535.5f, -1e30f, 1e30f,        -kLimit,    kLimit, -0.0f,   std::nanf("")};
    panoval::test::for_each_target([&] {
        for (const float largest : {255.0f, 65535.0f}) {
            expect_rounded({std::begin(odd), std::end(odd)}, largest);
            for (std::size_t count = 0; count < 70; ++count)
                expect_rounded(panoval::test::noise<float>(count, -2.0f, largest + 3, count), largest);
        }
    });
}

} // namespace

} // namespace panoval::mosaic::test
