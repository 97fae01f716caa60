// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/distance_transform.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

namespace
{

using namespace panoval::test;

constexpr std::int32_t kFar = 0x1FFFFFFF;

std::size_t count_of(int width, int height)
{
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

// What a transform leaves behind.
struct Result {
    std::vector<float> distances;
    std::vector<std::int32_t> scratch;
    bool guards_intact = true;
};

template <class Transform>
Result run(Transform transform, std::vector<std::uint8_t> mask, int width, int height, float straight, float diagonal)
{
    const Guarded<std::uint8_t> source(mask);
    Guarded<float> out(count_of(width, height));
    const Guarded<float> metrics(std::vector<float>{straight, diagonal});
    const Matb src{width, height, 1, const_cast<std::uint8_t*>(source.data())};
    Matf dist{width, height, 1, out.data()};
    Matf scratch{};
    transform(&src, &scratch, &dist, metrics.data());

    Result result{out.values(), std::vector<std::int32_t>(count_of(width + 2, height + 2)), true};
    std::memcpy(result.scratch.data(), scratch.data, 4 * result.scratch.size());
    result.guards_intact = source.intact() && out.intact() && metrics.intact() && source.values() == mask;
    EXPECT_EQ(scratch.width, width + 2);
    EXPECT_EQ(scratch.height, height + 2);
    EXPECT_EQ(scratch.channels, 1);
    EXPECT_TRUE(dist.width == width && dist.height == height && dist.data == out.data()); // the caller sizes it
    std::free(scratch.data);
    return result;
}

Result transform(const std::vector<std::uint8_t>& mask, int width, int height, float straight, float diagonal)
{
    return run(distanceTransform_3x3, mask, width, height, straight, diagonal);
}

// Both outputs, bit for bit, on the current instruction set.
void expect_equal_to_twin(const std::vector<std::uint8_t>& mask, int width, int height, float straight, float diagonal)
{
    const Result actual = transform(mask, width, height, straight, diagonal);
    const Result expected = run(panoval::reference::distanceTransform_3x3, mask, width, height, straight, diagonal);
    const auto label = testing::Message() << width << " x " << height << ", costs " << straight << ", " << diagonal;
    EXPECT_TRUE(same_bits(actual.scratch, expected.scratch)) << label << ", scratch";
    EXPECT_TRUE(same_bits(actual.distances, expected.distances)) << label << ", distances";
    EXPECT_TRUE(actual.guards_intact) << label;
}

// Mask bytes of which about one in `rarity` is zero.
std::vector<std::uint8_t> sparse_mask(int width, int height, int rarity, std::uint64_t seed)
{
    auto mask = noise<std::uint8_t>(count_of(width, height), 1, 255, seed);
    Random random(seed + 1);
    for (auto& value : mask)
        if (random.integer(1, rarity) == 1)
            value = 0;
    return mask;
}

TEST(DistanceTransform, OfAnAllZeroMaskIsZero)
{
    for_each_target([] {
        const Result result = transform(std::vector<std::uint8_t>(35, 0), 7, 5, 1.f, 2.f);
        EXPECT_EQ(result.distances, std::vector<float>(35, 0.f));
    });
}

TEST(DistanceTransform, GivesEdgeNeighboursOneAndCornersTwo)
{
    for_each_target([] {
        const Result result = transform({9, 9, 9, 9, 0, 9, 9, 9, 9}, 3, 3, 1.f, 2.f);
        EXPECT_EQ(result.distances, (std::vector<float>{2, 1, 2, 1, 0, 1, 2, 1, 2}));
    });
}

TEST(DistanceTransform, WithEqualCostsIsTheChessboardDistance)
{
    for_each_target([] {
        std::vector<std::uint8_t> mask(23 * 19, 1);
        mask[7 * 23 + 11] = 0;
        const Result result = transform(mask, 23, 19, 1.f, 1.f);
        for (int y = 0; y < 19; ++y)
            for (int x = 0; x < 23; ++x)
                EXPECT_EQ(result.distances[static_cast<std::size_t>(y * 23 + x)],
                          static_cast<float>(std::max(std::abs(x - 11), std::abs(y - 7))));
    });
}

TEST(DistanceTransform, WithCostsOneAndTwoIsTheCityBlockDistance)
{
    for_each_target([] {
        std::vector<std::uint8_t> mask(41 * 37, 255);
        mask[5 * 41 + 33] = 0;
        const Result result = transform(mask, 41, 37, 1.f, 2.f);
        for (int y = 0; y < 37; ++y)
            for (int x = 0; x < 41; ++x)
                EXPECT_EQ(result.distances[static_cast<std::size_t>(y * 41 + x)],
                          static_cast<float>(std::abs(x - 33) + std::abs(y - 5)));
    });
}

TEST(DistanceTransform, RoundsCostsToTheNearestUnit)
{
    const Result result = transform({1, 0, 1, 1}, 2, 2, 0.955f, 1.3693f);
    EXPECT_EQ(result.scratch[1 * 4 + 1], 62587); // 0.955 * 65536 = 62586.88
    EXPECT_EQ(result.scratch[2 * 4 + 1], 89738); // 1.3693 * 65536 = 89738.4
    EXPECT_EQ(result.distances[0], 62587.f / 65536.f);
}

TEST(DistanceTransform, TakesCostsAUnitBesideWholePixelsForWhatTheyAre)
{
    const auto costs_in_units = [](float straight, float diagonal) {
        const Result result = transform({1, 0, 1, 1}, 2, 2, straight / 65536.f, diagonal / 65536.f);
        EXPECT_EQ(result.scratch[1 * 4 + 1], static_cast<std::int32_t>(straight));
        EXPECT_EQ(result.scratch[2 * 4 + 1], static_cast<std::int32_t>(diagonal));
    };
    costs_in_units(65535, 65536 * 1.5f);
    costs_in_units(65535, 65536);
    costs_in_units(65537, 65536);
    costs_in_units(65536, 65535);
    costs_in_units(65536, 131070);
    costs_in_units(65535, 131070);
}

TEST(DistanceTransform, RoundsHalfAUnitUpAlsoBelowZero)
{
    const auto straight_units = [](float units) {
        return transform({1, 0}, 2, 1, units / 65536.f, 1000.f).scratch[4 + 1];
    };
    EXPECT_EQ(straight_units(2.5f), 3);
    EXPECT_EQ(straight_units(2.25f), 2);
    EXPECT_EQ(straight_units(0.5f), 1);
    EXPECT_EQ(straight_units(0.25f), 0);
    // The pixel to the right of a zero takes its cost in the forward pass.
    EXPECT_EQ(transform({0, 1}, 2, 1, -2.5f / 65536.f, 1000.f).scratch[4 + 2], -2);
}

TEST(DistanceTransform, GrowsInwardFromAFarBorderWhereNothingIsZero)
{
    for_each_target([] {
        const Result result = transform(std::vector<std::uint8_t>(5 * 4, 1), 5, 4, 1.f, 2.f);
        const float one = static_cast<float>(kFar + 65536) / 65536.f;
        const float two = static_cast<float>(kFar + 2 * 65536) / 65536.f;
        EXPECT_EQ(one, 8193.f);
        EXPECT_EQ(result.distances, (std::vector<float>{one, one, one, one, one, //
                                                        one, two, two, two, one, //
                                                        one, two, two, two, one, //
                                                        one, one, one, one, one}));
    });
}

TEST(DistanceTransform, LeavesTheScratchWithItsFrameAndFixedPointDistances)
{
    const Result result = transform({1, 0}, 2, 1, 1.f, 2.f);
    EXPECT_EQ(result.scratch,
              (std::vector<std::int32_t>{kFar, kFar, kFar, kFar, kFar, 65536, 0, kFar, kFar, kFar, kFar, kFar}));
}

TEST(DistanceTransform, KeepsWhatIsAtMostOneStraightStepThoughADiagonalIsCheaper)
{
    for_each_target([] {
        // The middle is one straight step from the zero above it. The zero below left would give 0.25.
        const Result near = transform({1, 0, 1, 1, 1, 1, 0, 1, 1}, 3, 3, 1.f, 0.25f);
        EXPECT_EQ(near.distances[4], 1.f);
        // At the top right no zero is near before the backward pass, so there the diagonal counts.
        const Result far = transform({1, 1, 1, 1, 0, 1, 1, 1, 1}, 3, 3, 1.f, 0.25f);
        EXPECT_EQ(far.distances[0], 0.25f);
        EXPECT_EQ(far.distances[2], 0.25f);
    });
}

TEST(DistanceTransform, AddressesOutputRowsWithTheOutputsOwnWidth)
{
    for_each_target([] {
        Guarded<std::uint8_t> mask(std::vector<std::uint8_t>(20 * 2, 0));
        Guarded<float> wide(std::vector<float>(23 * 2, -1.f));
        Guarded<float> narrow(std::vector<float>(13 + 20, -1.f));
        mask[20] = 1; // first pixel of the second row
        const Matb src{20, 2, 1, mask.data()};
        const float metrics[] = {1.f, 2.f};
        Matf scratch{};
        Matf dist{23, 2, 1, wide.data()};
        distanceTransform_3x3(&src, &scratch, &dist, metrics);
        for (std::size_t i = 0; i < 46; ++i)
            EXPECT_EQ(wide[i], i % 23 >= 20 ? -1.f : i == 23 ? 1.f : 0.f) << i;
        dist = {13, 2, 1, narrow.data()}; // row 0 is written last, over the beginning of row 1
        distanceTransform_3x3(&src, &scratch, &dist, metrics);
        for (std::size_t i = 0; i < 33; ++i)
            EXPECT_EQ(narrow[i], 0.f) << i;
        EXPECT_TRUE(wide.intact() && narrow.intact());
        std::free(scratch.data);
    });
}

TEST(DistanceTransform, IgnoresTheMasksChannelsAndReadsTwoCosts)
{
    const std::vector<float> two_costs = {1.f, 2.f};
    const Guarded<float> metrics(two_costs);
    Guarded<std::uint8_t> mask(std::vector<std::uint8_t>{1, 0, 1, 1});
    Guarded<float> out(4);
    const Matb src{2, 2, 3, mask.data()};
    Matf scratch{};
    Matf dist{2, 2, 1, out.data()};
    distanceTransform_3x3(&src, &scratch, &dist, metrics.data());
    EXPECT_EQ(out.values(), (std::vector<float>{1.f, 0.f, 2.f, 1.f}));
    std::free(scratch.data);
}

TEST(DistanceTransform, OfNoColumnsOrNoRowsOnlyDrawsTheFrame)
{
    for (const Size size : {Size{0, 5}, Size{5, 0}, Size{0, 0}, Size{-1, 3}, Size{3, -1}, Size{-1, -1}}) {
        const Matb src{size.width, size.height, 1, nullptr};
        const float metrics[] = {1.f, 2.f};
        Matf scratch{};
        Matf dist{size.width, size.height, 1, nullptr};
        distanceTransform_3x3(&src, &scratch, &dist, metrics);
        EXPECT_EQ(scratch.width, size.width + 2);
        EXPECT_EQ(scratch.height, size.height + 2);
        const std::vector<std::int32_t> expected(count_of(size.width + 2, size.height + 2), kFar);
        EXPECT_EQ(std::memcmp(scratch.data, expected.data(), 4 * expected.size()), 0);
        std::free(scratch.data);
    }
}

TEST(DistanceTransform, OfASizeWithoutAnyFrameWritesNothing)
{
    for (const Size size : {Size{-2, 5}, Size{5, -7}, Size{std::numeric_limits<std::int32_t>::max(), 1}}) {
        const Matb src{size.width, size.height, 1, nullptr};
        const float metrics[] = {1.f, 2.f};
        float untouched = 3.f;
        Matf scratch{};
        Matf dist{1, 1, 1, &untouched};
        distanceTransform_3x3(&src, &scratch, &dist, metrics);
        EXPECT_EQ(untouched, 3.f);
        std::free(scratch.data);
    }
}

TEST(DistanceTransform, ReusesAScratchOfAnySizeAndContent)
{
    for_each_target([] {
        const float metrics[] = {1.f, 2.f};
        Matf scratch{};
        for (const Size size : {Size{40, 3}, Size{40, 3}, Size{9, 60}, Size{0, 4}, Size{33, 33}, Size{2, 1}}) {
            const auto mask = sparse_mask(size.width, size.height, 6, 5);
            std::vector<float> out(count_of(size.width, size.height) + 1);
            const Matb src{size.width, size.height, 1, const_cast<std::uint8_t*>(mask.data())};
            Matf dist{size.width, size.height, 1, out.data()};
            distanceTransform_3x3(&src, &scratch, &dist, metrics);
            const Result expected =
                run(panoval::reference::distanceTransform_3x3, mask, size.width, size.height, 1.f, 2.f);
            std::vector<std::int32_t> cells(expected.scratch.size());
            std::memcpy(cells.data(), scratch.data, 4 * cells.size());
            EXPECT_TRUE(same_bits(cells, expected.scratch));
            std::memset(scratch.data, 0xEE, 4 * cells.size());
        }
        std::free(scratch.data);
    });
}

TEST(DistanceTransform, WithoutMemoryLeavesTheScratchEmptyAndTheOutputUntouched)
{
    for_each_failing_allocation([](FailingHeap& heap) {
        std::uint8_t mask[6] = {1, 1, 0, 1, 1, 1};
        float out[6] = {-1, -1, -1, -1, -1, -1};
        const Matb src{3, 2, 1, mask};
        const float metrics[] = {1.f, 2.f};
        Matf scratch{};
        Matf dist{3, 2, 1, out};
        distanceTransform_3x3(&src, &scratch, &dist, metrics);
        EXPECT_EQ(out[0], heap.has_failed() ? -1.f : 2.f);
        EXPECT_EQ(scratch.data == nullptr, heap.has_failed());
        EXPECT_EQ(scratch.width, heap.has_failed() ? 0 : 5);
        std::free(scratch.data);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

TEST(DistanceTransform, WithoutMemoryFreesTheScratchOfAnEarlierCall)
{
    std::uint8_t mask[6] = {1, 1, 0, 1, 1, 1};
    float out[6] = {};
    const Matb src{3, 2, 1, mask};
    const float metrics[] = {1.f, 2.f};
    Matf dist{3, 2, 1, out};
    FailingHeap heap(1);
    Matf scratch{};
    MatfReset(&scratch, 1, 1, 1);
    distanceTransform_3x3(&src, &scratch, &dist, metrics);
    EXPECT_TRUE(heap.has_failed());
    EXPECT_EQ(heap.live_blocks(), 0);
    EXPECT_EQ(scratch.data, nullptr);
}

TEST(DistanceTransform, EqualsItsTwinForEverySmallSize)
{
    for_each_target([] {
        for (int height = 0; height <= 67; height += height < 9 ? 1 : 29)
            for (int width = 0; width <= 67; ++width)
                expect_equal_to_twin(sparse_mask(width, height, 2 + (width + height) % 40, 77u), width, height, 1.f,
                                     2.f);
        for (int height = 0; height <= 67; ++height)
            for (int width = 0; width <= 67; width += width < 9 ? 1 : 29)
                expect_equal_to_twin(sparse_mask(width, height, 30, 78u), width, height, 1.f, 2.f);
    });
}

TEST(DistanceTransform, EqualsItsTwinOnEveryContent)
{
    for_each_target([] {
        for (const Content content : kAllContents) {
            auto mask = picture(content, 203, 131, 4);
            expect_equal_to_twin(mask, 203, 131, 1.f, 2.f);
            for (auto& value : mask) // as a photograph's dark parts
                value = value < 100 ? 0 : value;
            expect_equal_to_twin(mask, 203, 131, 1.f, 2.f);
            expect_equal_to_twin(mask, 203, 131, 0.955f, 1.3693f);
        }
    });
}

TEST(DistanceTransform, EqualsItsTwinForEveryPairOfCosts)
{
    constexpr float kHuge = std::numeric_limits<float>::max();
    constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
    const std::vector<float> costs = {1.f,     0.f,     2.f,      1.0e-5f,  0.3f,      40.f,    700.f,
                                      20000.f, 24575.f, 24576.f,  32767.f,  32767.99f, 32768.f, -1.f,
                                      -0.25f,  -9000.f, -32768.f, -40000.f, kHuge,     -kHuge,  kNan};
    for_each_target([&] {
        for (const float straight : costs)
            for (const float diagonal : costs)
                for (const int rarity : {3, 60, 100000})
                    expect_equal_to_twin(sparse_mask(37, 11, rarity, 9), 37, 11, straight, diagonal);
    });
}

// 16-bit keys hold whole pixels up to about 8190 beyond the far border: 53 straight steps and a diagonal one here.
TEST(DistanceTransform, EqualsItsTwinWhereWholePixelsJustFitIntoKeysAndJustDoNot)
{
    for_each_target([] {
        for (float straight = 145.f; straight < 160.f; straight += 1.f)
            for (const float diagonal : {0.f, straight - 1.f, straight + 1.f, 2.f * straight - 1.f, 2.f * straight,
                                         2.f * straight + 1.f, 8192.f - 53.f * straight})
                for (const int rarity : {50, 100000})
                    expect_equal_to_twin(sparse_mask(40, 20, rarity, 3), 40, 20, straight, diagonal);
    });
}

TEST(DistanceTransform, EqualsItsTwinFarFromTheOnlyZero)
{
    for_each_target([] {
        std::vector<std::uint8_t> mask(3 * 8300, 1);
        mask[1] = 0; // distances from it pass those from the border on their way
        expect_equal_to_twin(mask, 8300, 3, 1.f, 2.f);
        expect_equal_to_twin(mask, 3, 8300, 1.f, 2.f);
        expect_equal_to_twin(mask, 3, 8300, 0.5f, 2.f);
        expect_equal_to_twin(mask, 3, 8300, 7.f, 9.f);
    });
}

TEST(DistanceTransform, EqualsItsTwinWhereSumsJustFitAndJustWrap)
{
    // In a mask without zeros the deepest pixel is kFar + 10 steps; sums leave 32 bits from 24575 / 10 pixels a step.
    for_each_target([] {
        for (float straight = 500.f; straight < 2600.f; straight += 37.f)
            for (const float diagonal : {straight * 0.25f, straight * 1.5f, straight * 3.f})
                expect_equal_to_twin(std::vector<std::uint8_t>(40 * 20, 1), 40, 20, straight, diagonal);
    });
}

} // namespace
