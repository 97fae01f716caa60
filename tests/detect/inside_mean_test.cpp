// SPDX-License-Identifier: MIT
#include "detect/inside_mean.h"
#include "tests/reference/small_ellipse.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

namespace
{

using panoval::Foci;
using panoval::test::for_each_target;
using panoval::test::Guarded;
using panoval::test::noise;
using panoval::test::Random;

constexpr std::int32_t kLowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kHighest = std::numeric_limits<std::int32_t>::max();

std::vector<std::uint8_t> noise_image(std::int32_t width, std::int32_t height, std::uint64_t seed)
{
    return noise<std::uint8_t>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 0, 255, seed);
}

std::int32_t mean_of(const std::vector<std::uint8_t>& pixels)
{
    return std::accumulate(pixels.begin(), pixels.end(), 0) / static_cast<std::int32_t>(pixels.size());
}

void expect_twin(const std::vector<std::uint8_t>& pixels, std::int32_t width, std::int32_t height, std::int32_t x1,
                 std::int32_t y1, std::int32_t x2, std::int32_t y2, double sum)
{
    const Guarded<std::uint8_t> image(pixels);
    const Foci foci = {static_cast<double>(x1), static_cast<double>(y1), static_cast<double>(x2),
                       static_cast<double>(y2), sum};
    ASSERT_EQ(panoval::mean_inside(image.data(), width, height, foci),
              panoval::reference::mean_inside(pixels.data(), width, height, x1, y1, x2, y2, sum))
        << width << " x " << height << ", foci (" << x1 << ", " << y1 << ") and (" << x2 << ", " << y2 << "), sum "
        << sum;
}

TEST(InsideMean, CountsWhatLiesOnePixelInsideTheSum)
{
    for_each_target([] {
        // One focus twice: 2 * distance - 5 truncates below 0 up to a distance of 2. The 13 pixels of that disc are
        // 10, its neighbours 99.
        std::vector<std::uint8_t> pixels(49, 99);
        for (int y = -2; y <= 2; ++y)
            for (int x = -2; x <= 2; ++x)
                if (x * x + y * y <= 4)
                    pixels[static_cast<std::size_t>((y + 3) * 7 + x + 3)] = 10;
        EXPECT_EQ(panoval::mean_inside(pixels.data(), 7, 7, {3, 3, 3, 3, 5}), 10);
        EXPECT_GT(panoval::mean_inside(pixels.data(), 7, 7, {3, 3, 3, 3, 5.6}), 10) << "distance sqrt(5) is inside";
    });
}

TEST(InsideMean, IsAnIntegerQuotient)
{
    const std::uint8_t pixels[] = {1, 2, 2};
    EXPECT_EQ(panoval::mean_inside(pixels, 3, 1, {1, 0, 1, 0, 100}), 1);
}

TEST(InsideMean, OfNoPixelIsZero)
{
    const std::vector<std::uint8_t> pixels(100, 50);
    for (const double sum : {0.0, 0.99, -5.0, -1e9})
        EXPECT_EQ(panoval::mean_inside(pixels.data(), 10, 10, {5, 5, 5, 5, sum}), 0) << "sum " << sum;
    EXPECT_EQ(panoval::mean_inside(pixels.data(), 10, 10, {1, 5, 9, 5, 8.5}), 0) << "flatter than a pixel";
    EXPECT_EQ(panoval::mean_inside(pixels.data(), 10, 10, {50, 50, 50, 50, 20}), 0) << "beside the image";
    EXPECT_EQ(panoval::mean_inside(pixels.data(), 0, 10, {5, 5, 5, 5, 20}), 0);
    EXPECT_EQ(panoval::mean_inside(pixels.data(), 10, -1, {5, 5, 5, 5, 20}), 0);
}

TEST(InsideMean, CountsAValueBeyondTheIntegersAsInside)
{
    const auto pixels = noise_image(23, 17, 4);
    EXPECT_EQ(panoval::mean_inside(pixels.data(), 23, 17, {kLowest, 0, kLowest, 0, 10}), mean_of(pixels));
    EXPECT_EQ(panoval::mean_inside(pixels.data(), 23, 17, {kHighest, kLowest, kLowest, kHighest, 0}), mean_of(pixels));
    EXPECT_EQ(panoval::mean_inside(pixels.data(), 23, 17, {5, 5, 6, 6, -1e20}), mean_of(pixels));
    EXPECT_EQ(panoval::mean_inside(pixels.data(), 23, 17, {5, 5, 6, 6, 1e25}), mean_of(pixels)) << "and below them";
}

TEST(InsideMean, OfEveryPixelLooksAtNoByteBehindThem)
{
    const std::uint8_t pixel_and_more[] = {1, 255};
    EXPECT_EQ(panoval::mean_inside(pixel_and_more, 1, 1, {kLowest, 0, kLowest, 0, 10}), 1);
}

TEST(InsideMean, EqualsItsTwinForEverySize)
{
    for_each_target([] {
        Random random(1);
        for (std::int32_t width = 1; width <= 67; ++width)
            for (std::int32_t height = 1; height <= 67; height += 3) {
                const auto pixels = noise_image(width, height, static_cast<std::uint64_t>(width * 100 + height));
                const auto x = [&] { return static_cast<std::int32_t>(random.integer(-5, width + 5)); };
                const auto y = [&] { return static_cast<std::int32_t>(random.integer(-5, height + 5)); };
                expect_twin(pixels, width, height, x(), y(), x(), y(), random.real(0, 90));
            }
    });
}

TEST(InsideMean, EqualsItsTwinForRowsLongerThanAnyVector)
{
    // Up to 200 pixels of a row are inside without a test of each, several vectors of bytes and every tail.
    for_each_target([] {
        const auto pixels = noise_image(211, 40, 6);
        for (std::int32_t half = 32; half < 100; ++half)
            expect_twin(pixels, 211, 40, 105 - half, 20, 105 + half, 20, 2.0 * half + 5);
        const auto whole = noise_image(200, 7, 7);
        EXPECT_EQ(panoval::mean_inside(whole.data(), 200, 7, {kLowest, 0, kLowest, 0, 10}), mean_of(whole));
    });
}

TEST(InsideMean, EqualsItsTwinWhereTheLimitPassesThroughPixels)
{
    // Whole sums and foci a whole distance apart: many pixels have a focal sum of exactly one less, and the segment
    // between the foci has no other.
    for_each_target([] {
        const auto pixels = noise_image(61, 53, 9);
        for (std::int32_t half = 0; half <= 12; ++half)
            for (std::int32_t more = 0; more <= 6; ++more) {
                expect_twin(pixels, 61, 53, 30 - half, 26, 30 + half, 26, 2 * half + more);
                expect_twin(pixels, 61, 53, 30, 26 - half, 30, 26 + half, 2 * half + more);
                expect_twin(pixels, 61, 53, 18, 22, 18 + 3 * half, 22 + 4 * (half / 2), 5.0 * half + more);
                expect_twin(pixels, 61, 53, 20, 10, 20 + 3 * (half / 2), 10 + 4 * (half / 2), 5.0 * (half / 2) + more);
            }
    });
}

TEST(InsideMean, EqualsItsTwinWhereTheEndsOfRowsAreHardToGuess)
{
    // Ellipses some pixels wide and so long that their width is the difference of nearly equal numbers.
    for_each_target([] {
        const auto pixels = noise_image(61, 53, 9);
        for (const int bits : {20, 24, 26, 27, 28, 29}) {
            const std::int32_t half = 1 << bits;
            const double step = std::exp2(bits + 1 - 52);
            for (int k = 0; k < 12; ++k) {
                const double sum = 2.0 * half + 1 + k * step;
                expect_twin(pixels, 61, 53, 30, 26 - half, 30, 26 + half, sum);
                expect_twin(pixels, 61, 53, 30 - half, 26, 30 + half, 26, sum);
            }
        }
    });
}

TEST(InsideMean, EqualsItsTwinWhereFlatEllipsesEndBesideTheGuess)
{
    // Rows of which, by the exact test, the first or the last pixel of the guess is not inside, or one beyond it is.
    struct Flat {
        std::int32_t width, height, x1, y1, x2, y2;
        double sum;
    };
    for_each_target([] {
        for (const Flat& e : {Flat{235, 158, 155, 94, 286, 96, 132.01546350383981},
                              {250, 251, 16, 216, 47, 216, 32.000013142292012},
                              {283, 280, 188, 177, 291, 178, 104.00575894702995},
                              {196, 254, 167, -7, -221, 43, 392.21046478095985},
                              {71, 110, 49, 103, 88, 105, 40.052020869206586}})
            for (std::uint64_t seed = 4; seed < 24; ++seed) // one pixel does not change every mean
                expect_twin(noise_image(e.width, e.height, seed), e.width, e.height, e.x1, e.y1, e.x2, e.y2, e.sum);
    });
}

TEST(InsideMean, EqualsItsTwinNearTheEndOfTheIntegers)
{
    // Focal sums around 2^31: some pixels count because the value leaves the integers, some do not.
    for_each_target([] {
        const auto pixels = noise_image(40, 30, 2);
        for (const std::int32_t x :
             {kLowest, kLowest + 20, kHighest - 20, kHighest, 1073741824, 1073741840, -1073741800})
            for (const double sum : {-50.0, 0.0, 20.0, 2147483648.0, 2147483660.0, 4294967296.0, 4294967310.0}) {
                expect_twin(pixels, 40, 30, x, 10, x, 12, sum);
                expect_twin(pixels, 40, 30, 10, x, -5, x, sum);
                expect_twin(pixels, 40, 30, x, x, 3, 4, sum);
            }
    });
}

TEST(InsideMean, EqualsItsTwinWhereSomePixelsReachTheEndOfTheIntegers)
{
    // The limit crosses the image: from foci far away, and from foci beside it by a sum far below 0.
    for_each_target([] {
        const auto pixels = noise_image(40, 30, 2);
        for (double shift = -120; shift <= 120; shift += 7.5) {
            for (const std::int32_t x : {kLowest, kHighest}) {
                expect_twin(pixels, 40, 30, x, 10, x, 12, 2147483648.0 + shift);
                expect_twin(pixels, 40, 30, 10, x, -5, x, 2147483648.0 + shift);
            }
            for (const std::int32_t y : {-15, 3, 44}) {
                expect_twin(pixels, 40, 30, 10, y, 12, -15, shift - 2147483648.0);
                expect_twin(pixels, 40, 30, y, 10, -15, 12, shift - 2147483648.0);
                expect_twin(pixels, 40, 30, 10, y, -20, -15, shift - 2147483648.0);
            }
        }
    });
}

} // namespace
