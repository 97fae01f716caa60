// SPDX-License-Identifier: MIT
// Panoramas without channels, of records without a canvas, and of more bytes than a size can tell.
#include "panoval.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace
{

void expect_fields(const Mat& m, const std::vector<std::int32_t>& expected)
{
    EXPECT_EQ((std::vector<std::int32_t>{m.width, m.height, m.channels, m.elemSize, m.size}), expected);
}

TEST(MultiBandLimits, ACanvasWithoutChannelsHasItsSize)
{
    MultiBandBlender blender{};
    Roi roi{0, 0, 20, 10};
    multi_band_blender_setbands(&blender, 2);
    multi_band_blender_prepare(&blender, 0, &roi);
    EXPECT_EQ(blender.numBands, 2);
    EXPECT_EQ(blender.dstRoiFinal.width, 20);
    Mat out{};
    multi_band_blender_blend(&blender, &out, 1);
    expect_fields(out, {20, 10, 0, 1, 0});
    MatDestroy(&out);
}

TEST(MultiBandLimits, ACanvasWithoutChannelsTakesNothingOfAnImage)
{
    MultiBandBlender blender{};
    Roi roi{0, 0, 20, 10};
    multi_band_blender_setbands(&blender, 2);
    multi_band_blender_prepare(&blender, 0, &roi);
    Mat image{};
    MatReset(&image, 20, 10, 3, 1);
    Matb mask{};
    MatbReset(&mask, 20, 10, 1);
    std::fill_n(mask.data, 200, std::uint8_t{255});
    multi_band_blender_feed(&blender, &image, &mask, {0, 0});
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(blender.dstBandWeights[0].data[i], 0.0f);
    Mat out{};
    multi_band_blender_blend(&blender, &out, 1);
    expect_fields(out, {20, 10, 0, 1, 0});
    MatDestroy(&out);
    MatDestroy(&image);
    std::free(mask.data);
}

TEST(MultiBandLimits, ACanvasTooHighOrTooWideToBeRoundedUpIsNone)
{
    constexpr std::int32_t kMost = 2147483647;
    for (Roi roi : {Roi{0, 0, 10, kMost}, Roi{0, 0, kMost, 10}}) {
        MultiBandBlender blender{};
        multi_band_blender_setbands(&blender, 2);
        multi_band_blender_prepare(&blender, 1, &roi);
        EXPECT_EQ(blender.numBands, 0);
        EXPECT_EQ(blender.dstPyrLaplace, nullptr);
    }
}

TEST(MultiBandLimits, ACanvasOfNegativeChannelsIsNone)
{
    MultiBandBlender blender{};
    Roi roi{0, 0, 20, 10};
    multi_band_blender_setbands(&blender, 2);
    multi_band_blender_prepare(&blender, -1, &roi);
    EXPECT_EQ(blender.numBands, 0);
    EXPECT_EQ(blender.dstPyrLaplace, nullptr);
}

TEST(MultiBandLimits, ARecordWithoutACanvasGivesAPanoramaOfAllZeros)
{
    MultiBandBlender blender{};
    Mat out{};
    MatReset(&out, 5, 4, 3, 2);
    multi_band_blender_blend(&blender, &out, 2);
    expect_fields(out, {0, 0, 0, 0, 0});
    MatDestroy(&out);
}

// The sums are not looked at where the panorama cannot be had, so that a record may name more than it has.
TEST(FeatherLimits, APanoramaOfMoreBytesThanASizeCanTellIsEmpty)
{
    FeatherBlender blender{};
    blender.dst = {32768, 32768, 1, static_cast<float*>(std::calloc(1, sizeof(float)))};
    blender.dstWeightMap = {32768, 32768, 1, static_cast<float*>(std::calloc(1, sizeof(float)))};
    blender.dstRoi = {0, 0, 32768, 32768};
    Mat out{};
    MatReset(&out, 5, 4, 3, 2);
    feather_blender_blend(&blender, &out, 2);
    expect_fields(out, {0, 0, 0, 0, 0});
    EXPECT_EQ(out.data, nullptr);
}

} // namespace
