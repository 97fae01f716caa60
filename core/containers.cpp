// SPDX-License-Identifier: MIT
// The matrix containers: plain records whose block the resets allocate, keep or replace, and always clear.
#include "core/containers.h"

#include "core/heap.h"
#include "core/numbers.h"
#include "panoval.h"

#include <cstdlib>
#include <cstring>

namespace
{

using panoval::to_count;
using panoval::wrapping_mul;

// A first block comes from the system's zeroed pages; a later one is cleared where it is, which is cheaper than fresh
// pages.
template <class Container>
void reset_typed(Container& m, std::int32_t width, std::int32_t height, std::int32_t channels) noexcept
{
    using Element = std::remove_pointer_t<decltype(m.data)>;
    const std::size_t count = to_count(wrapping_mul(width, height, channels));
    if (m.data == nullptr && count > 0) {
        Element* const block = panoval::allocate_zeroed<Element>(count).release();
        m = block != nullptr ? Container{width, height, channels, block} : Container{};
        return;
    }
    if (panoval::reset_uncleared(m, width, height, channels) && count > 0)
        std::memset(m.data, 0, count * sizeof(Element));
}

} // namespace

bool panoval::reset_uncleared(Mat& m, std::int32_t width, std::int32_t height, std::int32_t channels,
                              std::int32_t elem_size) noexcept
{
    const std::int32_t size = wrapping_mul(width, height, channels, elem_size);
    if (m.capacity < size) {
        std::free(m.data);
        m.data = allocate<std::uint8_t>(to_count(size)).release();
        m.capacity = size;
        if (m.data == nullptr) {
            m = Mat{};
            return false;
        }
    }
    m = {width, height, channels, elem_size, size, m.capacity, m.data};
    return true;
}

extern "C" {

void MatInit(Mat* m)
{
    *m = Mat{};
}

void MatReset(Mat* m, std::int32_t width, std::int32_t height, std::int32_t channels, std::int32_t elemSize)
{
    const std::int32_t size = wrapping_mul(width, height, channels, elemSize);
    if (m->capacity < size) { // no negative size is above the capacity
        std::free(m->data);
        std::uint8_t* const block = panoval::allocate_zeroed<std::uint8_t>(to_count(size)).release();
        *m = block != nullptr ? Mat{width, height, channels, elemSize, size, size, block} : Mat{};
        return;
    }
    (void)panoval::reset_uncleared(*m, width, height, channels, elemSize); // keeps the block, and so cannot fail
    if (size > 0)
        std::memset(m->data, 0, to_count(size));
}

void MatDestroy(Mat* m)
{
    std::free(m->data);
}

void MatbReset(Matb* m, std::int32_t width, std::int32_t height, std::int32_t channels)
{
    reset_typed(*m, width, height, channels);
}

void MatsReset(Mats* m, std::int32_t width, std::int32_t height, std::int32_t channels)
{
    reset_typed(*m, width, height, channels);
}

void MatfReset(Matf* m, std::int32_t width, std::int32_t height, std::int32_t channels)
{
    reset_typed(*m, width, height, channels);
}

void MatdReset(Matd* m, std::int32_t width, std::int32_t height, std::int32_t channels)
{
    reset_typed(*m, width, height, channels);
}

// One body under two names: both elements are four bytes wide, and all zero bits mean 0 in both. GCC wants an alias to
// promise as much as its target, which it has found not to throw; Clang takes that promise for another declaration.
#ifdef __clang__
#define PANOVAL_ALIAS(target) __attribute__((alias(target)))
#else
#define PANOVAL_ALIAS(target) __attribute__((alias(target), nothrow))
#endif
void MatiReset(Mati* m, std::int32_t width, std::int32_t height, std::int32_t channels) PANOVAL_ALIAS("MatfReset");

} // extern "C"
