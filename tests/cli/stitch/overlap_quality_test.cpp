// SPDX-License-Identifier: MIT
#include "cli/stitch/overlap_quality.h"

#include <gtest/gtest.h>

namespace panoval::cli::test
{

namespace
{

// The suspect among pictures a, b, c and d that overlap in a row, with these verdicts.
std::string suspect_in_row(Verdict ab, Verdict bc, Verdict cd)
{
    PanoramaPlan plan;
    for (const char* name : {"a", "b", "c", "d"}) {
        PlacedLayer layer;
        layer.file = name;
        plan.layers.push_back(layer);
    }
    std::vector<OverlapQuality> overlaps(3);
    const Verdict verdicts[] = {ab, bc, cd};
    for (std::size_t i = 0; i < 3; ++i) {
        overlaps[i].overlap = {i, i + 1, {}};
        overlaps[i].verdict = verdicts[i];
    }
    return find_suspect(plan, overlaps).value_or("nobody");
}

TEST(Suspect, IsNobodyWhereNoOverlapIsPoor)
{
    EXPECT_EQ(suspect_in_row(Verdict::Fair, Verdict::NothingShared, Verdict::Invisible), "nobody");
}

TEST(Suspect, IsThePictureOfAllPoorOverlaps)
{
    EXPECT_EQ(suspect_in_row(Verdict::Poor, Verdict::Poor, Verdict::Good),
              "'b' is probably the bad picture: all 2 poor overlaps are with it.");
}

TEST(Suspect, HasMostOfThePoorOverlaps)
{
    EXPECT_EQ(suspect_in_row(Verdict::Poor, Verdict::Poor, Verdict::Poor),
              "3 overlaps are poor; 'b' has most of them, 2.");
}

TEST(Suspect, OfOnePoorOverlapIsThePictureThatAgreesLessWithOthers)
{
    EXPECT_EQ(suspect_in_row(Verdict::Good, Verdict::Poor, Verdict::Fair),
              "'c' is probably the bad picture: its overlap with 'b' is poor, and with others it is only fair.");
    EXPECT_EQ(suspect_in_row(Verdict::Fair, Verdict::Poor, Verdict::Good),
              "'b' is probably the bad picture: its overlap with 'c' is poor, and with others it is only fair.");
}

TEST(Suspect, OfOnePoorOverlapMayBeEither)
{
    const std::string either = "Look at 'b' and 'c': their overlap is the only poor one.";
    EXPECT_EQ(suspect_in_row(Verdict::Fair, Verdict::Poor, Verdict::Fair), either);
    EXPECT_EQ(suspect_in_row(Verdict::Good, Verdict::Poor, Verdict::Invisible), either);
}

} // namespace

} // namespace panoval::cli::test
