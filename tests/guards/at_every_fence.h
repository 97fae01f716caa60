// SPDX-License-Identifier: MIT
// A routine with its buffers at every place that a fence can have, on every instruction set.
#pragma once

#include "tests/support/buffers.h"
#include "tests/support/fenced.h"
#include "tests/support/targets.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::test
{

using Bytes = std::vector<std::uint8_t>;

template <class T>
void append(Bytes& out, const T* values, std::size_t count)
{
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(values);
    out.insert(out.end(), bytes, bytes + count * sizeof(T));
}

template <class T>
void append(Bytes& out, Fenced<T>& values)
{
    append(out, values.data(), values.size());
}

// run(place) makes its buffers there and returns what the routine made of them.
template <class Run>
void expect_the_same_at_every_fence(const Run& run)
{
    for_each_target([&] {
        const Bytes expected = run(Place::Heap);
        EXPECT_TRUE(same_bits(run(Place::BeforeFence), expected)) << "before the fence";
        EXPECT_TRUE(same_bits(run(Place::BehindFence), expected)) << "behind the fence";
    });
}

} // namespace panoval::test
