// SPDX-License-Identifier: MIT
#include "blend/pyramid.h"

#include "blend/border.h"
#include "core/heap.h"
#include "tests/reference/pyramid.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

namespace panoval::test
{
namespace
{

using reference::Image;

// A float container of the C heap, of the exact size.
struct Owned : Matf {
    Owned() : Matf{} {}
    Owned(int w, int h, int c) : Matf{} { MatfReset(this, w, h, c); }
    explicit Owned(const Image& image) : Owned(image.width, image.height, image.channels)
    {
        if (!image.data.empty())
            std::memcpy(data, image.data.data(), image.data.size() * sizeof(float));
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { std::free(data); }
};

Image noise_image(int width, int height, int channels, std::uint64_t seed)
{
    Image image(width, height, channels);
    image.data = noise<float>(image.data.size(), -300.0f, 70000.0f, seed);
    return image;
}

Image constant_image(int width, int height, int channels, float value)
{
    Image image(width, height, channels);
    std::fill(image.data.begin(), image.data.end(), value);
    return image;
}

testing::AssertionResult same_image(const Matf& actual, const Image& expected)
{
    if (actual.width != expected.width || actual.height != expected.height || actual.channels != expected.channels)
        return testing::AssertionFailure() << "another shape";
    return same_bits(actual.data, expected.data.data(), expected.data.size());
}

template <class Body>
void for_each_shape(const Body& body)
{
    for (const int channels : {1, 2, 3, 4, 5}) {
        for (int width = 1; width <= 67; ++width)
            body(width, 1 + width % 7, channels);
        for (int height = 1; height <= 67; ++height)
            body(1 + height % 9, height, channels);
    }
}

TEST(PyrDown, EqualsItsTwinForEveryShape)
{
    for_each_target([] {
        for_each_shape([](int width, int height, int channels) {
            const Image src = noise_image(width, height, channels, 5);
            Image expected = Image::reduced(src);
            reference::pyr_down(src, expected, 4);

            const Owned source(src);
            Owned actual(expected.width, expected.height, channels);
            pyr_down(&source, &actual, kBorderMirrorInner);
            ASSERT_TRUE(same_image(actual, expected)) << width << " x " << height << " x " << channels;
        });
    });
}

TEST(PyrDown, EqualsItsTwinForTheOtherBorderRules)
{
    for (const int rule : {1, 2, 3, 4})
        for (int size = 1; size <= 12; ++size) {
            const Image src = noise_image(size, 13 - size, 3, 6);
            Image expected = Image::reduced(src);
            reference::pyr_down(src, expected, rule);

            const Owned source(src);
            Owned actual(expected.width, expected.height, 3);
            pyr_down(&source, &actual, rule);
            ASSERT_TRUE(same_image(actual, expected)) << "size " << size << ", rule " << rule;
        }
}

TEST(PyrDown, CountsWhatARuleLeavesOutsideAsZero)
{
    const Owned source(constant_image(1, 1, 1, 256.0f));
    for (const std::int32_t rule : {0, 9}) {
        Owned actual(1, 1, 1);
        pyr_down(&source, &actual, rule);
        EXPECT_EQ(actual.data[0], 36.0f);
    }
}

TEST(PyrDown, KeepsAConstant)
{
    for_each_shape([](int width, int height, int channels) {
        const Owned source(constant_image(width, height, channels, 185.0f));
        Owned actual((width + 1) / 2, (height + 1) / 2, channels);
        pyr_down(&source, &actual, kBorderMirrorInner);
        ASSERT_TRUE(same_image(actual, constant_image(actual.width, actual.height, channels, 185.0f)));
    });
}

TEST(PyrDown, SumsTheLastColumnsOfARowInTheirOwnOrder)
{
    // Down one column of 1e8, 1, 1, 1, -1e8 the two orders lose different parts of the small numbers.
    const auto reduce = [](int width) {
        Image src(2 * width, 5, 1);
        for (int x = 0; x < src.width; ++x) {
            src.row(0)[x] = 1e8f;
            src.row(4)[x] = -1e8f;
            for (int y = 1; y < 4; ++y)
                src.row(y)[x] = 3.0f;
        }
        const Owned source(src);
        Owned actual(width, 3, 1);
        pyr_down(&source, &actual, kBorderMirrorInner);
        return actual.data[width + width - 1];
    };
    const float in_fours = reduce(4);
    const float beside = reduce(5);
    EXPECT_EQ(in_fours, (4.0f * (48.0f + 48.0f + 48.0f) + (0.0f + 96.0f)) / 256);
    EXPECT_EQ(beside, (4.0f * 96.0f + 6.0f * 48.0f + 16e8f - 16e8f) / 256);
    EXPECT_NE(in_fours, beside);
}

TEST(PyrUp, EqualsItsTwinForEveryShape)
{
    for_each_target([] {
        for_each_shape([](int width, int height, int channels) {
            const Image src = noise_image((width + 1) / 2, (height + 1) / 2, channels, 9);
            Image expected(width, height, channels);
            reference::pyr_up(src, expected);

            const Owned source(src);
            Owned actual(width, height, channels);
            pyr_up(&source, &actual);
            ASSERT_TRUE(same_image(actual, expected)) << width << " x " << height << " x " << channels;
        });
    });
}

TEST(PyrUp, KeepsAConstant)
{
    for_each_shape([](int width, int height, int channels) {
        const Owned source(constant_image((width + 1) / 2, (height + 1) / 2, channels, 77.0f));
        Owned actual(width, height, channels);
        pyr_up(&source, &actual);
        ASSERT_TRUE(same_image(actual, constant_image(width, height, channels, 77.0f)));
    });
}

TEST(PyrUp, SpreadsASinglePixel)
{
    const Owned source(constant_image(1, 1, 1, 12.25f));
    Owned actual(2, 2, 1);
    pyr_up(&source, &actual);
    ASSERT_TRUE(same_image(actual, constant_image(2, 2, 1, 12.25f)));
}

TEST(PyrUp, KeepsTheEvenRowAtTheEndOfAnOddHeight)
{
    Image src(1, 2, 1);
    src.data = {64.0f, 128.0f};
    const Owned source(src);
    Owned actual(1, 3, 1);
    pyr_up(&source, &actual);
    // rows 64 and 128, mirrored above to 128 and repeated below
    EXPECT_EQ(actual.data[0], (128.0f + 6 * 64.0f + 128.0f) / 8);
    EXPECT_EQ(actual.data[1], (64.0f + 128.0f) / 2);
    EXPECT_EQ(actual.data[2], (64.0f + 6 * 128.0f + 128.0f) / 8);
}

class Levels
{
public:
    explicit Levels(int bands) : levels_(static_cast<std::size_t>(bands) + 1) {}
    ~Levels()
    {
        for (Matf& level : levels_)
            std::free(level.data);
    }
    Matf* data() { return levels_.data(); }
    Matf& operator[](std::size_t i) { return levels_[i]; }

private:
    std::vector<Matf> levels_;
};

TEST(LaplacePyramid, EqualsItsTwinFrom1To7Bands)
{
    for_each_target([] {
        for (int bands = 1; bands <= 7; ++bands)
            for (const Size size : {Size{1, 1}, Size{2, 1}, Size{1, 5}, Size{37, 22}, Size{64, 64}, Size{131, 9}})
                for (const int channels : {1, 3, 4}) {
                    const Image src = noise_image(size.width, size.height, channels, 11);
                    const std::vector<Image> expected = reference::create_laplace_pyr(src, bands);
                    const Owned source(src);
                    Levels actual(bands);
                    create_laplace_pyr(&source, bands, actual.data());
                    for (std::size_t i = 0; i < expected.size(); ++i)
                        ASSERT_TRUE(same_image(actual[i], expected[i])) << "level " << i << " of " << bands;
                }
    });
}

TEST(LaplacePyramid, CollapsesToTheImageItWasMadeOf)
{
    const Image src = noise_image(61, 45, 3, 12);
    const Owned source(src);
    Levels levels(4);
    create_laplace_pyr(&source, 4, levels.data());
    for (std::size_t i = 4; i > 0; --i) {
        Owned expanded(levels[i - 1].width, levels[i - 1].height, 3);
        pyr_up(&levels[i], &expanded);
        for (int k = 0; k < expanded.width * expanded.height * 3; ++k)
            levels[i - 1].data[k] += expanded.data[k];
    }
    for (std::size_t k = 0; k < src.data.size(); ++k)
        ASSERT_NEAR(levels[0].data[k], src.data[k], 0.05f);
}

TEST(LaplacePyramid, IsEmptyWithoutMemory)
{
    const Owned source(noise_image(20, 20, 3, 13));
    for_each_failing_allocation([&](FailingHeap& heap) {
        Matf levels[4] = {};
        create_laplace_pyr(&source, 3, levels);
        for (const Matf& level : levels) {
            EXPECT_EQ(level.data == nullptr, heap.has_failed());
            EXPECT_EQ(level.width == 0, heap.has_failed());
        }
        EXPECT_EQ(heap.live_blocks(), heap.has_failed() ? 0 : 4);
        for (Matf& level : levels)
            empty_container(level);
    });
}

TEST(Pyramid, LeavesItsResultEmptyWithoutMemory)
{
    const Owned source(noise_image(20, 20, 3, 14));
    Matf half{};
    Matf twice{};
    MatfReset(&half, 10, 10, 3);
    MatfReset(&twice, 40, 40, 3);
    FailingHeap heap(0, true);
    pyr_down(&source, &half, kBorderMirrorInner);
    pyr_up(&source, &twice);
    for (const Matf& m : {half, twice}) {
        EXPECT_EQ(m.data, nullptr);
        EXPECT_EQ(m.width, 0);
        EXPECT_EQ(m.height, 0);
        EXPECT_EQ(m.channels, 0);
    }
}

} // namespace
} // namespace panoval::test
