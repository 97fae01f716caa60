// SPDX-License-Identifier: MIT
// Resets of the containers without the clearing, for routines that write every element themselves: touching a large
// block twice costs more than most of them compute.
#pragma once

#include "core/heap.h"
#include "core/numbers.h"
#include "panoval.h"

#include <cstdlib>
#include <type_traits>

namespace panoval
{

// Shape and block as MatReset gives them, contents undefined. False when the heap is exhausted: the record is empty.
[[nodiscard]] bool reset_uncleared(Mat& m, std::int32_t width, std::int32_t height, std::int32_t channels,
                                   std::int32_t elem_size) noexcept;

// Shape and block as the typed resets give them, contents undefined. False when the heap is exhausted: the record is
// empty. A block of the right size stays where it is, so that its pages need not be fetched from the system again.
template <class Container>
[[nodiscard]] bool reset_uncleared(Container& m, std::int32_t width, std::int32_t height,
                                   std::int32_t channels) noexcept
{
    using Element = std::remove_pointer_t<decltype(m.data)>;
    const std::size_t count = to_count(wrapping_mul(width, height, channels));
    Element* block = nullptr;
    if (count > 0) {
        block = static_cast<Element*>(std::realloc(m.data, count * sizeof(Element)));
        if (block == nullptr) {
            empty_container(m);
            return false;
        }
        prefer_large_pages(block, count * sizeof(Element));
    } else {
        std::free(m.data);
    }
    m.width = width;
    m.height = height;
    m.channels = channels;
    m.data = block;
    return true;
}

} // namespace panoval
