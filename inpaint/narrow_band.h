// SPDX-License-Identifier: MIT
// The band between the known and the unknown part of a picture: cells in the order of their distance, equal distances
// in the order of arrival. A heap, so that no order of arrival makes it slow.
#pragma once

#include "core/heap.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

struct BandNode {
    std::uint64_t key; // the bits of the distance, then the number of the push: nodes leave in rising order
    std::int32_t row;
    std::int32_t col;
};

struct NarrowBand {
    HeapArray<BandNode> nodes; // no node is above its parent; the children of node i are 4 * i + 1 to 4 * i + 4
    std::size_t count = 0;
    std::size_t capacity = 0;
    std::uint32_t pushes = 0;
};

// Makes room for as many cells as can ever be in the band; nothing is allocated afterwards. False for a capacity of 0
// and without memory.
[[nodiscard]] bool narrow_band_init(NarrowBand& band, std::size_t capacity);

// distance is not negative. A full band takes nothing and says so.
bool narrow_band_push(NarrowBand& band, std::int32_t row, std::int32_t col, float distance);

// Takes the nearest cell. False when there is none.
bool narrow_band_pop(NarrowBand& band, std::int32_t& row, std::int32_t& col);

} // namespace panoval
