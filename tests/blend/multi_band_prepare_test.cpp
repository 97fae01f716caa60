// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/blend/multi_band_pictures.h"
#include "tests/support/failing_heap.h"

#include <cstring>
#include <limits>

namespace panoval::test
{
namespace
{

TEST(MultiBandPrepare, PadsTheCanvasAndTellsTheCaller)
{
    MultiBandBlender blender{};
    Roi roi{-7, 12, 1000, 600};
    multi_band_blender_setbands(&blender, 5);
    multi_band_blender_prepare(&blender, 3, &roi);
    EXPECT_EQ(blender.numBands, 5);
    for (const Roi& padded : {roi, blender.dstRoi}) {
        EXPECT_EQ(padded.x, -7);
        EXPECT_EQ(padded.y, 12);
        EXPECT_EQ(padded.width, 1024);
        EXPECT_EQ(padded.height, 608);
    }
    EXPECT_EQ(blender.dstRoiFinal.x, -7);
    EXPECT_EQ(blender.dstRoiFinal.width, 1000);
    EXPECT_EQ(blender.dstRoiFinal.height, 600);

    Mat out{};
    multi_band_blender_blend(&blender, &out, 1);
    EXPECT_EQ(out.width, 1000);
    EXPECT_EQ(out.height, 600);
    EXPECT_EQ(out.channels, 3);
    MatDestroy(&out);
}

TEST(MultiBandPrepare, TakesAnyNumberOfBandsToBeginWithAndChangesNothingElse)
{
    for (const int bands : {5, 0, -7, std::numeric_limits<int>::max()}) {
        MultiBandBlender blender;
        std::memset(&blender, 0x5B, sizeof blender);
        MultiBandBlender expected = blender;
        expected.requestedBands = bands;
        multi_band_blender_setbands(&blender, bands);
        EXPECT_EQ(std::memcmp(&blender, &expected, sizeof blender), 0) << bands;
    }
}

TEST(MultiBandPrepare, UsesNoMoreBandsThanTheLargerSideAllows)
{
    const auto bands = [](int requested, int width, int height) {
        MultiBandBlender blender{};
        Roi roi{0, 0, width, height};
        multi_band_blender_setbands(&blender, requested);
        multi_band_blender_prepare(&blender, 1, &roi);
        const int used = blender.numBands;
        EXPECT_EQ(roi.width % (1 << used), 0);
        EXPECT_EQ(roi.height % (1 << used), 0);
        multi_band_blender_blend(&blender, nullptr, 1);
        return used;
    };
    EXPECT_EQ(bands(20, 100, 50), 7);
    EXPECT_EQ(bands(20, 50, 100), 7);
    EXPECT_EQ(bands(20, 128, 1), 7);
    EXPECT_EQ(bands(20, 129, 1), 8);
    EXPECT_EQ(bands(3, 100, 50), 3);
    EXPECT_EQ(bands(20, 2, 2), 1);
}

TEST(MultiBandPrepare, PadsToTheBandsInUse)
{
    MultiBandBlender blender{};
    Roi roi{0, 0, 100, 50};
    multi_band_blender_setbands(&blender, 20);
    multi_band_blender_prepare(&blender, 1, &roi);
    EXPECT_EQ(roi.width, 128);
    EXPECT_EQ(roi.height, 128);
    multi_band_blender_blend(&blender, nullptr, 1);
}

TEST(MultiBandPrepare, UsesOneBandAtLeast)
{
    for (const int requested : {1, 0, -5})
        for (const int size : {1, 9}) {
            MultiBandBlender blender{};
            Roi roi{0, 0, size, size};
            multi_band_blender_setbands(&blender, requested);
            EXPECT_EQ(blender.requestedBands, requested);
            multi_band_blender_prepare(&blender, 1, &roi);
            EXPECT_EQ(blender.numBands, 1);
            EXPECT_EQ(roi.width, size + 1);
            multi_band_blender_blend(&blender, nullptr, 1);
        }
}

TEST(MultiBandPrepare, OpensZeroLevelsOfHalvedSize)
{
    MultiBandBlender blender{};
    Roi roi{0, 0, 20, 9};
    multi_band_blender_setbands(&blender, 2);
    multi_band_blender_prepare(&blender, 3, &roi);
    const Size sizes[] = {{20, 12}, {10, 6}, {5, 3}};
    for (int i = 0; i <= 2; ++i) {
        const Matf& bands = blender.dstPyrLaplace[i];
        const Matf& weights = blender.dstBandWeights[i];
        EXPECT_EQ(bands.width, sizes[i].width);
        EXPECT_EQ(bands.height, sizes[i].height);
        EXPECT_EQ(bands.channels, 3);
        EXPECT_EQ(weights.width, sizes[i].width);
        EXPECT_EQ(weights.height, sizes[i].height);
        EXPECT_EQ(weights.channels, 1);
        const std::vector<float> zeros(area(bands.width, bands.height, 3));
        EXPECT_TRUE(same_bits(bands.data, zeros.data(), zeros.size()));
        EXPECT_TRUE(same_bits(weights.data, zeros.data(), zeros.size() / 3));
    }
    multi_band_blender_blend(&blender, nullptr, 1);
}

TEST(MultiBandPrepare, FreesNothingThatItFinds)
{
    MultiBandBlender first{};
    Roi roi{0, 0, 16, 16};
    multi_band_blender_setbands(&first, 2);
    multi_band_blender_prepare(&first, 1, &roi);
    MultiBandBlender second = first;
    {
        FailingHeap heap;
        multi_band_blender_prepare(&second, 1, &roi);
        EXPECT_EQ(heap.live_blocks(), static_cast<std::ptrdiff_t>(heap.allocations()));
        multi_band_blender_blend(&second, nullptr, 1);
        EXPECT_EQ(heap.live_blocks(), 0);
    }
    multi_band_blender_blend(&first, nullptr, 1);
}

void expect_empty_but_usable(MultiBandBlender& blender)
{
    EXPECT_EQ(blender.dstPyrLaplace, nullptr);
    EXPECT_EQ(blender.dstBandWeights, nullptr);
    EXPECT_EQ(blender.numBands, 0);
    EXPECT_EQ(blender.dstRoi.width, 0);
    EXPECT_EQ(blender.dstRoiFinal.width, 0);
    const Picture picture(4, 4, 3, 1, Cover::Full, 1);
    multi_band_blender_feed(&blender, &picture.img, &picture.mask, {0, 0});
    Mat out{};
    MatReset(&out, 5, 5, 1, 1);
    multi_band_blender_blend(&blender, &out, 1);
    EXPECT_EQ(out.width, 0);
    EXPECT_EQ(out.height, 0);
    EXPECT_EQ(out.size, 0);
    multi_band_blender_blend(&blender, nullptr, 1);
    MatDestroy(&out);
}

TEST(MultiBandPrepare, LeavesTheRecordEmptyWhereSizesLeave32Bits)
{
    constexpr int kMost = std::numeric_limits<int>::max();
    struct {
        Roi roi;
        int bands;
        int channels;
    } const cases[] = {
        {{0, 0, kMost, 1}, 1, 1},         // padding to 2^31
        {{0, 0, kMost, kMost}, 31, 3},    // a unit of 2^31
        {{0, 0, 1 << 30, 1}, 30, 1},      // padding of the height to 2^30
        {{0, 0, 1 << 16, 1 << 15}, 5, 1}, // 2^31 pixels
        {{0, 0, 1 << 15, 1 << 15}, 5, 3}, // 3 * 2^30 samples
        {{0, 0, 32770, 2}, 1, 1 << 18},   // 2^34 + 2^20 samples, 2^32 + 2^18 above
        {{0, 0, 8, 8}, 2, kMost},         //
        {{0, 0, 8, 8}, 2, -1},            //
        {{0, 0, -40, -40}, 2, 1},         //
    };
    for (const auto& c : cases) {
        MultiBandBlender blender{};
        blender.dstPyrLaplace = reinterpret_cast<Matf*>(8); // what an earlier use left
        Roi roi = c.roi;
        multi_band_blender_setbands(&blender, c.bands);
        multi_band_blender_prepare(&blender, c.channels, &roi);
        EXPECT_EQ(blender.requestedBands, c.bands);
        expect_empty_but_usable(blender);
    }
}

TEST(MultiBandPrepare, TakesACanvasWithoutPixels)
{
    for (const Roi& canvas : {Roi{0, 0, 0, 0}, Roi{3, 4, 0, 600}, Roi{3, 4, 600, 0}}) {
        MultiBandBlender blender{};
        Roi roi = canvas;
        multi_band_blender_setbands(&blender, 5);
        multi_band_blender_prepare(&blender, 3, &roi);
        const Picture picture(4, 4, 3, 1, Cover::Full, 1);
        multi_band_blender_feed(&blender, &picture.img, &picture.mask, {3, 4});
        Mat out{};
        multi_band_blender_blend(&blender, &out, 1);
        EXPECT_EQ(out.width, canvas.width);
        EXPECT_EQ(out.height, canvas.height);
        EXPECT_EQ(out.size, 0);
        MatDestroy(&out);
    }
}

TEST(MultiBandPrepare, LeavesTheRecordEmptyWithoutMemory)
{
    for_each_failing_allocation([](FailingHeap& heap) {
        MultiBandBlender blender{};
        Roi roi{0, 0, 30, 20};
        multi_band_blender_setbands(&blender, 3);
        multi_band_blender_prepare(&blender, 3, &roi);
        if (heap.has_failed()) {
            EXPECT_EQ(blender.dstPyrLaplace, nullptr);
            EXPECT_EQ(blender.dstBandWeights, nullptr);
            EXPECT_EQ(heap.live_blocks(), 0);
        }
        multi_band_blender_blend(&blender, nullptr, 1);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
} // namespace panoval::test
