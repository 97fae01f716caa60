// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict_tone.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

using Owners = std::vector<std::uint8_t>;

// Two pictures of 40 x 9 side by side, the second one 22 columns further right: they share 18 columns.
Layout side_by_side()
{
    Layout layout;
    layout.width = 62;
    layout.height = 9;
    layout.channels = 1;
    layout.bits = 8;
    layout.pictures.resize(2);
    layout.pictures[0].rect = {0, 0, 40, 9};
    layout.pictures[1].rect = {22, 0, 40, 9};
    return layout;
}

// Of four pixels along a side: five columns and three rows, the last ones less than half as wide and high as others.
OverlapCells cells_of(const Layout& layout)
{
    OverlapCells cells;
    cells.overlap = find_overlaps(layout).at(0);
    cells.step = 4;
    cells.width = 5;
    cells.height = 3;
    return cells;
}

SeamMap seams_at(std::int32_t column, std::int64_t width, std::int64_t rows)
{
    SeamMap seams(width);
    const SeamMap::Run row[] = {{column, 0}, {static_cast<std::int32_t>(width), 1}};
    for (std::int64_t y = 0; y < rows; ++y)
        seams.add_row(std::span<const SeamMap::Run>(row));
    return seams;
}

TEST(CellOwners, AreThePicturesOfTheirMiddles)
{
    const Layout layout = side_by_side();
    const Owners row{1, 1, 2, 2, 2}; // middles are columns 24, 28, 32, 36, and 39 of the last one
    Owners expected;
    for (int i = 0; i < 3; ++i)
        expected.insert(expected.end(), row.begin(), row.end());
    EXPECT_EQ(owners_of_cells(cells_of(layout), layout, seams_at(32, 62, 9)), expected);
}

TEST(CellOwners, OfTheLastCellsLieInside)
{
    const Layout layout = side_by_side();
    const Owners owners = owners_of_cells(cells_of(layout), layout, seams_at(39, 62, 9));
    EXPECT_EQ(owners, (Owners{1, 1, 1, 1, 2, 1, 1, 1, 1, 2, 1, 1, 1, 1, 2}));
}

TEST(CellOwners, AreNobodysWhereAThirdPictureIsSeen)
{
    const Layout layout = side_by_side();
    SeamMap seams(62);
    const std::vector<std::int32_t> third(62, 2);
    for (int y = 0; y < 9; ++y)
        seams.add_row(std::span<const std::int32_t>(third));
    EXPECT_EQ(owners_of_cells(cells_of(layout), layout, seams), Owners(15, 0));
}

TEST(CellOwners, WithoutSeamsAreThePicturesWhoseEdgesAreFartherAway)
{
    const Layout layout = side_by_side();
    const Owners owners = owners_of_cells(cells_of(layout), layout, SeamMap());
    for (std::size_t row = 0; row < 2; ++row) {
        EXPECT_EQ(owners[row * 5], 1);     // the second one's edge is 2 columns away, the first one's 15
        EXPECT_EQ(owners[row * 5 + 4], 2); // at the first one's edge
    }
    EXPECT_EQ((Owners(owners.begin() + 10, owners.end())), Owners(5, 1)); // at the lower edge of both
}

} // namespace

} // namespace panoval::mosaic::test
