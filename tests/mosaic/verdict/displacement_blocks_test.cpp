// SPDX-License-Identifier: MIT
// What blocks of two pictures say, of which the second one lies inside the first one and shows something else than it
// should.
#include "mosaic/verdict/displacement.h"

#include "mosaic/verdict/block_choice.h"
#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace panoval::mosaic::test
{

namespace
{

constexpr Rect kSecond{150, 10, 600, 300};

// A picture of 900 x 320, and one inside it that is cut like that.
struct Nested {
    MemoryReader reader{900, 320};
    Corrections corrections;
    OverlapCells cells;

    Nested(const Scene& scene, const Cut& second)
    {
        reader.add(0, 0, take_picture(scene, {.rect = {0, 0, 900, 320}, .noise = 1, .seed = 3}));
        reader.add(second.rect.x, second.rect.y, take_picture(scene, second));
        corrections = Corrections::none(reader.layout);
        look();
    }

    void look() { cells = read_cells(source(), find_overlaps(reader.layout).at(0)); }
    PictureSource source() { return {reader.layout, corrections, reader}; }
    std::vector<BlockShift> measure(std::size_t threads = 1)
    {
        return measure_blocks(source(), cells, ToneModel(cells), threads);
    }
};

Scene town()
{
    return make_scene(900, 320, {.seed = 4});
}

TEST(MeasureBlocks, StopsHalfwayWhereAllFitsClearly)
{
    Nested fitting(town(), {.rect = kSecond, .noise = 1});
    const std::int64_t read = fitting.reader.pixels_read;
    const std::vector<BlockShift> blocks = fitting.measure();
    EXPECT_EQ(blocks.size(), choose_blocks(fitting.cells).first_half);
    EXPECT_LE(fitting.reader.pixels_read - read, static_cast<std::int64_t>(2 * blocks.size()) * 150 * 150);
    for (const BlockShift& block : blocks) {
        EXPECT_TRUE(is_matched(block));
        EXPECT_LT(std::fabs(block.fit.x) + std::fabs(block.fit.y), 0.1);
    }
    Nested displaced(town(), {.rect = kSecond, .shift_x = 1, .noise = 1});
    EXPECT_EQ(displaced.measure().size(), choose_blocks(displaced.cells).rects.size() + 1) << "and all of it, reduced";
}

TEST(MeasureBlocks, TellsAShiftOfSomePixels)
{
    Nested displaced(town(), {.rect = kSecond, .shift_x = 4, .shift_y = -2.5, .noise = 1});
    const std::vector<BlockShift> blocks = displaced.measure();
    for (const BlockShift& block : blocks) {
        ASSERT_TRUE(is_matched(block));
        EXPECT_NEAR(block.fit.x * block.step, 4, 0.25);
        EXPECT_NEAR(block.fit.y * block.step, -2.5, 0.25);
    }
    const std::vector<BlockShift> of_threads = displaced.measure(4);
    ASSERT_EQ(of_threads.size(), blocks.size());
    for (std::size_t i = 0; i < blocks.size(); ++i)
        EXPECT_EQ(of_threads[i].fit.x, blocks[i].fit.x);
}

// Areas of one value with hard edges correlate nearly as well a pixel beside the right place.
TEST(MeasureBlocks, TellsShiftsOfPaintedScenes)
{
    for (const std::uint64_t seed : {4u, 5u, 6u})
        for (const double shift : {2, 3, 4}) {
            const Scene painted = make_scene(900, 320, {.texture = 0, .contrast = 0.1, .edges = 30, .seed = seed});
            Nested displaced(painted, {.rect = kSecond, .shift_y = -shift, .noise = 0.7});
            for (const BlockShift& block : displaced.measure()) {
                if (block.step > 1 || !is_matched(block))
                    continue;
                EXPECT_NEAR(block.fit.x, 0, 0.4) << shift << ", seed " << seed;
                EXPECT_NEAR(block.fit.y, -shift, 0.4) << shift << ", seed " << seed;
            }
        }
}

// Farther than a block's own spectrum reaches: reduced copies know where to look. What is there of the last blocks lies
// outside the second picture.
TEST(MeasureBlocks, LooksWhereReducedCopiesMatch)
{
    Nested displaced(town(), {.rect = kSecond, .shift_x = 160, .noise = 1});
    const std::vector<BlockShift> blocks = displaced.measure();
    ASSERT_EQ(blocks.size(), 9u);
    EXPECT_NEAR(blocks.back().fit.x * blocks.back().step, 160, 0.5);
    for (const BlockShift& block : blocks) {
        if (block.step > 1)
            continue;
        EXPECT_EQ(is_matched(block), block.rect.right() + 160 - 10 <= kSecond.right()) << block.rect.x;
        if (is_matched(block)) {
            EXPECT_NEAR(block.fit.x, 160, 0.2);
            EXPECT_NEAR(block.fit.y, 0, 0.2);
        }
    }
}

TEST(MeasureBlocks, FindsNothingOfAnotherScene)
{
    Nested strange(town(), {.rect = kSecond, .noise = 1});
    strange.reader.pictures[1] = take_picture(make_scene(900, 320, {.seed = 99}), {.rect = kSecond, .noise = 1});
    strange.look();
    for (const BlockShift& block : strange.measure())
        EXPECT_FALSE(is_matched(block));
}

TEST(MeasureBlocks, NeedsSomethingShared)
{
    Nested narrow(town(), {.rect = {890, 0, 5, 300}});
    EXPECT_TRUE(narrow.measure().empty()) << "five columns";
    Nested low(town(), {.rect = {100, 0, 300, 5}});
    EXPECT_TRUE(low.measure().empty());
    Nested six(town(), {.rect = {100, 0, 300, 6}});
    EXPECT_FALSE(six.measure().empty());
    Nested nothing(town(), {.rect = kSecond});
    nothing.reader.pictures[1].mask.assign(nothing.reader.pictures[1].samples.size() / 3, 0);
    nothing.look();
    EXPECT_TRUE(nothing.measure().empty());
}

// Its blocks are all narrow, and their contents differ by as much as those are wide.
TEST(MeasureBlocks, SearchesNarrowOverlapsPlaceByPlace)
{
    Nested strip(town(), {.rect = {300, 10, 24, 280}, .shift_x = 6, .shift_y = -4, .noise = 0.5});
    const std::vector<BlockShift> blocks = strip.measure();
    const auto right = std::count_if(blocks.begin(), blocks.end(), [](const BlockShift& block) {
        return block.step == 1 && is_matched(block) && std::fabs(block.fit.x - 6) < 0.3 &&
               std::fabs(block.fit.y + 4) < 0.3;
    });
    EXPECT_GE(right, 1);
}

// A thing stands on a part of each block; the rest of it agrees where it lies.
TEST(MeasureBlocks, LooksBesideThingsThatMoved)
{
    Scene scene = make_scene(900, 320, {.texture = 0.1, .contrast = 0.1, .edges = 3});
    Nested moved(scene, {.rect = kSecond, .noise = 1});
    for (std::int64_t y = 0; y < 300; ++y)
        for (std::int64_t x = 0; x < 600; ++x)
            if (x % 150 > 60 && x % 150 < 110 && y % 150 > 40 && y % 150 < 110)
                for (int c = 0; c < 3; ++c)
                    moved.reader.pictures[1].at(x, y, c) = (x / 5 + y / 7) % 2 == 0 ? 250 : 20;
    moved.look();
    for (const BlockShift& block : moved.measure()) {
        if (block.step > 1)
            continue;
        EXPECT_LT(std::fabs(block.fit.x) + std::fabs(block.fit.y), 0.5);
        EXPECT_GT(block.strange, 0);
        EXPECT_GT(block.agreeing, 0);
    }
}

// Neither noise nor detail is the second picture's where that is out of focus.
TEST(MeasureBlocks, MeasuresFineDetailOfBoth)
{
    Nested soft(town(), {.rect = kSecond, .shift_x = 1, .blur = 2.5, .noise = 0.2});
    for (const BlockShift& block : soft.measure()) {
        if (block.step > 1)
            continue;
        EXPECT_GT(block.detail_first, 4 * block.detail_second);
        EXPECT_GT(block.detail_first, block.detail_shared);
        EXPECT_GT(block.noise_first, block.noise_second);
    }
    Nested sharp(town(), {.rect = kSecond, .shift_x = 1, .noise = 1});
    for (const BlockShift& block : sharp.measure())
        EXPECT_NEAR(block.detail_first, block.detail_second, 0.2 * block.detail_first);
}

TEST(ChooseBlocks, AreEightAtMostAndOfBothColoursOfAChessBoard)
{
    const auto blocks_of = [](std::int64_t width, std::int64_t height) {
        MemoryReader reader(width, height);
        for (int i = 0; i < 2; ++i)
            reader.add(0, 0, MemoryPicture::blank(width, height, 1, 8));
        const Corrections corrections = Corrections::none(reader.layout);
        return choose_blocks(read_cells({reader.layout, corrections, reader}, find_overlaps(reader.layout).at(0)));
    };
    EXPECT_EQ(blocks_of(128, 128).rects.size(), 1u);
    EXPECT_EQ(blocks_of(191, 60).rects.size(), 1u);
    EXPECT_EQ(blocks_of(192, 60).rects.size(), 2u);
    EXPECT_EQ(blocks_of(640, 384).rects.size(), 8u) << "four by two: the narrow ones go first";
    EXPECT_EQ(blocks_of(384, 640).rects.size(), 8u);
    EXPECT_EQ(blocks_of(4000, 100).rects.size(), 8u);
    const Blocks square = blocks_of(400, 400);
    EXPECT_EQ(square.rects.size(), 6u);
    EXPECT_EQ(square.first_half, 3u);
    for (const Rect& rect : square.rects)
        EXPECT_TRUE((Rect{0, 0, 400, 400}).contains(rect));
}

} // namespace

} // namespace panoval::mosaic::test
