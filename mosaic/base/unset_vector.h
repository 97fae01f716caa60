// SPDX-License-Identifier: MIT
// A vector whose new elements are unset, for scratch of which only a part may ever be used: memory that nobody touches
// costs nothing. Its memory is asked for as core/heap.h does.
#pragma once

#include "core/heap.h"

#include <cstddef>
#include <cstdlib>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace panoval::mosaic
{

template <class T>
class UnsetAllocator
{
    static_assert(std::is_trivially_copyable_v<T>);

public:
    using value_type = T;

    UnsetAllocator() = default;
    template <class U>
    UnsetAllocator(const UnsetAllocator<U>&) noexcept
    {
    }

    T* allocate(std::size_t count)
    {
        HeapArray<T> block = panoval::allocate<T>(count);
        if (block == nullptr)
            throw std::bad_alloc();
        return block.release();
    }
    void deallocate(T* block, std::size_t) noexcept { std::free(block); }

    template <class U>
    void construct(U* at) noexcept
    {
        ::new (static_cast<void*>(at)) U;
    }
    template <class U, class... Arguments>
    void construct(U* at, Arguments&&... arguments)
    {
        ::new (static_cast<void*>(at)) U(std::forward<Arguments>(arguments)...);
    }

    friend bool operator==(const UnsetAllocator&, const UnsetAllocator&) { return true; }
};

template <class T>
using UnsetVector = std::vector<T, UnsetAllocator<T>>;

// Gives the vector so many elements, all of them unset; its memory is used again where it is enough.
template <class T>
void resize_unset(UnsetVector<T>& values, std::size_t count)
{
    values.clear();
    if (values.capacity() < count)
        UnsetVector<T>().swap(values); // before the new block is asked for
    values.resize(count);
}

} // namespace panoval::mosaic
