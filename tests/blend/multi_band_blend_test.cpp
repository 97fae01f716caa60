// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/blend/multi_band_pictures.h"
#include "tests/support/failing_heap.h"
#include "tests/support/targets.h"

#include <algorithm>
#include <cstring>

namespace panoval::test
{
namespace
{

TEST(MultiBandBlend, ReproducesASingleImageThatCoversTheCanvas)
{
    for (const int bands : {1, 3, 5}) {
        Pair pair(bands, 3, {0, 0, 90, 70});
        const auto channel = picture(Content::Photograph, 270, 70, 5);
        Picture image(90, 70, 3, 1, Cover::Full, 6);
        std::copy(channel.begin(), channel.end(), image.samples.data());
        pair.feed(image, {0, 0});
        ASSERT_TRUE(pair.same_panorama(1));
        for (std::size_t i = 0; i < channel.size(); ++i)
            ASSERT_NEAR(pair.out.data[i], channel[i], 1 + bands) << bands << " bands";
    }
}

// A canvas of one band whose finest level holds the given sums with weight 1; the coarser one is 0.
struct Sums {
    explicit Sums(const std::vector<float>& sums)
    {
        Roi roi{0, 0, static_cast<int>(sums.size()), 2};
        multi_band_blender_setbands(&blender, 1);
        multi_band_blender_prepare(&blender, 1, &roi);
        for (std::size_t i = 0; i < sums.size(); ++i) {
            blender.dstPyrLaplace[0].data[i] = sums[i];
            blender.dstBandWeights[0].data[i] = 1.0f;
        }
    }
    ~Sums() { MatDestroy(&out); }
    MultiBandBlender blender{};
    Mat out{};
};

TEST(MultiBandBlend, ClampsTo8Bit)
{
    for_each_target([] {
        Sums sums({-40.0f, -1.0f, 0.0f, 100.0f, 254.0f, 255.0f, 256.0f, 4e9f});
        multi_band_blender_blend(&sums.blender, &sums.out, 1);
        EXPECT_EQ(std::vector<std::uint8_t>(sums.out.data, sums.out.data + 8),
                  (std::vector<std::uint8_t>{0, 0, 0, 100, 254, 255, 255, 255}));
    });
}

TEST(MultiBandBlend, ClampsTo16Bit)
{
    for_each_target([] {
        Sums sums({-40.0f, 0.0f, 300.0f, 65534.0f, 65537.0f, 4e9f});
        multi_band_blender_blend(&sums.blender, &sums.out, 2);
        std::uint16_t values[6];
        std::memcpy(values, sums.out.data, sizeof values);
        // the epsilon costs a large sample one
        EXPECT_EQ(std::vector<std::uint16_t>(values, values + 6),
                  (std::vector<std::uint16_t>{0, 0, 300, 65533, 65535, 65535}));
    });
}

TEST(MultiBandBlend, FloorsWhatTheExpandedBandAdds)
{
    Sums sums({10.0f, 10.0f, 10.0f, 10.0f});
    sums.blender.dstPyrLaplace[1].data[0] = 3.0f; // expands to 3 * 7/8 * ... along the row
    sums.blender.dstBandWeights[1].data[0] = 1.0f;
    multi_band_blender_blend(&sums.blender, &sums.out, 1);
    // row 0: 10 + 3 * (6, 4, 1, 0) / 8
    EXPECT_EQ(std::vector<std::uint8_t>(sums.out.data, sums.out.data + 4), (std::vector<std::uint8_t>{12, 11, 10, 10}));
}

TEST(MultiBandBlend, LeavesOtherSampleSizesZero)
{
    Sums sums({10.0f, 20.0f});
    multi_band_blender_blend(&sums.blender, &sums.out, 4);
    EXPECT_EQ(sums.out.size, 16);
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(sums.out.data[i], 0);
}

TEST(MultiBandBlend, GivesZerosWithoutAnImage)
{
    Pair pair(3, 3, kCanvas);
    ASSERT_TRUE(pair.same_panorama(1));
    for (int i = 0; i < pair.out.size; ++i)
        ASSERT_EQ(pair.out.data[i], 0);
}

TEST(MultiBandBlend, SpreadsColourBeyondTheCoveredPixels)
{
    Pair pair(4, 1, {0, 0, 64, 16});
    Picture picture(64, 16, 1, 1, Cover::LeftHalf, 17);
    std::fill_n(picture.samples.data(), picture.samples.size(), std::uint8_t{200});
    pair.feed(picture, {0, 0});
    ASSERT_TRUE(pair.same_panorama(1));
    EXPECT_GT(pair.out.data[8 * 64 + 40], 0);
}

TEST(MultiBandBlend, ReleasesEverythingWithoutAnOutput)
{
    const Picture picture(60, 45, 3, 1, Cover::Grey, 31);
    FailingHeap heap;
    Roi roi{0, 0, 64, 64};
    MultiBandBlender blender{};
    multi_band_blender_setbands(&blender, 4);
    multi_band_blender_prepare(&blender, 3, &roi);
    multi_band_blender_feed(&blender, &picture.img, &picture.mask, {1, 2});
    Matf* const laplace = blender.dstPyrLaplace;
    Matf* const weights = blender.dstBandWeights;
    multi_band_blender_blend(&blender, nullptr, 1);
    EXPECT_EQ(heap.live_blocks(), 0);
    EXPECT_EQ(blender.dstPyrLaplace, laplace);
    EXPECT_EQ(blender.dstBandWeights, weights);
}

TEST(MultiBandBlend, LeaksNothingWhenARecordIsUsedTwice)
{
    const Picture picture(60, 45, 3, 2, Cover::Grey, 32);
    FailingHeap heap;
    MultiBandBlender blender{};
    Mat out{};
    std::vector<std::uint8_t> results[2];
    multi_band_blender_setbands(&blender, 4);
    for (auto& result : results) {
        Roi roi{0, 0, 64, 64};
        multi_band_blender_prepare(&blender, 3, &roi);
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, {1, 2});
        multi_band_blender_blend(&blender, &out, 2);
        result.assign(out.data, out.data + out.size);
        EXPECT_EQ(heap.live_blocks(), 1); // the output's
    }
    EXPECT_EQ(results[0], results[1]);
    MatDestroy(&out);
}

TEST(MultiBandBlend, GivesAnEmptyImageWithoutMemory)
{
    const Picture picture(60, 45, 3, 1, Cover::Grey, 33);
    for_each_failing_allocation([&](FailingHeap& heap) {
        Roi roi{0, 0, 64, 64};
        MultiBandBlender blender{};
        Mat out{};
        multi_band_blender_setbands(&blender, 4);
        multi_band_blender_prepare(&blender, 3, &roi);
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, {1, 2});
        const bool is_fed = !heap.has_failed();
        multi_band_blender_blend(&blender, &out, 1);
        if (is_fed && heap.has_failed()) {
            EXPECT_EQ(out.width, 0);
            EXPECT_EQ(out.height, 0);
            EXPECT_EQ(out.size, 0);
        }
        MatDestroy(&out);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

TEST(MultiBandBlend, TakesOverWhateverTheOutputHolds)
{
    const Picture picture(50, 40, 3, 1, Cover::Holes, 34);
    for (const int held : {0, 10, 5999, 6000, 20000}) { // bytes; the panorama has 6000
        Pair pair(3, 3, {0, 0, 50, 40});
        MatReset(&pair.out, held, 1, 1, 1);
        if (held > 0)
            std::memset(pair.out.data, 0xA5, static_cast<std::size_t>(held));
        const std::uint8_t* const block = pair.out.data;
        pair.feed(picture, {0, 0});
        ASSERT_TRUE(pair.same_panorama(1)) << held;
        EXPECT_EQ(pair.out.width, 50);
        EXPECT_EQ(pair.out.height, 40);
        EXPECT_EQ(pair.out.channels, 3);
        EXPECT_EQ(pair.out.elemSize, 1);
        EXPECT_EQ(pair.out.capacity, std::max(held, 6000));
        EXPECT_TRUE(held < 6000 || pair.out.data == block);
        EXPECT_TRUE(held <= 6000 || pair.out.data[6000] == 0xA5);
    }
}

TEST(MultiBandBlend, LetsGoOfTheCoarserLevelsBeforeItWrites)
{
    Roi roi{0, 0, 512, 512};
    MultiBandBlender blender{};
    Mat out{};
    FailingHeap heap;
    multi_band_blender_setbands(&blender, 5);
    multi_band_blender_prepare(&blender, 3, &roi);
    multi_band_blender_blend(&blender, &out, 1);
    // 16 bytes a pixel for the finest level, 3 for the bands of the next and 3 for the output
    const std::size_t ring_of_rows = 3 * 512 * 3 * sizeof(float);
    EXPECT_LE(heap.peak_bytes(), 22 * area(512, 512) + ring_of_rows + 2 * 6 * sizeof(Matf));
    MatDestroy(&out);
}

TEST(MultiBandBlend, GivesAnEmptyImageWhereTheOutputLeaves32Bits)
{
    Pair pair(1, 3, {0, 0, 8, 8});
    pair.blender.dstRoiFinal = {0, 0, 1 << 15, 1 << 14}; // 3 * 2^29 samples of two bytes
    multi_band_blender_blend(&pair.blender, &pair.out, 2);
    pair.blended = true;
    EXPECT_EQ(pair.out.width, 0);
    EXPECT_EQ(pair.out.height, 0);
    EXPECT_EQ(pair.out.size, 0);
}

} // namespace
} // namespace panoval::test
