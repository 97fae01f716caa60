// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/reference/smooth.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace
{

using namespace panoval;
using namespace panoval::test;

using Picture = std::vector<std::uint8_t>;

struct Shape {
    int width;
    int height;
};

struct Levels {
    int even;
    int odd;
};

std::size_t count_of(int width, int height)
{
    return width > 0 && height > 0 ? static_cast<std::size_t>(width) * static_cast<std::size_t>(height) : 0;
}

// A picture by formula; the low 8 bits of f(x, y).
Picture drawn(int width, int height, const std::function<int(int, int)>& f)
{
    Picture values;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            values.push_back(static_cast<std::uint8_t>(static_cast<unsigned>(f(x, y)) & 0xFFu));
    return values;
}

Picture smoothed(const Picture& src, int width, int height)
{
    const Guarded<std::uint8_t> in(src);
    Guarded<std::uint8_t> out(src.size());
    smooth_image(in.data(), width, height, out.data());
    EXPECT_TRUE(out.intact());
    EXPECT_TRUE(same_bits(in.values(), src)) << "the source changed";
    return out.values();
}

void expect_twin(const Picture& src, int width, int height)
{
    Picture expected(src.size());
    reference::smooth_image(src.data(), width, height, expected.data());
    EXPECT_TRUE(same_bits(smoothed(src, width, height), expected)) << width << " x " << height;
}

TEST(Smooth, KeepsEveryFlatImageExcept185)
{
    // the double sum of 25 products of 185 lands just below 185
    for_each_target([] {
        for (const Shape& shape : {Shape{5, 5}, {37, 6}, {100, 7}, {300, 5}})
            for (int level = 0; level < 256; ++level) {
                const int width = shape.width;
                const int height = shape.height;
                const auto src = drawn(width, height, [&](int, int) { return level; });
                const auto expected = drawn(width, height, [&](int x, int y) {
                    const bool frame = x < 2 || y < 2 || x >= width - 2 || y >= height - 2;
                    return level == 185 && !frame ? 184 : level;
                });
                ASSERT_EQ(smoothed(src, width, height), expected) << level << ", " << width << " x " << height;
            }
    });
}

TEST(Smooth, FloorsTheWeightOfASinglePixel)
{
    // 255 times the kernel: 41.3, 25.1, 15.2 / 5.6, 3.4, 0.76
    for_each_target([] {
        const auto src = drawn(9, 9, [](int x, int y) { return x == 4 && y == 4 ? 255 : 0; });
        const auto expected = drawn(9, 9, [](int x, int y) {
            const int table[3][3] = {{41, 25, 5}, {25, 15, 3}, {5, 3, 0}};
            const int i = std::abs(y - 4);
            const int j = std::abs(x - 4);
            return i > 2 || j > 2 ? 0 : table[i][j];
        });
        EXPECT_EQ(smoothed(src, 9, 9), expected);
    });
}

TEST(Smooth, CopiesTheOutermostTwoRowsAndColumns)
{
    for_each_target([] {
        const auto src = noise<std::uint8_t>(50 * 20, 0, 255, 3);
        const auto dst = smoothed(src, 50, 20);
        int changed = 0;
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 50; ++x) {
                const auto i = static_cast<std::size_t>(y * 50 + x);
                if (x < 2 || y < 2 || x >= 48 || y >= 18)
                    EXPECT_EQ(dst[i], src[i]);
                else
                    changed += dst[i] != src[i] ? 1 : 0;
            }
        EXPECT_GT(changed, 600);
    });
}

TEST(Smooth, CopiesImagesThatAreFrameOnly)
{
    for_each_target([] {
        for (int other = 1; other <= 67; ++other)
            for (int narrow = 1; narrow <= 4; ++narrow) {
                const auto src = noise<std::uint8_t>(count_of(narrow, other), 0, 255, 4);
                EXPECT_EQ(smoothed(src, narrow, other), src);
                EXPECT_EQ(smoothed(src, other, narrow), src);
            }
    });
}

TEST(Smooth, OfNoPixelsWritesNothing)
{
    for (const auto& [width, height] : {std::pair{0, 0}, {0, 7}, {7, 0}, {-3, 8}, {8, -3}, {-3, -3}}) {
        Guarded<std::uint8_t> out(Picture(16, 77));
        const Picture src(16, 5);
        smooth_image(src.data(), width, height, out.data());
        EXPECT_EQ(out.values(), Picture(16, 77));
    }
}

TEST(Smooth, NeedsNoHeap)
{
    const auto src = noise<std::uint8_t>(100 * 30, 0, 255, 5);
    Picture dst(src.size());
    FailingHeap heap(0, true);
    smooth_image(src.data(), 100, 30, dst.data());
    EXPECT_EQ(heap.allocations(), 0u);
}

TEST(Smooth, EqualsItsTwinForEverySize)
{
    for_each_target([] {
        for (int height = 0; height <= 67; height += height < 12 ? 1 : 11)
            for (int width = 0; width <= 67; ++width)
                expect_twin(noise<std::uint8_t>(count_of(width, height), 0, 255, 6), width, height);
        for (int height = 0; height <= 67; ++height)
            for (const int width : {5, 36, 37})
                expect_twin(noise<std::uint8_t>(count_of(width, height), 0, 255, 7), width, height);
    });
}

TEST(Smooth, EqualsItsTwinOnEveryContent)
{
    for_each_target([] {
        for (const Content content : kAllContents)
            for (const auto& [width, height] : {std::pair{300, 40}, {67, 67}, {33, 31}, {613, 9}, {1100, 7}}) {
                SCOPED_TRACE(name_of(content));
                expect_twin(picture(content, width, height, 8), width, height);
            }
    });
}

// Where the weights cancel out to a whole number, the last bit of the ordered sum decides.
TEST(Smooth, EqualsItsTwinOnLinearRampsInAllDirections)
{
    for_each_target([] {
        for (int slope_x = -3; slope_x <= 3; ++slope_x)
            for (int slope_y = -3; slope_y <= 3; ++slope_y)
                for (const int base : {0, 101, 185}) {
                    SCOPED_TRACE(testing::Message() << "slopes " << slope_x << ", " << slope_y);
                    expect_twin(drawn(85, 70, [&](int x, int y) { return base + slope_x * x + slope_y * y; }), 85, 70);
                }
    });
}

TEST(Smooth, EqualsItsTwinOnRampsOfFractionsOfALevel)
{
    for_each_target([] {
        for (int run = 2; run <= 20; ++run) {
            expect_twin(drawn(300, 12, [&](int x, int) { return x / run; }), 300, 12);
            expect_twin(drawn(40, 100, [&](int, int y) { return 255 - y / run; }), 40, 100);
            expect_twin(drawn(90, 60, [&](int x, int y) { return (x + 2 * y) / run; }), 90, 60);
        }
    });
}

// Odd about a point plus a level: every window that is centred there sums to the level.
TEST(Smooth, EqualsItsTwinOnMirrorSymmetricInput)
{
    for_each_target([] {
        for (std::uint64_t seed = 0; seed < 40; ++seed) {
            const int level = static_cast<int>(60 + 3 * seed);
            const auto half = noise<int>(12, -60, 60, seed);
            // the 5 x 5 window w with w[24 - k] = 2 * level - w[k], repeated over the picture
            const auto in_window = [&](int k) { return k < 12 ? half[static_cast<std::size_t>(k)] : 0; };
            const auto src = drawn(70, 40, [&](int x, int y) {
                const int k = (y % 5) * 5 + x % 5;
                return level + (k == 12 ? 0 : k < 12 ? in_window(k) : -in_window(24 - k));
            });
            expect_twin(src, 70, 40);
            // left and right mirrored about a column
            const auto columns = noise<int>(35, -60, 60, seed + 100);
            expect_twin(drawn(71, 20,
                              [&](int x, int) {
                                  return x == 35  ? level
                                         : x < 35 ? level + columns[static_cast<std::size_t>(x)]
                                                  : level - columns[static_cast<std::size_t>(70 - x)];
                              }),
                        71, 20);
        }
    });
}

TEST(Smooth, EqualsItsTwinOnTwoLevels)
{
    for_each_target([] {
        for (const Levels& levels : {Levels{0, 255}, {40, 200}, {184, 186}, {185, 0}, {185, 185}, {0, 1}})
            for (const int cell : {1, 2, 3, 5, 8, 16, 40}) {
                const auto level = [&](int number) { return number % 2 != 0 ? levels.odd : levels.even; };
                expect_twin(drawn(150, 50, [&](int x, int y) { return level(x / cell + y / cell); }), 150, 50);
                expect_twin(drawn(150, 20, [&](int x, int) { return level(x / cell); }), 150, 20);
            }
    });
}

TEST(Smooth, EqualsItsTwinWhereFlatAndRoughMeet)
{
    for_each_target([] {
        const auto rough = noise<std::uint8_t>(count_of(130, 200), 0, 255, 9);
        for (const int level : {0, 1, 90, 185, 255}) {
            const auto pixel = [&](int x, int y) {
                return x % 32 < 16 ? level : int{rough[static_cast<std::size_t>(130 * y + x)]};
            };
            expect_twin(drawn(130, 200, pixel), 130, 200);
        }
    });
}

TEST(Smooth, EqualsItsTwinOnFlatImagesWithSpecks)
{
    for_each_target([] {
        for (int level = 0; level < 256; level += level < 180 || level > 190 ? 5 : 1) {
            auto src = drawn(130, 24, [&](int, int) { return level; });
            Random random(static_cast<std::uint64_t>(level));
            for (int speck = 0; speck < 6; ++speck) {
                std::uint8_t& pixel = src[static_cast<std::size_t>(random.integer(0, 130 * 24 - 1))];
                pixel = static_cast<std::uint8_t>((pixel + random.integer(1, 255)) & 0xFF);
            }
            expect_twin(src, 130, 24);
        }
    });
}

} // namespace
