// SPDX-License-Identifier: MIT
// Panoramas without channels, of records without a canvas, and of more bytes than a size can tell.
#include "panoval.h"

#include <gtest/gtest.h>

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
