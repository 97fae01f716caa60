// SPDX-License-Identifier: MIT
// The least budget of a panorama: with it everything works, with a byte less it does not.
#include "tests/mosaic/memory_host.h"
#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>

namespace panoval::mosaic::test
{

namespace
{

// Two pictures so wide that their rows alone mostly need more than the least budget that may be set.
std::unique_ptr<MemoryReader> two_wide_pictures(int bits)
{
    const Scene scene = make_scene(16000, 20, {.seed = 9});
    auto reader = std::make_unique<MemoryReader>(16000, 20);
    for (const Rect& rect : {Rect{0, 0, 16000, 14}, Rect{0, 6, 16000, 14}})
        reader->add(rect.x, rect.y, take_picture(scene, {.rect = rect, .bits = bits, .noise = 2}));
    return reader;
}

struct Case {
    int bits;
    int seams;
    int blend;
    int tile_size;
};
constexpr Case kCases[] = {{8, PANOVAL_MOSAIC_SEAMS_OPTIMAL, PANOVAL_MOSAIC_MULTIBAND, 0},
                           {8, PANOVAL_MOSAIC_SEAMS_NEAREST, PANOVAL_MOSAIC_MULTIBAND, 2048},
                           {8, PANOVAL_MOSAIC_SEAMS_NONE, PANOVAL_MOSAIC_MULTIBAND, 16000},
                           {8, PANOVAL_MOSAIC_SEAMS_NONE, PANOVAL_MOSAIC_FEATHER, 0},
                           {16, PANOVAL_MOSAIC_SEAMS_OPTIMAL, PANOVAL_MOSAIC_MULTIBAND, 0},
                           {16, PANOVAL_MOSAIC_SEAMS_NEAREST, PANOVAL_MOSAIC_MULTIBAND, 16000},
                           {16, PANOVAL_MOSAIC_SEAMS_NONE, PANOVAL_MOSAIC_MULTIBAND, 0},
                           {16, PANOVAL_MOSAIC_SEAMS_NONE, PANOVAL_MOSAIC_FEATHER, 16000}};

PanovalMosaicOptions options_of(const Case& asked, std::uint64_t memory = 0)
{
    PanovalMosaicOptions options{};
    options.threads = 2;
    options.seams = asked.seams;
    options.blend = asked.blend;
    options.gains = PANOVAL_MOSAIC_GAINS_OFF;
    options.tile_size = asked.tile_size;
    options.memory = memory;
    return options;
}

std::uint64_t least_memory(const MemoryReader& reader, const Case& asked, bool by_tiles)
{
    MemoryHost host(reader);
    Mosaic mosaic;
    host.prepare(mosaic, options_of(asked, PANOVAL_MOSAIC_LEAST_MEMORY)); // too little for anything else
    PanovalMosaicNeeds needs{};
    EXPECT_EQ(panoval_mosaic_needs(mosaic.get(), &needs), PANOVAL_MOSAIC_OK) << mosaic.error();
    return by_tiles ? needs.least_memory_of_tiles : needs.least_memory;
}

// The panorama, or nothing where the budget is said to be too small.
std::optional<Panorama> run_within(const MemoryReader& reader, const Case& asked, bool by_tiles, std::uint64_t memory)
{
    MemoryHost host(reader);
    Mosaic mosaic;
    host.prepare(mosaic, options_of(asked, memory));
    PanovalMosaicLayout layout{};
    std::int32_t code = panoval_mosaic_layout(mosaic.get(), &layout);
    if (code == PANOVAL_MOSAIC_OK) {
        PanoramaSink sink(layout, by_tiles);
        code = sink.run(mosaic.get());
        if (code == PANOVAL_MOSAIC_OK)
            return std::move(sink.panorama);
    }
    EXPECT_EQ(code, PANOVAL_MOSAIC_MEMORY) << mosaic.error();
    EXPECT_NE(mosaic.error().find("budget"), std::string::npos) << mosaic.error();
    return std::nullopt;
}

TEST(EngineBudget, TheLeastIsEnoughAndAByteLessIsNot)
{
    int refused = 0;
    for (const int bits : {8, 16}) {
        const auto reader = two_wide_pictures(bits);
        for (const Case& asked : kCases) {
            if (asked.bits != bits)
                continue;
            const auto whole = run_within(*reader, asked, false, 0);
            for (const bool by_tiles : {false, true}) {
                const std::uint64_t least = least_memory(*reader, asked, by_tiles);
                const std::string what = ::testing::PrintToString(
                    std::vector<int>{bits, asked.seams, asked.blend, asked.tile_size, by_tiles});
                if (least > PANOVAL_MOSAIC_LEAST_MEMORY) {
                    EXPECT_EQ(run_within(*reader, asked, by_tiles, least - 1), std::nullopt) << what;
                    ++refused;
                }
                const std::uint64_t enough = std::max(least, PANOVAL_MOSAIC_LEAST_MEMORY);
                EXPECT_TRUE(run_within(*reader, asked, by_tiles, enough) == whole) << what;
            }
        }
    }
    EXPECT_GE(refused, 12);
}

TEST(EngineBudget, TheEstimateTellsTheSameLeast)
{
    const auto reader = two_wide_pictures(16);
    for (const Case& asked : kCases)
        if (asked.bits == 16) {
            MemoryHost host(*reader);
            Mosaic mosaic;
            host.prepare(mosaic, options_of(asked));
            PanovalMosaicEstimate estimate{};
            ASSERT_EQ(panoval_mosaic_estimate(mosaic.get(), &estimate), PANOVAL_MOSAIC_OK) << mosaic.error();
            EXPECT_EQ(estimate.least_memory, least_memory(*reader, asked, false)) << asked.seams;
        }
}

TEST(EngineBudget, EmptyRowsTakeNoMemory)
{
    // Pictures of 4 and of 4 rows, a thousand million rows apart.
    Mosaic mosaic;
    for (const std::int64_t y : {std::int64_t{0}, std::int64_t{1000000000}}) {
        PanovalMosaicPicture picture{};
        picture.y = y;
        picture.width = 6;
        picture.height = 4;
        picture.channels = 1;
        picture.bits = 8;
        ASSERT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    }
    PanovalMosaicNeeds needs{};
    ASSERT_EQ(panoval_mosaic_needs(mosaic.get(), &needs), PANOVAL_MOSAIC_OK);
    // Three gaps at most, above, between and below.
    EXPECT_EQ(needs.seam_memory, 8u * 4 * 8 + (8 + 16) * (8 + 3));
    EXPECT_LT(needs.least_memory, 1u << 20);
}

TEST(EngineBudget, NeedsDoNotFixThePictures)
{
    const auto reader = two_wide_pictures(8);
    MemoryHost host(*reader);
    Mosaic mosaic;
    PanovalMosaicNeeds needs{};
    EXPECT_EQ(panoval_mosaic_needs(mosaic.get(), &needs), PANOVAL_MOSAIC_ARGUMENT) << "there are no pictures";
    host.add_pictures(mosaic.get());
    ASSERT_EQ(panoval_mosaic_needs(mosaic.get(), &needs), PANOVAL_MOSAIC_OK);
    // 8 bytes for each run: four a row of a picture, one a row of the canvas; and 16 to find each row.
    EXPECT_EQ(needs.seam_memory, 8u * 4 * 28 + 8 * 20 + 16 * 20);
    host.add_pictures(mosaic.get());
    EXPECT_EQ(mosaic.layout().pictures, 4);
}

TEST(EngineBudget, NeedsAreTheSameOnceThePicturesAreFixed)
{
    const auto reader = two_wide_pictures(8);
    for (const int tile_size : {0, 2048}) {
        MemoryHost host(*reader);
        Mosaic mosaic;
        host.prepare(mosaic, options_of({8, PANOVAL_MOSAIC_SEAMS_NONE, PANOVAL_MOSAIC_MULTIBAND, tile_size}));
        PanovalMosaicNeeds before{};
        ASSERT_EQ(panoval_mosaic_needs(mosaic.get(), &before), PANOVAL_MOSAIC_OK);
        EXPECT_EQ(mosaic.layout().pictures, 2);
        PanovalMosaicNeeds after{};
        ASSERT_EQ(panoval_mosaic_needs(mosaic.get(), &after), PANOVAL_MOSAIC_OK);
        EXPECT_EQ(after.least_memory, before.least_memory);
        EXPECT_EQ(after.least_memory_of_tiles, before.least_memory_of_tiles);
        EXPECT_EQ(after.seam_memory, 0u) << "without seams";
    }
}

TEST(EngineBudget, ATemporaryFileIsForPicturesThatAreReadInOrder)
{
    const auto reader = two_wide_pictures(8);
    const Case asked = kCases[2];
    const std::uint64_t least = std::max(least_memory(*reader, asked, false), PANOVAL_MOSAIC_LEAST_MEMORY);
    for (const bool random_access : {false, true})
        for (const std::uint64_t memory : {least, std::uint64_t{1} << 30}) {
            MemoryHost host(*reader);
            host.random_access = random_access;
            Mosaic mosaic;
            host.prepare(mosaic, options_of(asked, memory));
            PanovalMosaicEstimate estimate{};
            ASSERT_EQ(panoval_mosaic_estimate(mosaic.get(), &estimate), PANOVAL_MOSAIC_OK) << mosaic.error();
            EXPECT_EQ(estimate.picture_bytes, 2u * 16000 * 14 * 3);
            EXPECT_EQ(estimate.scratch_file, random_access || memory > least ? 0 : estimate.picture_bytes);
        }
}

// What was read for the host before still counts.
TEST(EngineBudget, CountsGoOnWithAnotherHost)
{
    const auto reader = two_wide_pictures(8);
    MemoryHost host(*reader);
    Mosaic mosaic;
    const auto counts_now = [&] {
        PanovalMosaicCounts counts{};
        EXPECT_EQ(panoval_mosaic_counts(mosaic.get(), &counts), PANOVAL_MOSAIC_OK);
        return counts;
    };
    EXPECT_EQ(counts_now().rows, 0u);
    host.prepare(mosaic, options_of(kCases[2]));
    const Panorama first = run(mosaic);
    EXPECT_EQ(counts_now().rows, 28u);
    EXPECT_EQ(counts_now().pictures, 2);
    MemoryHost other(*reader);
    const PanovalMosaicHost record = other.record();
    ASSERT_EQ(panoval_mosaic_set_host(mosaic.get(), &record), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(counts_now().rows, 28u);
    EXPECT_TRUE(run(mosaic) == first);
    EXPECT_EQ(counts_now().rows, 56u);
    EXPECT_EQ(counts_now().pictures, 4);
}

TEST(EngineBudget, TheTilesOfALoadedPlanHaveALeastOfTheirOwn)
{
    const auto reader = two_wide_pictures(8);
    const Case asked = kCases[2];
    MemoryHost host(*reader);
    Mosaic first;
    host.prepare(first, options_of(asked));
    ASSERT_EQ(panoval_mosaic_measure(first.get(), PANOVAL_MOSAIC_MEASURE_SEAMS), PANOVAL_MOSAIC_OK);
    const char* text = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(panoval_mosaic_save_plan(first.get(), &text, &size), PANOVAL_MOSAIC_OK);
    const auto run_loaded = [&](std::uint64_t memory) {
        Mosaic mosaic;
        const PanovalMosaicHost record = host.record();
        const PanovalMosaicOptions options = options_of(asked, memory);
        EXPECT_EQ(panoval_mosaic_load_plan(mosaic.get(), text, size), PANOVAL_MOSAIC_OK);
        EXPECT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK);
        EXPECT_EQ(panoval_mosaic_set_host(mosaic.get(), &record), PANOVAL_MOSAIC_OK);
        PanoramaSink sink(mosaic.layout(), true);
        return sink.run(mosaic.get());
    };
    const std::uint64_t least = least_memory(*reader, asked, true);
    EXPECT_EQ(run_loaded(least - 1), PANOVAL_MOSAIC_MEMORY);
    EXPECT_EQ(run_loaded(least), PANOVAL_MOSAIC_OK);
}

// Two pictures of a pixel at the ends of the largest canvas.
std::int32_t plan_of_ends(Mosaic& mosaic, std::int64_t side, std::int32_t channels)
{
    PanovalMosaicOptions options{};
    options.seams = PANOVAL_MOSAIC_SEAMS_NONE;
    EXPECT_EQ(panoval_mosaic_set_options(mosaic.get(), &options), PANOVAL_MOSAIC_OK);
    for (const std::int64_t place : {std::int64_t{0}, side - 1}) {
        PanovalMosaicPicture picture{};
        picture.x = place;
        picture.y = place;
        picture.width = 1;
        picture.height = 1;
        picture.channels = channels;
        picture.bits = 8;
        EXPECT_EQ(panoval_mosaic_add_picture(mosaic.get(), &picture), PANOVAL_MOSAIC_OK);
    }
    PanovalMosaicLayout layout{};
    return panoval_mosaic_layout(mosaic.get(), &layout);
}

TEST(EngineBudget, CanvasesHaveAtMost2To62Samples)
{
    constexpr std::int64_t kLongest = PANOVAL_MOSAIC_LONGEST_SIDE;
    Mosaic grey;
    EXPECT_EQ(plan_of_ends(grey, kLongest, 1), PANOVAL_MOSAIC_OK) << grey.error();
    EXPECT_EQ(grey.layout().width, kLongest);
    Mosaic longer;
    EXPECT_EQ(plan_of_ends(longer, kLongest + 1, 1), PANOVAL_MOSAIC_ARGUMENT);
    Mosaic colour;
    EXPECT_EQ(plan_of_ends(colour, kLongest, 3), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_NE(colour.error().find("2147483647 x 2147483647 pixels with 3 channels; expected at most 2^62 samples"),
              std::string::npos)
        << colour.error();
    Mosaic most; // 2^30 x 2^30 x 4
    EXPECT_EQ(plan_of_ends(most, std::int64_t{1} << 30, 4), PANOVAL_MOSAIC_OK) << most.error();
    Mosaic more;
    EXPECT_EQ(plan_of_ends(more, (std::int64_t{1} << 30) + 1, 4), PANOVAL_MOSAIC_ARGUMENT);
}

} // namespace

} // namespace panoval::mosaic::test
