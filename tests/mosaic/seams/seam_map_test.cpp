// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_map.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

SeamMap two_rows()
{
    SeamMap map(6);
    map.add_row(std::vector<std::int32_t>{0, 0, 1, 1, kNobody, 2});
    map.add_row(std::vector<SeamMap::Run>{{2, 3}, {4, 3}, {6, 4}});
    return map;
}

std::vector<std::int32_t> labels(const SeamMap& map, std::int64_t y, std::int64_t first, std::int64_t count, bool wraps)
{
    std::vector<std::int32_t> out(static_cast<std::size_t>(count));
    map.read(y, first, count, wraps, out.data());
    return out;
}

using Labels = std::vector<std::int32_t>;

TEST(SeamMap, GivesBackWhatWasAdded)
{
    const SeamMap map = two_rows();
    EXPECT_EQ(map.height(), 2);
    EXPECT_EQ(labels(map, 0, 0, 6, false), (Labels{0, 0, 1, 1, kNobody, 2}));
    EXPECT_EQ(labels(map, 0, 3, 2, false), (Labels{1, kNobody}));
    EXPECT_EQ(labels(map, 1, 0, 6, false), (Labels{3, 3, 3, 3, 4, 4}));
    EXPECT_EQ(map.runs(1).size(), 2u) << "equal neighbours are one run";
}

TEST(SeamMap, KeepsRowsThatAreAlikeOnce)
{
    SeamMap map(6);
    const Labels above{0, 0, 1, 1, 1, 1};
    const Labels below{0, 0, 0, 1, 1, 1};
    for (const Labels& row : {above, above, above})
        map.add_row(row);
    const std::size_t bytes = map.bytes();
    map.add_row(std::vector<SeamMap::Run>{{2, 0}, {6, 1}});
    EXPECT_EQ(map.bytes(), bytes) << "the same again, as runs";
    map.add_row(below);
    EXPECT_EQ(map.bytes(), 2 * bytes);
    for (const Labels& row : {above, below, below})
        map.add_row(row);
    EXPECT_EQ(map.bytes(), 4 * bytes) << "only rows that follow one another";
    ASSERT_EQ(map.height(), 8);
    const std::vector<Labels> rows{above, above, above, above, below, above, below, below};
    for (std::int64_t y = 0; y < 8; ++y)
        EXPECT_EQ(labels(map, y, 0, 6, false), rows[static_cast<std::size_t>(y)]) << "row " << y;
}

TEST(SeamMap, ARunEndsWhereTheLabelChangesWhateverItsLength)
{
    for (std::int32_t length = 1; length <= 70; ++length) {
        Labels row(3, 7);
        row.insert(row.end(), static_cast<std::size_t>(length), 9);
        row.insert(row.end(), 40, kNobody);
        SeamMap map(static_cast<std::int64_t>(row.size()));
        map.add_row(std::span<const std::int32_t>(row));
        ASSERT_EQ(map.runs(0).size(), 3u) << length;
        EXPECT_EQ(map.runs(0)[1].end, 3 + length);
        EXPECT_EQ(labels(map, 0, 0, map.width(), false), row);
    }
}

TEST(SeamMap, OutsideIsNobodysUnlessTheCanvasGoesRound)
{
    const SeamMap map = two_rows();
    EXPECT_EQ(labels(map, 0, -2, 10, false), (Labels{-1, -1, 0, 0, 1, 1, -1, 2, -1, -1}));
    EXPECT_EQ(labels(map, 0, -2, 10, true), (Labels{-1, 2, 0, 0, 1, 1, -1, 2, 0, 0}));
    EXPECT_EQ(labels(map, -1, 0, 2, true), (Labels{-1, -1}));
    EXPECT_EQ(labels(map, 2, 0, 2, true), (Labels{-1, -1}));
}

} // namespace

} // namespace panoval::mosaic::test
