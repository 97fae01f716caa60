// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/gradient.h"
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

using Picture = std::vector<std::uint8_t>;

struct Gradient {
    std::vector<std::int16_t> dx;
    std::vector<std::int16_t> dy;
    std::vector<std::uint16_t> magnitude;
};

Gradient gradient_of(const Picture& src, int width, int height)
{
    const Guarded<std::uint8_t> in(src);
    Guarded<std::int16_t> dx(src.size());
    Guarded<std::int16_t> dy(src.size());
    Guarded<std::uint16_t> magnitude(src.size());
    gradient_image(in.data(), width, height, dx.data(), dy.data(), magnitude.data());
    EXPECT_TRUE(dx.intact() && dy.intact() && magnitude.intact());
    return {dx.values(), dy.values(), magnitude.values()};
}

void expect_twin(const Picture& src, int width, int height)
{
    Gradient expected{std::vector<std::int16_t>(src.size()), std::vector<std::int16_t>(src.size()),
                      std::vector<std::uint16_t>(src.size())};
    reference::gradient_image(src.data(), width, height, expected.dx.data(), expected.dy.data(),
                              expected.magnitude.data());
    const Gradient actual = gradient_of(src, width, height);
    EXPECT_TRUE(same_bits(actual.dx, expected.dx)) << "dx, " << width << " x " << height;
    EXPECT_TRUE(same_bits(actual.dy, expected.dy)) << "dy, " << width << " x " << height;
    EXPECT_TRUE(same_bits(actual.magnitude, expected.magnitude)) << "magnitude, " << width << " x " << height;
}

TEST(Gradient, OfARampHasOneSidedDifferencesAtTheEndsAndWholeOnesBetween)
{
    for_each_target([] {
        const auto across = gradient_of({0, 10, 20, 30, 0, 10, 20, 30}, 4, 2);
        EXPECT_EQ(across.dx, (std::vector<std::int16_t>{10, 20, 20, 10, 10, 20, 20, 10}));
        EXPECT_EQ(across.dy, std::vector<std::int16_t>(8, 0));
        EXPECT_EQ(across.magnitude, (std::vector<std::uint16_t>{10, 20, 20, 10, 10, 20, 20, 10}));
        const auto down = gradient_of({30, 30, 20, 20, 10, 10, 0, 0}, 2, 4);
        EXPECT_EQ(down.dy, (std::vector<std::int16_t>{-10, -10, -20, -20, -20, -20, -10, -10}));
        EXPECT_EQ(down.dx, std::vector<std::int16_t>(8, 0));
    });
}

TEST(Gradient, TruncatesTheMagnitude)
{
    for_each_target([] {
        EXPECT_EQ(gradient_of({0, 3, 4, 9}, 2, 2).magnitude[0], 5); // 3, 4
        EXPECT_EQ(gradient_of({0, 1, 1, 9}, 2, 2).magnitude[0], 1); // the root of 2
        EXPECT_EQ(gradient_of({0, 255, 255, 0}, 2, 2).magnitude[0], 360);
        EXPECT_EQ(gradient_of({255, 0, 0, 255}, 2, 2).magnitude[0], 360);
    });
}

TEST(Gradient, OfAFlatImageIsZero)
{
    for (const int level : {0, 185, 255}) {
        const auto flat = gradient_of(Picture(40 * 7, static_cast<std::uint8_t>(level)), 40, 7);
        EXPECT_EQ(flat.dx, std::vector<std::int16_t>(280, 0));
        EXPECT_EQ(flat.dy, std::vector<std::int16_t>(280, 0));
        EXPECT_EQ(flat.magnitude, std::vector<std::uint16_t>(280, 0));
    }
}

TEST(Gradient, OfNoPixelsWritesNothing)
{
    for (const auto& [width, height] : {std::pair{0, 0}, {0, 5}, {5, 0}, {-4, 5}, {5, -4}, {-4, -4}}) {
        const Picture src(32, 9);
        std::vector<std::int16_t> dx(32, 7);
        std::vector<std::int16_t> dy(32, 7);
        std::vector<std::uint16_t> magnitude(32, 7);
        gradient_image(src.data(), width, height, dx.data(), dy.data(), magnitude.data());
        EXPECT_EQ(dx, std::vector<std::int16_t>(32, 7));
        EXPECT_EQ(dy, std::vector<std::int16_t>(32, 7));
        EXPECT_EQ(magnitude, std::vector<std::uint16_t>(32, 7));
    }
}

TEST(Gradient, OfOneColumnTakesTheNextRowForTheRightNeighbour)
{
    for_each_target([] {
        const auto column = gradient_of({10, 13, 20, 60}, 1, 4);
        EXPECT_EQ(column.dx, (std::vector<std::int16_t>{3, 7, 40, 0})); // nothing follows the last sample
        EXPECT_EQ(column.dy, (std::vector<std::int16_t>{3, 10, 47, 40}));
        EXPECT_EQ(column.magnitude, (std::vector<std::uint16_t>{4, 12, 61, 40}));
    });
}

TEST(Gradient, OfOneRowHasNoDifferenceDownward)
{
    for_each_target([] {
        const auto row = gradient_of({10, 13, 20, 60}, 4, 1);
        EXPECT_EQ(row.dx, (std::vector<std::int16_t>{3, 10, 47, 40}));
        EXPECT_EQ(row.dy, (std::vector<std::int16_t>{0, 0, 0, 0}));
        EXPECT_EQ(row.magnitude, (std::vector<std::uint16_t>{3, 10, 47, 40}));
        const auto pixel = gradient_of({77}, 1, 1);
        EXPECT_EQ(pixel.dx[0], 0);
        EXPECT_EQ(pixel.dy[0], 0);
        EXPECT_EQ(pixel.magnitude[0], 0);
    });
}

TEST(Gradient, OfLongRowsAndColumnsOfOneStaysInside)
{
    for_each_target([] {
        for (int length = 1; length <= 67; ++length) {
            const auto src = noise<std::uint8_t>(static_cast<std::size_t>(length), 0, 255, 3);
            const auto row = gradient_of(src, length, 1);
            const auto column = gradient_of(src, 1, length);
            EXPECT_EQ(row.dx, column.dy);
            EXPECT_EQ(column.dx.back(), 0);
        }
    });
}

// Every sum of two squares that two differences can give, in pictures of three rows.
TEST(Gradient, TruncatesRightForEveryPairOfDifferences)
{
    for_each_target([] {
        for (int dy = 0; dy <= 255; ++dy) {
            constexpr int kWidth = 768; // columns 1, 4, 7, ... have the differences 0 to 255
            Picture src(3 * kWidth);
            for (std::size_t d = 0; d <= 255; ++d) {
                src[kWidth + 3 * d + 2] = static_cast<std::uint8_t>(d);
                src[2 * kWidth + 3 * d + 1] = static_cast<std::uint8_t>(dy);
            }
            const auto gradient = gradient_of(src, kWidth, 3);
            for (int dx = 0; dx <= 255; ++dx) {
                const int magnitude = gradient.magnitude[static_cast<std::size_t>(kWidth + 3 * dx + 1)];
                const int sum = dx * dx + dy * dy;
                ASSERT_TRUE(magnitude * magnitude <= sum && sum < (magnitude + 1) * (magnitude + 1))
                    << dx << ", " << dy;
            }
        }
    });
}

// What the vectors rely on, for every whole number up to the largest sum.
TEST(Gradient, RestsOnSinglePrecisionRootsThatTruncateRight)
{
    int root = 0;
    for (int sum = 0; sum <= 2 * 255 * 255; ++sum) {
        if ((root + 1) * (root + 1) == sum)
            ++root;
        const float single = std::sqrt(static_cast<float>(sum));
        ASSERT_EQ(static_cast<int>(single), root) << sum;
        ASSERT_EQ(static_cast<int>(single + 512.0f) - 512, root) << sum;
        ASSERT_EQ(static_cast<int>(std::sqrt(static_cast<double>(sum))), root) << sum;
    }
    EXPECT_EQ(root, 360);
}

TEST(Gradient, EqualsItsTwinForEverySize)
{
    for_each_target([] {
        for (int height = 2; height <= 67; height += height < 5 ? 1 : 31)
            for (int width = 2; width <= 67; ++width)
                expect_twin(noise<std::uint8_t>(static_cast<std::size_t>(width * height), 0, 255, 5), width, height);
        for (int height = 2; height <= 67; ++height)
            expect_twin(noise<std::uint8_t>(static_cast<std::size_t>(19 * height), 0, 255, 6), 19, height);
    });
}

TEST(Gradient, EqualsItsTwinOnEveryContent)
{
    for_each_target([] {
        for (const Content content : kAllContents)
            for (const auto& [width, height] : {std::pair{300, 40}, {67, 67}, {1000, 3}})
                expect_twin(picture(content, width, height, 7), width, height);
    });
}

} // namespace
