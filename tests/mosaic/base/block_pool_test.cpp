// SPDX-License-Identifier: MIT
#include "mosaic/base/block_pool.h"

#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <set>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

using Blocks = std::vector<std::shared_ptr<std::uint8_t>>;

constexpr std::size_t kBytes = std::size_t{1} << 20;
constexpr std::size_t kSlab = 64 * kBytes;

Blocks take(BlockPool& pool, std::size_t count)
{
    Blocks blocks;
    for (std::size_t i = 0; i < count; ++i) {
        blocks.push_back(pool.take());
        std::fill_n(blocks.back().get(), kBytes, static_cast<std::uint8_t>(i));
    }
    for (std::size_t i = 0; i < count; ++i)
        EXPECT_EQ(std::count(blocks[i].get(), blocks[i].get() + kBytes, static_cast<std::uint8_t>(i)),
                  static_cast<std::ptrdiff_t>(kBytes))
            << "block " << i << " is not its own";
    return blocks;
}

TEST(BlockPool, BlocksComeOneByOneAndAreUsedAgain)
{
    MemoryMeter meter;
    BlockPool pool(kBytes, meter);
    std::set<std::uint8_t*> first;
    for (const auto& block : take(pool, 3))
        first.insert(block.get());
    EXPECT_EQ(meter.now(), 3 * kBytes);
    std::set<std::uint8_t*> second;
    for (const auto& block : take(pool, 3))
        second.insert(block.get());
    EXPECT_EQ(second, first);
    pool.shrink(1);
    EXPECT_EQ(meter.now(), kBytes);
}

// Whichever of its allocations fails, no block is lost.
TEST(BlockPool, SaysThatTheHeapIsExhausted)
{
    std::size_t failures = 0;
    for (bool has_failed = true; has_failed; failures += has_failed ? 1 : 0) {
        MemoryMeter meter;
        BlockPool pool(kBytes, meter);
        ASSERT_EQ(pool.blocks(), 0u); // its lock, which may ask for memory of its own when it is taken first
        bool is_refused = false;
        {
            const panoval::test::FailingHeap heap(failures, false, true);
            try {
                pool.take();
            } catch (const std::bad_alloc&) {
                is_refused = true;
            }
            has_failed = heap.has_failed();
        }
        EXPECT_EQ(is_refused, has_failed) << "allocation " << failures;
        EXPECT_EQ(meter.now(), pool.blocks() * kBytes);
        EXPECT_EQ(pool.has_free_block(), pool.blocks() > 0);
        EXPECT_NE(pool.take(), nullptr) << "it can go on later";
    }
    EXPECT_GE(failures, 2u);
}

TEST(BlockPool, ExpectedBlocksComeTogetherAndNoMoreThanThose)
{
    MemoryMeter meter;
    BlockPool pool(kBytes, meter);
    pool.expect(69, kSlab);
    {
        const Blocks blocks = take(pool, 65);
        EXPECT_EQ(meter.now(), 69 * kBytes) << "64, and the rest";
        const Blocks beyond = take(pool, 6);
        EXPECT_EQ(meter.now(), 71 * kBytes);
    }
    pool.shrink(0);
    EXPECT_EQ(meter.now(), 0u);
}

TEST(BlockPool, TellsWhereBlocksThatCameTogetherBegin)
{
    MemoryMeter meter;
    BlockPool pool(kBytes, meter);
    EXPECT_TRUE(pool.slab_starts().empty());
    pool.expect(7, 3 * kBytes);
    const Blocks blocks = take(pool, 7);
    std::vector<const std::uint8_t*> first = {blocks[0].get(), blocks[3].get(), blocks[6].get()};
    std::sort(first.begin(), first.end());
    EXPECT_EQ(pool.slab_starts(), first);
}

TEST(BlockPool, BlocksThatCameTogetherStayWhileOneIsHeld)
{
    MemoryMeter meter;
    BlockPool pool(kBytes, meter);
    pool.expect(68, kSlab);
    Blocks blocks = take(pool, 68);
    blocks.resize(1);
    pool.shrink(0);
    EXPECT_EQ(meter.now(), 64 * kBytes) << "the others have gone";
    blocks.clear();
    pool.shrink(0);
    EXPECT_EQ(pool.blocks(), 0u);
    EXPECT_EQ(take(pool, 2).size(), 2u);
    EXPECT_EQ(meter.now(), 2 * kBytes) << "one by one again";
}

} // namespace

} // namespace panoval::mosaic::test
