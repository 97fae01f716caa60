// SPDX-License-Identifier: MIT
#include "core/sample_depth.h"

#include "tests/support/buffers.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace
{

using namespace panoval;

TEST(SampleDepth, KeepsBlackAndWhite)
{
    EXPECT_EQ(widen_sample(0), 0);
    EXPECT_EQ(widen_sample(255), 65535);
    EXPECT_EQ(narrow_sample(0), 0);
    EXPECT_EQ(narrow_sample(65535), 255);
}

TEST(SampleDepth, WideningRepeatsTheByteAndNarrowingGivesItBack)
{
    for (unsigned level = 0; level < 256; ++level) {
        const auto byte = static_cast<std::uint8_t>(level);
        EXPECT_EQ(widen_sample(byte), (level << 8) + level);
        EXPECT_EQ(narrow_sample(widen_sample(byte)), byte);
    }
}

TEST(SampleDepth, NarrowingTakesTheNearestByte)
{
    for (unsigned level = 0; level < 65536; ++level) // no two bytes are equally near: 257 is odd
        ASSERT_EQ(narrow_sample(static_cast<std::uint16_t>(level)), std::lround(level / 257.0)) << level;
}

TEST(SampleDepth, RowsChangeInTheirOwnPlaceAtAnyAddress)
{
    for (std::size_t count = 0; count < 20; ++count)
        for (const std::size_t offset : {0u, 1u}) {
            const auto bytes = test::noise<std::uint8_t>(count, 0, 255, count);
            test::Guarded<std::uint8_t> row(2 * count + offset);
            std::copy(bytes.begin(), bytes.end(), row.data() + offset);
            widen_samples(row.data() + offset, count, row.data() + offset);
            for (std::size_t i = 0; i < count; ++i) {
                EXPECT_EQ(row[offset + 2 * i], bytes[i]) << i;
                EXPECT_EQ(row[offset + 2 * i + 1], bytes[i]) << i;
            }
            narrow_samples(row.data() + offset, count, row.data() + offset);
            EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), row.data() + offset));
            EXPECT_TRUE(row.intact());
        }
}

} // namespace
