// SPDX-License-Identifier: MIT
// A first-in first-out queue of signed 64-bit values in a ring that doubles when it is full. Edge following keeps the
// pixels in it whose neighbours it has still to look at, so that an edge of any length needs no call stack.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

struct EdgeQueue {
    std::uint64_t count;                                   // values held
    std::uint64_t capacity;                                // slots of items, a power of two
    std::uint64_t head;                                    // index of the next value to take
    std::uint64_t tail;                                    // index of the next free slot
    std::int64_t* items;                                   // the ring
    void* (*alloc)(std::size_t bytes);                     // malloc
    void* (*zalloc)(std::size_t count, std::size_t bytes); // calloc
    void (*release)(void* block);                          // free
};

inline constexpr std::uint64_t kEdgeQueueFirstCapacity = 8;
inline constexpr std::uint64_t kEdgeQueueLargestCapacity = std::uint64_t{1} << 31;

enum EdgeQueueResult : int {
    kEdgeQueueDone = 0,
    kEdgeQueueNoMemory = 1,
    kEdgeQueueAtLimit = 4, // of the capacity
    kEdgeQueueEmpty = 8,
};

// Makes an empty queue. kEdgeQueueNoMemory: nothing is kept and *queue is null.
int edge_queue_create(EdgeQueue** queue);

// Appends a value. kEdgeQueueNoMemory when the ring had to grow and could not; the queue is as before then.
int edge_queue_push(EdgeQueue* queue, std::int64_t value);

// Takes the oldest value; value may be null. kEdgeQueueEmpty: *value is untouched.
int edge_queue_pop(EdgeQueue* queue, std::int64_t* value);

// Doubles the ring; the oldest value moves to index 0. On failure (kEdgeQueueNoMemory, kEdgeQueueAtLimit) the queue is
// as before.
int edge_queue_grow(EdgeQueue* queue);

void edge_queue_destroy(EdgeQueue* queue);

} // namespace panoval
