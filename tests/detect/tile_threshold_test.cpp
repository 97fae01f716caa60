// SPDX-License-Identifier: MIT
#include "core/numbers.h"
#include "detect/level_counts.h"
#include "detect/tile_otsu.h"
#include "detect/tile_threshold.h"
#include "tests/reference/tile_threshold.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <vector>

extern "C" {
int omp_get_max_threads(void);
int omp_get_thread_num(void);
void omp_set_num_threads(int);
void GOMP_parallel(void (*body)(void*), void* data, unsigned threads, unsigned flags);
}

namespace
{

using namespace panoval;
using namespace panoval::test;

using Picture = std::vector<std::uint8_t>;

std::int32_t threshold_of(const Picture& pixels, int width, int height)
{
    const Guarded<std::uint8_t> tile(pixels);
    std::uint32_t counts[kGreyLevels];
    count_levels(tile.data(), to_count(width), to_count(width), to_count(height), counts);
    return otsu_threshold(counts, width * height);
}

std::vector<std::uint32_t> map_of(const Picture& image, int width, int height, int divisions)
{
    const Guarded<std::uint8_t> in(image);
    Guarded<std::uint32_t> wide(image.size());
    Guarded<std::uint8_t> narrow(image.size());
    EXPECT_TRUE(adaptive_tile_threshold(width, height, in.data(), wide.data(), divisions));
    EXPECT_TRUE(adaptive_tile_threshold(width, height, in.data(), narrow.data(), divisions));
    EXPECT_TRUE(wide.intact() && narrow.intact());
    const auto bytes = narrow.values();
    EXPECT_EQ(wide.values(), std::vector<std::uint32_t>(bytes.begin(), bytes.end()));
    Guarded<std::uint8_t> in_place(image);
    EXPECT_TRUE(adaptive_tile_threshold(width, height, in_place.data(), in_place.data(), divisions));
    EXPECT_EQ(in_place.values(), bytes);
    return wide.values();
}

void expect_twin(const Picture& image, int width, int height, int divisions)
{
    std::vector<std::uint32_t> expected(image.size());
    reference::adaptive_tile_threshold(width, height, image.data(), expected.data(), divisions);
    for_each_target([&] {
        EXPECT_TRUE(same_bits(map_of(image, width, height, divisions), expected))
            << width << " x " << height << " in " << divisions;
    });
}

// Weights of the grey levels: a tile of one row with counts[level] pixels of each level.
Picture tile_with(const std::vector<std::pair<int, int>>& counts)
{
    Picture pixels;
    for (const auto& [level, count] : counts)
        pixels.insert(pixels.end(), static_cast<std::size_t>(count), static_cast<std::uint8_t>(level));
    return pixels;
}

TEST(TileThreshold, OfTwoLevelsIsTheLowerOne)
{
    for_each_target([] {
        EXPECT_EQ(threshold_of({10, 200}, 2, 1), 10);
        EXPECT_EQ(threshold_of({200, 10, 200, 200}, 2, 2), 10);
        EXPECT_EQ(threshold_of({255, 0}, 1, 2), 0);
        EXPECT_EQ(threshold_of({255, 254}, 1, 2), 254);
        EXPECT_EQ(threshold_of({0, 1}, 1, 2), 0);
    });
}

TEST(TileThreshold, SplitsWhereTheClassesAreFarthestApart)
{
    for_each_target([] {
        EXPECT_EQ(threshold_of({10, 12, 14, 200, 202, 204}, 6, 1), 14);
        EXPECT_EQ(threshold_of(tile_with({{10, 20}, {60, 1}, {200, 20}}), 41, 1), 60);
        EXPECT_EQ(threshold_of(tile_with({{10, 20}, {150, 1}, {200, 20}}), 41, 1), 10);
    });
}

TEST(TileThreshold, KeepsTheLowerOfEqualLevels)
{
    for_each_target([] {
        // 0 | 96, 96, 192 and 0, 96, 96 | 192: means 128 apart, weights 1/4 and 3/4, both exact
        EXPECT_EQ(threshold_of({0, 96, 192, 96}, 2, 2), 0);
        EXPECT_EQ(threshold_of({63, 159, 255, 159}, 4, 1), 63);
    });
}

TEST(TileThreshold, OfOneGreyLevelIs0)
{
    for_each_target([] {
        for (int level = 0; level < 256; ++level) {
            EXPECT_EQ(threshold_of(Picture(35, static_cast<std::uint8_t>(level)), 7, 5), 0);
            EXPECT_EQ(threshold_of({static_cast<std::uint8_t>(level)}, 1, 1), 0);
        }
    });
}

TEST(TileThreshold, EqualsItsTwinForEveryNumberOfLevels)
{
    for_each_target([] {
        for (int levels = 1; levels <= 256; levels += levels < 40 || levels > 250 ? 1 : 9) {
            Random random(static_cast<std::uint64_t>(levels));
            Picture order(256);
            for (std::size_t i = 0; i < 256; ++i)
                std::swap(order[i] = static_cast<std::uint8_t>(i),
                          order[static_cast<std::size_t>(random.integer(0, static_cast<std::int64_t>(i)))]);
            std::vector<std::pair<int, int>> counts;
            for (std::size_t i = 0; i < static_cast<std::size_t>(levels); ++i)
                counts.emplace_back(order[i], static_cast<int>(random.integer(1, 9)));
            const auto pixels = tile_with(counts);
            const int width = static_cast<int>(pixels.size());
            EXPECT_EQ(threshold_of(pixels, width, 1), reference::tile_otsu_threshold(width, 1, pixels.data()));
        }
    });
}

TEST(TileThreshold, EqualsItsTwinWhereManyLevelsScoreNearlyTheSame)
{
    // Between two clusters every level scores alike but for the rounding; symmetric bins give exact and near ties.
    for_each_target([] {
        for (std::uint64_t seed = 0; seed < 60; ++seed) {
            Random random(seed);
            std::vector<std::pair<int, int>> counts;
            for (int level = 0; level < 128; ++level) {
                const int count = static_cast<int>(random.integer(0, seed % 2 == 0 ? 3 : 400));
                counts.emplace_back(level, count);
                counts.emplace_back(255 - level, count);
            }
            const auto pixels = tile_with(counts);
            const int width = static_cast<int>(pixels.size());
            EXPECT_EQ(threshold_of(pixels, width, 1), reference::tile_otsu_threshold(width, 1, pixels.data()))
                << "seed " << seed;
        }
    });
}

TEST(TileThreshold, EqualsItsTwinForCountsOfEverySize)
{
    // Totals from a few pixels to beyond 2^23, evenly spread or around two levels.
    for (std::uint64_t seed = 0; seed < 400; ++seed) {
        Random random(seed);
        const double most = std::exp2(random.real(0, 18));
        const double share = random.unit();
        std::array<std::uint32_t, 256> counts;
        std::int32_t total = 0;
        for (int level = 0; level < 256; ++level) {
            const double hill =
                std::exp(-std::pow((level - 60) / 20.0, 2)) + std::exp(-std::pow((level - 190) / 9.0, 2));
            const double most_here = seed % 2 == 0 ? most : most * hill;
            counts[static_cast<std::size_t>(level)] =
                random.unit() < share ? static_cast<std::uint32_t>(random.real(0, most_here + 1)) : 0;
            total += static_cast<std::int32_t>(counts[static_cast<std::size_t>(level)]);
        }
        if (total == 0)
            continue;
        const std::int32_t expected = reference::otsu_threshold(counts.data(), total);
        for_each_target([&] { EXPECT_EQ(otsu_threshold(counts.data(), total), expected) << "seed " << seed; });
    }
}

TEST(TileThreshold, EqualsItsTwinWhereOnlyRoundingTellsTheLevelsApart)
{
    // Nearly all pixels have one of two levels, and few lie between: whichever of those levels the threshold takes, the
    // score is the same but for its rounding.
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        Random random(seed);
        std::array<std::uint32_t, 256> counts = {};
        const auto low = static_cast<std::size_t>(random.integer(0, 60));
        const auto high = static_cast<std::size_t>(random.integer(150, 255));
        for (std::size_t level = low; level < high; ++level)
            counts[level] = static_cast<std::uint32_t>(random.integer(0, 1));
        counts[low] = static_cast<std::uint32_t>(random.integer(100000, 4000000));
        counts[high] = static_cast<std::uint32_t>(random.integer(100000, 4000000));
        std::int32_t total = 0;
        for (const std::uint32_t count : counts)
            total += static_cast<std::int32_t>(count);
        const std::int32_t expected = reference::otsu_threshold(counts.data(), total);
        for_each_target([&] { EXPECT_EQ(otsu_threshold(counts.data(), total), expected) << "seed " << seed; });
    }
}

TEST(TileThreshold, EqualsItsTwinWhereNoEstimateHelps)
{
    // scores too small for an estimate to rule out any level, and more pixels than are estimated from
    for (const std::uint32_t most : {8000000u, 8388607u, 8388608u, 8388609u, 16000000u})
        for (const std::size_t gap : {std::size_t{1}, std::size_t{2}, std::size_t{200}}) {
            SCOPED_TRACE(testing::Message() << most << " pixels of one level, " << gap << " from the other");
            std::array<std::uint32_t, 256> counts = {};
            counts[20] = most;
            counts[20 + gap] = 1;
            const auto total = static_cast<std::int32_t>(most + 1);
            const std::int32_t expected = reference::otsu_threshold(counts.data(), total);
            for_each_target([&] { EXPECT_EQ(otsu_threshold(counts.data(), total), expected); });
        }
}

TEST(TileThreshold, EqualsItsTwinWhereTheNumberOfPixelsWraps)
{
    // Sides of which the product leaves the integers: the shares of the levels are negative, infinite or no numbers.
    for (const std::int32_t total : {0, -1, -1000, std::numeric_limits<std::int32_t>::min()})
        for (std::uint64_t seed = 0; seed < 20; ++seed) {
            std::array<std::uint32_t, 256> counts = {};
            Random random(seed);
            for (std::uint32_t& count : counts)
                count = static_cast<std::uint32_t>(random.integer(seed % 2 == 0 ? 0 : 1, 900));
            const std::int32_t expected = reference::otsu_threshold(counts.data(), total);
            for_each_target(
                [&] { EXPECT_EQ(otsu_threshold(counts.data(), total), expected) << total << ", " << seed; });
        }
}

TEST(TileThreshold, EqualsItsTwinForEverySizeAndContent)
{
    for_each_target([] {
        for (const Content content : kAllContents)
            for (const auto& [width, height] : {std::pair{1, 67}, {67, 1}, {64, 64}, {33, 7}, {2, 3}, {129, 50}}) {
                const auto pixels = picture(content, width, height, 9);
                EXPECT_EQ(threshold_of(pixels, width, height),
                          reference::tile_otsu_threshold(width, height, pixels.data()))
                    << name_of(content) << ' ' << width << " x " << height;
            }
        for (int width = 1; width <= 67; ++width) {
            const auto pixels = noise<std::uint8_t>(static_cast<std::size_t>(3 * width), 0, 255, 10);
            EXPECT_EQ(threshold_of(pixels, width, 3), reference::tile_otsu_threshold(width, 3, pixels.data()));
        }
    });
}

TEST(AdaptiveThreshold, MarksPixelsAtTheirThresholdToo)
{
    // two halves, each with threshold 50; at the tiles' centres the threshold is exactly theirs
    for_each_target([] {
        Picture image;
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 8; ++x)
                image.push_back(x % 2 == 0 ? 50 : 150);
        const auto map = map_of(image, 8, 8, 2);
        for (std::size_t y = 2; y < 8; y += 4)
            for (std::size_t x = 2; x < 8; x += 4) {
                EXPECT_EQ(map[8 * y + x], 1u) << x << ", " << y; // 50 at threshold 50
                EXPECT_EQ(map[8 * y + x + 1], 0u) << x << ", " << y;
            }
    });
}

TEST(AdaptiveThreshold, OfOneTileLosesUpTo3LevelsByTruncation)
{
    // one tile of threshold 101; at (1, 1) of 4 x 4 both fractions are 3 / 4: 56 + 18 + 18 + 6 = 98
    for_each_target([] {
        for (const int level : {98, 99}) {
            Picture image(16, 101);
            image[2] = 255;
            image[5] = static_cast<std::uint8_t>(level);
            ASSERT_EQ(threshold_of(image, 4, 4), 101);
            EXPECT_EQ(map_of(image, 4, 4, 1)[5], level == 98 ? 1u : 0u);
            EXPECT_EQ(map_of(image, 4, 4, 1)[10], 1u); // the centre: exactly 101
        }
    });
}

TEST(AdaptiveThreshold, InterpolatesBetweenTheTilesCentres)
{
    // Tiles of 8 x 4 with thresholds 100 and 20 and centres at x = 4 and 12. Between them, truncated term by term:
    // 100 * 7/8 and 20 * 1/8 are 87 + 2, then 75 + 5 and 62 + 7.
    struct Probe {
        std::size_t x;
        int threshold;
    };
    for_each_target([] {
        for (const auto& [x, threshold] : {Probe{5, 89}, Probe{6, 80}, Probe{7, 69}})
            for (const int above : {0, 1}) {
                Picture image;
                for (std::size_t i = 0; i < 16 * 8; ++i)
                    image.push_back(i % 2 == 0 ? 255 : i % 16 < 8 ? 100 : 20);
                const std::size_t probe = 2 * 16 + x; // in the centres' row
                image[probe] = static_cast<std::uint8_t>(threshold + above);
                EXPECT_EQ(map_of(image, 16, 8, 2)[probe], above == 0 ? 1u : 0u) << x;
            }
    });
}

TEST(AdaptiveThreshold, EqualsItsTwinOnEvenRowsNearTheThresholdOfTheirTiles)
{
    // Tiles of threshold 100 and 103; one row is even, close to them.
    for (int level = 92; level <= 106; ++level) {
        Picture image;
        for (std::size_t i = 0; i < 160 * 20; ++i)
            image.push_back(i / 160 == 7   ? static_cast<std::uint8_t>(level)
                            : i % 2 == 0   ? 255
                            : i % 160 < 80 ? 100
                                           : 103);
        expect_twin(image, 160, 20, 2);
        expect_twin(image, 160, 20, 1);
    }
}

TEST(AdaptiveThreshold, EqualsItsTwinWhereTermsAreWholeNumbers)
{
    // Tiles of 2, 4, 8 and 16 pixels: fractions of few bits make many products exact, and bright tiles make them large.
    for (const int divisions : {16, 8, 4, 2})
        for (const int lowest : {0, 128, 248})
            expect_twin(noise<std::uint8_t>(32 * 32, static_cast<std::uint8_t>(lowest), 255, 6), 32, 32, divisions);
}

TEST(AdaptiveThreshold, MarksAUniformImageOnlyWhereItIsBlack)
{
    for_each_target([] {
        EXPECT_EQ(map_of(Picture(100, 0), 10, 10, 3), std::vector<std::uint32_t>(100, 1));
        EXPECT_EQ(map_of(Picture(100, 1), 10, 10, 3), std::vector<std::uint32_t>(100, 0));
        EXPECT_EQ(map_of(Picture(100, 255), 10, 10, 10), std::vector<std::uint32_t>(100, 0));
    });
}

TEST(AdaptiveThreshold, HasSmallerTilesInTheLastRowAndColumn)
{
    // 10 in 3 divisions: tiles of 3, and a fourth of 1 that is uniform and has threshold 0
    Picture image(100, 150);
    for (std::size_t i = 0; i < 100; ++i)
        if ((i % 10) % 3 == 0)
            image[i] = 90;
    expect_twin(image, 10, 10, 3);
    for_each_target([&] {
        const auto map = map_of(image, 10, 10, 3);
        EXPECT_EQ(map[5 * 10 + 3], 1u);
        EXPECT_EQ(map[5 * 10 + 9], 0u); // threshold 0 pulls it below 90
    });
}

TEST(AdaptiveThreshold, OfDivisionsOutOfRangeIsZero)
{
    const auto image = picture(Content::TwoLevel, 20, 12, 1);
    for (const int divisions : {0, -1, -2147483647 - 1, 13, 2147483647})
        EXPECT_EQ(map_of(image, 20, 12, divisions), std::vector<std::uint32_t>(240, 0)) << divisions;
}

TEST(AdaptiveThreshold, OfNoPixelsWritesNothing)
{
    for (const auto& [width, height] : {std::pair{0, 0}, {4, 0}, {0, 4}, {4, -1}, {-1, 4}}) {
        const Picture image(16, 5);
        std::vector<std::uint32_t> map(16, 7);
        EXPECT_TRUE(adaptive_tile_threshold(width, height, image.data(), map.data(), 1));
        EXPECT_EQ(map, std::vector<std::uint32_t>(16, 7));
    }
}

TEST(AdaptiveThreshold, WithoutMemorySaysSoAndLeavesTheMap)
{
    const auto image = picture(Content::Photograph, 60, 50, 2);
    for_each_failing_allocation([&](FailingHeap& heap) {
        std::vector<std::uint32_t> map(image.size(), 7);
        const auto before = heap.live_blocks();
        const bool done = adaptive_tile_threshold(60, 50, image.data(), map.data(), 4);
        EXPECT_EQ(heap.live_blocks(), before);
        if (heap.has_failed()) {
            EXPECT_FALSE(done);
            EXPECT_EQ(map, std::vector<std::uint32_t>(image.size(), 7));
        } else {
            EXPECT_TRUE(done);
        }
    });
}

TEST(AdaptiveThreshold, NeedsScratchForTilesAndThreadsOnly)
{
    const auto image = picture(Content::Noise, 200, 200, 2);
    std::vector<std::uint8_t> map(image.size());
    FailingHeap heap;
    EXPECT_TRUE(adaptive_tile_threshold(200, 200, image.data(), map.data(), 2));
    EXPECT_EQ(heap.live_blocks(), 0);
    EXPECT_LE(heap.peak_bytes(), 4u + 1024u * static_cast<std::size_t>(omp_get_max_threads()));
}

TEST(AdaptiveThreshold, NeedsNoMoreScratchForMoreThreadsThanAnyMachineHas)
{
    const auto image = picture(Content::Noise, 200, 200, 2);
    std::vector<std::uint8_t> map(image.size());
    const int threads = omp_get_max_threads();
    omp_set_num_threads(2147483647);
    FailingHeap heap;
    EXPECT_TRUE(adaptive_tile_threshold(200, 200, image.data(), map.data(), 2));
    EXPECT_LE(heap.peak_bytes(), 4u + 1024u * 64u);
    omp_set_num_threads(threads);
}

struct SharedCall {
    Picture image = picture(Content::Photograph, 60, 50, 2);
    std::vector<std::uint32_t> maps[4];
};

TEST(AdaptiveThreshold, WorksInsideParallelRegionsOfTheHost)
{
    SharedCall call;
    const auto on_each_thread = [](void* data) {
        SharedCall& shared = *static_cast<SharedCall*>(data);
        omp_set_num_threads(1); // then thread numbers exceed the maximum
        auto& map = shared.maps[omp_get_thread_num()];
        map.resize(shared.image.size());
        (void)adaptive_tile_threshold(60, 50, shared.image.data(), map.data(), 4);
    };
    GOMP_parallel(on_each_thread, &call, 4, 0);
    std::vector<std::uint32_t> expected(call.image.size());
    reference::adaptive_tile_threshold(60, 50, call.image.data(), expected.data(), 4);
    ASSERT_EQ(call.maps[0], expected);
    for (const auto& map : call.maps)
        EXPECT_TRUE(map.empty() || map == expected); // the run-time library may give fewer threads
}

TEST(AdaptiveThreshold, EqualsItsTwinForEverySizeWithUnevenTiles)
{
    for (int side = 1; side <= 67; ++side)
        for (const int other : {2, 13})
            for (const int divisions : {1, 2, 3})
                if (divisions <= std::min(side, other)) {
                    const auto image = noise<std::uint8_t>(static_cast<std::size_t>(side * other), 0, 255, 3);
                    expect_twin(image, side, other, divisions);
                    if (divisions > 1)
                        expect_twin(image, other, side, divisions);
                }
}

TEST(AdaptiveThreshold, EqualsItsTwinForEveryNumberOfDivisions)
{
    for (int divisions = 1; divisions <= 19; ++divisions)
        expect_twin(noise<std::uint8_t>(43 * 19, 0, 255, 4), 43, 19, divisions);
}

TEST(AdaptiveThreshold, EqualsItsTwinOnEveryContent)
{
    for (const Content content : kAllContents)
        for (const auto& [width, height] : {std::pair{300, 110}, {131, 257}})
            for (const int divisions : {1, 4, 7}) {
                SCOPED_TRACE(name_of(content));
                expect_twin(picture(content, width, height, 5), width, height, divisions);
            }
}

} // namespace
