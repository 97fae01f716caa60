// SPDX-License-Identifier: MIT
// The matrix containers: plain records whose block the resets allocate, keep or replace, and always clear.
#include "core/heap.h"
#include "core/numbers.h"
#include "panoval.h"

#include <cstdlib>
#include <cstring>

namespace
{

using panoval::to_count;
using panoval::wrapping_mul;

// A new, zeroed block in place of the old one. The old contents are dropped first: they would only be cleared.
template <class Container>
void reset_typed(Container& m, std::int32_t width, std::int32_t height, std::int32_t channels) noexcept
{
    using Element = std::remove_pointer_t<decltype(m.data)>;
    const auto count = to_count(wrapping_mul(width, height, channels));
    std::free(m.data);
    m = {width, height, channels, nullptr};
    if (count == 0)
        return;
    m.data = panoval::allocate_zeroed<Element>(count).release();
    if (m.data == nullptr)
        m = Container{};
}

} // namespace

extern "C" {

void MatInit(Mat* m)
{
    *m = Mat{};
}

void MatReset(Mat* m, std::int32_t width, std::int32_t height, std::int32_t channels, std::int32_t elemSize)
{
    const std::int32_t size = wrapping_mul(width, height, channels, elemSize);
    if (m->capacity >= size) { // also every negative size
        m->width = width;
        m->height = height;
        m->channels = channels;
        m->elemSize = elemSize;
        m->size = size;
        if (size > 0)
            std::memset(m->data, 0, to_count(size));
        return;
    }
    std::free(m->data);
    std::uint8_t* const block = panoval::allocate_zeroed<std::uint8_t>(to_count(size)).release();
    *m = block != nullptr ? Mat{width, height, channels, elemSize, size, size, block} : Mat{};
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

// One body under two names: both elements are four bytes wide, and all zero bits mean 0 in both.
void MatiReset(Mati* m, std::int32_t width, std::int32_t height, std::int32_t channels)
    __attribute__((alias("MatfReset")));

} // extern "C"
