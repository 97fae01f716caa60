// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/gain_compensator.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/pictures.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

namespace
{

using namespace panoval;
using test::OwnedMask;
using test::OwnedMat;

// Placed images as the library takes them.
struct Scene {
    std::vector<OwnedMat> images;
    std::vector<OwnedMask> masks;
    std::vector<Point> corners;

    void add(OwnedMat image, OwnedMask mask, Point corner)
    {
        images.push_back(std::move(image));
        masks.push_back(std::move(mask));
        corners.push_back(corner);
    }
    std::vector<Mat> mats() const
    {
        std::vector<Mat> result;
        for (const auto& image : images)
            result.push_back(*image);
        return result;
    }
    std::vector<Matb> matbs() const
    {
        std::vector<Matb> result;
        for (const auto& mask : masks)
            result.push_back(*mask);
        return result;
    }
    std::int32_t size() const { return static_cast<std::int32_t>(corners.size()); }
};

Scene random_scene(std::uint64_t seed)
{
    test::Random random(seed);
    Scene scene;
    const auto n = random.integer(1, 5);
    int channels = static_cast<int>(random.integer(1, 5));
    int elem_size = static_cast<int>(random.integer(1, 2));
    for (std::int64_t k = 0; k < n; ++k) {
        if (seed % 4 == 3) { // every image in a format of its own
            channels = static_cast<int>(random.integer(1, 5));
            elem_size = static_cast<int>(random.integer(1, 2));
        }
        const int width = static_cast<int>(random.integer(1, 300));
        const int height = static_cast<int>(random.integer(1, 30));
        const double covered = k % 3 == 0 ? 1.0 : random.unit();
        scene.add(
            OwnedMat(width, height, channels, elem_size, 0, elem_size == 1 ? 255 : 46340, random.next()),
            OwnedMask(width, height, covered, random.next()),
            {static_cast<std::int32_t>(random.integer(-100, 100)), static_cast<std::int32_t>(random.integer(-9, 9))});
    }
    return scene;
}

// The gains of the batch routine, and what it printed.
struct Batch {
    std::vector<double> gains;
    std::string printed;
};

Batch run_batch(const Scene& scene)
{
    GainCompensator gc = {};
    testing::internal::CaptureStdout();
    gain_compensator_init(&gc, scene.size(), scene.corners.data(), scene.mats().data(), scene.matbs().data());
    std::fflush(stdout);
    Batch batch;
    batch.printed = testing::internal::GetCapturedStdout();
    if (gc.gains.data != nullptr)
        batch.gains.assign(gc.gains.data, gc.gains.data + gc.gains.width);
    EXPECT_EQ(gc.counts.data, nullptr);
    EXPECT_EQ(gc.intensities.data, nullptr);
    gain_compensator_free(&gc);
    return batch;
}

void step_all(GainCompensator& gc, const Scene& scene)
{
    for (std::int32_t i = 0; i < scene.size(); ++i)
        for (std::int32_t j = i; j < scene.size(); ++j) {
            const auto a = static_cast<std::size_t>(i);
            const auto b = static_cast<std::size_t>(j);
            gain_compensator_init_step(&gc, i, j, scene.corners[a], &*scene.images[a], &*scene.masks[a],
                                       scene.corners[b], &*scene.images[b], &*scene.masks[b]);
        }
}

OwnedMat flat(int width, int height, int channels, int elem_size, int level)
{
    return OwnedMat(width, height, channels, elem_size, level, level, 1);
}

Scene two_flat(int level1, int level2, Point second)
{
    Scene scene;
    scene.add(flat(20, 10, 3, 1, level1), OwnedMask(20, 10, 1.0, 1), {0, 0});
    scene.add(flat(20, 10, 3, 1, level2), OwnedMask(20, 10, 1.0, 2), second);
    return scene;
}

TEST(GainCompensator, BatchEqualsItsTwin)
{
    for (std::uint64_t seed = 0; seed < 60; ++seed) {
        const Scene scene = random_scene(seed);
        const auto tables = reference::measure_all_pairs(scene.corners, scene.mats(), scene.matbs(), false);
        const auto expected = reference::solve_gains(tables, scene.corners.size(), false);
        test::for_each_target(
            [&] { EXPECT_TRUE(test::same_bits(run_batch(scene).gains, expected)) << "seed " << seed; });
    }
}

TEST(GainCompensator, StepsEqualTheirTwin)
{
    for (std::uint64_t seed = 100; seed < 160; ++seed) {
        const Scene scene = random_scene(seed);
        const auto n = scene.corners.size();
        const auto expected = reference::measure_all_pairs(scene.corners, scene.mats(), scene.matbs(), true);
        const auto expected_gains = reference::solve_gains(expected, n, true);
        test::for_each_target([&] {
            GainCompensator gc = {};
            gain_compensator_init_start(&gc, scene.size());
            step_all(gc, scene);
            EXPECT_TRUE(test::same_bits(gc.counts.data, expected.counts.data(), n * n)) << "seed " << seed;
            EXPECT_TRUE(test::same_bits(gc.intensities.data, expected.intensities.data(), n * n)) << "seed " << seed;
            gain_compensator_init_end(&gc);
            EXPECT_TRUE(test::same_bits(gc.gains.data, expected_gains.data(), n)) << "seed " << seed;
            gain_compensator_free(&gc);
        });
    }
}

TEST(GainCompensator, SquaresOfLargeSamplesWrap)
{
    Scene scene;
    scene.add(flat(5, 4, 3, 2, 46341), OwnedMask(5, 4, 1.0, 1), {0, 0});
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 1);
    step_all(gc, scene);
    EXPECT_TRUE(std::isnan(gc.intensities.data[0])); // 46341 squared is negative as a 32-bit integer
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);

    Scene mixed; // 65535 squared wraps to -131071, which the other channel's 400 * 400 outweighs
    OwnedMat image(1, 1, 2, 2);
    image.set(0, 65535);
    image.set(1, 400);
    mixed.add(std::move(image), OwnedMask(1, 1, 1.0, 1), {0, 0});
    gc = {};
    gain_compensator_init_start(&gc, 1);
    step_all(gc, mixed);
    EXPECT_EQ(gc.intensities.data[0], std::sqrt(160000.0 - 131071.0));
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);
}

TEST(GainCompensator, ImagesOfOneGreyLevelGetGainsOfOne)
{
    for (const double gain : run_batch(two_flat(90, 90, {7, 3})).gains)
        EXPECT_NEAR(gain, 1.0, 1e-12);
}

TEST(GainCompensator, TheDarkerImageGetsTheLargerGain)
{
    const auto gains = run_batch(two_flat(80, 100, {5, 0})).gains;
    EXPECT_GT(gains[0], 1.0);
    EXPECT_LT(gains[1], 1.0);
    EXPECT_NEAR(gains[0] * 80, gains[1] * 100, 12.0); // pulled together, not forced
}

TEST(GainCompensator, AnImageWithoutNeighboursGetsAGainOfOne)
{
    const auto gains = run_batch(two_flat(80, 100, {500, 0})).gains;
    EXPECT_NEAR(gains[0], 1.0, 1e-12);
    EXPECT_NEAR(gains[1], 1.0, 1e-12);
}

TEST(GainCompensator, MasksThatDoNotMeetCountAsOnePixelOfIntensityZero)
{
    Scene scene = two_flat(80, 100, {0, 0});
    for (int i = 0; i < 200; ++i) {
        scene.masks[0].get()->data[i] = i % 2 == 0 ? 255 : 0;
        scene.masks[1].get()->data[i] = i % 2 == 0 ? 0 : 255;
    }
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 2);
    step_all(gc, scene);
    EXPECT_EQ(gc.counts.data[1], 1);
    EXPECT_EQ(gc.counts.data[2], 1);
    EXPECT_EQ(gc.intensities.data[1], 0.0);
    EXPECT_EQ(gc.intensities.data[2], 0.0);
    EXPECT_EQ(gc.counts.data[0], 100);
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);
}

TEST(GainCompensator, PrintsOneLineOfGains)
{
    const auto batch = run_batch(two_flat(80, 100, {500, 0}));
    EXPECT_EQ(batch.printed, "1.000000\t1.000000\t\n");
}

TEST(GainCompensator, PrintsEveryGainThenATab)
{
    const auto batch = run_batch(two_flat(80, 100, {5, 0}));
    char expected[64];
    std::snprintf(expected, sizeof expected, "%f\t%f\t\n", batch.gains[0], batch.gains[1]);
    EXPECT_EQ(batch.printed, expected);
}

TEST(GainCompensator, WithoutImagesPrintsAnEmptyLine)
{
    for (const std::int32_t n : {0, -3}) {
        GainCompensator gc = {};
        testing::internal::CaptureStdout();
        gain_compensator_init(&gc, n, nullptr, nullptr, nullptr);
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n");
        EXPECT_EQ(gc.gains.data, nullptr);
        EXPECT_EQ(gc.gains.width, n);
        gain_compensator_free(&gc);
    }
}

TEST(GainCompensator, StepsPrintNothing)
{
    const Scene scene = two_flat(80, 100, {5, 0});
    testing::internal::CaptureStdout();
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 2);
    step_all(gc, scene);
    gain_compensator_init_end(&gc);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    gain_compensator_free(&gc);
}

TEST(GainCompensator, StepsGiveTheGainsOfTheBatchUpToRounding)
{
    for (const std::uint64_t seed : {4u, 8u, 12u, 16u}) { // one format in each scene
        const Scene scene = random_scene(seed);
        const auto batch = run_batch(scene).gains;
        GainCompensator gc = {};
        gain_compensator_init_start(&gc, scene.size());
        step_all(gc, scene);
        gain_compensator_init_end(&gc);
        for (std::size_t i = 0; i < batch.size(); ++i)
            EXPECT_NEAR(gc.gains.data[i], batch[i], 1e-9) << "seed " << seed;
        gain_compensator_free(&gc);
    }
}

TEST(GainCompensator, SwappedArgumentsGiveTheSameEntries)
{
    const Scene scene = random_scene(3);
    ASSERT_GE(scene.size(), 2);
    GainCompensator forward = {};
    GainCompensator backward = {};
    gain_compensator_init_start(&forward, 2);
    gain_compensator_init_start(&backward, 2);
    gain_compensator_init_step(&forward, 0, 1, scene.corners[0], &*scene.images[0], &*scene.masks[0], scene.corners[1],
                               &*scene.images[1], &*scene.masks[1]);
    gain_compensator_init_step(&backward, 1, 0, scene.corners[1], &*scene.images[1], &*scene.masks[1], scene.corners[0],
                               &*scene.images[0], &*scene.masks[0]);
    EXPECT_TRUE(test::same_bits(forward.counts.data, backward.counts.data, 4));
    EXPECT_TRUE(test::same_bits(forward.intensities.data, backward.intensities.data, 4));
    for (auto* gc : {&forward, &backward}) {
        gain_compensator_init_end(gc);
        gain_compensator_free(gc);
    }
}

TEST(GainCompensator, TouchingImagesLeaveTheTablesAlone)
{
    const Scene scene = two_flat(80, 100, {20, 0});
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 2);
    for (int i = 0; i < 4; ++i)
        gc.counts.data[i] = 77;
    gain_compensator_init_step(&gc, 0, 1, scene.corners[0], &*scene.images[0], &*scene.masks[0], scene.corners[1],
                               &*scene.images[1], &*scene.masks[1]);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(gc.counts.data[i], 77);
        EXPECT_EQ(gc.intensities.data[i], 0.0);
    }
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);
}

TEST(GainCompensator, SteppingAgainOverwrites)
{
    const Scene first = two_flat(80, 100, {5, 0});
    const Scene second = two_flat(10, 20, {6, 1});
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 2);
    step_all(gc, first);
    step_all(gc, second);
    const auto expected = reference::measure_all_pairs(second.corners, second.mats(), second.matbs(), true);
    EXPECT_TRUE(test::same_bits(gc.counts.data, expected.counts.data(), 4));
    EXPECT_TRUE(test::same_bits(gc.intensities.data, expected.intensities.data(), 4));
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);
}

TEST(GainCompensator, PairsOfDifferentFormatsAreReadByTheFirstAndNeverOutsideEither)
{
    for (std::uint64_t seed = 0; seed < 60; ++seed) {
        test::Random random(seed);
        Scene scene;
        for (int k = 0; k < 2; ++k) {
            const int elem_size = static_cast<int>(random.integer(1, k == 0 ? 2 : 4));
            const int channels = static_cast<int>(random.integer(1, 4));
            scene.add(OwnedMat(9, 7, channels, elem_size, 0, 255, random.next()), OwnedMask(9, 7, 0.8, random.next()),
                      {k * 3, k * 2});
        }
        const auto expected = reference::measure_pair(scene.corners[0], *scene.images[0], *scene.masks[0],
                                                      scene.corners[1], *scene.images[1], *scene.masks[1], true);
        GainCompensator gc = {};
        gain_compensator_init_start(&gc, 2);
        gain_compensator_init_step(&gc, 0, 1, scene.corners[0], &*scene.images[0], &*scene.masks[0], scene.corners[1],
                                   &*scene.images[1], &*scene.masks[1]);
        EXPECT_EQ(gc.counts.data[1], expected.count) << "seed " << seed;
        EXPECT_TRUE(test::same_bits(&gc.intensities.data[1], &expected.mean_i, 1)) << "seed " << seed;
        EXPECT_TRUE(test::same_bits(&gc.intensities.data[2], &expected.mean_j, 1)) << "seed " << seed;
        gain_compensator_init_end(&gc);
        gain_compensator_free(&gc);
    }
}

TEST(GainCompensator, OtherSampleSizesCountPixelsButSumNothing)
{
    Scene scene;
    scene.add(OwnedMat(5, 4, 1, 4), OwnedMask(5, 4, 1.0, 1), {0, 0});
    GainCompensator gc = {};
    gain_compensator_init_start(&gc, 1);
    step_all(gc, scene);
    EXPECT_EQ(gc.counts.data[0], 20);
    EXPECT_EQ(gc.intensities.data[0], 0.0);
    gain_compensator_init_end(&gc);
    gain_compensator_free(&gc);
}

// One gain, as a host would have after init.
GainCompensator with_gain(double& gain)
{
    GainCompensator gc = {};
    gc.gains = {1, 1, 1, &gain};
    return gc;
}

TEST(GainCompensatorApply, RoundsHalfUpAndClamps)
{
    double gain = 1.3;
    GainCompensator gc = with_gain(gain);
    OwnedMat image(3, 1, 1, 1);
    image.set(0, 200); // 260
    image.set(1, 3);
    image.set(2, 0);
    gain_compensator_apply(&gc, 0, image.get());
    EXPECT_EQ(image.at(0), 255);
    EXPECT_EQ(image.at(1), 4); // 3.9 + 0.5
    gain = 0.5;
    image.set(1, 3);
    gain_compensator_apply(&gc, 0, image.get());
    EXPECT_EQ(image.at(1), 2); // 1.5 + 0.5
    OwnedMat deep(1, 1, 1, 2);
    deep.set(0, 60000);
    gain = 1.2;
    gain_compensator_apply(&gc, 0, deep.get());
    EXPECT_EQ(deep.at(0), 65535);
}

TEST(GainCompensatorApply, GivesBlackWhereTheProductLeavesTheIntegers)
{
    for (double gain : {1e9, -1e9, std::nan(""), HUGE_VAL, -HUGE_VAL}) {
        GainCompensator gc = with_gain(gain);
        for (const int elem_size : {1, 2}) {
            OwnedMat image = flat(19, 1, 1, elem_size, 250);
            gain_compensator_apply(&gc, 0, image.get());
            EXPECT_EQ(image.at(0), 0) << gain;
            EXPECT_EQ(image.at(18), 0) << gain;
        }
    }
}

// 2^31 is the first product that leaves the integers; one sample less stays, and is clamped.
TEST(GainCompensatorApply, GivesBlackFrom2ToThe31On)
{
    test::for_each_target([] {
        double gain_of_words = 0x1p16;
        double gain_of_bytes = 0x1p24;
        const GainCompensator words = with_gain(gain_of_words);
        const GainCompensator bytes = with_gain(gain_of_bytes);
        for (int position = 0; position < 37; ++position) {
            OwnedMat deep = flat(37, 1, 1, 2, 32767);
            OwnedMat shallow = flat(37, 1, 1, 1, 127);
            deep.set(position, 32768);
            shallow.set(position, 128);
            gain_compensator_apply(&words, 0, deep.get());
            gain_compensator_apply(&bytes, 0, shallow.get());
            for (int i = 0; i < 37; ++i) {
                EXPECT_EQ(deep.at(i), i == position ? 0 : 65535);
                EXPECT_EQ(shallow.at(i), i == position ? 0 : 255);
            }
        }
    });
}

// The statistics of a pair may not mistake one buffer at two places for an image and itself.
TEST(GainCompensator, OneBufferAtTwoPlacesCountsAsTwoImages)
{
    for (const int elem_size : {1, 2}) {
        const OwnedMat image(31, 17, 3, elem_size, 0, 255, 5);
        const OwnedMat copy(31, 17, 3, elem_size, 0, 255, 5);
        const OwnedMask mask(31, 17, 1.0, 1);
        const Point corners[] = {{0, 0}, {9, 4}};
        double intensities[2][2];
        for (const bool is_shared : {false, true}) {
            GainCompensator gc = {};
            gain_compensator_init_start(&gc, 2);
            gain_compensator_init_step(&gc, 0, 1, corners[0], &*image, &*mask, corners[1], is_shared ? &*image : &*copy,
                                       &*mask);
            EXPECT_EQ(gc.counts.data[1], 22 * 13);
            intensities[is_shared][0] = gc.intensities.data[1];
            intensities[is_shared][1] = gc.intensities.data[2];
            gain_compensator_init_end(&gc);
            gain_compensator_free(&gc);
        }
        EXPECT_EQ(intensities[1][0], intensities[0][0]);
        EXPECT_EQ(intensities[1][1], intensities[0][1]);
        EXPECT_NE(intensities[1][0], intensities[1][1]);
    }
}

TEST(GainCompensatorApply, EqualsItsTwin)
{
    test::Random random(5);
    for (int width = 0; width < 68; ++width)
        for (const int elem_size : {1, 2, 4}) {
            double gain = width % 5 == 0 ? random.real(-1, 70000) : random.real(0.2, 3.0);
            GainCompensator gc = with_gain(gain);
            const std::uint64_t seed = random.next();
            OwnedMat expected(width, 3, 3, elem_size, 0, 65535, seed);
            reference::apply_gain(*expected.get(), gain);
            test::for_each_target([&] {
                OwnedMat actual(width, 3, 3, elem_size, 0, 65535, seed);
                gain_compensator_apply(&gc, 0, actual.get());
                EXPECT_TRUE(test::same_bits((*actual).data, (*expected).data, static_cast<std::size_t>((*actual).size)))
                    << "width " << width << ", gain " << gain;
            });
        }
}

// Gains that take a level to a half, and the doubles beside them, which single precision cannot tell apart.
TEST(GainCompensatorApply, EqualsItsTwinForBytesThatComeOutNearAHalf)
{
    for (int level = 1; level < 256; level += 2)
        for (const int half : {0, 1, 7, level, 200, 254}) {
            const double at = (half + 0.5) / level;
            for (double gain : {std::nextafter(at, 0.0), at, std::nextafter(at, 1e9), at * (1 + 1e-9)}) {
                GainCompensator gc = with_gain(gain);
                OwnedMat actual(256, 1, 1, 1);
                OwnedMat expected(256, 1, 1, 1);
                for (int i = 0; i < 256; ++i) {
                    actual.set(i, i);
                    expected.set(i, i);
                }
                gain_compensator_apply(&gc, 0, actual.get());
                reference::apply_gain(*expected.get(), gain);
                ASSERT_TRUE(test::same_bits((*actual).data, (*expected).data, 256)) << "gain " << gain;
            }
        }
}

TEST(GainCompensator, WithoutMemoryLeavesTheGainsEmptyAndLeaksNothing)
{
    Scene scene = two_flat(80, 100, {5, 0});
    scene.add(OwnedMat(20, 10, 1, 1, 0, 255, 3), OwnedMask(20, 10, 1.0, 3), {2, 2}); // another format: needs scratch
    const auto mats = scene.mats();
    const auto masks = scene.matbs();
    test::for_each_failing_allocation([&](test::FailingHeap& heap) {
        GainCompensator gc = {};
        testing::internal::CaptureStdout();
        gain_compensator_init(&gc, scene.size(), scene.corners.data(), mats.data(), masks.data());
        std::fflush(stdout);
        const std::string printed = testing::internal::GetCapturedStdout();
        const bool has_failed = heap.has_failed();
        EXPECT_EQ(gc.gains.data == nullptr, has_failed);
        EXPECT_EQ(gc.gains.width, has_failed ? 0 : 3);
        EXPECT_EQ(printed == "\n", has_failed);
        EXPECT_EQ(heap.live_blocks(), has_failed ? 0 : 1);
        if (has_failed) {
            OwnedMat image = flat(2, 2, 1, 1, 100);
            gain_compensator_apply(&gc, 0, image.get()); // leaves the image alone where there are no gains
            EXPECT_EQ(image.at(0), 100);
        }
        gain_compensator_free(&gc);
    });
}

TEST(GainCompensator, StepsWithoutMemoryLeakNothing)
{
    const Scene scene = two_flat(80, 100, {5, 0});
    test::for_each_failing_allocation([&](test::FailingHeap& heap) {
        GainCompensator gc = {};
        gain_compensator_init_start(&gc, 2);
        if (heap.has_failed()) {
            EXPECT_EQ(gc.counts.data, nullptr);
            EXPECT_EQ(gc.intensities.data, nullptr);
            EXPECT_EQ(gc.gains.data, nullptr);
            EXPECT_EQ(heap.live_blocks(), 0);
        }
        step_all(gc, scene);
        gain_compensator_init_end(&gc);
        if (heap.has_failed())
            EXPECT_EQ(gc.gains.data, nullptr);
        else
            EXPECT_NE(gc.gains.data, nullptr);
        gain_compensator_free(&gc);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
