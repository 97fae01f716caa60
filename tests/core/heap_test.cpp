// SPDX-License-Identifier: MIT
#include "core/heap.h"

#include "panoval.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace
{

using namespace panoval;
using panoval::test::FailingHeap;

constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();

TEST(Allocate, GivesABlockThatItsOwnerFrees)
{
    FailingHeap heap;
    {
        const HeapArray<double> block = allocate<double>(5);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(heap.largest(), 5 * sizeof(double));
        EXPECT_EQ(heap.live_blocks(), 1);
    }
    EXPECT_EQ(heap.live_blocks(), 0);
}

TEST(Allocate, OfNothingGivesABlock)
{
    EXPECT_NE(allocate<double>(0), nullptr);
    EXPECT_NE(allocate_zeroed<double>(0), nullptr);
}

TEST(Allocate, GivesNullWhenTheHeapIsExhausted)
{
    FailingHeap heap(0, true);
    EXPECT_EQ(allocate<int>(1), nullptr);
    EXPECT_EQ(allocate_zeroed<int>(1), nullptr);
    EXPECT_EQ(heap.allocations(), 2u);
}

TEST(Allocate, GivesNullForByteCountsThatNoSizeHolds)
{
    FailingHeap heap;
    for (const std::size_t count : {kHuge, kHuge / 2, kHuge / 8 + 2}) {
        EXPECT_EQ(allocate<double>(count), nullptr);
        EXPECT_EQ(allocate_zeroed<double>(count), nullptr);
    }
    EXPECT_EQ(heap.allocations(), 0u);
}

TEST(AllocateZeroed, GivesZeros)
{
    for (int round = 0; round < 3; ++round) { // later blocks may be used ones
        const HeapArray<std::uint32_t> block = allocate_zeroed<std::uint32_t>(300);
        ASSERT_NE(block, nullptr);
        for (std::size_t i = 0; i < 300; ++i) {
            ASSERT_EQ(block[i], 0u);
            block[i] = 0xFFFFFFFFu;
        }
    }
}

TEST(Grow, KeepsTheContents)
{
    HeapArray<int> block = allocate<int>(2);
    block[0] = 7;
    block[1] = 8;
    ASSERT_TRUE(grow(block, 1000));
    EXPECT_EQ(block[0], 7);
    EXPECT_EQ(block[1], 8);
    block[999] = 9;
}

TEST(Grow, StartsFromNothing)
{
    FailingHeap heap;
    {
        HeapArray<int> block;
        ASSERT_TRUE(grow(block, 0));
        ASSERT_TRUE(grow(block, 3));
        EXPECT_EQ(heap.live_blocks(), 1);
    }
    EXPECT_EQ(heap.live_blocks(), 0);
}

TEST(Grow, LeavesTheArrayUntouchedWhenTheHeapIsExhausted)
{
    FailingHeap heap(1);
    {
        HeapArray<int> block = allocate<int>(1);
        block[0] = 7;
        const int* const before = block.get();
        EXPECT_FALSE(grow(block, 1000));
        EXPECT_FALSE(grow(block, kHuge / 2));
        EXPECT_EQ(block.get(), before);
        EXPECT_EQ(block[0], 7);
    }
    EXPECT_EQ(heap.live_blocks(), 0);
}

TEST(EmptyContainer, FreesTheBlockAndClearsTheRecord)
{
    FailingHeap heap;
    Matf m = {};
    MatfReset(&m, 3, 2, 1);
    empty_container(m);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.width, 0);
    EXPECT_EQ(m.height, 0);
    EXPECT_EQ(m.channels, 0);
    EXPECT_EQ(heap.live_blocks(), 0);
}

} // namespace
