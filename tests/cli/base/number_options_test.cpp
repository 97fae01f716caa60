// SPDX-License-Identifier: MIT
#include "cli/base/number_options.h"

#include <gtest/gtest.h>

#include <string>

namespace panoval::cli::test
{

namespace
{

// What the option gets; where it is refused, the message.
std::string read_by(const CLI::Validator& validator, std::string text)
{
    const std::string error = validator(text);
    return error.empty() ? text : error;
}

TEST(ByteSizes, AreNumbersWithUnitsOf1024)
{
    const auto read = [](const char* text) { return read_by(byte_size(), text); };
    EXPECT_EQ(read("1500000000"), "1500000000");
    EXPECT_EQ(read("7b"), "7");
    EXPECT_EQ(read("800M"), "838860800");
    EXPECT_EQ(read("2 GiB"), "2147483648");
    EXPECT_EQ(read("3kb"), "3072");
    EXPECT_EQ(read("1.5G"), "1610612736");
    EXPECT_EQ(read("0.001K"), "1") << "of 1.024 the whole byte";
    EXPECT_EQ(read("0.333333333333333333333333E"), "384307168202282325") << "floor(2^60 / 3)";
    EXPECT_EQ(read("15.9999999999999999999E"), "18446744073709551615");
}

TEST(ByteSizes, SayWhatIsExpectedOfAnythingElse)
{
    for (const std::string text : {"1e9", "abc", "1.5", "1.G", ".5G", "1.5.2G", "-1", "+1", "1.5X", "2GiBs", "16E", "G",
                                   "99999999999999999999", "1.-5G"})
        EXPECT_EQ(read_by(byte_size(), text),
                  "found '" + text + "'; expected a number of bytes, as 1500000000, 800M or 1.5G");
}

TEST(WholeNumbers, AreDecimalDigitsWithinTheirRange)
{
    EXPECT_EQ(read_by(whole_number(1, 30), "1"), "1");
    EXPECT_EQ(read_by(whole_number(1, 30), "30"), "30");
    EXPECT_EQ(read_by(whole_number(1, 30), "010"), "10") << "no octal number";
    for (const std::string text : {"0", "31", "-1", "1.5", "0x10", "many", "1 2"})
        EXPECT_EQ(read_by(whole_number(1, 30), text), "found '" + text + "'; expected a whole number from 1 to 30");
    EXPECT_EQ(read_by(whole_number(0, UINT64_MAX), "18446744073709551615"), "18446744073709551615");
    EXPECT_EQ(read_by(whole_number(0, UINT64_MAX), "18446744073709551616"),
              "found '18446744073709551616'; expected a whole number from 0 on");
}

TEST(WholeNumbers, LeaveAnEmptyValueToTheCheckOfAllOptions)
{
    EXPECT_EQ(read_by(whole_number(1, 30), ""), "");
    EXPECT_EQ(read_by(byte_size(), ""), "");
}

} // namespace

} // namespace panoval::cli::test
