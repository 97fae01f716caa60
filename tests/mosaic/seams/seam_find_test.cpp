// SPDX-License-Identifier: MIT
// Seams where pictures differ least: what covers a pixel owns it whatever the pictures' shapes, and things that moved
// are left whole.
#include "mosaic/seams/seam_find.h"

#include "tests/mosaic/mosaic_scene.h"
#include "tests/mosaic/seam_checks.h"

#include <gtest/gtest.h>

#include <string>

namespace panoval::mosaic::test
{

namespace
{

constexpr std::size_t kPlenty = std::size_t{512} << 20;

SeamMap find(SeamReader& reader, std::size_t threads = 1, std::int64_t cell = 0, SeamMode mode = SeamMode::Optimal)
{
    NoProgress progress;
    return find_seams(reader.layout, find_overlaps(reader.layout), Corrections::none(reader.layout), reader,
                      {mode, kPlenty, threads, cell}, progress);
}

// Sets every sample that the picture has in a rectangle of the canvas to level_at(sample, y, channel, scale); scale is
// that of 8 bit in the picture's samples.
template <typename LevelAt>
void draw(SeamReader& reader, std::size_t picture, const Rect& thing, LevelAt level_at)
{
    MemoryPicture& to = reader.pictures[picture];
    const int scale = to.bits == 8 ? 1 : 257;
    for (std::int64_t y = thing.y; y < thing.bottom(); ++y)
        for (std::int64_t x = thing.x; x < thing.right(); ++x) {
            std::int64_t px = 0;
            std::int64_t py = 0;
            if (reader.covers(picture, x, y, px, py))
                for (int c = 0; c < to.channels; ++c)
                    to.at(px, py, c) = static_cast<std::uint16_t>(level_at(to.at(px, py, c), y, c, scale));
        }
}

// Lightens or darkens a rectangle of the canvas in one picture.
void draw_thing(SeamReader& reader, std::size_t picture, const Rect& thing, int levels)
{
    draw(reader, picture, thing,
         [&](int sample, std::int64_t, int, int scale) { return std::clamp(sample + levels * scale, 0, 255 * scale); });
}

// Hides a rectangle of the canvas behind a striped thing.
void paint_thing(SeamReader& reader, std::size_t picture, const Rect& thing)
{
    draw(reader, picture, thing, [&](int, std::int64_t y, int c, int scale) {
        const int level = (y - thing.y) / 6 % 2 == 0 ? 230 : 190;
        return (level - 20 * c) * scale;
    });
}

// Which part of the thing's pixels that others cover, too, belongs to the picture that shows it.
double part_owned(const SeamReader& reader, const SeamMap& map, std::size_t picture, const Rect& thing)
{
    const std::vector<std::int32_t> labels = all_labels(map);
    int owned = 0;
    int shared = 0;
    for (std::int64_t y = thing.y; y < thing.bottom(); ++y)
        for (std::int64_t x = thing.x; x < thing.right(); ++x) {
            int covering = 0;
            for (std::size_t i = 0; i < reader.layout.pictures.size(); ++i)
                covering += reader.covers(i, x, y) ? 1 : 0;
            if (covering < 2)
                continue;
            const std::int64_t column = reader.layout.wraps ? x % reader.layout.width : x;
            shared += 1;
            owned += labels[static_cast<std::size_t>(y * reader.layout.width + column)] ==
                     static_cast<std::int32_t>(picture);
        }
    return shared == 0 ? 0.0 : static_cast<double>(owned) / shared;
}

struct SideBySide {
    std::int64_t width = 220; // of either picture
    std::int64_t height = 160;
    std::int64_t overlap = 90;
    int channels = 3;
    int bits = 8;
    double noise = 2;
    double gain = 1; // of the second one
};

// Two pictures of one scene beside each other.
SeamReader side_by_side(const SideBySide& shape, std::uint64_t seed)
{
    const std::int64_t second = shape.width - shape.overlap;
    SeamReader reader(shape.width + second, shape.height);
    SceneOptions options;
    options.channels = shape.channels;
    options.seed = seed + 1;
    const Scene scene = make_scene(reader.layout.width, shape.height, options);
    for (const std::int64_t x : {std::int64_t{0}, second}) {
        Cut cut;
        cut.rect = {x, 0, shape.width, shape.height};
        cut.bits = shape.bits;
        cut.noise = shape.noise;
        cut.gain = x == 0 ? 1 : shape.gain;
        cut.seed = 2 * seed + (x == 0 ? 0 : 1);
        reader.add(x, 0, take_picture(scene, cut));
    }
    return reader;
}

TEST(SeamFind, GivesEveryCoveredPixelToAPictureThatCoversIt)
{
    for (std::uint64_t seed = 0; seed < 60; ++seed) {
        SeamReader reader = scattered_pictures(seed);
        if (seed % 4 == 1)
            for (std::size_t i = 0; i < reader.pictures.size(); i += 2)
                reader.keep_rect(i,
                                 intersect({2, 1, 9, 7}, {0, 0, reader.pictures[i].width, reader.pictures[i].height}));
        for (const std::int64_t cell : {0, 1, 8, 128}) {
            const std::string what = "seed " + std::to_string(seed) + ", cells of " + std::to_string(cell);
            const SeamMap map = find(reader, 1, cell);
            expect_owned_by_who_covers(reader, map, what);
            EXPECT_EQ(all_labels(find(reader, 4, cell)), all_labels(map)) << what;
        }
        expect_owned_by_who_covers(reader, find(reader, 2, 0, SeamMode::Nearest), "seed " + std::to_string(seed));
    }
}

// Of overlaps of so many cells the seams are found on larger cells first.
constexpr std::int64_t kPixelsForLargerCells = 50000;

// A canvas of nine windows of 64 cells that goes round, and two pictures that meet twice, one with a ragged edge.
SeamReader large_ring()
{
    SeamReader reader(576, 480, true);
    const Scene scene = make_scene(576, 480, {.seed = 3});
    for (const std::int64_t x : {0, 300}) {
        const Cut cut{.rect = {x, 0, 420, 480}, .noise = 2, .seed = static_cast<std::uint64_t>(x)};
        MemoryPicture picture = take_picture(scene, cut);
        if (x > 0)
            give_ragged_mask(picture, 9);
        reader.add(x, 0, std::move(picture));
    }
    return reader;
}

TEST(SeamFind, OnLargerCellsFirstGivesPixelsToWhoCoversThem)
{
    for (const bool has_keepers : {false, true}) {
        SeamReader reader = large_ring();
        const std::vector<Overlap> overlaps = find_overlaps(reader.layout);
        ASSERT_EQ(overlaps.size(), 2u);
        EXPECT_GT(overlaps[0].region.pixels(), kPixelsForLargerCells);
        if (has_keepers) {
            reader.keep_rect(0, {310, 200, 30, 20});
            reader.keep_rect(1, {100, 90, 15, 40});
        }
        const SeamMap map = find(reader, 1, 1);
        expect_owned_by_who_covers(reader, map, "a large ring");
        EXPECT_EQ(all_labels(find(reader, 4, 1)), all_labels(map));
    }
}

TEST(SeamFind, OnLargerCellsFirstLeavesThingsWhole)
{
    SeamReader reader = side_by_side({.width = 460, .height = 300, .overlap = 220}, 7);
    EXPECT_GT(find_overlaps(reader.layout)[0].region.pixels(), kPixelsForLargerCells);
    const Rect thing{320, 130, 61, 45};
    draw_thing(reader, 0, thing, 90);
    const SeamMap map = find(reader, 1, 1);
    expect_owned_by_who_covers(reader, map, "a thing");
    const double owned = part_owned(reader, map, 0, thing);
    EXPECT_TRUE(owned > 0.97 || owned < 0.03) << owned;
}

// A row of pictures of 400 x 300, each of which shares 150 columns, 45000 pixels, with the next one.
std::size_t bytes_of_row(std::int64_t pictures)
{
    Layout layout;
    layout.width = 250 * pictures + 150;
    layout.height = 300;
    for (std::int64_t i = 0; i < pictures; ++i)
        layout.pictures.push_back({{250 * i, 0, 400, 300}, false, ""});
    return seam_search_bytes(layout, find_overlaps(layout), {SeamMode::Optimal, kPlenty, 64, 1});
}

TEST(SeamFind, OfManyOverlapsIsOnLargerCellsAndTakesLess)
{
    EXPECT_GT(bytes_of_row(23), bytes_of_row(22)) << "0.99 million pixels";
    EXPECT_LT(bytes_of_row(24), bytes_of_row(23)) << "1.035 million pixels, the first that are too many";
}

TEST(SeamFind, TakesLargerCellsForLargerPictures)
{
    const auto cell_of = [](std::int64_t side) {
        Layout layout;
        layout.width = 2 * side;
        layout.height = side;
        layout.pictures = {{{0, 0, side, side}, false, ""}, {{side - 100, 0, side, side}, false, ""}};
        return seam_grid(layout, find_overlaps(layout), {}).cell;
    };
    EXPECT_EQ(cell_of(2000), 2) << "0.2 million pixels in the overlap";
    EXPECT_EQ(cell_of(20000), 16) << "of 12 and more bytes a cell, 12.5 million cells of 8 pixels take 150 MB";
}

TEST(SeamFind, RunsStraightThroughTheMiddleOfPicturesThatAgree)
{
    SideBySide shape;
    shape.noise = 0;
    SeamReader reader = side_by_side(shape, 1);
    const SeamMap map = find(reader);
    const std::int64_t middle = reader.layout.width / 2;
    for (std::int64_t y = 0; y < shape.height; ++y) {
        ASSERT_EQ(map.runs(y).size(), 2u) << "row " << y;
        EXPECT_NEAR(static_cast<double>(map.runs(y)[0].end), static_cast<double>(middle), 20) << "row " << y;
    }
}

TEST(SeamFind, LeavesThingsThatMovedWhole)
{
    panoval::test::Random random(5);
    for (std::uint64_t seed = 0; seed < 40; ++seed) {
        SideBySide shape;
        shape.bits = seed % 5 == 0 ? 16 : 8;
        shape.channels = seed % 3 == 0 ? 1 : 3;
        shape.noise = seed % 2 == 0 ? 2 : 4;
        shape.gain = seed % 7 == 0 ? 1.01 : 1;
        SeamReader reader = side_by_side(shape, seed);
        const std::int64_t side = seed % 4 == 0 ? 10 : 24;
        const Rect thing{shape.width - shape.overlap + random.integer(0, shape.overlap - side),
                         random.integer(0, shape.height - 90), side, side == 10 ? 10 : 90};
        const std::size_t owner = seed / 2 % 2;
        draw_thing(reader, owner, thing, seed % 8 < 4 ? 20 : -20);
        const double owned = part_owned(reader, find(reader), owner, thing);
        EXPECT_TRUE(owned == 0 || owned == 1) << "seed " << seed << ": " << owned << " of it";
    }
}

// One picture shows it here, the other one there: of the four ways to go round both places, two show it once.
TEST(SeamFind, ShowsAThingAtTwoPlacesOnce)
{
    panoval::test::Random random(6);
    for (std::uint64_t seed = 0; seed < 40; ++seed) {
        SideBySide shape;
        shape.width = 300;
        shape.overlap = 160;
        shape.bits = seed % 5 == 0 ? 16 : 8;
        shape.channels = seed % 3 == 0 ? 1 : 3;
        shape.gain = seed % 7 == 0 ? 1.01 : 1;
        SeamReader reader = side_by_side(shape, seed);
        const std::int64_t left = shape.width - shape.overlap;
        const Rect upper{left + random.integer(8, 120), random.integer(2, 20), 22, 50};
        const Rect lower{left + random.integer(8, 120), random.integer(84, 105), 22, 50};
        paint_thing(reader, seed % 2, upper);
        paint_thing(reader, 1 - seed % 2, lower);
        const SeamMap map = find(reader);
        const double at_upper = part_owned(reader, map, seed % 2, upper);
        const double at_lower = part_owned(reader, map, 1 - seed % 2, lower);
        EXPECT_TRUE((at_upper == 0 && at_lower == 1) || (at_upper == 1 && at_lower == 0))
            << "seed " << seed << ": " << at_upper << " of one, " << at_lower << " of the other";
    }
}

// Where it stands outside the overlap, or partly, it is seen in any case.
TEST(SeamFind, ShowsOnceWhatStandsOutsideTheOverlapInOnePicture)
{
    panoval::test::Random random(31);
    for (std::uint64_t seed = 0; seed < 24; ++seed) {
        SideBySide shape;
        shape.width = 300;
        shape.overlap = 160;
        SeamReader reader = side_by_side(shape, seed);
        const std::int64_t left = shape.width - shape.overlap;
        const std::size_t inside = seed % 2;
        const std::int64_t beside = seed % 4 < 2 ? random.integer(4, 40) : random.integer(-16, -8);
        const Rect seen{inside == 0 ? shape.width + beside : left - 22 - beside, random.integer(20, 60), 22, 50};
        const Rect twice{left + random.integer(40, 100), random.integer(20, 60), 22, 50};
        paint_thing(reader, inside, twice);
        paint_thing(reader, 1 - inside, seen);
        const SeamMap map = find(reader);
        EXPECT_EQ(part_owned(reader, map, 1 - inside, twice), 1.0) << "seed " << seed;
        reader.is_large = false;
        EXPECT_EQ(all_labels(find(reader)), all_labels(map)) << "seed " << seed << ", read less often";
        if (beside < 0) {
            EXPECT_EQ(part_owned(reader, map, 1 - inside, seen), 1.0) << "seed " << seed;
        }
    }
}

// A thing that stands in the overlap in one picture and reaches a little beyond it in the other, before a background
// that gets darker, looks for itself where only one picture is.
TEST(SeamFind, DoesNotDependOnWhatIsReducedBesideThings)
{
    panoval::test::Random random(37);
    for (int i = 0; i < 24; ++i) {
        SCOPED_TRACE(i);
        const std::int64_t width = 2 * random.integer(8, 22);
        const std::int64_t height = 2 * random.integer(8, 22);
        const Rect inside{2 * random.integer(215, 265), 2 * random.integer(30, 150), width, height};
        const std::int64_t beyond = 2 * random.integer(1, 3);
        const bool is_above = inside.y < 180;
        const std::int64_t row = is_above ? 2 * random.integer(130, 170) : 2 * random.integer(10, 50);
        const Rect outside{600 - width + beyond, row, width, height};
        const double slope = -70.0 / static_cast<double>(row - inside.y);
        const auto level = static_cast<double>(random.integer(170, 250));
        const double ground = level - static_cast<double>(random.integer(60, 110));
        const auto noise_at = [&](std::int64_t x, std::int64_t y) {
            return static_cast<double>((x / 2 * 7919 + y / 2 * 104729) % 9 - 4);
        };
        SeamReader reader(1000, 420);
        for (const std::int64_t left : {0, 400}) {
            MemoryPicture picture = MemoryPicture::blank(600, 420, 3, 8);
            const Rect& thing = left == 0 ? inside : outside;
            for (std::int64_t y = 0; y < 420; ++y)
                for (std::int64_t x = 0; x < 600; ++x) {
                    const std::int64_t dx = left + x - thing.x;
                    const std::int64_t dy = y - thing.y;
                    const bool is_thing = dx >= 0 && dx < width && dy >= 0 && dy < height;
                    const double middle = static_cast<double>(inside.y) + 0.5 * static_cast<double>(height);
                    const double value =
                        is_thing ? level + noise_at(dx, dy + 99)
                                 : ground + (static_cast<double>(y) - middle) * slope + noise_at(left + x, y);
                    for (int c = 0; c < 3; ++c)
                        picture.at(x, y, c) = static_cast<std::uint16_t>(std::clamp(value, 0.0, 255.0));
                }
            reader.add(left, 0, std::move(picture));
        }
        const std::vector<std::int32_t> labels = all_labels(find(reader));
        reader.is_large = false;
        EXPECT_EQ(all_labels(find(reader)), labels);
    }
}

TEST(SeamFind, ShowsAThingOnceThatStandsBeyondTheEdgeOfACanvasThatGoesRound)
{
    for (const std::size_t inside : {0u, 2u}) {
        SeamReader reader(397, 120, true);
        const Scene scene = make_scene(397, 120, {});
        for (int i = 0; i < 3; ++i) {
            const Cut cut{.rect = {10 + 132 * i, 0, 190, 120}, .noise = 2, .seed = static_cast<std::uint64_t>(i)};
            reader.add(cut.rect.x, 0, take_picture(scene, cut));
        }
        // The last picture reaches over the edge to column 67, the first begins at 10; alone are 332 to 9 and 67 to
        // 141.
        const Rect twice{28, 20, 22, 60};
        const Rect seen = inside == 0 ? Rect{350, 26, 22, 60} : Rect{90, 26, 22, 60};
        paint_thing(reader, inside, twice);
        paint_thing(reader, 2 - inside, seen);
        EXPECT_EQ(part_owned(reader, find(reader, 2), 2 - inside, twice), 1.0) << "inside of picture " << inside;
    }
}

TEST(SeamFind, KeepsItsDistanceFromThingsThatMoved)
{
    for (std::uint64_t seed = 0; seed < 8; ++seed) {
        SideBySide shape;
        shape.width = 300;
        shape.overlap = 160;
        SeamReader reader = side_by_side(shape, seed);
        const std::int64_t left = shape.width - shape.overlap;
        const Rect thing{left + 40 + 8 * static_cast<std::int64_t>(seed), 40, 16, 80};
        draw_thing(reader, 1, thing, 25);
        const SeamMap map = find(reader);
        for (std::int64_t y = thing.y; y < thing.bottom(); ++y)
            for (const SeamMap::Run& run : map.runs(y).first(map.runs(y).size() - 1)) {
                const std::int64_t away = std::max(thing.x - run.end, run.end - thing.right());
                EXPECT_GE(away, 16) << "seed " << seed << ", row " << y;
            }
    }
}

TEST(SeamFind, KeepsAThingThatBeginsWhereOnePictureIsAlone)
{
    for (std::uint64_t seed = 0; seed < 12; ++seed) {
        SideBySide shape;
        SeamReader reader = side_by_side(shape, seed);
        const std::size_t owner = seed % 2;
        const std::int64_t x = owner == 0 ? shape.width - shape.overlap - 12 : shape.width - 12;
        const Rect thing{x, 20 + static_cast<std::int64_t>(seed), 24, 90};
        draw_thing(reader, owner, thing, 25);
        EXPECT_EQ(part_owned(reader, find(reader), owner, thing), 1.0) << "seed " << seed;
    }
}

TEST(SeamFind, GoesRoundThingsWhereFourPicturesMeet)
{
    panoval::test::Random random(9);
    for (std::uint64_t seed = 0; seed < 12; ++seed) {
        SeamReader reader(300, 260);
        SceneOptions options;
        options.seed = seed + 1;
        const Scene scene = make_scene(300, 260, options);
        for (int i = 0; i < 4; ++i) {
            Cut cut;
            cut.rect = {i % 2 * 110, i / 2 * 90, 190, 170};
            cut.noise = 2;
            cut.seed = seed * 4 + static_cast<std::uint64_t>(i);
            reader.add(cut.rect.x, cut.rect.y, take_picture(scene, cut));
        }
        const std::size_t owner = seed % 4;
        const Rect thing{random.integer(110, 170), random.integer(90, 150), 20, 20};
        draw_thing(reader, owner, thing, 25);
        const SeamMap map = find(reader);
        expect_owned_by_who_covers(reader, map, "seed " + std::to_string(seed));
        const double owned = part_owned(reader, map, owner, thing);
        EXPECT_TRUE(owned == 0 || owned == 1) << "seed " << seed << ": " << owned << " of it";
    }
}

TEST(SeamFind, GoesRoundAThingAtTheEdgeOfACanvasThatGoesRound)
{
    for (std::uint64_t seed = 0; seed < 8; ++seed) {
        SeamReader reader(397, 120, true);
        SceneOptions options;
        options.seed = seed + 1;
        const Scene scene = make_scene(397, 120, options);
        for (int i = 0; i < 3; ++i) {
            Cut cut;
            cut.rect = {10 + 132 * i, 0, 190, 120};
            cut.noise = 2;
            cut.seed = seed * 3 + static_cast<std::uint64_t>(i);
            reader.add(cut.rect.x, 0, take_picture(scene, cut));
        }
        // The last picture reaches over the edge to column 67, the first begins at 10.
        const std::size_t owner = seed % 2 == 0 ? 0 : 2;
        const Rect thing{20 + static_cast<std::int64_t>(seed) * 3, 15, 22, 80};
        draw_thing(reader, owner, thing, 25);
        const SeamMap map = find(reader, 2);
        expect_owned_by_who_covers(reader, map, "seed " + std::to_string(seed));
        const double owned = part_owned(reader, map, owner, thing);
        EXPECT_TRUE(owned == 0 || owned == 1) << "seed " << seed << ": " << owned << " of it";
    }
}

TEST(SeamFind, GivesTheSameSeamsForAnyNumberOfThreads)
{
    SeamReader reader(700, 500);
    const Scene scene = make_scene(700, 500, {});
    for (int i = 0; i < 9; ++i) {
        Cut cut;
        cut.rect = {i % 3 * 220, i / 3 * 150, 260, 200};
        cut.noise = 3;
        cut.shift_x = 0.3 * i;
        cut.seed = static_cast<std::uint64_t>(i);
        MemoryPicture picture = take_picture(scene, cut);
        if (i % 4 == 1)
            give_ragged_mask(picture, static_cast<std::uint64_t>(i));
        reader.add(cut.rect.x, cut.rect.y, std::move(picture));
    }
    const std::vector<std::int32_t> expected = all_labels(find(reader));
    for (const std::size_t threads : {2u, 3u, 8u})
        EXPECT_EQ(all_labels(find(reader, threads)), expected) << threads << " threads";
}

TEST(SeamFind, NeedsNoMoreMemoryThanItSays)
{
    SeamReader reader = side_by_side({}, 3);
    const std::vector<Overlap> overlaps = find_overlaps(reader.layout);
    const Corrections none = Corrections::none(reader.layout);
    NoProgress progress;
    SeamOptions options;
    options.memory = 1;
    const std::size_t least = seam_search_bytes(reader.layout, overlaps, options);
    try {
        find_seams(reader.layout, overlaps, none, reader, options, progress);
        ADD_FAILURE() << "one byte is enough";
    } catch (const Error& error) {
        EXPECT_EQ(error.failure(), Failure::Memory);
        EXPECT_NE(std::string(error.what()).find(std::to_string(least)), std::string::npos) << error.what();
    }
    options.memory = least;
    EXPECT_EQ(all_labels(find_seams(reader.layout, overlaps, none, reader, options, progress)),
              all_labels(find(reader)));
}

// Of a canvas so wide tiles are as small as they get.
TEST(SeamFind, OnAVeryWideCanvasGivesPixelsToWhoCoversThem)
{
    constexpr std::int64_t kWide = 150'000;
    SeamReader reader(2 * kWide, 6);
    for (const std::int64_t x : {std::int64_t{0}, kWide - 60}) {
        MemoryPicture picture = MemoryPicture::blank(x == 0 ? kWide : kWide + 60, 6, 1, 8);
        for (std::size_t i = 0; i < picture.samples.size(); ++i)
            picture.samples[i] = static_cast<std::uint16_t>(100 + i % 7);
        reader.add(x, 0, std::move(picture));
    }
    const SeamMap map = find(reader, 2);
    for (std::int64_t y = 0; y < 6; ++y) {
        ASSERT_EQ(map.runs(y).size(), 2u) << "row " << y;
        EXPECT_GE(map.runs(y)[0].end, kWide - 60);
        EXPECT_LE(map.runs(y)[0].end, kWide);
    }
}

TEST(SeamFind, GivesAPixelToThePictureThatMustKeepIt)
{
    SeamReader reader = side_by_side({}, 3);
    draw_thing(reader, 1, {150, 50, 24, 60}, 30);
    reader.keep_rect(0, {150, 60, 24, 40});
    const SeamMap map = find(reader);
    expect_owned_by_who_covers(reader, map, "kept");
    EXPECT_EQ(part_owned(reader, map, 0, {150, 50, 24, 60}), 1.0) << "what is not marked follows";
}

TEST(SeamFind, LetsAThingAtTwoPlacesFollowTheMarkAtOneOfThem)
{
    for (const std::size_t keeper : {0u, 1u}) {
        SideBySide shape;
        shape.width = 300;
        shape.overlap = 160;
        SeamReader reader = side_by_side(shape, 7);
        const Rect upper{170, 10, 22, 50};
        const Rect lower{240, 95, 22, 50};
        paint_thing(reader, 0, upper);
        paint_thing(reader, 1, lower);
        const std::int64_t left = keeper == 0 ? 0 : shape.width - shape.overlap;
        reader.keep_rect(keeper, upper.moved(-left, 0));
        const SeamMap map = find(reader);
        EXPECT_EQ(part_owned(reader, map, keeper, upper), 1.0) << "kept by " << keeper;
        EXPECT_EQ(part_owned(reader, map, keeper, lower), 1.0) << "kept by " << keeper;
    }
}

TEST(SeamFind, ShowsNothingOfAPictureThatIsCoveredWhole)
{
    SeamReader reader = side_by_side({}, 4);
    MemoryPicture inside = MemoryPicture::blank(20, 20, 3, 8);
    reader.add(150, 70, std::move(inside));
    const SeamMap map = find(reader);
    EXPECT_EQ(part_owned(reader, map, 2, {150, 70, 20, 20}), 0.0);
}

} // namespace

} // namespace panoval::mosaic::test
