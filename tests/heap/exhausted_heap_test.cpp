// SPDX-License-Identifier: MIT
// Whole calling orders with a heap that gives out: once at any one allocation, and once for good from any one on.
// libmath's code is part of this program, so that its allocations fail, too. Nothing crashes, nothing leaks, and the
// outcome is the complete one or the documented empty one.
#include "panoval.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/pictures.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

namespace
{

using panoval::test::Content;
using panoval::test::FailingHeap;
using panoval::test::for_each_exhaustion;
using panoval::test::picture;

// Images of a row with full masks, made before the heap gives out.
struct Images {
    std::vector<Point> corners;
    std::vector<std::vector<std::uint8_t>> samples;
    std::vector<std::vector<std::uint8_t>> covered;
    std::vector<Mat> mats;
    std::vector<Matb> masks;

    explicit Images(int n)
    {
        for (int i = 0; i < n; ++i) {
            corners.push_back({9 * i, i % 3});
            samples.push_back(picture(Content::Noise, 20, 14, static_cast<std::uint64_t>(i)));
            covered.emplace_back(20 * 14, 255);
        }
        for (std::size_t i = 0; i < samples.size(); ++i) {
            mats.push_back({20, 14, 1, 1, 280, 280, samples[i].data()});
            masks.push_back({20, 14, 1, covered[i].data()});
        }
    }

    int count() const { return static_cast<int>(corners.size()); }
};

// The gains, or nothing where they are empty; frees them.
std::vector<double> take_gains(GainCompensator& compensator)
{
    const double* const data = compensator.gains.data;
    std::vector<double> gains;
    if (data != nullptr)
        gains.assign(data, data + compensator.gains.width);
    else
        EXPECT_EQ(compensator.gains.width, 0);
    gain_compensator_free(&compensator);
    return gains;
}

std::vector<double> gains_at_once(const Images& images)
{
    GainCompensator compensator = {};
    gain_compensator_init(&compensator, images.count(), images.corners.data(), images.mats.data(), images.masks.data());
    return take_gains(compensator);
}

std::vector<double> gains_pair_by_pair(const Images& images)
{
    GainCompensator compensator = {};
    gain_compensator_init_start(&compensator, images.count());
    for (int i = 0; i < images.count(); ++i)
        for (int j = i; j < images.count(); ++j) {
            const auto a = static_cast<std::size_t>(i);
            const auto b = static_cast<std::size_t>(j);
            gain_compensator_init_step(&compensator, i, j, images.corners[a], &images.mats[a], &images.masks[a],
                                       images.corners[b], &images.mats[b], &images.masks[b]);
        }
    gain_compensator_init_end(&compensator);
    return take_gains(compensator);
}

// Small systems need no heap inside libmath, those of more than eight images do.
template <class Gains>
void expect_gains_or_none(const Gains& gains_of)
{
    for (const int n : {3, 12}) {
        const Images images(n);
        const auto complete = gains_of(images);
        ASSERT_EQ(complete.size(), static_cast<std::size_t>(n));
        for_each_exhaustion([&](const FailingHeap& heap) {
            const auto gains = gains_of(images);
            EXPECT_TRUE(gains == complete || (gains.empty() && heap.has_failed()));
        });
    }
}

TEST(ExhaustedHeap, GainsAtOnceAreCompleteOrEmpty)
{
    testing::internal::CaptureStdout(); // the gains are printed
    expect_gains_or_none(gains_at_once);
    (void)testing::internal::GetCapturedStdout();
}

TEST(ExhaustedHeap, GainsPairByPairAreCompleteOrEmpty)
{
    expect_gains_or_none(gains_pair_by_pair);
}

// A panorama's samples, or nothing; frees it.
std::vector<std::uint8_t> take_samples(Mat& image)
{
    std::vector<std::uint8_t> samples;
    if (image.data != nullptr)
        samples.assign(image.data, image.data + image.size);
    MatDestroy(&image);
    return samples;
}

std::vector<std::uint8_t> feathered(const Images& images)
{
    const Roi canvas = {0, 0, 9 * images.count() + 11, 16};
    FeatherBlender blender = {};
    feather_blender_prepare(&blender, 1, &canvas);
    for (std::size_t i = 0; i < images.mats.size(); ++i)
        feather_blender_feed(&blender, &images.mats[i], &images.masks[i], images.corners[i]);
    Mat panorama;
    MatInit(&panorama);
    feather_blender_blend(&blender, &panorama, 1);
    return take_samples(panorama);
}

std::vector<std::uint8_t> banded(const Images& images)
{
    Roi canvas = {0, 0, 9 * images.count() + 11, 16};
    MultiBandBlender blender = {};
    multi_band_blender_setbands(&blender, 3);
    multi_band_blender_prepare(&blender, 1, &canvas);
    for (std::size_t i = 0; i < images.mats.size(); ++i)
        multi_band_blender_feed(&blender, &images.mats[i], &images.masks[i], images.corners[i]);
    Mat panorama;
    MatInit(&panorama);
    multi_band_blender_blend(&blender, &panorama, 1);
    return take_samples(panorama);
}

// An image that found no memory is missing from the panorama, whose size stays.
template <class Panorama>
void expect_panorama_or_none(const Panorama& panorama_of)
{
    const Images images(3);
    const auto complete = panorama_of(images);
    for_each_exhaustion([&](const FailingHeap& heap) {
        const auto panorama = panorama_of(images);
        EXPECT_TRUE(panorama == complete ||
                    (heap.has_failed() && (panorama.empty() || panorama.size() == complete.size())));
    });
}

TEST(ExhaustedHeap, AFeatheredPanoramaHasItsSizeOrNone)
{
    expect_panorama_or_none(feathered);
}

TEST(ExhaustedHeap, ABandedPanoramaHasItsSizeOrNone)
{
    expect_panorama_or_none(banded);
}

TEST(ExhaustedHeap, InpaintingIsCompleteOrLeavesTheImage)
{
    const auto samples = picture(Content::Noise, 30 * 3, 24, 1);
    std::vector<std::uint8_t> marks(30 * 24, 0);
    for (std::size_t y = 8; y < 15; ++y)
        std::fill_n(marks.begin() + static_cast<std::ptrdiff_t>(y * 30 + 9), 6, std::uint8_t{255});
    const auto repaired = [&] {
        auto image = samples;
        auto mask = marks;
        Mat mat = {30, 24, 3, 1, 30 * 24 * 3, 30 * 24 * 3, image.data()};
        Mat mask_mat = {30, 24, 1, 1, 30 * 24, 30 * 24, mask.data()};
        inpaint(&mat, &mask_mat, 4);
        return image;
    };
    const auto complete = repaired();
    ASSERT_NE(complete, samples);
    for_each_exhaustion([&](const FailingHeap& heap) {
        const auto image = repaired();
        EXPECT_TRUE(image == complete || (image == samples && heap.has_failed()));
    });
}

// A dark disc on a light ground, and a bright spot on the ring around it.
std::vector<std::uint8_t> disc()
{
    std::vector<std::uint8_t> image(80 * 80, 200);
    for (int y = 0; y < 80; ++y)
        for (int x = 0; x < 80; ++x) {
            auto& value = image[static_cast<std::size_t>(80 * y + x)];
            if ((x - 40) * (x - 40) + 2 * (y - 40) * (y - 40) < 150)
                value = 20;
            if ((x - 64) * (x - 64) + (y - 40) * (y - 40) < 40)
                value = 255;
        }
    return image;
}

TEST(ExhaustedHeap, FoundEllipsesAreCompleteOrNone)
{
    const auto image = disc();
    const auto found = [&] {
        EllipseRegion* regions = nullptr;
        const int count = find_ellipse(image.data(), 80, 80, &regions, 10, 1000, 2);
        std::vector<double> records;
        for (int i = 0; i < count; ++i) {
            records.insert(records.end(), {regions[i].cx, regions[i].cy, regions[i].major, regions[i].minor,
                                           static_cast<double>(regions[i].point_count)});
            std::free(regions[i].points);
        }
        std::free(regions);
        return records;
    };
    const auto complete = found();
    ASSERT_FALSE(complete.empty());
    for_each_exhaustion([&](const FailingHeap& heap) {
        const auto records = found();
        EXPECT_TRUE(records == complete || (records.empty() && heap.has_failed()));
    });
}

TEST(ExhaustedHeap, FoundFeaturesAreCompleteOrNone)
{
    const double ellipse[] = {40, 40, 24, 17, 0};
    const auto found = [&] {
        auto image = disc();
        EllipseRegion* regions = nullptr;
        const std::uint32_t count = find_small_ellipse(image.data(), 80, 80, ellipse, &regions);
        std::vector<double> records;
        for (std::uint32_t i = 0; i < count; ++i)
            records.insert(records.end(), {regions[i].cx, regions[i].cy, regions[i].major});
        std::free(regions);
        return records;
    };
    const auto complete = found();
    for_each_exhaustion([&](const FailingHeap& heap) {
        const auto records = found();
        EXPECT_TRUE(records == complete || (records.empty() && heap.has_failed()));
    });
}

TEST(ExhaustedHeap, AFitIsCompleteOrRefused)
{
    const std::vector<double> points = {10, 0, 0, 6, -10, 0, 0, -6, 6, 4.8, -6, 4.8, 6, -4.8, -6, -4.8};
    for_each_exhaustion([&](const FailingHeap& heap) {
        OvalFit fit = {};
        fit.x0 = 77;
        const std::int32_t result = oval_fit(8, points.data(), &fit);
        EXPECT_EQ(result, heap.has_failed() ? 0 : 1);
        EXPECT_EQ(fit.x0 == 77, heap.has_failed());
    });
}

TEST(ExhaustedHeap, PartsOfImagesAndMasksAreCompleteOrEmpty)
{
    const Images images(1);
    const Roi roi = {-3, 2, 9, 7};
    for_each_exhaustion([&](const FailingHeap& heap) {
        Mat part;
        MatInit(&part);
        get_sub_image(&images.mats[0], &roi, &part);
        Matb part_of_mask = {};
        get_sub_mask(&images.masks[0], &roi, &part_of_mask);
        Matb both = {};
        (void)get_mask_intersect(&images.masks[0], &images.masks[0], &both);
        Matf scratch = {};
        Matf distance = {};
        MatfReset(&distance, 20, 14, 1);
        constexpr float kMetrics[] = {1.f, 1.4f};
        if (distance.data != nullptr)
            distanceTransform_3x3(&images.masks[0], &scratch, &distance, kMetrics);
        EXPECT_TRUE(heap.has_failed() || (part.data && part_of_mask.data && both.data && scratch.data));
        EXPECT_EQ(part.data == nullptr, part.width == 0);
        EXPECT_EQ(part_of_mask.data == nullptr, part_of_mask.width == 0);
        EXPECT_EQ(both.data == nullptr, both.width == 0);
        MatDestroy(&part);
        for (void* const block : {static_cast<void*>(part_of_mask.data), static_cast<void*>(both.data),
                                  static_cast<void*>(scratch.data), static_cast<void*>(distance.data)})
            std::free(block);
    });
}

} // namespace
