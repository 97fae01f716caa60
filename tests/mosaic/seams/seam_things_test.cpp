// SPDX-License-Identifier: MIT
// Places where one of two pictures shows a thing, on reduced copies that are made by hand.
#include "mosaic/seams/seam_things.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace panoval::mosaic::test
{

namespace
{

constexpr std::int64_t kSide = 64; // cells of a copy

// Two pictures that lie on each other and show the same, without a mask or the second one with one.
class TwoCopies
{
public:
    explicit TwoCopies(bool has_mask = false) : layout_(layout_of(has_mask)), grid_(layout_, 4)
    {
        pictures_.reserve(2);
        for (std::size_t i = 0; i < 2; ++i)
            pictures_.emplace_back(layout_, i, grid_);
        for (std::size_t i = 0; i < 2; ++i)
            for (std::int64_t cell = 0; cell < grid_.count(); ++cell) {
                const int ground = cell % kSide < kSide / 2 ? 5000 : 20000; // a dark and a bright half
                pictures_[i].features(cell)[0] = static_cast<std::uint16_t>(ground + 100 * (cell % 7));
                pictures_[i].features(cell)[1] = 50;
            }
        if (has_mask)
            for (std::int64_t y = 0; y < kSide; ++y)
                std::fill_n(pictures_[1].mask_cover_row(y), kSide, Cover::Wholly);
    }

    // A thing with a pattern of its own, on cells of one picture.
    void draw(std::size_t picture, const Rect& box, int level = 11000)
    {
        for (std::int64_t y = 0; y < box.height; ++y)
            for (std::int64_t x = 0; x < box.width; ++x)
                pictures_[picture].features((box.y + y) * kSide + box.x + x)[0] =
                    static_cast<std::uint16_t>(level + 700 * ((x * 3 + y * 5) % 7));
    }
    void hide(std::int64_t x, std::int64_t y, Cover cover) { pictures_[1].mask_cover_row(y)[x] = cover; }

    std::vector<ThingPlace> places(std::int64_t factor = 1)
    {
        const CellGrid coarse = grid_.coarser(factor);
        const CellCosts costs(layout_, find_overlaps(layout_), grid_, pictures_, 1);
        const PicturePair& pair = costs.pairs().at(0);
        std::vector<std::int32_t> filled(static_cast<std::size_t>(coarse.count()));
        costs.fill_coarse(pair, coarse, factor, coarse.all(), filled.data());
        std::vector<ThingPlace> found = find_thing_places(costs, pair, coarse, factor, coarse.all(), filled);
        ties = tie_moved_things(costs, pair, found);
        return found;
    }

    std::vector<SwapTie> ties; // of the places that were asked for last

private:
    static Layout layout_of(bool has_mask)
    {
        Layout layout;
        layout.width = 4 * kSide;
        layout.height = 4 * kSide;
        layout.channels = 1;
        layout.bits = 8;
        layout.pictures.resize(2);
        for (PlacedPicture& picture : layout.pictures)
            picture.rect = layout.canvas();
        layout.pictures[1].has_mask = has_mask;
        return layout;
    }

    Layout layout_;
    CellGrid grid_;
    std::vector<ReducedPicture> pictures_;
};

TEST(ThingPlaces, AreConnectedCellsThatDiffer)
{
    TwoCopies copies;
    copies.draw(0, {10, 12, 6, 5});
    copies.draw(1, {40, 30, 4, 4});
    const std::vector<ThingPlace> found = copies.places();
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].box, (Rect{10, 12, 6, 5}));
    EXPECT_EQ(found[0].samples.size(), 30u);
    EXPECT_EQ(found[1].box, (Rect{40, 30, 4, 4}));
    EXPECT_GT(found[0].difference, 1000);
    EXPECT_TRUE(copies.ties.empty());
    EXPECT_TRUE(TwoCopies().places().empty());
}

TEST(ThingPlaces, HaveSixCellsAtLeast)
{
    TwoCopies copies;
    copies.draw(0, {10, 12, 5, 1});
    EXPECT_TRUE(copies.places().empty());
    copies.draw(0, {10, 12, 6, 1});
    EXPECT_EQ(copies.places().size(), 1u);
}

TEST(ThingPlaces, AreTwelveAtMostTheLargestFirst)
{
    TwoCopies copies;
    for (std::int64_t i = 0; i < 16; ++i)
        copies.draw(0, {1 + 15 * (i % 4), 1 + 15 * (i / 4), 4, 3 + (i * 7 + 5) % 16 / 2});
    const std::vector<ThingPlace> found = copies.places();
    ASSERT_EQ(found.size(), 12u);
    EXPECT_EQ(found[0].size, 40u);
    EXPECT_EQ(found[11].size, 20u) << "of two each of 12 to 40 cells";
    EXPECT_TRUE(std::is_sorted(found.begin(), found.end(),
                               [](const ThingPlace& a, const ThingPlace& b) { return a.size > b.size; }));
}

TEST(ThingPlaces, LeaveCellsAtTheEdgesOfPicturesOut)
{
    TwoCopies copies(true);
    copies.draw(0, {10, 12, 6, 5});
    for (std::int64_t y = 12; y < 17; ++y) {
        copies.hide(10, y, Cover::Partly);
        copies.hide(11, y, Cover::None);
    }
    const std::vector<ThingPlace> found = copies.places();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].box, (Rect{12, 12, 4, 5}));
}

TEST(ThingPlaces, OnLargerCellsHaveSamplesOfSmallOnes)
{
    TwoCopies copies;
    copies.draw(0, {13, 14, 9, 7});
    const std::vector<ThingPlace> found = copies.places(4);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].box, (Rect{13, 14, 9, 7}));
    for (const ThingSample& sample : found[0].samples)
        EXPECT_EQ(sample.large, static_cast<std::size_t>(sample.at.y / 4 * 16 + sample.at.x / 4));
}

TEST(ThingPlaces, OfOneThingInBothPicturesAreTied)
{
    TwoCopies copies;
    copies.draw(0, {10, 12, 6, 8});
    copies.draw(1, {40, 30, 6, 8});
    EXPECT_EQ(copies.places().size(), 2u);
    ASSERT_EQ(copies.ties.size(), 1u);
    EXPECT_GT(copies.ties[0].cost, 0);
    EXPECT_LE(copies.ties[0].cost, kCostApart);
}

// Where it stands in corners, places beside it lie outside the canvas.
TEST(ThingPlaces, OfOneThingAreTiedInCorners)
{
    for (const bool is_falling : {false, true}) {
        TwoCopies copies;
        copies.draw(0, {is_falling ? 0 : kSide - 6, 0, 6, 8});
        copies.draw(1, {is_falling ? kSide - 6 : 0, kSide - 8, 6, 8});
        EXPECT_EQ(copies.places().size(), 2u);
        EXPECT_EQ(copies.ties.size(), 1u);
    }
}

TEST(ThingPlaces, OfDifferentThingsAreNotTied)
{
    TwoCopies larger;
    larger.draw(0, {10, 12, 6, 8});
    larger.draw(1, {40, 30, 10, 8});
    EXPECT_EQ(larger.places().size(), 2u);
    EXPECT_TRUE(larger.ties.empty());
    TwoCopies higher;
    higher.draw(0, {10, 12, 6, 8});
    higher.draw(1, {40, 30, 6, 12});
    EXPECT_EQ(higher.places().size(), 2u);
    EXPECT_TRUE(higher.ties.empty());
    TwoCopies brighter;
    brighter.draw(0, {10, 12, 6, 8});
    brighter.draw(1, {40, 30, 6, 8}, 30000);
    EXPECT_EQ(brighter.places().size(), 2u);
    EXPECT_TRUE(brighter.ties.empty());
}

// What stands on one ground may be one thing: where both are gone, the pictures are alike.
TEST(ThingPlaces, OnOneGroundAreTied)
{
    TwoCopies copies;
    copies.draw(0, {10, 12, 6, 8});
    copies.draw(1, {20, 30, 6, 8}, 30000);
    EXPECT_EQ(copies.places().size(), 2u);
    EXPECT_EQ(copies.ties.size(), 1u);
}

// A part of it that a mask hides cannot be compared.
TEST(ThingPlaces, AreNotTiedToWhatIsHidden)
{
    TwoCopies copies(true);
    copies.draw(0, {10, 12, 6, 8});
    copies.draw(1, {40, 30, 6, 8});
    copies.places();
    EXPECT_EQ(copies.ties.size(), 1u);
    copies.hide(42, 33, Cover::None);
    EXPECT_EQ(copies.places().size(), 2u);
    EXPECT_TRUE(copies.ties.empty());
}

} // namespace

} // namespace panoval::mosaic::test
