// SPDX-License-Identifier: MIT
#include "mosaic/verdict/displacement_fit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <utility>

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

TEST(DisplacementFit, IsNotValidWherePatchesDoNotMeet)
{
    for (const auto& [x, y] : {std::pair{60.0, 0.0}, {-60.0, 0.0}, {0.0, 60.0}, {0.0, -60.0}}) {
        const ShiftFit fit = compare_at(patch_of(waves, kPlace), patch_of(waves, kAround), x, y);
        EXPECT_EQ(fit.count, 0) << x << ' ' << y;
        EXPECT_FALSE(fit.is_valid);
    }
}

TEST(DisplacementFit, OfOneValueSaysNothing)
{
    const Scene grey = [](double, double) { return 7.0; };
    for (const Scene& other : {Scene(waves), grey}) {
        const ShiftFit fit = fit_shift(patch_of(other, kPlace), patch_of(grey, kAround), 0, 0);
        EXPECT_TRUE(fit.is_valid);
        EXPECT_EQ(fit.variance_second, 0);
        EXPECT_EQ(fit.correlation, 0);
        EXPECT_EQ(fit.information.xx, 0);
    }
}

double hash_of(double x, double y)
{
    const double value = std::sin(x * 12.9898 + y * 78.233) * 43758.5453;
    return value - std::floor(value);
}

// Where what remains is smooth, as light is that has changed, its pixels say the same over and over.
TEST(DisplacementFit, KnowsLessWhereWhatRemainsHasAStructure)
{
    const auto known_beside = [](const Scene& change, const Rect& place) {
        const Scene changed = [&](double x, double y) { return waves(x, y) + change(x, y); };
        const Patch first = patch_of(waves, place);
        const Patch second = patch_of(changed, kAround);
        const ShiftFit fit = fit_shift(first, second, 0, 0);
        return fit.information.xx / compare_at(first, second, fit.x, fit.y).information.xx;
    };
    const Scene noise = [](double x, double y) { return 6 * hash_of(x, y); };
    const Scene light = [](double x, double) { return 0.15 * x; };
    EXPECT_GT(known_beside(noise, kPlace), 0.5);
    EXPECT_LT(known_beside(light, kPlace), 0.05);
    const Scene nothing = [](double, double) { return 0.0; };
    EXPECT_EQ(known_beside(nothing, {0, 0, 8, 10}), 1) << "too few pixels that have others three pixels away";
}

// A thing on an eighth of the pixels, and pixels that are not known beside it.
TEST(DisplacementFit, LeavesOutWhatDoesNotBelong)
{
    const Scene shifted = [](double x, double y) {
        return x > 4 && x < 17 && y > 6 && y < 18 ? 60 - 8 * std::sin(y) : waves(x - 1, y - 0.5);
    };
    Patch first = patch_of(waves, kPlace);
    for (std::size_t i = 30; i < first.known.size(); i += 40)
        first.known[i] = 0;
    const ShiftFit fit = fit_shift(first, patch_of(shifted, kAround), 0, 0);
    ASSERT_TRUE(fit.is_valid);
    EXPECT_NEAR(fit.x, 1, 0.05);
    EXPECT_NEAR(fit.y, 0.5, 0.05);
    EXPECT_LT(fit.correlation, 0.9) << "of all that is compared";
}

TEST(Agreement, CountsSmallSquaresThatShowAnything)
{
    const Rect place{0, 0, 48, 36}; // 4 x 3 squares
    const Scene changed = [](double x, double y) {
        if (y < 12)
            return waves(x, y);
        return y < 24 ? waves(x + 6, y + 5) : 3.0;
    };
    const Scene plain_below = [](double x, double y) { return y < 24 ? waves(x, y) : 3.0; };
    const Agreement found = agreement_at(patch_of(plain_below, place), patch_of(changed, place.grown(2)), 0, 0, 0.1);
    EXPECT_EQ(found.agreeing, 4);
    EXPECT_EQ(found.strange, 4);
    for (std::size_t i = 0; i < found.is_strange.size(); ++i)
        ASSERT_EQ(found.is_strange[i], i / 48 >= 12 && i / 48 < 24 ? 1 : 0) << i;
    Patch unknown = patch_of(plain_below, place);
    std::fill_n(unknown.known.begin(), 7 * 48, std::uint8_t{0}); // more than half of the squares that agree
    EXPECT_EQ(agreement_at(unknown, patch_of(changed, place.grown(2)), 0, 0, 0.1).agreeing, 0);
    EXPECT_EQ(agreement_at(patch_of(plain_below, place), patch_of(changed, place.grown(2)), 0, 0, 1000).strange, 0)
        << "all of it may be noise";
}

} // namespace

} // namespace panoval::mosaic::test
