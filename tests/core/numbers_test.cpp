// SPDX-License-Identifier: MIT
#include "core/numbers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

using namespace panoval;

constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();

TEST(TruncateToInt, DropsTheFractionTowardZero)
{
    EXPECT_EQ(truncate_to_int(2.999), 2);
    EXPECT_EQ(truncate_to_int(-2.999), -2);
    EXPECT_EQ(truncate_to_int(0.999f), 0);
    EXPECT_EQ(truncate_to_int(-0.999f), 0);
    EXPECT_EQ(truncate_to_int(-0.0), 0);
}

TEST(TruncateToInt, KeepsTheWholeRange)
{
    EXPECT_EQ(truncate_to_int(2147483647.0), kMax);
    EXPECT_EQ(truncate_to_int(2147483647.9), kMax);
    EXPECT_EQ(truncate_to_int(-2147483648.0), kMin);
    EXPECT_EQ(truncate_to_int(-2147483648.9), kMin);
    EXPECT_EQ(truncate_to_int(2147483520.0f), 2147483520);
    EXPECT_EQ(truncate_to_int(-2147483647.0), kMin + 1);
}

TEST(TruncateToInt, GivesTheMostNegativeIntegerForWhatLeavesTheRange)
{
    for (const double value : {2147483648.0, 1e300, HUGE_VAL, -2147483649.0, -1e300, -HUGE_VAL, std::nan("")})
        EXPECT_EQ(truncate_to_int(value), kMin) << value;
    for (const float value : {2147483648.f, 3e38f, HUGE_VALF, -2147483904.f, -HUGE_VALF, std::nanf("")})
        EXPECT_EQ(truncate_to_int(value), kMin) << value;
}

TEST(LowByte, TakesTheLowest8BitsWithoutSaturation)
{
    EXPECT_EQ(low_byte(255), 255);
    EXPECT_EQ(low_byte(256), 0);
    EXPECT_EQ(low_byte(300), 44);
    EXPECT_EQ(low_byte(-1), 255);
    EXPECT_EQ(low_byte(kMin), 0);
}

TEST(LowHalf, TakesTheLowest16BitsWithoutSaturation)
{
    EXPECT_EQ(low_half(65535), 65535);
    EXPECT_EQ(low_half(65536 + 7), 7);
    EXPECT_EQ(low_half(-1), 65535);
    EXPECT_EQ(low_half(kMin), 0);
}

TEST(WrappingArithmetic, WrapsAt32Bits)
{
    EXPECT_EQ(wrapping_add(kMax, 1), kMin);
    EXPECT_EQ(wrapping_add(-3, 5), 2);
    EXPECT_EQ(wrapping_sub(kMin, 1), kMax);
    EXPECT_EQ(wrapping_sub(3, 5), -2);
    EXPECT_EQ(wrapping_mul(65536, 65536), 0);
    EXPECT_EQ(wrapping_mul(65536, 32768), kMin);
    EXPECT_EQ(wrapping_mul(-3, 5), -15);
    EXPECT_EQ(wrapping_mul(65536, 32768, 2), 0);
    EXPECT_EQ(wrapping_mul(2, 3, 5, 7), 210);
}

TEST(IsAddressable, AsksForNoNegativeSizeAndAProductThatFits)
{
    EXPECT_TRUE(is_addressable(3, 5, 7));
    EXPECT_TRUE(is_addressable(kMax, 1, 1));
    EXPECT_TRUE(is_addressable(65536, 65536, 0));
    EXPECT_FALSE(is_addressable(65536, 65536, 1));
    EXPECT_FALSE(is_addressable(65536, 16384, 2));
    EXPECT_FALSE(is_addressable(-1, 1, 1));
    EXPECT_FALSE(is_addressable(1, -1, 1));
    EXPECT_FALSE(is_addressable(1, 1, -1));
}

TEST(ToCount, CountsANegativeSizeAsNothing)
{
    EXPECT_EQ(to_count(kMax), 2147483647u);
    EXPECT_EQ(to_count(0), 0u);
    EXPECT_EQ(to_count(-1), 0u);
    EXPECT_EQ(to_count(std::int64_t{1} << 40), std::size_t{1} << 40);
    EXPECT_EQ(to_count(std::numeric_limits<std::int64_t>::min()), 0u);
}

} // namespace
