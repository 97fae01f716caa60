// SPDX-License-Identifier: MIT
// A heap of four children to a node: half as deep as a binary one, and the children stand side by side.
#include "inpaint/narrow_band.h"

#include <bit>
#include <cassert>

namespace panoval
{
namespace
{

constexpr std::size_t kChildren = 4;

// Floats that are not negative are ordered as their bits. The sum makes zero of a negative zero, which is as near.
std::uint64_t make_key(float distance, std::uint32_t number)
{
    assert(distance >= 0.0f);
    return std::uint64_t{std::bit_cast<std::uint32_t>(distance + 0.0f)} << 32 | number;
}

std::size_t nearest_child(const NarrowBand& band, std::size_t first)
{
    const std::size_t end = first + kChildren < band.count ? first + kChildren : band.count;
    std::size_t nearest = first;
    for (std::size_t child = first + 1; child < end; ++child)
        if (band.nodes[child].key < band.nodes[nearest].key)
            nearest = child;
    return nearest;
}

} // namespace

bool narrow_band_init(NarrowBand& band, std::size_t capacity)
{
    band.count = 0;
    band.capacity = capacity;
    band.pushes = 0;
    if (capacity == 0)
        return false;
    band.nodes = allocate<BandNode>(capacity);
    return band.nodes != nullptr;
}

bool narrow_band_push(NarrowBand& band, std::int32_t row, std::int32_t col, float distance)
{
    if (band.count == band.capacity)
        return false;
    const BandNode pushed = {make_key(distance, band.pushes++), row, col};
    std::size_t i = band.count++;
    while (i > 0 && pushed.key < band.nodes[(i - 1) / kChildren].key) {
        band.nodes[i] = band.nodes[(i - 1) / kChildren];
        i = (i - 1) / kChildren;
    }
    band.nodes[i] = pushed;
    return true;
}

bool narrow_band_pop(NarrowBand& band, std::int32_t& row, std::int32_t& col)
{
    if (band.count == 0)
        return false;
    row = band.nodes[0].row;
    col = band.nodes[0].col;
    const BandNode last = band.nodes[--band.count];
    std::size_t i = 0;
    for (std::size_t first = 1; first < band.count; first = kChildren * i + 1) {
        const std::size_t child = nearest_child(band, first);
        if (last.key < band.nodes[child].key)
            break;
        band.nodes[i] = band.nodes[child];
        i = child;
    }
    band.nodes[i] = last;
    return true;
}

} // namespace panoval
