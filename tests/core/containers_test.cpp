// SPDX-License-Identifier: MIT
// The generic container's life: MatInit, MatReset, MatDestroy.
#include "panoval.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace
{

using panoval::test::FailingHeap;
using panoval::test::for_each_failing_allocation;

Mat filled(std::int32_t bytes, int value)
{
    Mat m;
    MatInit(&m);
    MatReset(&m, bytes, 1, 1, 1);
    std::memset(m.data, value, static_cast<std::size_t>(bytes));
    return m;
}

bool all_equal(const std::uint8_t* bytes, std::int32_t from, std::int32_t to, int value)
{
    for (std::int32_t i = from; i < to; ++i)
        if (bytes[i] != value)
            return false;
    return true;
}

void expect_empty(const Mat& m)
{
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.width, 0);
    EXPECT_EQ(m.height, 0);
    EXPECT_EQ(m.channels, 0);
    EXPECT_EQ(m.elemSize, 0);
    EXPECT_EQ(m.size, 0);
    EXPECT_EQ(m.capacity, 0);
}

TEST(MatInit, ZeroesEveryFieldWhateverTheRecordHolds)
{
    Mat m;
    std::memset(static_cast<void*>(&m), 0xFF, sizeof m);
    MatInit(&m);
    expect_empty(m);
}

TEST(MatInit, FreesNothing)
{
    FailingHeap heap;
    Mat m = filled(8, 1);
    std::uint8_t* const block = m.data;
    MatInit(&m);
    EXPECT_EQ(heap.live_blocks(), 1);
    std::free(block);
}

TEST(MatReset, StoresTheShapeAndTheBytesItTakes)
{
    Mat m;
    MatInit(&m);
    MatReset(&m, 7, 5, 3, 2);
    EXPECT_EQ(m.width, 7);
    EXPECT_EQ(m.height, 5);
    EXPECT_EQ(m.channels, 3);
    EXPECT_EQ(m.elemSize, 2);
    EXPECT_EQ(m.size, 210);
    EXPECT_EQ(m.capacity, 210);
    EXPECT_TRUE(all_equal(m.data, 0, 210, 0));
    MatDestroy(&m);
}

TEST(MatReset, OfNothingOnAFreshRecordAllocatesNothing)
{
    for (int zero = 0; zero < 4; ++zero) {
        FailingHeap heap;
        Mat m;
        MatInit(&m);
        MatReset(&m, zero == 0 ? 0 : 4, zero == 1 ? 0 : 7, zero == 2 ? 0 : 3, zero == 3 ? 0 : 2);
        EXPECT_EQ(m.data, nullptr);
        EXPECT_EQ(m.capacity, 0);
        EXPECT_EQ(m.size, 0);
        EXPECT_EQ(m.width, zero == 0 ? 0 : 4);
        EXPECT_EQ(m.height, zero == 1 ? 0 : 7);
        EXPECT_EQ(heap.allocations(), 0u);
    }
}

TEST(MatReset, ToFewerBytesKeepsTheBlockAndClearsOnlyThem)
{
    Mat m = filled(100, 9);
    std::uint8_t* const block = m.data;
    MatReset(&m, 10, 4, 1, 1);
    EXPECT_EQ(m.data, block);
    EXPECT_EQ(m.capacity, 100);
    EXPECT_EQ(m.size, 40);
    EXPECT_TRUE(all_equal(m.data, 0, 40, 0));
    EXPECT_TRUE(all_equal(m.data, 40, 100, 9));
    MatDestroy(&m);
}

TEST(MatReset, ClearsTheBlockAlsoWhenTheShapeStaysTheSame)
{
    Mat m = filled(64, 9);
    std::uint8_t* const block = m.data;
    MatReset(&m, 64, 1, 1, 1);
    EXPECT_EQ(m.data, block);
    EXPECT_TRUE(all_equal(m.data, 0, 64, 0));
    MatDestroy(&m);
}

TEST(MatReset, UpToTheCapacityKeepsTheBlock)
{
    Mat m = filled(100, 9);
    std::uint8_t* const block = m.data;
    MatReset(&m, 10, 1, 1, 1);
    MatReset(&m, 5, 5, 2, 2);
    EXPECT_EQ(m.data, block);
    EXPECT_EQ(m.size, 100);
    EXPECT_EQ(m.capacity, 100);
    EXPECT_TRUE(all_equal(m.data, 0, 100, 0));
    MatDestroy(&m);
}

TEST(MatReset, ToMoreBytesThanTheCapacityReplacesTheBlockAndClearsAllOfIt)
{
    FailingHeap heap;
    Mat m = filled(100, 9);
    MatReset(&m, 101, 1, 1, 1);
    EXPECT_EQ(m.size, 101);
    EXPECT_EQ(m.capacity, 101);
    EXPECT_TRUE(all_equal(m.data, 0, 101, 0));
    EXPECT_EQ(heap.live_blocks(), 1);
    EXPECT_EQ(heap.largest(), 101u);
    MatDestroy(&m);
    EXPECT_EQ(heap.live_blocks(), 0);
}

TEST(MatReset, TakesASizeInBytesNotInPixels)
{
    Mat m = filled(100, 9); // 100 pixels of one byte fit; of two bytes they do not
    MatReset(&m, 100, 1, 1, 2);
    EXPECT_EQ(m.capacity, 200);
    EXPECT_TRUE(all_equal(m.data, 0, 200, 0));
    MatDestroy(&m);
}

TEST(MatReset, ToANegativeSizeClearsNothingAndKeepsTheBlock)
{
    Mat m = filled(100, 9);
    std::uint8_t* const block = m.data;
    MatReset(&m, -2, 5, 1, 1);
    EXPECT_EQ(m.data, block);
    EXPECT_EQ(m.width, -2);
    EXPECT_EQ(m.size, -10);
    EXPECT_EQ(m.capacity, 100);
    EXPECT_TRUE(all_equal(m.data, 0, 100, 9));
    MatDestroy(&m);
}

TEST(MatReset, OfANegativeSizeOnAFreshRecordAllocatesNothing)
{
    Mat m;
    MatInit(&m);
    MatReset(&m, 3, -3, 1, 1);
    EXPECT_EQ(m.data, nullptr);
    EXPECT_EQ(m.size, -9);
    EXPECT_EQ(m.capacity, 0);
}

TEST(MatReset, WrapsAProductThatLeaves32Bits)
{
    FailingHeap heap;
    Mat m;
    MatInit(&m);
    MatReset(&m, 65536, 65536, 1, 1);
    EXPECT_EQ(m.size, 0);
    MatReset(&m, 65536, 32768, 1, 1);
    EXPECT_EQ(m.size, INT32_MIN);
    EXPECT_EQ(heap.allocations(), 0u);
    MatReset(&m, 65536, 65536, 1, 1);
    MatReset(&m, 32769, 65536, 2, 1); // 2^32 + 2^17
    EXPECT_EQ(m.size, 131072);
    EXPECT_TRUE(all_equal(m.data, 0, m.size, 0));
    MatDestroy(&m);
}

TEST(MatReset, WithoutMemoryLeavesTheRecordEmptyAndFreesTheOldBlock)
{
    for_each_failing_allocation([](FailingHeap& heap) {
        Mat m;
        MatInit(&m);
        MatReset(&m, 2, 2, 1, 1);
        MatReset(&m, 3, 3, 1, 1);
        if (m.data == nullptr)
            expect_empty(m);
        else
            EXPECT_TRUE(all_equal(m.data, 0, 9, 0));
        MatDestroy(&m);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

TEST(MatReset, WorksAgainAfterTheHeapWasExhausted)
{
    Mat m;
    MatInit(&m);
    {
        FailingHeap heap(0);
        MatReset(&m, 3, 3, 1, 1);
        EXPECT_TRUE(heap.has_failed());
        expect_empty(m);
    }
    MatReset(&m, 3, 3, 1, 1);
    EXPECT_EQ(m.capacity, 9);
    EXPECT_TRUE(all_equal(m.data, 0, 9, 0));
    MatDestroy(&m);
}

TEST(MatDestroy, FreesTheBlockAndChangesNoField)
{
    FailingHeap heap;
    Mat m = filled(12, 1);
    const Mat before = m;
    MatDestroy(&m);
    EXPECT_EQ(heap.live_blocks(), 0);
    EXPECT_EQ(std::memcmp(&m, &before, sizeof m), 0);
}

TEST(MatDestroy, OfAFreshRecordDoesNothing)
{
    Mat m;
    MatInit(&m);
    MatDestroy(&m);
    expect_empty(m);
}

} // namespace
