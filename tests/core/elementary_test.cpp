// SPDX-License-Identifier: MIT
// The elementary functions at their special arguments, exact results and hardest cases. Every expected value is the
// correctly rounded one. Comparison with MPFR over many arguments is in tests/elementary.
#include "core/elementary.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

namespace
{

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kTiny = std::numeric_limits<double>::denorm_min();
constexpr double kLargest = std::numeric_limits<double>::max();
constexpr double kPi = 0x1.921fb54442d18p1;

// Equal to the sign of zero; not-a-numbers equal one another.
void expect_same(double actual, double expected)
{
    if (std::isnan(expected))
        EXPECT_TRUE(std::isnan(actual)) << actual;
    else
        EXPECT_EQ(std::bit_cast<std::uint64_t>(actual), std::bit_cast<std::uint64_t>(expected))
            << std::hexfloat << actual << " instead of " << expected;
}

struct Case {
    double x;
    double expected;
};

template <class Function, std::size_t N>
void expect_values(Function function, const Case (&cases)[N])
{
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hexfloat << "at " << c.x);
        expect_same(function(c.x), c.expected);
    }
}

struct PairCase {
    double a;
    double b;
    double expected;
};

template <class Function, std::size_t N>
void expect_values(Function function, const PairCase (&cases)[N])
{
    for (const PairCase& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hexfloat << "at " << c.a << ", " << c.b);
        expect_same(function(c.a, c.b), c.expected);
    }
}

TEST(Elementary, ExpOfSpecialArguments)
{
    expect_values(panoval::exp, {Case{0.0, 1.0},
                                 {-0.0, 1.0},
                                 {kInf, kInf},
                                 {-kInf, 0.0},
                                 {kNan, kNan},
                                 {kTiny, 1.0},
                                 {-kTiny, 1.0},
                                 {1.0, 0x1.5bf0a8b145769p1},
                                 {1e308, kInf},
                                 {-1e308, 0.0}});
}

TEST(Elementary, ExpAtTheEndsOfItsRange)
{
    expect_values(panoval::exp, {Case{0x1.62e42fefa39efp9, 0x1.fffffffffff2ap1023},
                                 {0x1.62e42fefa39f0p9, kInf},
                                 {-0x1.6232bdd7abcd2p9, 0x1.000000000007cp-1022},
                                 {-0x1.74910d52d3051p9, kTiny},
                                 {-0x1.74910d52d3052p9, 0.0}});
}

TEST(Elementary, LogOfSpecialArguments)
{
    expect_values(panoval::log, {Case{1.0, 0.0},
                                 {0.0, -kInf},
                                 {-0.0, -kInf},
                                 {kInf, kInf},
                                 {-1.0, kNan},
                                 {-kInf, kNan},
                                 {kNan, kNan},
                                 {2.0, 0x1.62e42fefa39efp-1},
                                 {kTiny, -0x1.74385446d71c3p9},
                                 {kLargest, 0x1.62e42fefa39efp9}});
}

TEST(Elementary, PowOfSpecialArguments)
{
    expect_values(panoval::pow,
                  {PairCase{kNan, 0.0, 1.0}, {1.0, kNan, 1.0},    {kNan, 1.0, kNan},     {2.0, kNan, kNan},
                   {-1.0, kInf, 1.0},        {-1.0, -kInf, 1.0},  {0.5, kInf, 0.0},      {0.5, -kInf, kInf},
                   {-2.0, kInf, kInf},       {-2.0, -kInf, 0.0},  {0.0, 3.0, 0.0},       {-0.0, 3.0, -0.0},
                   {-0.0, 2.0, 0.0},         {-0.0, -3.0, -kInf}, {0.0, -3.0, kInf},     {-0.0, -2.5, kInf},
                   {kInf, 2.0, kInf},        {kInf, -2.0, 0.0},   {-kInf, 3.0, -kInf},   {-kInf, 2.5, kInf},
                   {-kInf, -3.0, -0.0},      {-kInf, -2.0, 0.0},  {-8.0, 1.0 / 3, kNan}, {-1.0, 0.5, kNan},
                   {-1.0, 3.0, -1.0},        {-1.0, 4.0, 1.0}});
}

TEST(Elementary, PowKnowsWholeAndOddExponentsUpToTheLargest)
{
    expect_values(panoval::pow, {PairCase{-1.5, 3.0, -3.375},
                                 {-1.5, 2.0, 2.25},
                                 {-1.5, 2.5, kNan},
                                 {-0.5, 0x1.fffffffffffffp52, -0.0},
                                 {-0.5, 0x1p53, 0.0},
                                 {-2.0, 0x1.0000000000001p52, -kInf},
                                 {-2.0, 0x1.0000000000002p52, kInf},
                                 {-2.0, 0x1.0000000000001p51, kNan},
                                 {-2.0, kLargest, kInf}});
}

TEST(Elementary, PowRoundsExactMiddlesToEven)
{
    // squares of 54 bits whose last bit is set: halfway between two doubles
    expect_values(panoval::pow, {PairCase{134217729.0, 2.0, 18014398777917440.0},
                                 {3.0, 33.0, 5559060566555523.0},
                                 {3.0, 34.0, 16677181699666568.0},
                                 {5.0, 23.0, 11920928955078124.0},
                                 {9.0, 0.5, 3.0},
                                 {2.25, 1.5, 3.375},
                                 {16.0, -0.75, 0.125},
                                 {2.0, -1074.0, kTiny},
                                 {2.0, -1075.0, 0.0},
                                 {2.0, 1023.0, 0x1p1023},
                                 {2.0, 1024.0, kInf}});
}

TEST(Elementary, PowNearOneAndAtTheEndsOfItsRange)
{
    expect_values(panoval::pow, {PairCase{0x1.0000000000001p0, 0x1p-3, 1.0},
                                 {0x1.0000000000001p0, 1.0, 0x1.0000000000001p0},
                                 {0x1.fffffffffffffp-1, 0.5, 0x1.fffffffffffffp-1},
                                 {0x1.fffffffffffffp-1, 0x1p62, 0x1.44109edb2088fp-739},
                                 {kTiny, 0.5, 0x1p-537},
                                 {kLargest, 0.5, 0x1.fffffffffffffp511},
                                 {10.0, 308.0, 1e308},
                                 {10.0, 309.0, kInf},
                                 {10.0, -324.0, 0.0},
                                 {10.0, -323.0, 1e-323}});
}

TEST(Elementary, SineAndCosineOfSpecialArguments)
{
    expect_values(panoval::sin, {Case{0.0, 0.0},
                                 {-0.0, -0.0},
                                 {kTiny, kTiny},
                                 {-0x1p-26, -0x1p-26},
                                 {-0x1p-25, -0x1.fffffffffffffp-26},
                                 {kInf, kNan},
                                 {-kInf, kNan},
                                 {kNan, kNan},
                                 {kPi, 0x1.1a62633145c07p-53}});
    expect_values(panoval::cos, {Case{0.0, 1.0},
                                 {-0.0, 1.0},
                                 {kTiny, 1.0},
                                 {0x1p-26, 0x1.fffffffffffffp-1},
                                 {kInf, kNan},
                                 {-kInf, kNan},
                                 {kNan, kNan},
                                 {kPi / 2, 0x1.1a62633145c07p-54}});
}

TEST(Elementary, SineOfLargeArgumentsKeepsEveryBit)
{
    // the second is the double closest to a multiple of pi / 2
    expect_values(panoval::sin,
                  {Case{kLargest, 0x1.452fc98b34e97p-8}, {0x1.6ac5b262ca1ffp849, 1.0}, {1e22, -0x1.b453ab76bf397p-1}});
    expect_values(panoval::cos, {Case{kLargest, -0x1.fffe62ecfab75p-1},
                                 {0x1.6ac5b262ca1ffp849, -0x1.14ae72e6ba22fp-61},
                                 {1e22, 0x1.0be2cef01c8f4p-1}});
}

TEST(Elementary, ArctangentOfSpecialArguments)
{
    expect_values(panoval::atan, {Case{0.0, 0.0},
                                  {-0.0, -0.0},
                                  {kTiny, kTiny},
                                  {1.0, kPi / 4},
                                  {-1.0, -kPi / 4},
                                  {kInf, kPi / 2},
                                  {-kInf, -kPi / 2},
                                  {kLargest, kPi / 2},
                                  {kNan, kNan}});
}

TEST(Elementary, ArctangentOfTwoSpecialArguments)
{
    expect_values(panoval::atan2, {PairCase{0.0, 1.0, 0.0},
                                   {-0.0, 1.0, -0.0},
                                   {0.0, 0.0, 0.0},
                                   {0.0, -0.0, kPi},
                                   {-0.0, -0.0, -kPi},
                                   {-0.0, 0.0, -0.0},
                                   {0.0, -1.0, kPi},
                                   {-0.0, -1.0, -kPi},
                                   {1.0, 0.0, kPi / 2},
                                   {-1.0, -0.0, -kPi / 2},
                                   {kInf, 1.0, kPi / 2},
                                   {-kInf, -1.0, -kPi / 2},
                                   {1.0, kInf, 0.0},
                                   {-1.0, kInf, -0.0},
                                   {1.0, -kInf, kPi},
                                   {-1.0, -kInf, -kPi},
                                   {1.0, -1.0, 0x1.2d97c7f3321d2p+1},
                                   {-1.0, -1.0, -0x1.2d97c7f3321d2p+1},
                                   {1.0, -2.0, 0x1.56c6e7397f5aep+1},
                                   {kInf, kInf, kPi / 4},
                                   {-kInf, kInf, -kPi / 4},
                                   {kInf, -kInf, 3 * (kPi / 4)},
                                   {-kInf, -kInf, -3 * (kPi / 4)},
                                   {kNan, 1.0, kNan},
                                   {1.0, kNan, kNan},
                                   {kTiny, 1.0, kTiny},
                                   {kTiny, -1.0, kPi},
                                   {kTiny, kLargest, 0.0},
                                   {kLargest, kTiny, kPi / 2},
                                   {kTiny, kTiny, kPi / 4},
                                   {kLargest, kLargest, kPi / 4}});
}

// A quotient halfway between two doubles, which there are only below 2^-1022: the arctangent lies below it.
TEST(Elementary, ArctangentOfATinyMiddleIsBelowIt)
{
    expect_same(panoval::atan2(3 * kTiny, 2.0), kTiny);
    expect_same(panoval::atan2(5 * kTiny, 2.0), 2 * kTiny);
    expect_same(panoval::atan2(7 * kTiny, 2.0), 3 * kTiny);
    expect_same(panoval::atan2(-7 * kTiny, 2.0), -3 * kTiny);
}

// Published by Lefevre and Muller: after the 53rd bit these results go on with 55 to 89 equal bits.
TEST(Elementary, HardestCasesToRound)
{
    expect_values(panoval::exp, {Case{0x1.9e9cbbfd6080bp-31, 0x1.000000033d398p0},
                                 {-0x1.ed318efb627eap-27, 0x1.ffffff84b39c5p-1},
                                 {0x1.accfbe46b4ef0p-1, 0x1.27c2e4bc1ee70p1},
                                 {0x1.83d4bcdebb3f4p2, 0x1.ac50b409c8aeep8}});
    expect_values(panoval::log, {Case{0x1.62a88613629b6p678, 0x1.d6479eba7c971p8}});
    expect_values(panoval::sin, {Case{0x1.e0000000001c2p-20, 0x1.dfffffffff02ep-20},
                                 {0x1.fe767739d0f6dp-2, 0x1.e9950730c4696p-2},
                                 {0x1.598bae9e632f6p-7, 0x1.598a0aea48996p-7}});
    expect_values(panoval::cos,
                  {Case{0x1.8000000000009p-23, 0x1.fffffffffff70p-1}, {0x1.06b505550e6b2p-9, 0x1.ffffbc9a3fbfep-1}});
    expect_values(panoval::atan, {Case{0x1.6298b5896ed3cp1, 0x1.3970e827504c7p0}});
}

// Arguments whose quick logarithm lies too near to the middle between two doubles; the expected values are MPFR's.
TEST(Elementary, LogIsComputedAgainWhereTheQuickOneDoesNotDecide)
{
    expect_values(panoval::log, {Case{0x1.e3bd6eccf0d2dp-1, -0x1.d11e3b3ce1335p-5},
                                 {0x1.bed06ebb836f5p+8, 0x1.8689820f4c5b5p+2},
                                 {0x1.585339f2228dbp-5, -0x1.95ac8268fcacap+1}});
}

} // namespace
