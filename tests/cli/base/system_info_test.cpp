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
