// SPDX-License-Identifier: MIT
#include "core/large_pages.h"

#include "core/heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>

namespace
{

using namespace panoval;

constexpr std::size_t kPage = std::size_t{2} << 20;

TEST(LargePages, LeaveABlockAsItIs)
{
    for (const std::size_t bytes : {std::size_t{1}, kPage, 2 * kPage - 1, 2 * kPage, 5 * kPage + 12345}) {
        const auto zeroed = allocate_zeroed<std::uint8_t>(bytes);
        ASSERT_NE(zeroed, nullptr);
        EXPECT_EQ(std::count(zeroed.get(), zeroed.get() + bytes, 0), static_cast<std::ptrdiff_t>(bytes));
        std::fill_n(zeroed.get(), bytes, std::uint8_t{7});
        prefer_large_pages(zeroed.get(), bytes);
        EXPECT_EQ(std::count(zeroed.get(), zeroed.get() + bytes, 7), static_cast<std::ptrdiff_t>(bytes));
    }
}

TEST(LargePages, TakeNoBlockForAnAnswerAndKeepErrno)
{
    errno = 123;
    prefer_large_pages(nullptr, 0);
    prefer_large_pages(nullptr, 8 * kPage);
    const auto block = allocate<std::uint8_t>(3 * kPage);
    prefer_large_pages(block.get(), 3 * kPage);
    EXPECT_EQ(errno, 123);
}

} // namespace
