// SPDX-License-Identifier: MIT
// Pictures at each other's places in a grid of three by two, whatever made somebody suspect them.
#include "mosaic/verdict/verdict_swaps.h"

#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <array>
#include <set>
#include <utility>

namespace panoval::mosaic::test
{

namespace
{

using Pairs = std::vector<std::array<std::size_t, 2>>;

struct Grid {
    MemoryReader reader{560, 320};
    Corrections corrections;
    std::vector<Overlap> overlaps;

    // The pictures at places `shown`, one after the other.
    explicit Grid(const std::array<std::size_t, 6>& shown, const SceneOptions& options = {})
    {
        const Scene scene = make_scene(560, 320, options);
        for (std::size_t i = 0; i < 6; ++i)
            reader.add(place(i).x, place(i).y, take_picture(scene, {.rect = place(shown[i]), .noise = 1}));
        corrections = Corrections::none(reader.layout);
        overlaps = find_overlaps(reader.layout);
    }

    static Rect place(std::size_t i)
    {
        return {static_cast<std::int64_t>(i % 3) * 160, static_cast<std::int64_t>(i / 3) * 120, 240, 200};
    }

    // With a verdict by which nothing of these pictures fits, and all the rest does.
    Pairs find(const std::set<std::size_t>& suspects)
    {
        Verdict verdict;
        for (const Overlap& overlap : overlaps) {
            OverlapVerdict& judged = verdict.overlaps.emplace_back();
            judged.first = overlap.first;
            judged.second = overlap.second;
            judged.is_mismatch = suspects.contains(overlap.first) || suspects.contains(overlap.second);
            if (!judged.is_mismatch)
                judged.displacement = Displacement{0, 0, 0.95};
        }
        return find_swaps({reader.layout, corrections, reader}, overlaps, verdict);
    }
};

TEST(FindSwaps, NamesTwoThatFitAtEachOthersPlaces)
{
    EXPECT_EQ(Grid({0, 4, 2, 3, 1, 5}).find({1, 4}), (Pairs{{1, 4}}));
    EXPECT_EQ(Grid({5, 1, 2, 3, 4, 0}).find({0, 5}), (Pairs{{0, 5}}));
    EXPECT_EQ(Grid({0, 1, 2, 3, 4, 5}).find({1, 4}), Pairs{}) << "they lie where they should";
}

TEST(FindSwaps, NamesEachOnce)
{
    EXPECT_EQ(Grid({3, 1, 5, 0, 4, 2}).find({0, 2, 3, 5}), (Pairs{{0, 3}, {2, 5}}));
}

TEST(FindSwaps, AsksOfSuspectsAlone)
{
    EXPECT_EQ(Grid({0, 4, 2, 3, 1, 5}).find({}), Pairs{});
    EXPECT_EQ(Grid({0, 4, 2, 3, 1, 5}).find({4}), Pairs{});
}

TEST(FindSwaps, AreOfPicturesOfOneSize)
{
    for (const auto& [width, height] : {std::pair{239, 200}, {240, 199}}) {
        Grid grid({0, 4, 2, 3, 1, 5});
        MemoryPicture& picture = grid.reader.pictures[4];
        MemoryPicture smaller = MemoryPicture::blank(width, height, 3, 8);
        for (std::int64_t y = 0; y < height; ++y)
            for (std::int64_t x = 0; x < width; ++x)
                for (int c = 0; c < 3; ++c)
                    smaller.at(x, y, c) = picture.at(x, y, c);
        picture = smaller;
        grid.reader.layout.pictures[4].rect.width = width;
        grid.reader.layout.pictures[4].rect.height = height;
        grid.overlaps = find_overlaps(grid.reader.layout);
        EXPECT_EQ(grid.find({1, 4}), Pairs{});
    }
}

// A blank picture fits nowhere, and whoever lies at its place instead has not been exchanged with it.
TEST(FindSwaps, AreNotOfPicturesThatShowNothing)
{
    Grid grid({0, 4, 2, 3, 1, 5});
    MemoryPicture& blank = grid.reader.pictures[4];
    std::fill(blank.samples.begin(), blank.samples.end(), std::uint16_t{128});
    EXPECT_EQ(grid.find({1, 4}), Pairs{});
    MemoryPicture& other = grid.reader.pictures[1];
    std::fill(other.samples.begin(), other.samples.end(), std::uint16_t{128});
    EXPECT_EQ(grid.find({1, 4}), Pairs{});
}

TEST(FindSwaps, AreFoundWhateverLiesBetweenThem)
{
    EXPECT_EQ(Grid({0, 1, 3, 2, 4, 5}).find({2, 3}), (Pairs{{2, 3}}));
    Grid grid({0, 4, 2, 3, 1, 5}); // and a picture that shares two rows with one of them: too little to compare
    grid.reader.layout.height = 420;
    grid.reader.add(200, 318, MemoryPicture::blank(100, 100, 3, 8));
    grid.corrections = Corrections::none(grid.reader.layout);
    grid.overlaps = find_overlaps(grid.reader.layout);
    EXPECT_EQ(grid.find({1, 4}), (Pairs{{1, 4}}));
}

// Each fits at the other's place, but for some pixels.
TEST(FindSwaps, AreNotOfPicturesThatAreDisplacedThere)
{
    Grid grid({0, 4, 2, 3, 1, 5});
    const Scene scene = make_scene(560, 320, {});
    grid.reader.pictures[1] = take_picture(scene, {.rect = Grid::place(4), .shift_x = 4, .noise = 1});
    EXPECT_EQ(grid.find({1, 4}), Pairs{});
    grid.reader.pictures[1] = take_picture(scene, {.rect = Grid::place(4), .shift_x = 1, .noise = 1});
    EXPECT_EQ(grid.find({1, 4}), (Pairs{{1, 4}}));
}

// Masks and gains belong to the pictures, and go with them.
TEST(FindSwaps, ExchangesMasksAndGains)
{
    Grid grid({0, 4, 2, 3, 1, 5});
    MemoryPicture& dark = grid.reader.pictures[1];
    for (std::uint16_t& sample : dark.samples)
        sample = static_cast<std::uint16_t>(sample / 2);
    grid.corrections.gains[1].fill(2);
    dark.mask.assign(240 * 200, 255);
    for (std::int64_t y = 0; y < 200; ++y) // nonsense where it covers nothing
        for (std::int64_t x = 0; x < 12; ++x) {
            dark.mask[static_cast<std::size_t>(y * 240 + x)] = 0;
            for (int c = 0; c < 3; ++c)
                dark.at(x, y, c) = (x + y) % 3 == 0 ? 250 : 0;
        }
    grid.reader.layout.pictures[1].has_mask = true;
    EXPECT_EQ(grid.find({1, 4}), (Pairs{{1, 4}}));
}

// Of a panorama in which nothing fits, two names would be no help.
TEST(FindSwaps, AreNotLookedForAmongManySuspects)
{
    const Scene scene = make_scene(60 * 18, 80, {});
    MemoryReader reader(60 * 18, 80);
    for (std::size_t i = 0; i < 17; ++i) {
        const std::size_t shown = i == 3 ? 7 : i == 7 ? 3 : i;
        reader.add(60 * static_cast<std::int64_t>(i), 0,
                   take_picture(scene, {.rect = {60 * static_cast<std::int64_t>(shown), 0, 100, 80}, .noise = 1}));
    }
    const Corrections corrections = Corrections::none(reader.layout);
    const std::vector<Overlap> overlaps = find_overlaps(reader.layout);
    Verdict verdict;
    for (const Overlap& overlap : overlaps) {
        OverlapVerdict& judged = verdict.overlaps.emplace_back();
        judged.first = overlap.first;
        judged.second = overlap.second;
        judged.is_mismatch = true;
    }
    const PictureSource source{reader.layout, corrections, reader};
    EXPECT_EQ(find_swaps(source, overlaps, verdict), Pairs{}) << "17 suspects";
    verdict.overlaps.pop_back(); // about the last one nobody knows anything
    EXPECT_EQ(find_swaps(source, overlaps, verdict), (Pairs{{3, 7}}));
}

} // namespace

} // namespace panoval::mosaic::test
