// SPDX-License-Identifier: MIT
// Whole panoramas through the C interface: the same bits whatever the tiles, their order, the threads, the memory, and
// the process.
#include "tests/mosaic/memory_host.h"
#include "tests/mosaic/mosaic_scene.h"
#include "tests/mosaic/random_layout.h"

#include "mosaic/tiles/band_choice.h"
#include "mosaic/tiles/tile_blender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

PanovalMosaicOptions options_of(int seams, int blend = PANOVAL_MOSAIC_MULTIBAND)
{
    PanovalMosaicOptions options{};
    options.threads = 1;
    options.seams = seams;
    options.blend = blend;
    options.gains = PANOVAL_MOSAIC_GAINS_OFF;
    return options;
}

Panorama panorama_of(const MemoryReader& reader, const PanovalMosaicOptions& options, bool by_tiles = false,
                     bool random_access = false, std::int64_t origin = 0)
{
    MemoryHost host(reader);
    host.random_access = random_access;
    Mosaic mosaic;
    host.prepare(mosaic, options, origin, 3 - 2 * origin);
    Panorama panorama = run(mosaic, by_tiles);
    EXPECT_EQ(host.broken_promises, 0);
    return panorama;
}

// The least budget, of a megabyte or more.
std::uint64_t least_memory(const MemoryReader& reader, PanovalMosaicOptions options)
{
    options.memory = 0;
    MemoryHost host(reader);
    Mosaic mosaic;
    host.prepare(mosaic, options);
    PanovalMosaicNeeds needs{};
    EXPECT_EQ(panoval_mosaic_needs(mosaic.get(), &needs), PANOVAL_MOSAIC_OK) << mosaic.error();
    return std::max<std::uint64_t>(1 << 20, needs.least_memory);
}

struct Way {
    int seams;
    int blend;
};
constexpr Way kWays[] = {{PANOVAL_MOSAIC_SEAMS_OPTIMAL, PANOVAL_MOSAIC_MULTIBAND},
                         {PANOVAL_MOSAIC_SEAMS_NEAREST, PANOVAL_MOSAIC_MULTIBAND},
                         {PANOVAL_MOSAIC_SEAMS_NONE, PANOVAL_MOSAIC_MULTIBAND},
                         {PANOVAL_MOSAIC_SEAMS_NONE, PANOVAL_MOSAIC_FEATHER}};

TEST(Engine, PixelsDoNotDependOnTilesThreadsAndReading)
{
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        const auto reader = random_panorama(seed);
        const Way way = kWays[seed % 4];
        PanovalMosaicOptions options = options_of(way.seams, way.blend);
        options.bands = static_cast<int>(seed % 5);
        const Panorama whole = panorama_of(*reader, options);
        std::uint32_t turn = seed / 4; // so that each way meets each number of threads with each kind of reading
        for (const int tile_size : {16, 23, 64, 1000}) {
            options.tile_size = tile_size;
            options.threads = 1 + static_cast<int>(turn++ % 4);
            options.memory = seed % 8 < 4 ? 0 : least_memory(*reader, options);
            EXPECT_EQ(panorama_of(*reader, options, turn % 3 == 0, seed % 3 == 0, tile_size - 700), whole)
                << "seed " << seed << ", tiles of " << tile_size << ", threads " << options.threads;
        }
    }
}

// Four pictures of 500 x 400 in two rows, of 4.8 million bytes together.
std::unique_ptr<MemoryReader> four_pictures(int bits)
{
    const Scene scene = make_scene(900, 700, {.seed = 5});
    auto reader = std::make_unique<MemoryReader>(900, 700);
    for (const Rect& rect :
         {Rect{0, 10, 500, 400}, Rect{400, 0, 500, 400}, Rect{5, 300, 500, 400}, Rect{390, 290, 500, 400}})
        reader->add(rect.x, rect.y, take_picture(scene, {.rect = rect, .bits = bits, .noise = 2}));
    give_ragged_mask(reader->pictures[1], 3);
    reader->layout.pictures[1].has_mask = true;
    return reader;
}

TEST(Engine, PixelsDoNotDependOnTheMemory)
{
    for (std::size_t i = 0; i < 2 * std::size(kWays); ++i) {
        const Way& way = kWays[i / 2];
        const auto reader = four_pictures(i % 2 == 0 ? 8 : 16);
        PanovalMosaicOptions options = options_of(way.seams, way.blend);
        options.bands = 3;
        const Panorama whole = panorama_of(*reader, options);
        MemoryHost host(*reader);
        Mosaic asked;
        host.prepare(asked, options);
        PanovalMosaicEstimate estimate{};
        ASSERT_EQ(panoval_mosaic_estimate(asked.get(), &estimate), PANOVAL_MOSAIC_OK);
        for (const double factor : {1.0, 1.3, 2.0, 4.0}) {
            options.memory = std::max<std::uint64_t>(
                1 << 20, static_cast<std::uint64_t>(factor * static_cast<double>(estimate.least_memory)));
            options.threads = 1 + static_cast<int>(factor);
            EXPECT_EQ(panorama_of(*reader, options), whole) << options.memory << " bytes";
        }
    }
}

// Three rows of four pictures of 300 x 240, one of them with a thing of its own.
std::unique_ptr<MemoryReader> twelve_pictures()
{
    const Scene scene = make_scene(1020, 600, {.seed = 6});
    auto reader = std::make_unique<MemoryReader>(1020, 600);
    for (std::int64_t i = 0; i < 12; ++i) {
        const Cut cut{.rect = {i % 4 * 240, i / 4 * 180, 300, 240},
                      .gain = 1 - 0.03 * static_cast<double>(i),
                      .noise = 1,
                      .seed = static_cast<std::uint64_t>(i)};
        reader->add(cut.rect.x, cut.rect.y, take_picture(scene, cut));
    }
    for (std::int64_t i = 0; i < 20 * 40; ++i)
        reader->pictures[5].at(15 + i % 20, 80 + i / 20, 0) = 3;
    return reader;
}

// Where pictures do not stay in memory, the search for seams begins while they are read for their gains, if some do.
TEST(Engine, GainsAndSeamsShareAReadingAndDoNotDependOnTheMemory)
{
    const auto reader = twelve_pictures();
    PanovalMosaicOptions options = options_of(PANOVAL_MOSAIC_SEAMS_OPTIMAL);
    options.gains = PANOVAL_MOSAIC_GAINS_AUTOMATIC;
    options.bands = 3;
    const Panorama whole = panorama_of(*reader, options);
    MemoryHost host(*reader);
    host.random_access = true;
    Mosaic asked;
    host.prepare(asked, options);
    PanovalMosaicEstimate estimate{};
    ASSERT_EQ(panoval_mosaic_estimate(asked.get(), &estimate), PANOVAL_MOSAIC_OK);
    const auto readings = [&](Mosaic& mosaic, const std::vector<std::int32_t>& parts) {
        host.prepare(mosaic, options);
        for (const std::int32_t part : parts)
            EXPECT_EQ(panoval_mosaic_measure(mosaic.get(), part), PANOVAL_MOSAIC_OK) << mosaic.error();
        PanovalMosaicCounts counts{};
        EXPECT_EQ(panoval_mosaic_counts(mosaic.get(), &counts), PANOVAL_MOSAIC_OK);
        EXPECT_LE(counts.largest_memory, options.memory);
        return counts.pictures;
    };
    for (const std::uint64_t kept : {0U, 1U, 6U, 24U, 36U})
        for (const int threads : {1, 2, 3}) {
            SCOPED_TRACE(testing::Message() << threads << " threads, " << kept << " pictures kept");
            options.threads = threads;
            options.memory = estimate.least_memory + kept * 300 * 240 * 3;
            Mosaic together;
            Mosaic apart;
            const double once = readings(together, {PANOVAL_MOSAIC_MEASURE_SEAMS});
            const double twice = readings(apart, {PANOVAL_MOSAIC_MEASURE_GAINS, PANOVAL_MOSAIC_MEASURE_SEAMS});
            if (threads == 1) { // of several, which one comes first decides what is still in memory
                EXPECT_LE(once, twice + 1);
            }
            if (threads == 1 && kept == 6) {
                EXPECT_LT(once + 6, twice);
            }
            EXPECT_EQ(run(together), whole);
            EXPECT_EQ(run(apart), whole);
        }
}

TEST(Engine, HoldsTheBudgetAndReadsEachPictureOnce)
{
    const auto reader = four_pictures(16);
    PanovalMosaicOptions options = options_of(PANOVAL_MOSAIC_SEAMS_NONE);
    options.bands = 2;
    options.memory = 3 << 20;
    MemoryHost host(*reader);
    Mosaic mosaic;
    host.prepare(mosaic, options);
    (void)run(mosaic);
    PanovalMosaicCounts counts{};
    ASSERT_EQ(panoval_mosaic_counts(mosaic.get(), &counts), PANOVAL_MOSAIC_OK);
    EXPECT_LE(counts.largest_memory, options.memory);
    EXPECT_EQ(counts.pictures, 4.0);
    EXPECT_EQ(counts.rows, 1600u);
    EXPECT_GT(counts.scratch_bytes, 4000000u);
}

void blend_tile(Mosaic& mosaic, std::int64_t number, Panorama& panorama)
{
    PanovalMosaicRect rect{};
    ASSERT_EQ(panoval_mosaic_tile(mosaic.get(), number, &rect), PANOVAL_MOSAIC_OK);
    const std::size_t first = panorama.index(rect.x, rect.y);
    const auto width = static_cast<std::size_t>(panorama.width);
    ASSERT_EQ(panoval_mosaic_blend(mosaic.get(), &rect, &panorama.samples[first * panorama.pixel_bytes],
                                   width * panorama.pixel_bytes, &panorama.coverage[first], width),
              PANOVAL_MOSAIC_OK)
        << mosaic.error();
}

TEST(Engine, TilesOfRandomLayoutsAreTheSameInAnyOrderAndAnyNumberOfTimes)
{
    for (std::uint32_t seed = 101; seed <= 140; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        const auto reader = random_panorama(seed);
        const Way way = kWays[seed % 4];
        PanovalMosaicOptions options = options_of(way.seams, way.blend);
        options.tile_size = 16 + static_cast<int>(seed % 3) * 9;
        const Panorama whole = panorama_of(*reader, options);
        MemoryHost host(*reader);
        Mosaic mosaic;
        host.prepare(mosaic, options);
        ASSERT_EQ(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_SEAMS), PANOVAL_MOSAIC_OK);
        std::vector<std::int64_t> order(static_cast<std::size_t>(2 * mosaic.layout().tiles)); // each tile twice
        for (std::size_t i = 0; i < order.size(); ++i)
            order[i] = static_cast<std::int64_t>(i / 2);
        std::mt19937 random(seed);
        std::shuffle(order.begin(), order.end(), random);
        Panorama tiled(mosaic.layout());
        for (const std::int64_t number : order)
            blend_tile(mosaic, number, tiled);
        EXPECT_EQ(tiled, whole);
    }
}

TEST(Engine, EveryTileCanBeAskedForAloneInAnyOrderFromThePlan)
{
    const auto reader = four_pictures(8);
    PanovalMosaicOptions options = options_of(PANOVAL_MOSAIC_SEAMS_OPTIMAL);
    options.tile_size = 100;
    MemoryHost host(*reader);
    Mosaic first;
    host.prepare(first, options);
    const std::vector<double> gains = {1.1, 1, 0.9, 1, 1, 1, 1, 1, 0.7, 0.7, 0.7, 1, 1.2, 1.3, 1, 1};
    const double falloff[3] = {-0.1, 0, 0.02};
    ASSERT_EQ(panoval_mosaic_set_gains(first.get(), gains.data(), 4, falloff), PANOVAL_MOSAIC_OK);
    const Panorama whole = run(first);
    const char* text = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(panoval_mosaic_save_plan(first.get(), &text, &size), PANOVAL_MOSAIC_OK);

    Mosaic second;
    const PanovalMosaicHost record = host.record();
    ASSERT_EQ(panoval_mosaic_set_host(second.get(), &record), PANOVAL_MOSAIC_OK);
    ASSERT_EQ(panoval_mosaic_load_plan(second.get(), text, size), PANOVAL_MOSAIC_OK) << second.error();
    Panorama tiled(second.layout());
    const std::int64_t count = second.layout().tiles;
    EXPECT_EQ(count, 63);
    for (std::int64_t i = 0; i < count; ++i)
        blend_tile(second, i * 11 % count, tiled);
    EXPECT_EQ(tiled, whole);
    const char* again = nullptr;
    ASSERT_EQ(panoval_mosaic_save_plan(second.get(), &again, nullptr), PANOVAL_MOSAIC_OK);
    EXPECT_STREQ(again, text);
}

TEST(Engine, ThreadsOfTheHostMayBlendAtOnce)
{
    const auto reader = four_pictures(8);
    MemoryHost host(*reader);
    Mosaic mosaic;
    PanovalMosaicOptions options = options_of(PANOVAL_MOSAIC_SEAMS_NEAREST);
    options.tile_size = 128;
    host.prepare(mosaic, options);
    const Panorama whole = run(mosaic);
    Panorama tiled(mosaic.layout());
    std::atomic<std::int64_t> next{0};
    const auto work = [&] {
        for (std::int64_t i = next++; i < mosaic.layout().tiles; i = next++) {
            PanovalMosaicRect rect{};
            EXPECT_EQ(panoval_mosaic_tile(mosaic.get(), i, &rect), PANOVAL_MOSAIC_OK);
            const std::size_t at = tiled.index(rect.x, rect.y);
            EXPECT_EQ(panoval_mosaic_blend(mosaic.get(), &rect, &tiled.samples[at * 3],
                                           static_cast<std::size_t>(tiled.width) * 3, &tiled.coverage[at],
                                           static_cast<std::size_t>(tiled.width)),
                      PANOVAL_MOSAIC_OK);
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(tiled, whole);
}

TEST(Engine, EqualsATileBlenderFedByHand)
{
    for (std::uint32_t seed = 100; seed < 120; ++seed) {
        const auto reader = random_panorama(seed);
        const Way way = seed % 2 == 0 ? kWays[2] : kWays[3];
        const PanovalMosaicOptions options = options_of(way.seams, way.blend);
        const Panorama panorama = panorama_of(*reader, options);

        // The canvas begins where the pictures do.
        Rect bounds;
        for (const PlacedPicture& picture : reader->layout.pictures)
            bounds = bounding(bounds, picture.rect);
        for (PlacedPicture& picture : reader->layout.pictures)
            picture.rect = picture.rect.moved(-bounds.x, -bounds.y);
        reader->layout.width = bounds.width;
        reader->layout.height = bounds.height;
        const Corrections corrections = Corrections::none(reader->layout);
        const int bands = choose_bands(reader->layout, find_overlaps(reader->layout));
        const TileBlender blender(reader->layout, corrections, nullptr,
                                  {static_cast<BlendMode>(way.blend), bands, reader->layout.bits}, *reader);
        Panorama by_hand = panorama;
        std::fill(by_hand.samples.begin(), by_hand.samples.end(), std::uint8_t{1});
        blender.blend(reader->layout.canvas(), by_hand.samples.data(),
                      static_cast<std::size_t>(by_hand.width) * by_hand.pixel_bytes, by_hand.coverage.data(),
                      static_cast<std::size_t>(by_hand.width));
        EXPECT_EQ(by_hand, panorama) << seed;
    }
}

TEST(Engine, ACancelledRunSaysSoAndCanBeRunAgain)
{
    const auto reader = four_pictures(8);
    MemoryHost host(*reader);
    Mosaic mosaic;
    PanovalMosaicOptions options = options_of(PANOVAL_MOSAIC_SEAMS_NONE);
    options.tile_size = 64;
    options.threads = 3;
    host.prepare(mosaic, options);
    host.cancels = [](int phase, double fraction) { return phase == PANOVAL_MOSAIC_PHASE_BLEND && fraction > 0.4; };
    PanoramaSink sink(mosaic.layout(), true);
    EXPECT_EQ(sink.run(mosaic.get()), PANOVAL_MOSAIC_CANCELLED);
    EXPECT_LT(sink.pieces, mosaic.layout().tiles);
    host.cancels = nullptr;
    const Panorama whole = run(mosaic);
    options.threads = 1;
    EXPECT_EQ(panorama_of(*reader, options), whole);
}

TEST(Engine, ProgressGrowsToTheEnd)
{
    const auto reader = four_pictures(8);
    MemoryHost host(*reader);
    Mosaic mosaic;
    PanovalMosaicOptions options = options_of(PANOVAL_MOSAIC_SEAMS_NONE);
    options.tile_size = 64;
    options.threads = 4;
    host.prepare(mosaic, options);
    double last = 0;
    bool falls = false;
    host.cancels = [&](int, double fraction) {
        falls = falls || fraction < last;
        last = fraction;
        return false;
    };
    (void)run(mosaic);
    EXPECT_EQ(last, 1.0);
    EXPECT_FALSE(falls);
}

TEST(Engine, FailuresOfTheHostArePassedOnWithTheirReasons)
{
    const auto reader = four_pictures(8);
    MemoryHost host(*reader);
    Mosaic mosaic;
    PanovalMosaicOptions options = options_of(PANOVAL_MOSAIC_SEAMS_NONE);
    options.tile_size = 100;
    options.threads = 2;
    host.prepare(mosaic, options);
    host.failing_picture = 2;
    PanoramaSink sink(mosaic.layout(), false);
    EXPECT_EQ(sink.run(mosaic.get()), PANOVAL_MOSAIC_PICTURE);
    EXPECT_EQ(mosaic.error(), "picture 2: the card is gone");
    host.failing_picture = -1;
    PanoramaSink full(mosaic.layout(), false);
    full.failing_piece = 3;
    EXPECT_EQ(full.run(mosaic.get()), PANOVAL_MOSAIC_SINK);
    EXPECT_EQ(mosaic.error(), "the disk is full");
    EXPECT_EQ(full.pieces, 3);
}

TEST(Engine, SeamsCanBeReadAndSet)
{
    const auto reader = four_pictures(8);
    MemoryHost host(*reader);
    Mosaic first;
    host.prepare(first, options_of(PANOVAL_MOSAIC_SEAMS_NEAREST));
    const Panorama whole = run(first);
    std::vector<std::int32_t> labels(static_cast<std::size_t>(whole.width * whole.height));
    for (std::int64_t y = 0; y < whole.height; ++y)
        ASSERT_EQ(panoval_mosaic_seam_row(first.get(), y, &labels[whole.index(0, y)]), PANOVAL_MOSAIC_OK);
    Mosaic second;
    host.prepare(second, options_of(PANOVAL_MOSAIC_SEAMS_OPTIMAL));
    const std::size_t stride = static_cast<std::size_t>(whole.width) * 4;
    const std::int64_t half = whole.height / 2;
    ASSERT_EQ(panoval_mosaic_set_seam_rows(second.get(), 0, half, labels.data(), stride), PANOVAL_MOSAIC_OK);
    ASSERT_EQ(
        panoval_mosaic_set_seam_rows(second.get(), half, whole.height - half, &labels[whole.index(0, half)], stride),
        PANOVAL_MOSAIC_OK);
    EXPECT_EQ(run(second), whole);
    labels[0] = 3;
    EXPECT_EQ(panoval_mosaic_set_seam_rows(second.get(), 0, 1, labels.data(), stride), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_NE(second.error().find("label 3 at 0,0"), std::string::npos) << second.error();
}

using Statistics = std::vector<PanovalMosaicStatistics>;

Statistics statistics_of(const Mosaic& mosaic)
{
    Statistics statistics(static_cast<std::size_t>(mosaic.layout().overlaps));
    for (std::size_t i = 0; i < statistics.size(); ++i)
        EXPECT_EQ(panoval_mosaic_statistics(mosaic.get(), static_cast<std::int64_t>(i), &statistics[i]),
                  PANOVAL_MOSAIC_OK)
            << mosaic.error();
    return statistics;
}

// Gains of all pictures, then the falloff.
std::vector<double> gains_of(const Mosaic& mosaic)
{
    const auto pictures = static_cast<std::size_t>(mosaic.layout().pictures);
    std::vector<double> gains(4 * pictures + 3);
    for (std::size_t i = 0; i < pictures; ++i)
        EXPECT_EQ(panoval_mosaic_gains(mosaic.get(), static_cast<std::int64_t>(i), &gains[4 * i], &gains[4 * pictures],
                                       nullptr, nullptr),
                  PANOVAL_MOSAIC_OK)
            << mosaic.error();
    return gains;
}

PanovalMosaicOptions measuring(bool vignetting)
{
    PanovalMosaicOptions options = options_of(PANOVAL_MOSAIC_SEAMS_NEAREST);
    options.gains = PANOVAL_MOSAIC_GAINS_AUTOMATIC;
    options.vignetting = vignetting ? 1 : 0;
    return options;
}

TEST(Engine, StatisticsGiveTheGainsWithoutPixels)
{
    const auto reader = four_pictures(8);
    for (std::uint16_t& sample : reader->pictures[2].samples)
        sample = static_cast<std::uint16_t>(sample * 3 / 4);
    for (const bool vignetting : {false, true}) {
        MemoryHost host(*reader);
        Mosaic first;
        host.prepare(first, measuring(vignetting));
        ASSERT_EQ(panoval_mosaic_measure(first.get(), PANOVAL_MOSAIC_MEASURE_GAINS), PANOVAL_MOSAIC_OK);
        const Statistics statistics = statistics_of(first);
        const std::vector<double> gains = gains_of(first);
        EXPECT_EQ(statistics[0].says, PANOVAL_MOSAIC_SAYS_AGREE);
        EXPECT_GT(gains[8], 1.2);

        Mosaic second; // has no host
        const PanovalMosaicOptions options = measuring(vignetting);
        ASSERT_EQ(panoval_mosaic_set_options(second.get(), &options), PANOVAL_MOSAIC_OK);
        host.add_pictures(second.get());
        ASSERT_EQ(panoval_mosaic_set_statistics(second.get(), statistics.data(),
                                                static_cast<std::int64_t>(statistics.size()), &gains[16]),
                  PANOVAL_MOSAIC_OK)
            << second.error();
        EXPECT_EQ(gains_of(second), gains);
        EXPECT_EQ(std::memcmp(statistics_of(second).data(), statistics.data(),
                              statistics.size() * sizeof(PanovalMosaicStatistics)),
                  0);
    }
}

TEST(Engine, APlanOfStatisticsAloneHasTheGainsThatFollow)
{
    const auto reader = four_pictures(8);
    MemoryHost host(*reader);
    Mosaic first;
    host.prepare(first, measuring(false));
    ASSERT_EQ(panoval_mosaic_measure(first.get(), PANOVAL_MOSAIC_MEASURE_GAINS), PANOVAL_MOSAIC_OK);
    const char* text = nullptr;
    ASSERT_EQ(panoval_mosaic_save_plan(first.get(), &text, nullptr), PANOVAL_MOSAIC_OK);
    std::string plan = text;
    const std::size_t at = plan.rfind("\"gains\"");
    plan.replace(at, 7, "\"no gains\"");
    Mosaic second;
    ASSERT_EQ(panoval_mosaic_load_plan(second.get(), plan.data(), plan.size()), PANOVAL_MOSAIC_OK) << second.error();
    EXPECT_EQ(gains_of(second), gains_of(first));
    const char* again = nullptr;
    ASSERT_EQ(panoval_mosaic_save_plan(second.get(), &again, nullptr), PANOVAL_MOSAIC_OK);
    EXPECT_STREQ(again, text);
    plan.replace(plan.find("\"says\""), 6, "\"speaks\"");
    Mosaic third;
    EXPECT_EQ(panoval_mosaic_load_plan(third.get(), plan.data(), plan.size()), PANOVAL_MOSAIC_PLAN);
    EXPECT_NE(third.error().find("says"), std::string::npos) << third.error();
}

// Of two pictures side by side the second one is darker, and bluer.
TEST(Engine, GainsAreOfPicturesOrChannelsAsTheOptionsSay)
{
    const Scene scene = make_scene(500, 200, {.seed = 5});
    MemoryReader reader(500, 200);
    reader.add(0, 0, take_picture(scene, {.rect = {0, 0, 300, 200}}));
    reader.add(200, 0, take_picture(scene, {.rect = {200, 0, 300, 200}, .gain = 0.5, .white = {1, 1, 1.5, 1}}));
    MemoryHost host(reader);
    for (const int gains : {PANOVAL_MOSAIC_GAINS_PER_PICTURE, PANOVAL_MOSAIC_GAINS_PER_CHANNEL}) {
        PanovalMosaicOptions options = measuring(false);
        options.gains = gains;
        options.anchor = 1;
        Mosaic mosaic;
        host.prepare(mosaic, options);
        ASSERT_EQ(panoval_mosaic_measure(mosaic.get(), PANOVAL_MOSAIC_MEASURE_GAINS), PANOVAL_MOSAIC_OK);
        const std::vector<double> found = gains_of(mosaic);
        const bool per_channel = gains == PANOVAL_MOSAIC_GAINS_PER_CHANNEL;
        EXPECT_EQ(found[0], 1) << "the anchor";
        EXPECT_NEAR(found[4], per_channel ? 2 : 1.7, per_channel ? 0.03 : 0.1);
        EXPECT_NEAR(found[6] / found[4], per_channel ? 1 / 1.5 : 1, 0.02);
        std::int32_t told = 7;
        double gain[4];
        ASSERT_EQ(panoval_mosaic_gains(mosaic.get(), 0, gain, nullptr, &told, nullptr), PANOVAL_MOSAIC_OK);
        EXPECT_EQ(told, per_channel ? 1 : 0);
    }
}

TEST(Engine, StatisticsAreOfGainsThatWereMeasured)
{
    const auto reader = four_pictures(8);
    MemoryHost host(*reader);
    Mosaic mosaic;
    host.prepare(mosaic, measuring(false));
    PanovalMosaicStatistics statistics{};
    EXPECT_EQ(panoval_mosaic_statistics(mosaic.get(), 0, &statistics), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_EQ(panoval_mosaic_set_statistics(mosaic.get(), &statistics, 1, nullptr), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_NE(mosaic.error().find("expected 6"), std::string::npos) << mosaic.error();
    Statistics all(6);
    all[4].says = 9;
    EXPECT_EQ(panoval_mosaic_set_statistics(mosaic.get(), all.data(), 6, nullptr), PANOVAL_MOSAIC_ARGUMENT);
    EXPECT_NE(mosaic.error().find("overlap 4"), std::string::npos) << mosaic.error();
    all[4] = {};
    ASSERT_EQ(panoval_mosaic_set_statistics(mosaic.get(), all.data(), 6, nullptr), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(gains_of(mosaic)[0], 1) << "nothing is said";
    EXPECT_EQ(panoval_mosaic_statistics(mosaic.get(), 6, &statistics), PANOVAL_MOSAIC_ARGUMENT);
    const std::vector<double> gains(16, 1.0);
    ASSERT_EQ(panoval_mosaic_set_gains(mosaic.get(), gains.data(), 4, nullptr), PANOVAL_MOSAIC_OK);
    EXPECT_EQ(panoval_mosaic_statistics(mosaic.get(), 0, &statistics), PANOVAL_MOSAIC_ARGUMENT);
}

} // namespace

} // namespace panoval::mosaic::test
