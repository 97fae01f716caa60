// SPDX-License-Identifier: MIT
#include "filter/edge_queue.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <deque>

namespace
{

using namespace panoval;
using namespace panoval::test;

// A queue that is there, destroyed at the end of the test.
struct Queue {
    EdgeQueue* record = nullptr;
    Queue() { EXPECT_EQ(edge_queue_create(&record), 0); }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    ~Queue() { edge_queue_destroy(record); }

    void push_all(std::int64_t first, std::int64_t last)
    {
        for (std::int64_t value = first; value <= last; ++value)
            EXPECT_EQ(edge_queue_push(record, value), 0);
    }
    void expect_pops(std::int64_t first, std::int64_t last)
    {
        for (std::int64_t value = first; value <= last; ++value) {
            std::int64_t popped = -1;
            EXPECT_EQ(edge_queue_pop(record, &popped), 0);
            EXPECT_EQ(popped, value);
        }
    }
};

TEST(EdgeQueue, StartsEmptyWithEightSlotsAndTheHooksOfTheCLibrary)
{
    const Queue queue;
    EXPECT_EQ(queue.record->count, 0u);
    EXPECT_EQ(queue.record->capacity, 8u);
    EXPECT_EQ(queue.record->head, 0u);
    EXPECT_EQ(queue.record->tail, 0u);
    EXPECT_NE(queue.record->items, nullptr);
    EXPECT_EQ(queue.record->alloc, static_cast<void* (*)(std::size_t)>(std::malloc));
    EXPECT_EQ(queue.record->zalloc, static_cast<void* (*)(std::size_t, std::size_t)>(std::calloc));
    EXPECT_EQ(queue.record->release, static_cast<void (*)(void*)>(std::free));
}

TEST(EdgeQueue, IsMadeOfTwoBlocksOfWhichTheRingHas64Bytes)
{
    FailingHeap heap;
    EdgeQueue* queue = nullptr;
    edge_queue_create(&queue);
    EXPECT_EQ(heap.live_blocks(), 2);
    EXPECT_EQ(heap.peak_bytes(), sizeof(EdgeQueue) + 64);
    edge_queue_destroy(queue);
    EXPECT_EQ(heap.live_blocks(), 0);
}

TEST(EdgeQueue, WithoutMemoryForRecordOrRingIsNotMadeAndKeepsNothing)
{
    for_each_failing_allocation([](FailingHeap& heap) {
        EdgeQueue* queue = nullptr;
        const int result = edge_queue_create(&queue);
        EXPECT_EQ(result, heap.has_failed() ? 1 : 0);
        EXPECT_EQ(queue == nullptr, heap.has_failed());
        if (queue != nullptr)
            edge_queue_destroy(queue);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

TEST(EdgeQueue, PopOfAnEmptyQueueReturns8AndWritesNothing)
{
    const Queue queue;
    std::int64_t value = 77;
    EXPECT_EQ(edge_queue_pop(queue.record, &value), 8);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(queue.record->count, 0u);
}

TEST(EdgeQueue, PopWithoutAnOutputDropsTheOldestValue)
{
    Queue queue;
    queue.push_all(1, 2);
    EXPECT_EQ(edge_queue_pop(queue.record, nullptr), 0);
    queue.expect_pops(2, 2);
}

TEST(EdgeQueue, WrapsAroundItsEndWithoutGrowing)
{
    Queue queue;
    queue.push_all(0, 5);
    queue.expect_pops(0, 5);
    queue.push_all(6, 13);
    EXPECT_EQ(queue.record->capacity, 8u);
    EXPECT_EQ(queue.record->head, 6u);
    EXPECT_EQ(queue.record->tail, 6u);
    queue.expect_pops(6, 13);
}

TEST(EdgeQueue, DoublesWhenFullAndPutsTheOldestValueFirst)
{
    for (std::int64_t turned = 0; turned < 8; ++turned) { // with the ring's content wrapped at every place
        Queue queue;
        queue.push_all(-turned, -1);
        queue.expect_pops(-turned, -1);
        queue.push_all(0, 8);
        EXPECT_EQ(queue.record->capacity, 16u);
        EXPECT_EQ(queue.record->head, 0u);
        EXPECT_EQ(queue.record->tail, 9u);
        EXPECT_EQ(queue.record->count, 9u);
        queue.expect_pops(0, 8);
    }
}

TEST(EdgeQueue, CopiesWhatItHoldsWhenAskedToGrowBeforeItIsFull)
{
    Queue queue;
    queue.push_all(1, 6);
    queue.expect_pops(1, 4);
    queue.push_all(7, 9); // 5 6 7 8 9, the last one in slot 0
    EXPECT_EQ(edge_queue_grow(queue.record), 0);
    EXPECT_EQ(queue.record->tail, 5u);
    queue.expect_pops(5, 9);
}

TEST(EdgeQueue, HoldsWhatAListHolds)
{
    Queue queue;
    std::deque<std::int64_t> list;
    Random random(5);
    for (int step = 0; step < 5000; ++step)
        if (list.empty() || random.integer(0, 99) < (step < 3000 ? 60 : 40)) {
            list.push_back(random.integer(-4'000'000'000, 4'000'000'000));
            ASSERT_EQ(edge_queue_push(queue.record, list.back()), 0);
        } else {
            queue.expect_pops(list.front(), list.front());
            list.pop_front();
            ASSERT_EQ(queue.record->count, list.size());
        }
}

TEST(EdgeQueue, PushWithoutMemoryToGrowReturns1AndKeepsTheQueue)
{
    Queue queue;
    queue.push_all(1, 8);
    {
        const FailingHeap heap(0);
        EXPECT_EQ(edge_queue_push(queue.record, 9), 1);
        EXPECT_TRUE(heap.has_failed());
    }
    EXPECT_EQ(queue.record->capacity, 8u);
    queue.push_all(9, 9);
    queue.expect_pops(1, 9);
}

int releases = 0;

void counting_release(void* block)
{
    ++releases;
    std::free(block);
}

void* no_memory(std::size_t, std::size_t)
{
    return nullptr;
}

TEST(EdgeQueue, GrowsAndEndsThroughItsHooks)
{
    EdgeQueue* queue = nullptr;
    edge_queue_create(&queue);
    queue->release = counting_release;
    releases = 0;
    EXPECT_EQ(edge_queue_grow(queue), 0);
    EXPECT_EQ(releases, 1);
    queue->zalloc = no_memory;
    EXPECT_EQ(edge_queue_grow(queue), 1);
    EXPECT_EQ(queue->capacity, 16u);
    edge_queue_destroy(queue);
    EXPECT_EQ(releases, 3);
}

TEST(EdgeQueue, DoesNotGrowBeyondTwoToThe31)
{
    EdgeQueue queue{};
    queue.capacity = std::uint64_t{1} << 31;
    queue.count = queue.capacity;
    queue.zalloc = no_memory;
    EXPECT_EQ(edge_queue_grow(&queue), 4);
    EXPECT_EQ(edge_queue_push(&queue, 1), 1);
    EXPECT_EQ(queue.count, std::uint64_t{1} << 31);
}

} // namespace
