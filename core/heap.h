// SPDX-License-Identifier: MIT
// Blocks of the C heap, and the library's one answer to an exhausted heap: a null block. Whoever asks for scratch
// looks at the block, and without it leaves the outputs empty; a record whose block is gone becomes empty.
#pragma once

#include "core/large_pages.h"

#include <cstddef>
#include <cstdlib>
#include <limits>
#include <memory>

namespace panoval
{

struct FreeBlock {
    void operator()(void* block) const noexcept { std::free(block); }
};

// An owned block of the C heap. release() stands on the line where the caller of the library takes over.
template <class T>
using HeapArray = std::unique_ptr<T[], FreeBlock>;

// The policy: null when the bytes cannot be had, also because their number does not fit a size.
// A count of 0 gives a block, so that null always means an exhausted heap.
template <class T>
[[nodiscard]] HeapArray<T> allocate(std::size_t count) noexcept
{
    if (count > std::numeric_limits<std::size_t>::max() / 2 / sizeof(T))
        return nullptr;
    void* const block = std::malloc(count == 0 ? 1 : count * sizeof(T));
    prefer_large_pages(block, count * sizeof(T));
    return HeapArray<T>(static_cast<T*>(block));
}

// As allocate, every byte zero. Fresh pages of the system are not touched twice.
template <class T>
[[nodiscard]] HeapArray<T> allocate_zeroed(std::size_t count) noexcept
{
    if (count > std::numeric_limits<std::size_t>::max() / 2 / sizeof(T))
        return nullptr;
    void* const block = std::calloc(count == 0 ? 1 : count, sizeof(T));
    prefer_large_pages(block, count * sizeof(T));
    return HeapArray<T>(static_cast<T*>(block));
}

// Grows an array to hold new_count elements and keeps its contents. False, with the array untouched, when the heap is
// exhausted.
template <class T>
[[nodiscard]] bool grow(HeapArray<T>& array, std::size_t new_count) noexcept
{
    if (new_count > std::numeric_limits<std::size_t>::max() / 2 / sizeof(T))
        return false;
    void* const block = std::realloc(array.get(), new_count == 0 ? 1 : new_count * sizeof(T));
    if (block == nullptr)
        return false;
    (void)array.release();
    array.reset(static_cast<T*>(block));
    return true;
}

// Frees a typed container's block and leaves it empty: all sizes 0, data null.
template <class Container>
void empty_container(Container& container) noexcept
{
    std::free(container.data);
    container = Container{};
}

} // namespace panoval
