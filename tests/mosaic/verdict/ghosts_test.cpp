// SPDX-License-Identifier: MIT
// Things that moved, on cells that are made by hand: a slope of light, and squares that one picture has alone.
#include "mosaic/verdict/ghosts.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

constexpr std::int64_t kWidth = 60; // cells
constexpr std::int64_t kHeight = 50;

struct Shared {
    OverlapCells cells;
    Layout layout;
    std::vector<std::uint8_t> owners = std::vector<std::uint8_t>(kWidth * kHeight, 1);

    std::size_t index(std::int64_t x, std::int64_t y) const { return static_cast<std::size_t>(y * kWidth + x); }

    // Both pictures show the same, on a canvas of 1000 x 400.
    explicit Shared(std::int64_t step = 2, double slope = 0.2)
    {
        layout.width = 1000;
        layout.height = 400;
        cells.step = step;
        cells.width = kWidth;
        cells.height = kHeight;
        cells.channels = 1;
        cells.overlap.region = {300, 100, kWidth * step, kHeight * step};
        for (std::int64_t y = 0; y < kHeight; ++y)
            for (std::int64_t x = 0; x < kWidth; ++x)
                cells.first.push_back(static_cast<float>(80 + slope * static_cast<double>(x + 2 * y)));
        cells.second = cells.first;
        cells.known.assign(cells.cells(), 1);
        cells.clipped.assign(cells.cells(), 0);
    }

    // Makes a rectangle of cells in one picture brighter.
    void add_thing(const Rect& box, float levels, bool in_second = true)
    {
        for (std::int64_t y = box.y; y < box.bottom(); ++y)
            for (std::int64_t x = box.x; x < box.right(); ++x)
                (in_second ? cells.second : cells.first)[index(x, y)] += levels;
    }

    std::vector<Ghost> find(const Displacement& displacement = {}) const
    {
        return find_ghosts(cells, ToneModel(cells), owners, displacement, layout);
    }
};

TEST(FindGhosts, FindsNothingWherePicturesAreTheSame)
{
    EXPECT_TRUE(Shared().find().empty());
}

TEST(FindGhosts, BoxesAThingOfEitherPictureOnTheCanvas)
{
    for (const bool in_second : {false, true})
        for (const float levels : {50.f, -50.f}) {
            Shared shared;
            shared.add_thing({10, 20, 6, 4}, levels, in_second);
            const std::vector<Ghost> found = shared.find();
            ASSERT_EQ(found.size(), 1u);
            EXPECT_EQ(found[0].box, (Rect{320, 140, 12, 8}));
            EXPECT_NEAR(found[0].levels, 50, 1.5) << "but for the slope around it";
            EXPECT_FALSE(found[0].is_cut);
        }
}

TEST(FindGhosts, KnowsThroughWhichASeamRuns)
{
    Shared shared;
    shared.add_thing({10, 20, 6, 4}, 50);
    shared.add_thing({40, 20, 6, 4}, 40);
    for (std::int64_t y = 0; y < kHeight; ++y)
        for (std::int64_t x = 13; x < kWidth; ++x)
            shared.owners[shared.index(x, y)] = 2;
    const std::vector<Ghost> found = shared.find();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_TRUE(found[0].is_cut);
    EXPECT_EQ(found[1].box.x, 380);
    EXPECT_FALSE(found[1].is_cut);
}

TEST(FindGhosts, LeavesOutWhatIsTooSmallOrTooFaint)
{
    Shared small;
    small.add_thing({10, 20, 11, 2}, 50); // 88 pixels
    EXPECT_TRUE(small.find().empty());
    Shared enough;
    enough.add_thing({10, 20, 23, 1}, 50); // 92 pixels
    EXPECT_EQ(enough.find().size(), 1u);
    Shared single(16);
    single.add_thing({10, 20, 1, 1}, 50); // 256 pixels, but one cell
    EXPECT_TRUE(single.find().empty());
    Shared two(16);
    two.add_thing({10, 20, 2, 1}, 50);
    EXPECT_EQ(two.find().size(), 1u);
    Shared faint(2, 0);
    faint.add_thing({10, 20, 12, 12}, 5.9f); // times what is visible: not clear enough anywhere
    EXPECT_TRUE(faint.find().empty());
    faint.add_thing({10, 20, 12, 12}, 0.3f);
    EXPECT_EQ(faint.find().size(), 1u);
}

// What lies a few pixels beside an edge is no other thing.
TEST(FindGhosts, LooksAroundFartherOnSmallCells)
{
    const auto with_edges_apart = [](std::int64_t step) {
        Shared shared(step, 0);
        for (std::int64_t y = 0; y < kHeight; ++y)
            for (std::int64_t x = 20; x < kWidth; ++x) {
                shared.cells.first[shared.index(x, y)] += 60;
                if (x >= 22)
                    shared.cells.second[shared.index(x, y)] += 60;
            }
        return shared.find().size();
    };
    EXPECT_EQ(with_edges_apart(2), 0u) << "two cells";
    EXPECT_EQ(with_edges_apart(4), 1u) << "one cell";
}

TEST(FindGhosts, AtTheEdgesOfAnOverlapAreWhole)
{
    for (const Rect& corner :
         {Rect{0, 0, 6, 6}, {kWidth - 6, 0, 6, 6}, {0, kHeight - 6, 6, 6}, {kWidth - 6, kHeight - 6, 6, 6}}) {
        Shared shared;
        shared.add_thing(corner, 50);
        const std::vector<Ghost> found = shared.find();
        ASSERT_EQ(found.size(), 1u);
        EXPECT_EQ(found[0].box, (Rect{300 + 2 * corner.x, 100 + 2 * corner.y, 12, 12}));
    }
}

// The last cells may be narrower than others.
TEST(FindGhosts, EndWhereTheOverlapDoes)
{
    Shared shared;
    shared.cells.overlap.region = {300, 100, 2 * kWidth - 1, 2 * kHeight - 1};
    shared.add_thing({kWidth - 6, kHeight - 6, 6, 6}, 50);
    const std::vector<Ghost> found = shared.find();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].box, (Rect{300 + 2 * kWidth - 12, 100 + 2 * kHeight - 12, 11, 11}));
}

TEST(FindGhosts, HangTogetherOverAGapOfOneCell)
{
    Shared shared;
    shared.add_thing({10, 20, 6, 6}, 50);
    shared.add_thing({17, 20, 6, 6}, 50);
    EXPECT_EQ(shared.find().size(), 1u);
    Shared apart;
    apart.add_thing({10, 20, 6, 6}, 50);
    apart.add_thing({18, 20, 6, 6}, 50);
    EXPECT_EQ(apart.find().size(), 2u);
}

TEST(FindGhosts, AreSixteenAtMostAndTheWorstFirst)
{
    Shared shared(8, 0);
    for (int i = 0; i < 20; ++i)
        shared.add_thing({3 + 11 * (i % 5), 3 + 11 * (i / 5), 2, 2}, 40 + static_cast<float>(i));
    const std::vector<Ghost> found = shared.find();
    ASSERT_EQ(found.size(), 16u);
    for (std::size_t i = 0; i < found.size(); ++i)
        EXPECT_NEAR(found[i].levels, 59 - static_cast<double>(i), 0.2);
}

TEST(FindGhosts, KnowNothingOfCellsThatOneOfThemDoesNotCover)
{
    Shared shared;
    shared.add_thing({10, 20, 6, 4}, 50);
    for (std::int64_t x = 9; x < 17; ++x)
        for (const std::int64_t y : {19, 24})
            shared.cells.known[shared.index(x, y)] = 0;
    ASSERT_EQ(shared.find().size(), 1u);
    EXPECT_EQ(shared.find()[0].box, (Rect{320, 140, 12, 8}));
    for (std::int64_t x = 10; x < 16; ++x)
        for (std::int64_t y = 20; y < 24; ++y)
            shared.cells.known[shared.index(x, y)] = 0;
    EXPECT_TRUE(shared.find().empty());
}

// A tower that the second picture has four columns farther right and two rows higher, and a thing beside it.
TEST(FindGhosts, TakesADisplacementOutFirst)
{
    Shared shared(2, 0);
    shared.add_thing({20, 10, 8, 30}, 60, false);
    shared.add_thing({24, 8, 8, 30}, 60, true);
    EXPECT_FALSE(shared.find().empty());
    EXPECT_TRUE(shared.find({8, -4, 1}).empty()) << "pixels";
    shared.add_thing({44, 20, 5, 5}, 60, true);
    const std::vector<Ghost> found = shared.find({8, -4, 1});
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].box, (Rect{380, 144, 10, 10})) << "where the first picture has nothing";
    for (const auto& [x, y] : {std::pair{8.0, 4.0}, {-8.0, 4.0}, {-8.0, -4.0}, {400.0, 0.0}, {0.0, 400.0}})
        EXPECT_TRUE(Shared(2, 0).find({x, y, 1}).empty()) << "what lies outside has nothing to be compared with";
}

TEST(FindGhosts, KnowNothingOfWhatADisplacementMovesToUncoveredCells)
{
    Shared shared(2, 0);
    shared.add_thing({20, 20, 6, 6}, 60, false); // what the second picture has of it is not known
    for (std::int64_t y = 20; y < 26; ++y)
        for (std::int64_t x = 24; x < 30; ++x)
            shared.cells.known[shared.index(x, y)] = 0;
    EXPECT_EQ(shared.find().size(), 1u);
    EXPECT_TRUE(shared.find({8, 0, 1}).empty());
}

TEST(FindGhosts, LieOnACanvasThatGoesRound)
{
    Shared shared;
    shared.cells.overlap.region.x = 960;
    shared.add_thing({5, 20, 6, 6}, 60);
    shared.add_thing({30, 20, 6, 6}, 50);
    EXPECT_EQ(shared.find()[1].box.x, 1020);
    shared.layout.wraps = true;
    const std::vector<Ghost> found = shared.find();
    EXPECT_EQ(found[0].box.x, 970);
    EXPECT_EQ(found[1].box.x, 20);
}

// A lamp that one picture's samples cannot tell, beside what the other one says of it.
TEST(FindGhosts, AreNoneWhereARangeEnds)
{
    for (const bool in_second : {false, true}) {
        Shared shared(2, 0);
        shared.add_thing({10, 20, 6, 6}, 100, in_second);
        EXPECT_EQ(shared.find().size(), 1u);
        for (std::int64_t x = 10; x < 16; ++x) // the other one may be as bright
            for (std::int64_t y = 20; y < 26; ++y)
                shared.cells.clipped[shared.index(x, y)] = in_second ? 1 : 2;
        EXPECT_TRUE(shared.find().empty());
        EXPECT_TRUE(shared.find({4, 0, 1}).empty()) << "of a displaced one that is not known either";
    }
}

TEST(FindGhosts, MayDifferInOneChannelAlone)
{
    Shared shared(2, 0);
    shared.cells.channels = 3;
    std::vector<float> of_three(3 * shared.cells.cells(), 80);
    shared.cells.first = of_three;
    for (std::int64_t x = 10; x < 16; ++x)
        for (std::int64_t y = 20; y < 26; ++y)
            of_three[3 * shared.index(x, y) + 2] += 30;
    shared.cells.second = of_three;
    const std::vector<Ghost> found = shared.find();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].box, (Rect{320, 140, 12, 12}));
    EXPECT_NEAR(found[0].levels, 30, 0.5);
}

} // namespace

} // namespace panoval::mosaic::test
