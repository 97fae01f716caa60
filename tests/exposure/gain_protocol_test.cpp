// SPDX-License-Identifier: MIT
// What the gain compensators do to the caller's record, and what they measure of unusual images and masks.
#include "panoval.h"
#include "tests/reference/gain_compensator.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/pictures.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <utility>
#include <vector>

namespace
{

using namespace panoval;
using test::OwnedMask;
using test::OwnedMat;

struct Placed {
    Placed(OwnedMat picture, OwnedMask cover, Point where)
        : image(std::move(picture)), mask(std::move(cover)), corner(where)
    {
    }
    OwnedMat image;
    OwnedMask mask;
    Point corner;
};

void step(GainCompensator& gc, std::int32_t i, std::int32_t j, const Placed& a, const Placed& b)
{
    gain_compensator_init_step(&gc, i, j, a.corner, &*a.image, &*a.mask, b.corner, &*b.image, &*b.mask);
}

reference::PairEntries expected_pair(const Placed& a, const Placed& b, bool sum_rows_first)
{
    return reference::measure_pair(a.corner, *a.image, *a.mask, b.corner, *b.image, *b.mask, sum_rows_first);
}

// Both protocols on two images, against the literal ones. Whatever the system makes of the entries, they must agree.
void expect_twin(const Placed& a, const Placed& b)
{
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 2);
    step(gc, 0, 1, a, b);
    const auto pair = expected_pair(a, b, true);
    EXPECT_EQ(gc.counts.data[1], pair.count);
    EXPECT_EQ(gc.counts.data[2], pair.count);
    EXPECT_TRUE(test::same_bits(&gc.intensities.data[1], &pair.mean_i, 1));
    EXPECT_TRUE(test::same_bits(&gc.intensities.data[2], &pair.mean_j, 1));
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);

    const std::vector<Point> corners = {a.corner, b.corner};
    const std::vector<Mat> images = {*a.image, *b.image};
    const std::vector<Matb> masks = {*a.mask, *b.mask};
    const auto tables = reference::measure_all_pairs(corners, images, masks, false);
    const auto gains = reference::solve_gains(tables, 2, false);
    gc = {};
    testing::internal::CaptureStdout();
    gain_compensator_init(&gc, 2, corners.data(), images.data(), masks.data());
    std::fflush(stdout);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(test::same_bits(gc.gains.data, gains.data(), 2));
    gain_compensator_free(&gc);
}

TEST(GainMeasurement, EqualsItsTwinWhereSquaresWrap)
{
    test::for_each_target([] {
        for (int channels = 1; channels <= 5; ++channels)
            for (const int low : {0, 46330, 65500}) { // negative sums, and roots that are not numbers, from 46341 on
                const auto seed = static_cast<std::uint64_t>(channels * 1000 + low);
                SCOPED_TRACE(testing::Message() << channels << " channels from " << low);
                const Placed a(OwnedMat(41, 9, channels, 2, low, 65535, seed), OwnedMask(41, 9, 0.3, seed), {0, 0});
                const Placed b(OwnedMat(37, 11, channels, 2, 0, 46340, seed), OwnedMask(37, 11, 1.0, seed), {-5, 2});
                expect_twin(a, b);
                expect_twin(b, a);
            }
    });
}

TEST(GainMeasurement, PixelsOutsideTheMasksCountNothingWhateverTheyHold)
{
    Placed a(OwnedMat(40, 1, 1, 2, 65535, 65535, 1), OwnedMask(40, 1, 1.0, 1), {0, 0});
    a.image.set(20, 300); // among pixels whose norm is not a number
    for (int i = 0; i < 40; ++i)
        a.mask.get()->data[i] = i == 20 ? 1 : 0;
    test::for_each_target([&] {
        GainCompensator gc = {};
        gain_compensator_init_start(&gc, 1);
        step(gc, 0, 0, a, a);
        EXPECT_EQ(gc.counts.data[0], 1);
        EXPECT_EQ(gc.intensities.data[0], 300.0);
        gain_compensator_init_end(&gc);
        EXPECT_NEAR(gc.gains.data[0], 1.0, 1e-12);
        gain_compensator_free(&gc);
    });
}

// Full masks are read eight pixels at a time.
TEST(GainMeasurement, TakesMasksThatAreFullInPartOfARow)
{
    for (const int gap : {-1, 0, 7, 8, 12, 36}) {
        SCOPED_TRACE(gap);
        Placed a(OwnedMat(37, 3, 3, 1, 0, 255, 5), OwnedMask(37, 3, 1.0, 6), {0, 0});
        Placed b(OwnedMat(37, 3, 3, 1, 0, 255, 7), OwnedMask(37, 3, 1.0, 8), {0, 0});
        for (int i = 0; i < 37 * 3; ++i) {
            a.mask.get()->data[i] = 255;
            b.mask.get()->data[i] = i % 37 == gap ? 0 : 255;
        }
        EXPECT_EQ(expected_pair(a, b, true).count, gap < 0 ? 111 : 108);
        expect_twin(a, b);
        expect_twin(b, a);
    }
}

TEST(GainMeasurement, AMaskSmallerThanItsImageCoversNothingBeyondItsEdge)
{
    for (const auto& [width, height] : {std::pair{0, 0}, {12, 0}, {3, 8}, {12, 2}, {15, 11}, {1, 1}}) {
        SCOPED_TRACE(testing::Message() << "mask of " << width << " x " << height);
        const Placed a(OwnedMat(12, 8, 3, 1, 0, 255, 5), OwnedMask(width, height, 0.9, 6), {0, 0});
        const Placed b(OwnedMat(12, 8, 3, 1, 0, 255, 7), OwnedMask(12, 8, 0.9, 8), {-2, 3});
        expect_twin(a, b);
        expect_twin(b, a);
    }
}

TEST(GainMeasurement, CountsThePixelsOfImagesWithoutSamples)
{
    for (const auto& [channels, elem_size] : {std::pair{0, 1}, {0, 2}, {3, 0}, {1, 3}}) {
        SCOPED_TRACE(testing::Message() << channels << " channels of " << elem_size << " bytes");
        const Placed a(OwnedMat(6, 5, 2, 1, 0, 255, 5), OwnedMask(6, 5, 1.0, 6), {0, 0});
        const Placed b(OwnedMat(6, 5, channels, elem_size), OwnedMask(6, 5, 1.0, 8), {1, 0});
        expect_twin(a, b);
        expect_twin(b, a);
        EXPECT_EQ(expected_pair(a, b, true).count, 25);
        EXPECT_EQ(expected_pair(a, b, true).mean_j, 0.0);
    }
}

TEST(GainMeasurement, CountsWithoutSamplesOnlyWhatBothMasksCover)
{
    for (const double covered : {0.5, 1.0}) {
        const Placed a(OwnedMat(30, 20, 1, 3), OwnedMask(30, 20, covered, 6), {0, 0});
        const Placed b(OwnedMat(30, 20, 1, 3), OwnedMask(30, 20, 0.5, 8), {1, 0});
        const auto count = expected_pair(a, b, true).count;
        EXPECT_GT(count, 0);
        EXPECT_LT(count, 29 * 20);
        expect_twin(a, b);
        expect_twin(b, a);
    }
}

TEST(GainMeasurement, TakesCornersAtTheEndsOfTheFrame)
{
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
    const Placed a(OwnedMat(9, 9, 3, 1, 0, 255, 5), OwnedMask(9, 9, 1.0, 6), {kMost - 9, kLeast});
    const Placed b(OwnedMat(9, 9, 3, 1, 0, 255, 7), OwnedMask(9, 9, 1.0, 8), {kMost - 14, kLeast + 4});
    EXPECT_EQ(expected_pair(a, b, true).count, 20);
    expect_twin(a, b);
    expect_twin(b, a);
}

TEST(GainMeasurement, OfADifferentFormatWithoutMemoryLeavesTheTablesAsTheyAre)
{
    const Placed a(OwnedMat(6, 5, 3, 1, 0, 255, 5), OwnedMask(6, 5, 1.0, 6), {0, 0});
    const Placed b(OwnedMat(6, 5, 1, 2, 0, 255, 5), OwnedMask(6, 5, 1.0, 6), {0, 0});
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 2);
    test::for_each_failing_allocation([&](test::FailingHeap& heap) {
        step(gc, 0, 1, a, b);
        EXPECT_EQ(gc.counts.data[1], heap.has_failed() ? 0 : 30);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);
}

std::vector<Placed> three_images()
{
    std::vector<Placed> placed;
    for (int k = 0; k < 3; ++k) {
        const auto seed = static_cast<std::uint64_t>(k);
        placed.emplace_back(OwnedMat(30, 20, 3, 1, 20 * k, 200, seed), OwnedMask(30, 20, 0.9, seed),
                            Point{11 * k, -4 * k});
    }
    return placed;
}

TEST(GainProtocol, TakesThePairsInAnyOrderAndEitherWay)
{
    const std::vector<Placed> placed = three_images();
    const std::vector<std::vector<std::pair<int, int>>> orders = {
        {{0, 0}, {0, 1}, {0, 2}, {1, 1}, {1, 2}, {2, 2}},
        {{2, 2}, {1, 0}, {2, 1}, {0, 2}, {0, 0}, {1, 1}},
        {{2, 0}, {2, 0}, {2, 2}, {0, 1}, {1, 1}, {2, 1}, {0, 0}},
    };
    std::vector<double> first;
    for (const auto& order : orders) {
        GainCompensator gc = {};
        gain_compensator_init_start(&gc, 3);
        for (const auto& [i, j] : order)
            step(gc, i, j, placed[static_cast<std::size_t>(i)], placed[static_cast<std::size_t>(j)]);
        gain_compensator_init_end(&gc);
        const std::vector<double> gains(gc.gains.data, gc.gains.data + 3);
        if (first.empty())
            first = gains;
        EXPECT_TRUE(test::same_bits(gains, first));
        gain_compensator_free(&gc);
    }
}

TEST(GainProtocol, StartOpensZeroTables)
{
    GainCompensator gc = {};
    for (const std::int32_t n : {3, 1, 4}) { // each start takes over the containers that it finds
        gain_compensator_init_start(&gc, n);
        EXPECT_EQ(gc.counts.width, n);
        EXPECT_EQ(gc.counts.height, n);
        EXPECT_EQ(gc.counts.channels, 1);
        EXPECT_EQ(gc.intensities.width, n);
        EXPECT_EQ(gc.intensities.height, n);
        EXPECT_EQ(gc.intensities.channels, 1);
        EXPECT_EQ(gc.gains.width, n);
        EXPECT_EQ(gc.gains.height, 1);
        EXPECT_EQ(gc.gains.channels, 1);
        for (int k = 0; k < n * n; ++k) {
            EXPECT_EQ(gc.counts.data[k], 0);
            EXPECT_EQ(gc.intensities.data[k], 0.0);
            EXPECT_EQ(gc.gains.data[k / n], 0.0);
        }
        std::fill_n(gc.counts.data, n * n, 9);
        std::fill_n(gc.intensities.data, n * n, 9.0);
        std::fill_n(gc.gains.data, n, 9.0);
    }
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);
}

TEST(GainProtocol, EndFreesTheTablesAndClearsNoPointer)
{
    const std::vector<Placed> placed = three_images();
    test::FailingHeap heap;
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 1);
    step(gc, 0, 0, placed[0], placed[0]);
    const GainCompensator before = gc;
    EXPECT_EQ(heap.live_blocks(), 3);
    gain_compensator_init_end(&gc);
    EXPECT_EQ(heap.live_blocks(), 1); // the gains
    EXPECT_EQ(gc.counts.data, before.counts.data);
    EXPECT_EQ(gc.intensities.data, before.intensities.data);
    EXPECT_EQ(gc.gains.data, before.gains.data);
    EXPECT_EQ(gc.counts.width, 1);
    gain_compensator_free(&gc);
    EXPECT_EQ(heap.live_blocks(), 0);
}

TEST(GainProtocol, FreeReleasesTheGainsAlone)
{
    test::FailingHeap heap;
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 2);
    const GainCompensator before = gc;
    gain_compensator_free(&gc);
    EXPECT_EQ(heap.live_blocks(), 2); // counts and intensities
    EXPECT_EQ(gc.gains.data, before.gains.data);
    EXPECT_EQ(gc.counts.data, before.counts.data);
    EXPECT_EQ(gc.intensities.data, before.intensities.data);
    EXPECT_EQ(gc.gains.width, 2);
    std::free(gc.counts.data);
    std::free(gc.intensities.data);
}

TEST(GainProtocol, BatchTakesOverTheGainsThatItFindsAndNothingElse)
{
    const std::vector<Placed> placed = three_images();
    test::FailingHeap heap;
    GainCompensator gc = {};
    MatdReset(&gc.gains, 7, 5, 2);
    gc.counts = {1, 2, 3, reinterpret_cast<std::int32_t*>(8)};
    gc.intensities = {4, 5, 6, reinterpret_cast<double*>(16)};
    testing::internal::CaptureStdout();
    gain_compensator_init(&gc, 1, &placed[0].corner, &*placed[0].image, &*placed[0].mask);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "1.000000\t\n");
    EXPECT_EQ(gc.gains.width, 1);
    EXPECT_EQ(gc.gains.height, 1);
    EXPECT_EQ(gc.gains.channels, 1);
    EXPECT_EQ(gc.counts.width, 1);
    EXPECT_EQ(gc.counts.data, reinterpret_cast<std::int32_t*>(8));
    EXPECT_EQ(gc.intensities.channels, 6);
    EXPECT_EQ(gc.intensities.data, reinterpret_cast<double*>(16));
    EXPECT_EQ(heap.live_blocks(), 1);
    gain_compensator_free(&gc);
}

TEST(GainProtocol, WithoutImagesNothingHappens)
{
    test::FailingHeap heap;
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 0);
    EXPECT_EQ(gc.gains.data, nullptr);
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);
    EXPECT_EQ(heap.live_blocks(), 0);
}

TEST(GainProtocol, AnImageThatWasNeverSteppedLeavesTheAnswerToASingularMatrix)
{
    const std::vector<Placed> placed = three_images();
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 2);
    step(gc, 0, 0, placed[0], placed[0]);
    const double count = gc.counts.data[0];
    gain_compensator_init_end(&gc);
    // The matrix stays as it is, and is multiplied with the right-hand side.
    EXPECT_EQ(gc.gains.data[0], (100.0 * count) * (100.0 * count));
    EXPECT_EQ(gc.gains.data[1], 0.0);
    gain_compensator_free(&gc);
}

TEST(GainCompensatorApply, TakesTheGainOfTheImageThatItIsTold)
{
    double gains[] = {0.5, 1.0, 2.0};
    GainCompensator gc = {};
    gc.gains = {3, 1, 1, gains};
    for (const auto& [index, expected] : {std::pair{0, 50}, {1, 100}, {2, 200}}) {
        OwnedMat image(5, 3, 2, 1, 100, 100, 1);
        gain_compensator_apply(&gc, index, image.get());
        for (int i = 0; i < 30; ++i)
            EXPECT_EQ(image.at(i), expected);
        EXPECT_EQ((*image).width, 5);
        EXPECT_EQ((*image).size, 30);
    }
}

} // namespace
