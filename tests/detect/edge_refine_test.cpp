// SPDX-License-Identifier: MIT
#include "detect/edge_refine.h"
#include "tests/reference/edge_refine.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace
{

using namespace panoval;
using namespace panoval::test;

// Gradient magnitudes of a pixel and its neighbours.
struct Patch {
    double at[3][3];
};

void put(const Patch& patch, std::size_t k, MagnitudePatches& patches)
{
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i)
            patches.at[j][i][k] = static_cast<float>(patch.at[j][i]);
}

// By every instruction set, which agree.
std::vector<double> refined(const Patch& patch, int x, int y)
{
    const int width = x + 2;
    const std::int32_t pixel = y * width + x;
    MagnitudePatches patches = {};
    put(patch, 0, patches);
    std::vector<double> out;
    for_each_target([&] {
        Guarded<double> xy(2);
        refine_edge_points(patches, width, &pixel, 1, xy.data());
        EXPECT_TRUE(xy.intact());
        EXPECT_TRUE(out.empty() || same_bits(out, xy.values()));
        out = xy.values();
    });
    return out;
}

std::vector<double> refined_by_twin(const Patch& patch, int x, int y)
{
    // the patch in an image that is just large enough
    const int width = x + 2;
    std::vector<std::int16_t> magnitude(static_cast<std::size_t>(width * (y + 2)));
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i)
            magnitude[static_cast<std::size_t>((y - 1 + j) * width + x - 1 + i)] =
                static_cast<std::int16_t>(patch.at[j][i]);
    std::vector<double> out(2);
    reference::refine_edge_point(width, y + 2, magnitude.data(), x, y, out.data());
    return out;
}

TEST(EdgeRefine, MovesToTheTopOfAnUprightRidge)
{
    // columns 10, 20, 16: the parabola through them has its top 3 / 14 to the right
    const Patch patch{{{10, 20, 16}, {10, 20, 16}, {10, 20, 16}}};
    const auto point = refined(patch, 40, 50);
    EXPECT_DOUBLE_EQ(point[0], 40 + 3.0 / 14);
    EXPECT_EQ(point[1], 50);
}

TEST(EdgeRefine, MovesToTheTopOfALevelRidge)
{
    const Patch patch{{{16, 16, 16}, {20, 20, 20}, {10, 10, 10}}};
    const auto point = refined(patch, 40, 50);
    EXPECT_EQ(point[0], 40);
    EXPECT_DOUBLE_EQ(point[1], 50 - 3.0 / 14);
}

TEST(EdgeRefine, StaysInAValley)
{
    const Patch patch{{{20, 10, 16}, {20, 10, 16}, {20, 10, 16}}};
    EXPECT_EQ(refined(patch, 4, 5), (std::vector<double>{4, 5}));
}

TEST(EdgeRefine, StaysOnFlatGround)
{
    const Patch patch{{{7, 7, 7}, {7, 7, 7}, {7, 7, 7}}};
    EXPECT_EQ(refined(patch, 4, 5), (std::vector<double>{4, 5}));
}

TEST(EdgeRefine, StaysWhenTheRidgeIsMoreThanHalfAPixelAway)
{
    // columns 10, 20, 30 - 1: the top lies 9.5 to the right
    const Patch patch{{{10, 20, 29}, {10, 20, 29}, {10, 20, 29}}};
    EXPECT_EQ(refined(patch, 4, 5), (std::vector<double>{4, 5}));
}

TEST(EdgeRefine, MovesByExactlyHalfAPixelAtMost)
{
    // columns 10, 20, 20: the top lies exactly between the last two
    const Patch patch{{{10, 20, 20}, {10, 20, 20}, {10, 20, 20}}};
    EXPECT_EQ(refined(patch, 4, 5), (std::vector<double>{4.5, 5}));
}

TEST(EdgeRefine, TakesTheNegativeOfTwoCurvaturesOfEqualSize)
{
    // a saddle: hxx = -hyy. The ridge runs upright in the first, level in the second.
    const Patch upright{{{10, 20, 12}, {4, 14, 6}, {10, 20, 12}}};
    const Patch level{{{10, 4, 10}, {20, 14, 20}, {12, 6, 12}}};
    EXPECT_EQ(refined(upright, 4, 5), refined_by_twin(upright, 4, 5));
    EXPECT_GT(refined(upright, 4, 5)[0], 4);
    EXPECT_EQ(refined(upright, 4, 5)[1], 5);
    EXPECT_EQ(refined(level, 4, 5)[0], 4);
    EXPECT_GT(refined(level, 4, 5)[1], 5);
}

TEST(EdgeRefine, LooksAcrossTheMirroredDirectionOfASlantedRidge)
{
    // The mixed difference has the opposite of its usual sign: from a ridge along one diagonal the step goes along it.
    const Patch patch{{{100, 60, 20}, {60, 100, 52}, {20, 52, 100}}};
    const auto point = refined(patch, 40, 50);
    EXPECT_TRUE(same_bits(refined(patch, 40, 50), refined_by_twin(patch, 40, 50)));
    EXPECT_NEAR(point[0], 40 - 1.0 / 48, 1e-12);
    EXPECT_NEAR(point[1], 50 - 1.0 / 48, 1e-12);
}

TEST(EdgeRefine, EqualsItsTwinOnRandomPatchesForEveryCount)
{
    for (const int high : {1, 3, 20, 360}) {
        Random random(static_cast<std::uint64_t>(high));
        for (std::size_t n = 0; n < 400; ++n) {
            const std::size_t count = n % (MagnitudePatches::kCount + 1);
            constexpr int kWidth = 40;
            MagnitudePatches patches = {};
            std::vector<std::int32_t> pixels;
            std::vector<double> expected;
            for (std::size_t k = 0; k < count; ++k) {
                Patch patch;
                for (auto& row : patch.at)
                    for (double& value : row)
                        value = static_cast<double>(random.integer(0, high));
                const auto x = static_cast<int>(random.integer(1, kWidth - 2));
                const auto y = static_cast<int>(random.integer(1, 30));
                put(patch, k, patches);
                pixels.push_back(y * kWidth + x);
                const auto point = refined_by_twin(patch, x, y);
                expected.insert(expected.end(), point.begin(), point.end());
            }
            for_each_target([&] {
                Guarded<double> xy(2 * count);
                refine_edge_points(patches, kWidth, pixels.data(), count, xy.data());
                ASSERT_TRUE(xy.intact() && same_bits(xy.values(), expected)) << high << ", " << n;
            });
        }
    }
}

TEST(EdgeRefine, EqualsItsTwinOnEveryInnerPixelOfPictures)
{
    constexpr int kWidth = 61;
    constexpr int kHeight = 47;
    for (const Content content : kAllContents) {
        const auto image = picture(content, kWidth, kHeight, 5);
        const Guarded<std::uint8_t> exact(image);
        const auto magnitude = reference::gradient_magnitude(image, kWidth, kHeight);
        for (int y = 2; y < kHeight - 2; ++y)
            for (int x = 2; x < kWidth - 2; x += 19) { // 19 pixels of a row at once
                std::vector<std::int32_t> pixels;
                std::vector<double> expected(2 * 19);
                for (int i = 0; i < 19; ++i) {
                    pixels.push_back(y * kWidth + x + i);
                    reference::refine_edge_point(kWidth, kHeight, magnitude.data(), x + i, y,
                                                 &expected[2 * pixels.size() - 2]);
                }
                for_each_target([&] {
                    MagnitudePatches patches;
                    Guarded<double> xy(2 * 19);
                    measure_patches(exact.data(), kWidth, pixels.data(), 19, patches);
                    refine_edge_points(patches, kWidth, pixels.data(), 19, xy.data());
                    ASSERT_TRUE(xy.intact() && same_bits(xy.values(), expected)) << name_of(content) << " at " << y;
                });
            }
    }
}

TEST(EdgeRefine, TruncatesTheRootOfEverySumOfTwoSquares)
{
    // A cross whose opposite arms differ by dx and dy; the patch's centre has exactly these differences.
    for_each_target([] {
        for (int dx = 0; dx < 256; ++dx)
            for (int dy = 0; dy < 256; ++dy) {
                std::vector<std::uint8_t> image(25, 0);
                image[13] = static_cast<std::uint8_t>(dx);
                image[17] = static_cast<std::uint8_t>(dy);
                const std::int32_t centre = 12;
                MagnitudePatches patches;
                measure_patches(image.data(), 5, &centre, 1, patches);
                const auto root = static_cast<double>(patches.at[1][1][0]);
                const auto square = static_cast<double>(dx * dx + dy * dy);
                ASSERT_EQ(root, std::floor(root));
                ASSERT_LE(root * root, square);
                ASSERT_GT((root + 1) * (root + 1), square);
            }
    });
}

} // namespace
