// SPDX-License-Identifier: MIT
// The rows of an image at twice its size: each source row is filtered across once, into a ring of the three that the
// filter down a column reaches.
#pragma once

#include "blend/pyramid_rows.h"
#include "core/heap.h"
#include "core/numbers.h"
#include "panoval.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

class Expander
{
public:
    // Room for rows of that many floats; it serves any number of images, one after the other.
    explicit Expander(std::size_t longest_row) noexcept;
    bool has_memory() const noexcept { return ring_ != nullptr; }

    // Starts with an image of at least one pixel. width: of the expanded rows, twice the image's or one less
    void start(const Matf& src, std::int32_t width) noexcept;

    // What expanded row y is made of: three rows for an even one, of which an odd one needs the last two. y ascends.
    // expand_down_even and expand_down_odd make the row of them.
    struct Rows {
        const float* row[3];
    };
    Rows around(std::int32_t y) noexcept;

private:
    float* slot(std::int32_t y) noexcept { return ring_.get() + to_count(y) % kExpandedRows * length_; }
    const float* across(std::int32_t y) noexcept;

    HeapArray<float> ring_;
    const Matf* src_ = nullptr;
    std::int32_t width_ = 0;
    std::size_t length_ = 0;
    std::int32_t done_ = 0; // source rows filtered so far
};

} // namespace panoval
