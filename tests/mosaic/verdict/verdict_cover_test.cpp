// SPDX-License-Identifier: MIT
// What pictures leave uncovered, on canvases drawn with letters: a label, or a dot where nobody is.
#include "mosaic/verdict/verdict_cover.h"

#include "tests/mosaic/memory_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace panoval::mosaic::test
{

namespace
{

SeamMap drawn(const std::vector<std::string>& rows)
{
    SeamMap seams(static_cast<std::int64_t>(rows[0].size()));
    for (const std::string& row : rows) {
        std::vector<std::int32_t> labels;
        for (const char letter : row)
            labels.push_back(letter == '.' ? kNobody : letter - 'a');
        seams.add_row(labels);
    }
    return seams;
}

std::vector<std::int64_t> sizes_of(const Uncovered& uncovered)
{
    std::vector<std::int64_t> sizes;
    for (const Hole& hole : uncovered.holes)
        sizes.push_back(hole.pixels);
    return sizes;
}

using Sizes = std::vector<std::int64_t>;

TEST(FindUncovered, BoxesHolesTheLargestFirst)
{
    const Uncovered found = find_uncovered(drawn({"aaaaaaa", "a.aa.aa", "aaa...a", "aaaa.aa", "aaaaaaa"}), false);
    EXPECT_EQ(found.pixels, 6);
    EXPECT_EQ(sizes_of(found), (Sizes{5, 1}));
    EXPECT_EQ(found.holes[0].box, (Rect{3, 1, 3, 3}));
    EXPECT_EQ(found.holes[1].box, (Rect{1, 1, 1, 1}));
}

TEST(FindUncovered, IsOneHoleWhereBranchesMeetFartherDown)
{
    EXPECT_EQ(sizes_of(find_uncovered(drawn({"aaaaaaa", "a.a.a.a", "a.....a", "a.a.a.a", "aaaaaaa"}), false)),
              Sizes{11});
    EXPECT_EQ(sizes_of(find_uncovered(drawn({"aaaaa", "a.aaa", "aa.aa", "aaaaa"}), false)), (Sizes{1, 1}))
        << "corners do not touch";
}

TEST(FindUncovered, IsNoHoleAtAnEdge)
{
    for (const std::vector<std::string>& rows : {std::vector<std::string>{"a.aa", "a.aa", "aaaa"},
                                                 {"aaaa", "..aa", "aaaa"},
                                                 {"aaaa", "aaa.", "aaaa"},
                                                 {"aaaa", "aa.a", "aa.a"}}) {
        const Uncovered found = find_uncovered(drawn(rows), false);
        EXPECT_GT(found.pixels, 0);
        EXPECT_EQ(found.holes.size(), 0u);
    }
    EXPECT_EQ(find_uncovered(SeamMap(), false).pixels, 0);
}

// Round the horizon there are edges above and below alone.
TEST(FindUncovered, GoesRound)
{
    const auto round = [](const std::vector<std::string>& rows) { return sizes_of(find_uncovered(drawn(rows), true)); };
    EXPECT_EQ(round({"aaaaaa", ".aaaa.", "aaaaaa"}), Sizes{2}) << "across both ends";
    EXPECT_EQ(round({"aaaaaa", ".aa.aa", "aaaaaa"}), (Sizes{1, 1}));
    EXPECT_EQ(round({"aaaaaa", "a.aaa.", "aaaaaa"}), (Sizes{1, 1}));
    EXPECT_EQ(round({"aaaaaa", "......", "aaaaaa"}), Sizes{6});
    EXPECT_EQ(round({".aaaa.", "aaaaaa"}), Sizes{});
    EXPECT_EQ(round({"aaaaaa", ".aaaa."}), Sizes{});
}

OverlapVerdict overlap_of(std::size_t first, std::size_t second)
{
    OverlapVerdict overlap;
    overlap.first = first;
    overlap.second = second;
    return overlap;
}

TEST(PicturesThatCover, OwnPixelsOrShareSome)
{
    const SeamMap seams = drawn({"aa.c", "aaac"});
    MemoryReader reader(4, 2);
    for (int i = 0; i < 5; ++i)
        reader.add(0, 0, MemoryPicture::blank(4, 2, 1, 8));
    EXPECT_EQ(pictures_that_cover(reader.layout, reader, seams, {}),
              (std::vector<bool>{true, false, true, false, false}));
    EXPECT_EQ(pictures_that_cover(reader.layout, reader, seams, {overlap_of(2, 4)}),
              (std::vector<bool>{true, false, true, false, true}));
}

TEST(PicturesThatCover, HaveAPixelInTheirMaskWhereThereAreNoSeams)
{
    MemoryReader reader(4, 200);
    for (int i = 0; i < 4; ++i) {
        MemoryPicture picture = MemoryPicture::blank(4, 200, 1, 8);
        if (i > 0)
            picture.mask.resize(4 * 200);
        if (i == 1)
            picture.mask.back() = 1;
        reader.add(0, 0, std::move(picture));
    }
    EXPECT_EQ(pictures_that_cover(reader.layout, reader, SeamMap(), {overlap_of(0, 3)}),
              (std::vector<bool>{true, true, false, true}));
}

TEST(ConnectedGroups, AreOfPicturesThatShareDirectlyOrByOthers)
{
    using Groups = std::vector<std::vector<std::size_t>>;
    const std::vector<bool> covers{true, true, true, false, true, true};
    EXPECT_EQ(connected_groups(covers, {overlap_of(1, 4), overlap_of(4, 0)}), (Groups{{0, 1, 4}, {2}, {5}}));
    EXPECT_EQ(connected_groups(covers, {}), (Groups{{0}, {1}, {2}, {4}, {5}}));
    EXPECT_EQ(connected_groups({}, {}), Groups{});
}

} // namespace

} // namespace panoval::mosaic::test
