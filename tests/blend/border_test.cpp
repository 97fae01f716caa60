// SPDX-License-Identifier: MIT
#include "blend/border.h"
#include "tests/reference/border.h"
#include "tests/support/buffers.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <limits>

namespace panoval::test
{
namespace
{

constexpr std::int32_t kFar = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kFarBack = std::numeric_limits<std::int32_t>::min();

TEST(BorderInterpolate, MirrorsWithTheEdgeRepeated)
{
    EXPECT_EQ(border_interpolate(-1, 5, 2), 0);
    EXPECT_EQ(border_interpolate(-2, 5, 2), 1);
    EXPECT_EQ(border_interpolate(5, 5, 2), 4);
    EXPECT_EQ(border_interpolate(6, 5, 2), 3);
    EXPECT_EQ(border_interpolate(-7, 1, 2), 0);
}

TEST(BorderInterpolate, MirrorsWithoutRepeatingTheEdge)
{
    EXPECT_EQ(border_interpolate(-1, 5, 4), 1);
    EXPECT_EQ(border_interpolate(-2, 5, 4), 2);
    EXPECT_EQ(border_interpolate(5, 5, 4), 3);
    EXPECT_EQ(border_interpolate(6, 5, 4), 2);
    EXPECT_EQ(border_interpolate(7, 1, 4), 0);
}

TEST(BorderInterpolate, RepeatsTheFirstOrLastIndex)
{
    EXPECT_EQ(border_interpolate(-3, 5, 1), 0);
    EXPECT_EQ(border_interpolate(9, 5, 1), 4);
}

TEST(BorderInterpolate, WrapsAround)
{
    EXPECT_EQ(border_interpolate(-1, 5, 3), 4);
    EXPECT_EQ(border_interpolate(-10, 5, 3), 0);
    EXPECT_EQ(border_interpolate(12, 5, 3), 2);
}

TEST(BorderInterpolate, LeavesTheConstantToTheCaller)
{
    EXPECT_EQ(border_interpolate(-1, 5, 0), -1);
    EXPECT_EQ(border_interpolate(5, 5, 0), -1);
    EXPECT_EQ(border_interpolate(3, 5, 0), 3);
}

TEST(BorderInterpolate, KeepsAnIndexUnderAnUnknownRule)
{
    EXPECT_EQ(border_interpolate(-1, 5, 9), -1);
    EXPECT_EQ(border_interpolate(77, 5, -3), 77);
}

TEST(BorderInterpolate, EqualsOneReflectionAtATime)
{
    for (const std::int32_t rule : {0, 1, 2, 3, 4, 5})
        for (std::int32_t length = 0; length <= 9; ++length)
            for (std::int32_t p = -60; p <= 60; ++p)
                ASSERT_EQ(border_interpolate(p, length, rule), reference::border_interpolate(p, length, rule))
                    << "index " << p << " of " << length << ", rule " << rule;
}

TEST(BorderInterpolate, StaysInsideAtAnyDistance)
{
    for (const std::int32_t rule : {1, 2, 3, 4})
        for (const std::int32_t length : {1, 2, 3, 1000, kFar})
            for (const std::int32_t p : {kFarBack, kFarBack + 1, -1, kFar - 1, kFar}) {
                const std::int32_t inside = border_interpolate(p, length, rule);
                EXPECT_TRUE(inside >= 0 && inside < length) << p << " of " << length << ", rule " << rule;
            }
}

TEST(BorderInterpolate, GivesZeroWhereThereIsNoIndex)
{
    for (const std::int32_t rule : {1, 2, 3, 4})
        EXPECT_EQ(border_interpolate(3, 0, rule), 0);
}

struct Margins {
    int left, top, right, bottom;
};

constexpr Margins kMargins[] = {{0, 0, 0, 0}, {1, 0, 0, 0}, {0, 0, 3, 0}, {0, 2, 0, 0},
                                {0, 0, 0, 4}, {2, 3, 4, 1}, {9, 9, 9, 9}};

TEST(CopyMakeBorder, EqualsItsTwinForEveryRuleAndMargin)
{
    for (const int rule : {1, 2, 3, 4})
        for (const int bytes : {1, 2, 4, 12})
            for (const Size size : {Size{1, 1}, Size{2, 1}, Size{1, 3}, Size{5, 4}})
                for (const Margins& m : kMargins) {
                    const Size dst_size{m.left + size.width + m.right, m.top + size.height + m.bottom};
                    const int src_step = size.width * bytes + 3;
                    const int dst_step = dst_size.width * bytes;
                    const Guarded<std::uint8_t> src(
                        noise<std::uint8_t>(static_cast<std::size_t>(src_step * size.height - 3), 0, 255, 7));
                    Guarded<std::uint8_t> dst(static_cast<std::size_t>(dst_step * dst_size.height));
                    std::vector<std::uint8_t> expected(dst.size());

                    copy_make_border(src.data(), static_cast<std::size_t>(src_step), size, dst.data(),
                                     static_cast<std::size_t>(dst_step), dst_size, m.top, m.left, bytes, rule);
                    reference::copy_make_border(src.data(), src_step, size, expected.data(), dst_step, dst_size, m.top,
                                                m.left, bytes, rule);
                    ASSERT_TRUE(same_bits(dst.values(), expected)) << "rule " << rule << ", " << bytes << " bytes";
                    ASSERT_TRUE(dst.intact());
                }
}

TEST(CopyMakeBorder, MirrorsFarBeyondASmallImage)
{
    const std::uint8_t src[] = {1, 2};
    std::uint8_t dst[10] = {};
    copy_make_border(src, 2, {2, 1}, dst, 10, {10, 1}, 0, 5, 1, kBorderMirrorEdge);
    EXPECT_EQ(std::vector<std::uint8_t>(dst, dst + 10), (std::vector<std::uint8_t>{1, 1, 2, 2, 1, 1, 2, 2, 1, 1}));
}

TEST(CopyMakeBorder, FillsTheMarginsOfAnImageInPlace)
{
    std::uint8_t block[] = {0, 7, 8, 9, 0};
    copy_make_border(block + 1, 5, {3, 1}, block, 5, {5, 1}, 0, 1, 1, kBorderReplicate);
    EXPECT_EQ(std::vector<std::uint8_t>(block, block + 5), (std::vector<std::uint8_t>{7, 7, 8, 9, 9}));
}

TEST(CopyMakeBorder, StopsAtTheDestinationsHeight)
{
    const std::vector<std::uint8_t> src = {1, 2, 3, 4};
    for (const bool constant : {false, true}) {
        Guarded<std::uint8_t> dst(3);
        const std::uint8_t value = 9;
        if (constant)
            copy_make_const_border(src.data(), 1, {1, 4}, dst.data(), 1, {1, 3}, 1, 0, 1, &value);
        else
            copy_make_border(src.data(), 1, {1, 4}, dst.data(), 1, {1, 3}, 1, 0, 1, kBorderMirrorEdge);
        const std::uint8_t top = constant ? 9 : 1;
        EXPECT_EQ(dst.values(), (std::vector<std::uint8_t>{top, 1, 2}));
        EXPECT_TRUE(dst.intact());
    }
}

TEST(CopyMakeBorder, LeavesOutAMarginWhoseRowFoundNoRoom)
{
    const std::vector<std::uint8_t> src = {1, 2, 3, 4};
    Guarded<std::uint8_t> dst(std::vector<std::uint8_t>{8, 8, 8});
    copy_make_border(src.data(), 1, {1, 4}, dst.data(), 1, {1, 3}, 2, 0, 1, kBorderMirrorEdge);
    EXPECT_EQ(dst.values(), (std::vector<std::uint8_t>{8, 1, 1}));
    EXPECT_TRUE(dst.intact());
}

TEST(CopyMakeConstBorder, EqualsItsTwinForEveryMargin)
{
    for (const int bytes : {1, 4, 12})
        for (const Size size : {Size{1, 1}, Size{1, 3}, Size{5, 4}})
            for (const Margins& m : kMargins) {
                const Size dst_size{m.left + size.width + m.right, m.top + size.height + m.bottom};
                const auto src_step = static_cast<std::size_t>(size.width * bytes);
                const auto dst_step = static_cast<std::size_t>(dst_size.width * bytes);
                const auto value = noise<std::uint8_t>(static_cast<std::size_t>(bytes), 0, 255, 3);
                const Guarded<std::uint8_t> src(
                    noise<std::uint8_t>(src_step * static_cast<std::size_t>(size.height), 0, 255, 8));
                Guarded<std::uint8_t> dst(dst_step * static_cast<std::size_t>(dst_size.height));
                std::vector<std::uint8_t> expected(dst.size());

                copy_make_const_border(src.data(), src_step, size, dst.data(), dst_step, dst_size, m.top, m.left, bytes,
                                       value.data());
                reference::copy_make_const_border(src.data(), static_cast<int>(src_step), size, expected.data(),
                                                  static_cast<int>(dst_step), dst_size, m.top, m.left, bytes,
                                                  value.data());
                ASSERT_TRUE(same_bits(dst.values(), expected)) << bytes << " bytes";
                ASSERT_TRUE(dst.intact());
            }
}

} // namespace
} // namespace panoval::test
