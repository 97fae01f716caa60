// SPDX-License-Identifier: MIT
#include "cli/base/system_info.h"

#include "cli/base/image_names.h"
#include "image/image.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace panoval::cli::test
{

namespace
{

TEST(Pages, ComeWithoutChangingABlock)
{
    for (const std::size_t bytes : {1u, 5000u, 4u << 20, (9u << 20) + 12345u}) {
        const Block block = allocate_block(bytes, "test");
        std::fill_n(block.get(), bytes, std::uint8_t{7});
        provide_pages(block.get(), bytes);
        EXPECT_EQ(std::count(block.get(), block.get() + bytes, 7), static_cast<std::ptrdiff_t>(bytes));
    }
}

TEST(Memory, AtItsPeakHoldsWhatWasProvided)
{
    constexpr std::size_t kBytes = 64u << 20;
    const std::uint64_t before = peak_memory_bytes();
    const Block block = allocate_block(kBytes, "test");
    std::fill_n(block.get(), kBytes, std::uint8_t{1});
    EXPECT_GE(peak_memory_bytes(), std::max<std::uint64_t>(before, kBytes));
}

} // namespace

} // namespace panoval::cli::test
