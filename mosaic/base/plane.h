// SPDX-License-Identifier: MIT
// A rectangle of floats or labels in memory, addressed with the positions that it has in a larger frame.
#pragma once

#include "mosaic/base/rect.h"
#include "mosaic/base/unset_vector.h"

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

template <class T>
struct Plane {
    Rect rect;
    std::int64_t channels = 1;
    UnsetVector<T> data;

    Plane() = default;
    Plane(const Rect& area, std::int64_t n)
        : rect(area), channels(n), data(static_cast<std::size_t>(area.pixels() * n), T{})
    {
    }

    // Unset; its memory is used again.
    void reset(const Rect& area, std::int64_t n)
    {
        rect = area;
        channels = n;
        resize_unset(data, static_cast<std::size_t>(area.pixels() * n));
    }

    T* at(std::int64_t x, std::int64_t y) { return data.data() + offset(x, y); }
    const T* at(std::int64_t x, std::int64_t y) const { return data.data() + offset(x, y); }

private:
    std::size_t offset(std::int64_t x, std::int64_t y) const
    {
        return static_cast<std::size_t>(((y - rect.y) * rect.width + x - rect.x) * channels);
    }
};

} // namespace panoval::mosaic
