// SPDX-License-Identifier: MIT
// The wide numbers by themselves, at zero, at the ends of the doubles and halfway between two; and the functions made
// of them, which give what the quick ones give, for both are rounded correctly.
#include "core/wide_number.h"

#include "core/elementary.h"
#include "core/elementary_wide.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace
{

using namespace panoval;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kTiny = std::numeric_limits<double>::denorm_min();

TEST(WideNumber, HoldsEveryDouble)
{
    for (const double value : {0.0, 1.0, -1.0, 0.1, -3e200, 1e-310, kTiny, -kTiny, std::numeric_limits<double>::max()})
        EXPECT_EQ(to_double(wide(value)), value);
}

TEST(WideNumber, ZeroIsTheSmallestAndChangesNothing)
{
    const WideNumber zero = wide(0.0);
    EXPECT_TRUE(zero.is_zero());
    EXPECT_EQ(to_double(zero + wide(3.0)), 3.0);
    EXPECT_EQ(to_double(wide(3.0) + zero), 3.0);
    EXPECT_EQ(to_double(wide(-3.0) - zero), -3.0);
    EXPECT_EQ(to_double(zero - wide(3.0)), -3.0);
    EXPECT_TRUE((zero + zero).is_zero());
    EXPECT_TRUE((zero * wide(3.0)).is_zero());
    EXPECT_TRUE((wide(3.0) - wide(3.0)).is_zero());
    EXPECT_TRUE(round_to_bits(zero, 210).is_zero());
}

TEST(WideNumber, RoundsAHalfToEvenAndMoreThanAHalfUp)
{
    const WideNumber even = wide(0x1p53);
    const WideNumber odd = wide(0x1p53 + 2);
    const WideNumber little = wide(0x1p-200);
    EXPECT_EQ(to_double(even + wide(1.0)), 0x1p53);
    EXPECT_EQ(to_double(odd + wide(1.0)), 0x1p53 + 4);
    EXPECT_EQ(to_double(even + wide(1.0) + little), 0x1p53 + 2);
    EXPECT_EQ(to_double(even + wide(1.5)), 0x1p53 + 2);
    EXPECT_EQ(to_double(odd + wide(1.0) - little), 0x1p53 + 2);
}

TEST(WideNumber, OverflowsToInfinityAndUnderflowsGradually)
{
    EXPECT_EQ(to_double(scale(wide(1.0), 1023)), 0x1p1023);
    EXPECT_EQ(to_double(scale(wide(1.0), 1024)), kInf);
    EXPECT_EQ(to_double(scale(wide(-1.0), 2000)), -kInf);
    EXPECT_EQ(to_double(scale(wide(1.0), -1074)), kTiny);
    EXPECT_EQ(to_double(scale(wide(1.0), -1075)), 0.0);
    EXPECT_EQ(to_double(scale(wide(1.5), -1075)), kTiny);
    EXPECT_EQ(to_double(scale(wide(1.5), -1080)), 0.0);
    EXPECT_TRUE(std::signbit(to_double(scale(wide(-1.5), -1080))));
}

TEST(WideNumber, IsRoundedToSoManyBits)
{
    EXPECT_EQ(to_double(round_to_bits(wide(0x1p40 + 1), 40)), 0x1p40 + 2); // a half, away from zero
    EXPECT_EQ(to_double(round_to_bits(wide(-0x1p40 - 1), 40)), -0x1p40 - 2);
    EXPECT_EQ(to_double(round_to_bits(wide(0x1p40 + 1), 41)), 0x1p40 + 1);
    EXPECT_EQ(to_double(round_to_bits(wide(0x1p41 - 1), 40)), 0x1p41);
}

TEST(WideNumber, SumsKeepEveryBitOfTheSmallerTerm)
{
    const WideNumber one = wide(1.0);
    for (int places = 1; places < 320; ++places) {
        const WideNumber step = scale(one, -places);
        EXPECT_EQ(to_double((one + step) - one), std::ldexp(1.0, -places)) << places;
        EXPECT_EQ(to_double((one - step) - one), -std::ldexp(1.0, -places)) << places;
    }
}

// 2^exponent is more than the size of the value.
std::int32_t exponent_of(const WideNumber& value)
{
    return value.is_zero() ? std::numeric_limits<std::int32_t>::min() : value.exponent;
}

TEST(WideNumber, QuotientsAreGoodTo313Bits)
{
    const WideNumber one = wide(1.0);
    for (const std::uint32_t divisor : {1u, 3u, 7u, 10u, 1260u, 0xFFFFFFFFu}) {
        const WideNumber wide_divisor = wide(static_cast<double>(divisor));
        EXPECT_LT(exponent_of(one - divide_small(one, divisor) * wide_divisor), -313) << divisor;
        EXPECT_LT(exponent_of(one - one / wide_divisor * wide_divisor), -312) << divisor;
    }
}

TEST(WideFunctions, GiveWhatTheQuickOnesGive)
{
    for (const double x : {0x1p-30, 0.001, 0.3, 0.75, 1.5, 2.0, 3.0, 17.25, 100.1, 600.0}) {
        SCOPED_TRACE(x);
        EXPECT_EQ(elementary_wide::exp(x), panoval::exp(x));
        EXPECT_EQ(elementary_wide::exp(-x), panoval::exp(-x));
        EXPECT_EQ(elementary_wide::log(x, panoval::log(x)), panoval::log(x));
        EXPECT_EQ(elementary_wide::pow(x, 1.25, panoval::log(x)), panoval::pow(x, 1.25));
        EXPECT_EQ(elementary_wide::sin(x), panoval::sin(x));
        EXPECT_EQ(elementary_wide::sin(-x), panoval::sin(-x));
        EXPECT_EQ(elementary_wide::cos(x), panoval::cos(x));
        EXPECT_EQ(elementary_wide::cos(-x), panoval::cos(-x));
        const double close = x < 2 ? panoval::atan(x / 2) : panoval::atan(2 / x);
        for (const double y : {x, -x}) {
            EXPECT_EQ(elementary_wide::atan2(y, 2.0, close), panoval::atan2(y, 2.0));
            EXPECT_EQ(elementary_wide::atan2(y, -2.0, close), panoval::atan2(y, -2.0));
        }
    }
}

} // namespace
