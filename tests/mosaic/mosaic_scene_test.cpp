// SPDX-License-Identifier: MIT
// The scenes that the engine's tests are made of are what they say.
#include "tests/mosaic/mosaic_scene.h"

#include <gtest/gtest.h>

namespace panoval::mosaic::test
{

namespace
{

TEST(MosaicScene, HasTheMeanAskedForAndIsTheSameForASeed)
{
    const Scene scene = make_scene(400, 300, {.channels = 3, .mean = 0.3, .seed = 5});
    double sum = 0;
    for (const float value : scene.light)
        sum += value;
    EXPECT_NEAR(sum / static_cast<double>(scene.light.size()), 0.3, 0.04);
    EXPECT_EQ(scene.light, make_scene(400, 300, {.channels = 3, .mean = 0.3, .seed = 5}).light);
}

TEST(MosaicScene, TwoPicturesOfItAreEqualWhereTheyMeet)
{
    const Scene scene = make_scene(300, 100, {.channels = 1});
    const MemoryPicture left = take_picture(scene, {.rect = {0, 0, 120, 100}, .bits = 16});
    const MemoryPicture right = take_picture(scene, {.rect = {90, 0, 120, 100}, .bits = 16});
    for (std::int64_t y = 0; y < 100; ++y)
        for (std::int64_t x = 90; x < 120; ++x)
            ASSERT_EQ(left.at(x, y), right.at(x - 90, y)) << x << "," << y;
}

TEST(MosaicScene, TheCamerasFaultsAreInTheSamples)
{
    Scene scene{32, 32, 1, {}};
    scene.light.assign(32 * 32, 0.5f);
    const Rect rect{0, 0, 32, 32};
    EXPECT_EQ(take_picture(scene, {.rect = rect}).at(3, 3), 128) << "127.5 rounds up";
    EXPECT_EQ(take_picture(scene, {.rect = rect, .gain = 0.5}).at(3, 3), 64);
    EXPECT_EQ(take_picture(scene, {.rect = rect, .white = {1.2, 1, 1, 1}}).at(3, 3), 153);
    EXPECT_EQ(take_picture(scene, {.rect = rect, .falloff = {{-0.3, 0, 0}}}).at(0, 0), 89);
    EXPECT_EQ(take_picture(scene, {.rect = rect, .gamma = 2}).at(3, 3), 64);
    EXPECT_EQ(take_picture(scene, {.rect = rect, .things = {{{4, 4, 8, 8}, 1.0}}}).at(4, 4), 255);
    EXPECT_EQ(take_picture(scene, {.rect = rect, .gain = 3}).at(3, 3), 255) << "clipped";
}

} // namespace

} // namespace panoval::mosaic::test
