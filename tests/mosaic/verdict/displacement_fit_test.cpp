// SPDX-License-Identifier: MIT
#include "mosaic/verdict/displacement_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace panoval::mosaic::test
{

namespace
{

using Scene = std::function<double(double, double)>;

double waves(double x, double y)
{
    return 20 * std::sin(0.5 * x + 0.2 * y) + 15 * std::sin(0.45 * y - 0.15 * x + 1);
}

Patch patch_of(const Scene& scene, const Rect& rect)
{
    Patch patch;
    patch.rect = rect;
    for (std::int64_t y = rect.y; y < rect.bottom(); ++y)
        for (std::int64_t x = rect.x; x < rect.right(); ++x)
            patch.value.push_back(static_cast<float>(scene(static_cast<double>(x), static_cast<double>(y))));
    patch.known.assign(patch.value.size(), 1);
    patch.smoothed = patch.value;
    patch.area = rect;
    return patch;
}

constexpr Rect kPlace{0, 0, 40, 30};
constexpr Rect kAround{-4, -4, 48, 38};

// Whatever is known of both, and of all four neighbours.
double count_with_hole(std::int64_t x, std::int64_t y)
{
    Patch first = patch_of(waves, kPlace);
    const Patch second = patch_of(waves, kAround);
    first.known[static_cast<std::size_t>(y * kPlace.width + x)] = 0;
    return compare_at(first, second, 0, 0).count;
}

TEST(DisplacementFit, CountsPixelsWhoseNeighboursAreKnown)
{
    const double all = 38 * 28;
    EXPECT_EQ(count_with_hole(0, 0), all);       // a corner is nobody's neighbour
    EXPECT_EQ(count_with_hole(0, 7), all - 1);   // the neighbour of one pixel
    EXPECT_EQ(count_with_hole(39, 7), all - 1);  //
    EXPECT_EQ(count_with_hole(7, 0), all - 1);   //
    EXPECT_EQ(count_with_hole(7, 29), all - 1);  //
    EXPECT_EQ(count_with_hole(20, 15), all - 5); // itself and its four
    EXPECT_EQ(count_with_hole(1, 15), all - 4);  // one of whose is not counted anyway
    EXPECT_EQ(count_with_hole(38, 28), all - 3); // two of whose are not
}

TEST(DisplacementFit, FindsAShiftOfSomePixelsBothWays)
{
    for (const auto& [x, y] : {std::pair{1.75, -0.5}, {-2.0, 0.25}, {0.5, 2.0}, {0.0, 0.0}}) {
        const Scene shifted = [x = x, y = y](double u, double v) { return waves(u - x, v - y); };
        const ShiftFit fit = fit_shift(patch_of(waves, kPlace), patch_of(shifted, kAround), 0, 0);
        ASSERT_TRUE(fit.is_valid);
        EXPECT_NEAR(fit.x, x, 0.03);
        EXPECT_NEAR(fit.y, y, 0.03);
        EXPECT_GT(fit.correlation, 0.99);
    }
}

TEST(DisplacementFit, KnowsOneDirectionAloneOfASlantingPattern)
{
    for (const double sign : {1.0, -1.0}) {
        const Scene stripes = [sign](double x, double y) { return 20 * std::sin(0.6 * (x + sign * y)); };
        const Information known = compare_at(patch_of(stripes, kPlace), patch_of(stripes, kAround), 0, 0).information;
        EXPECT_GT(known.xx, 0);
        EXPECT_GT(known.yy, 0);
        EXPECT_GT(sign * known.xy, 0);
        // the other direction has a hundredth of the correlation left, so that it can be inverted
        EXPECT_NEAR(known.determinant() / (known.xx * known.yy), 1 - 0.99 * 0.99, 1e-9);
    }
}

TEST(DisplacementFit, KnowsNothingAlongStripes)
{
    const Scene upright = [](double x, double) { return 20 * std::sin(0.6 * x); };
    const Information across = compare_at(patch_of(upright, kPlace), patch_of(upright, kAround), 0, 0).information;
    EXPECT_GT(across.xx, 0);
    EXPECT_EQ(across.yy, 0);
    const Scene level = [](double, double y) { return 20 * std::sin(0.6 * y); };
    const Information down = compare_at(patch_of(level, kPlace), patch_of(level, kAround), 0, 0).information;
    EXPECT_EQ(down.xx, 0);
    EXPECT_GT(down.yy, 0);
}

TEST(DisplacementFit, NeedsEnoughPixels)
{
    const Rect small{0, 0, 8, 8};
    EXPECT_FALSE(compare_at(patch_of(waves, small), patch_of(waves, kAround), 0, 0).is_valid); // 36
    const Rect enough{0, 0, 8, 10};
    EXPECT_TRUE(compare_at(patch_of(waves, enough), patch_of(waves, kAround), 0, 0).is_valid); // 48
    const Rect narrow{0, 0, 2, 200};
    EXPECT_FALSE(compare_at(patch_of(waves, narrow), patch_of(waves, kAround), 0, 0).is_valid);
}

} // namespace

} // namespace panoval::mosaic::test
