// SPDX-License-Identifier: MIT
#include "detect/edge_refine.h"
#include "tests/reference/edge_refine.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

using namespace panoval;
using namespace panoval::test;

std::vector<double> refined(const MagnitudePatch& patch, int x, int y)
{
    const EdgePoint point = refine_edge_point(patch, x, y);
    return {point.x, point.y};
}

std::vector<double> refined_by_twin(const MagnitudePatch& patch, int x, int y)
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
    const MagnitudePatch patch{{{10, 20, 16}, {10, 20, 16}, {10, 20, 16}}};
    const EdgePoint point = refine_edge_point(patch, 40, 50);
    EXPECT_DOUBLE_EQ(point.x, 40 + 3.0 / 14);
    EXPECT_EQ(point.y, 50);
}

TEST(EdgeRefine, MovesToTheTopOfALevelRidge)
{
    const MagnitudePatch patch{{{16, 16, 16}, {20, 20, 20}, {10, 10, 10}}};
    const EdgePoint point = refine_edge_point(patch, 40, 50);
    EXPECT_EQ(point.x, 40);
    EXPECT_DOUBLE_EQ(point.y, 50 - 3.0 / 14);
}

TEST(EdgeRefine, StaysInAValley)
{
    const MagnitudePatch patch{{{20, 10, 16}, {20, 10, 16}, {20, 10, 16}}};
    EXPECT_EQ(refined(patch, 4, 5), (std::vector<double>{4, 5}));
}

TEST(EdgeRefine, StaysOnFlatGround)
{
    const MagnitudePatch patch{{{7, 7, 7}, {7, 7, 7}, {7, 7, 7}}};
    EXPECT_EQ(refined(patch, 4, 5), (std::vector<double>{4, 5}));
}

TEST(EdgeRefine, StaysWhenTheRidgeIsMoreThanHalfAPixelAway)
{
    // columns 10, 20, 30 - 1: the top lies 9.5 to the right
    const MagnitudePatch patch{{{10, 20, 29}, {10, 20, 29}, {10, 20, 29}}};
    EXPECT_EQ(refined(patch, 4, 5), (std::vector<double>{4, 5}));
}

TEST(EdgeRefine, MovesByExactlyHalfAPixelAtMost)
{
    // columns 10, 20, 20: the top lies exactly between the last two
    const MagnitudePatch patch{{{10, 20, 20}, {10, 20, 20}, {10, 20, 20}}};
    EXPECT_EQ(refined(patch, 4, 5), (std::vector<double>{4.5, 5}));
}

TEST(EdgeRefine, TakesTheNegativeOfTwoCurvaturesOfEqualSize)
{
    // a saddle: hxx = -hyy. The ridge runs upright in the first, level in the second.
    const MagnitudePatch upright{{{10, 20, 12}, {4, 14, 6}, {10, 20, 12}}};
    const MagnitudePatch level{{{10, 4, 10}, {20, 14, 20}, {12, 6, 12}}};
    EXPECT_EQ(refined(upright, 4, 5), refined_by_twin(upright, 4, 5));
    EXPECT_GT(refined(upright, 4, 5)[0], 4);
    EXPECT_EQ(refined(upright, 4, 5)[1], 5);
    EXPECT_EQ(refined(level, 4, 5)[0], 4);
    EXPECT_GT(refined(level, 4, 5)[1], 5);
}

TEST(EdgeRefine, LooksAcrossTheMirroredDirectionOfASlantedRidge)
{
    // The mixed difference has the opposite of its usual sign: from a ridge along one diagonal the step goes along it.
    const MagnitudePatch patch{{{100, 60, 20}, {60, 100, 52}, {20, 52, 100}}};
    const EdgePoint point = refine_edge_point(patch, 40, 50);
    EXPECT_TRUE(same_bits(refined(patch, 40, 50), refined_by_twin(patch, 40, 50)));
    EXPECT_NEAR(point.x, 40 - 1.0 / 48, 1e-12);
    EXPECT_NEAR(point.y, 50 - 1.0 / 48, 1e-12);
}

TEST(EdgeRefine, EqualsItsTwinOnRandomPatches)
{
    for (const int high : {1, 3, 20, 360}) {
        Random random(static_cast<std::uint64_t>(high));
        for (int n = 0; n < 50000; ++n) {
            MagnitudePatch patch;
            for (auto& row : patch.at)
                for (double& value : row)
                    value = static_cast<double>(random.integer(0, high));
            const int x = 1 + n % 29;
            const int y = 1 + n % 13;
            ASSERT_TRUE(same_bits(refined(patch, x, y), refined_by_twin(patch, x, y))) << high << ", " << n;
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
            for (int x = 2; x < kWidth - 2; ++x) {
                std::vector<double> expected(2);
                reference::refine_edge_point(kWidth, kHeight, magnitude.data(), x, y, expected.data());
                const auto patch = magnitude_patch(exact.data(), kWidth, y * kWidth + x);
                ASSERT_TRUE(same_bits(refined(patch, x, y), expected)) << name_of(content) << " at " << x << ", " << y;
            }
    }
}

TEST(EdgeRefine, TruncatesTheRootOfEverySumOfTwoSquares)
{
    // A cross whose opposite arms differ by dx and dy; the patch's centre has exactly these differences.
    for (int dx = 0; dx < 256; ++dx)
        for (int dy = 0; dy < 256; ++dy) {
            std::vector<std::uint8_t> image(25, 0);
            image[13] = static_cast<std::uint8_t>(dx);
            image[17] = static_cast<std::uint8_t>(dy);
            const MagnitudePatch patch = magnitude_patch(image.data(), 5, 12);
            const auto square = static_cast<double>(dx * dx + dy * dy);
            ASSERT_LE(patch.at[1][1] * patch.at[1][1], square);
            ASSERT_GT((patch.at[1][1] + 1) * (patch.at[1][1] + 1), square);
        }
}

} // namespace
