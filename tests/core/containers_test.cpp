// SPDX-License-Identifier: MIT
#include "panoval.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace
{

using panoval::test::FailingHeap;

TEST(MatReset, OfNothingOnAFreshRecordLeavesItEmpty)
{
    Mat m;
    std::memset(&m, 0xFF, sizeof m);
    MatInit(&m);
    MatReset(&m, 0, 7, 3, 2);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.capacity, 0);
    EXPECT_EQ(m.size, 0);
    EXPECT_EQ(m.height, 7);
}

TEST(MatReset, ToFewerBytesKeepsTheBlockAndClearsOnlyThem)
{
    Mat m;
    MatInit(&m);
    MatReset(&m, 10, 10, 1, 1);
    std::uint8_t* const block = m.data;
    std::memset(m.data, 9, 100);
    MatReset(&m, 10, 4, 1, 1);
    EXPECT_EQ(m.data, block);
    EXPECT_EQ(m.capacity, 100);
    EXPECT_EQ(m.size, 40);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(m.data[i], i < 40 ? 0 : 9);
    MatDestroy(&m);
}

TEST(MatReset, WithoutMemoryLeavesTheRecordEmptyAndFreesTheOldBlock)
{
    Mat m;
    MatInit(&m);
    FailingHeap heap(1);
    MatReset(&m, 2, 2, 1, 1);
    MatReset(&m, 3, 3, 1, 1);
    EXPECT_TRUE(heap.has_failed());
    EXPECT_EQ(heap.live_blocks(), 0);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.width, 0);
    EXPECT_EQ(m.capacity, 0);
}

} // namespace
