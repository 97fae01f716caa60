// SPDX-License-Identifier: MIT
#include "blend/rounded_mean.h"

#include <gtest/gtest.h>

namespace
{

using panoval::rounded_mean;

TEST(RoundedMean, RoundsAnOverlapOf10And13Down)
{
    EXPECT_EQ(rounded_mean(10.f + 13.f, 2.f), 11.f);
}

TEST(RoundedMean, RoundsAFullWeightOf255To255AndASmallOneDown)
{
    EXPECT_EQ(rounded_mean(255.f, 1.f), 255.f);
    EXPECT_EQ(rounded_mean(255.f * 0.02f, 0.02f), 255.f); // 5.1 / 0.02001 is 254.87
    EXPECT_EQ(rounded_mean(51.f * 0.02f, 0.02f), 51.f);   // 1.02 / 0.02001 is 50.97
}

TEST(RoundedMean, TakesOneOff16BitSamplesAbove50000)
{
    EXPECT_EQ(rounded_mean(49000.f, 1.f), 49000.f);
    EXPECT_EQ(rounded_mean(51000.f, 1.f), 50999.f);
    EXPECT_EQ(rounded_mean(65535.f, 1.f), 65534.f);
}

TEST(RoundedMean, GivesZeroWithoutWeightAndDividesWhatIsThereByTheEpsilon)
{
    EXPECT_EQ(rounded_mean(0.f, 0.f), 0.f);
    EXPECT_EQ(rounded_mean(1.f, 0.f), 100000.f);
    EXPECT_EQ(rounded_mean(-1.f, 0.f), -100000.f);
}

TEST(RoundedMean, FloorsNegativeMeansToo)
{
    EXPECT_EQ(rounded_mean(-0.4f, 1.f), 0.f);
    EXPECT_EQ(rounded_mean(-0.6f, 1.f), -1.f);
    EXPECT_EQ(rounded_mean(-7.4f, 1.f), -7.f);
    EXPECT_EQ(rounded_mean(-7.6f, 1.f), -8.f);
}

} // namespace
