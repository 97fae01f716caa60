// SPDX-License-Identifier: MIT
// The growable ring behind edge following.
#include "filter/edge_queue.h"

#include <cstdlib>
#include <cstring>

namespace panoval
{

int edge_queue_create(EdgeQueue** queue)
{
    *queue = nullptr;
    auto* const created = static_cast<EdgeQueue*>(std::calloc(1, sizeof(EdgeQueue)));
    if (created == nullptr)
        return kEdgeQueueNoMemory;
    created->alloc = std::malloc;
    created->zalloc = std::calloc;
    created->release = std::free;
    created->capacity = kEdgeQueueFirstCapacity;
    created->items = static_cast<std::int64_t*>(created->alloc(kEdgeQueueFirstCapacity * sizeof(std::int64_t)));
    if (created->items == nullptr) {
        std::free(created);
        return kEdgeQueueNoMemory;
    }
    *queue = created;
    return kEdgeQueueDone;
}

int edge_queue_push(EdgeQueue* queue, std::int64_t value)
{
    if (queue->count == queue->capacity && edge_queue_grow(queue) != kEdgeQueueDone)
        return kEdgeQueueNoMemory;
    queue->items[queue->tail] = value;
    queue->tail = (queue->tail + 1) & (queue->capacity - 1);
    ++queue->count;
    return kEdgeQueueDone;
}

int edge_queue_pop(EdgeQueue* queue, std::int64_t* value)
{
    if (queue->count == 0)
        return kEdgeQueueEmpty;
    if (value != nullptr)
        *value = queue->items[queue->head];
    queue->head = (queue->head + 1) & (queue->capacity - 1);
    --queue->count;
    return kEdgeQueueDone;
}

int edge_queue_grow(EdgeQueue* queue)
{
    if (queue->capacity >= kEdgeQueueLargestCapacity)
        return kEdgeQueueAtLimit;
    const std::uint64_t capacity = 2 * queue->capacity;
    auto* const items = static_cast<std::int64_t*>(queue->zalloc(capacity, sizeof(std::int64_t)));
    if (items == nullptr)
        return kEdgeQueueNoMemory;
    const std::uint64_t before_end = queue->capacity - queue->head;
    const std::uint64_t first = queue->count < before_end ? queue->count : before_end; // the rest has wrapped
    std::memcpy(items, queue->items + queue->head, first * sizeof(std::int64_t));
    std::memcpy(items + first, queue->items, (queue->count - first) * sizeof(std::int64_t));
    queue->release(queue->items);
    queue->items = items;
    queue->head = 0;
    queue->tail = queue->count;
    queue->capacity = capacity;
    return kEdgeQueueDone;
}

void edge_queue_destroy(EdgeQueue* queue)
{
    void (*const release)(void*) = queue->release;
    release(queue->items);
    release(queue);
}

} // namespace panoval
