// SPDX-License-Identifier: MIT
// The chamfer passes on rows of 16-bit keys: twice the pixels a vector, and half the memory for the forward pass. The
// backward pass turns each row's keys into the 32-bit cells that the caller sees.
#include "filter/chamfer_rows.h"

#include <algorithm>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "filter/chamfer_key_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "filter/chamfer_scan_inl.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

using Key = std::int16_t;
using KeySteps = ChamferSteps<Key>;

// The whole vectors of a row; returns the number of pixels done.
template <bool kDearDiagonal>
std::size_t forward_key_vectors(const std::uint8_t* src, const Key* above, Key* row, std::size_t width,
                                const KeySteps& steps)
{
    const CellTag<Key> d;
    ForwardScan<Key, kDearDiagonal> scan(steps);
    std::size_t x = 0;
    for (; x + hn::Lanes(d) <= width; x += hn::Lanes(d))
        hn::StoreU(scan(src + x, above + x), d, row + 1 + x);
    return x;
}

void forward_keys(const std::uint8_t* src, const Key* above, Key* row, std::size_t width, const KeySteps& steps)
{
    row[0] = steps.far_away;
    row[width + 1] = steps.far_away;
    std::size_t x = steps.diagonal / 2 >= steps.straight ? forward_key_vectors<true>(src, above, row, width, steps)
                                                         : forward_key_vectors<false>(src, above, row, width, steps);
    for (; x < width; ++x) {
        const int corners = std::min(above[x], above[x + 2]) + steps.diagonal;
        const int sides = std::min(above[x + 1], row[x]) + steps.straight;
        row[x + 1] = src[x] == 0 ? Key{0} : static_cast<Key>(std::min(corners, sides));
    }
}

#if HWY_TARGET == HWY_SCALAR // one lane: the plain loop does it all

template <bool kDearDiagonal>
std::size_t backward_key_vectors(const Key*, std::int32_t*, Key*, std::size_t width, const KeySteps&, float*)
{
    return width;
}

#else

// Stores the cells and distances of the half vector of pixels whose upper and lower halves are interleaved in cells.
HWY_INLINE void store_cells(Cells<std::int32_t> cells, std::int32_t* to, float* distances)
{
    const CellTag<std::int32_t> d;
    const hn::RebindToFloat<CellTag<std::int32_t>> df;
    hn::StoreU(cells, d, to);
    hn::StoreU(hn::Mul(hn::ConvertTo(df, cells), hn::Set(df, kPixelsPerUnit)), df, distances);
}

HWY_INLINE void store_keys_as_cells(Cells<Key> keys, std::int32_t* to, float* distances)
{
    const CellTag<Key> d;
    const CellTag<std::int32_t> dw;
    const auto pixels = hn::ShiftRight<1>(keys);
    const auto fraction = hn::Neg(hn::And(keys, hn::Set(d, 1))); // all bits of a far key's lower half
    auto first = hn::BitCast(dw, hn::InterleaveLower(d, fraction, pixels));
    auto second = hn::BitCast(dw, hn::InterleaveUpper(d, fraction, pixels));
    if constexpr (kTwoBlocks<Key>) { // interleaving stays within blocks
        const auto lower = first;
        first = hn::ConcatLowerLower(dw, second, lower);
        second = hn::ConcatUpperUpper(dw, second, lower);
    }
    store_cells(first, to, distances);
    store_cells(second, to + hn::Lanes(dw), distances + hn::Lanes(dw));
}

// The whole vectors of a row from its right end; returns the number of pixels left. A cell lies right of its key, so
// cells never cover keys that are still to be read.
template <bool kDearDiagonal>
std::size_t backward_key_vectors(const Key* below, std::int32_t* cells, Key* finished, std::size_t width,
                                 const KeySteps& steps, float* distances)
{
    const CellTag<Key> d;
    const Key* const keys = reinterpret_cast<const Key*>(cells);
    BackwardScan<Key, kDearDiagonal> scan(steps);
    std::size_t x = width;
    while (x >= hn::Lanes(d)) {
        x -= hn::Lanes(d);
        const auto value = scan(hn::LoadU(d, keys + 1 + x), below + x);
        hn::StoreU(value, d, finished + 1 + x);
        store_keys_as_cells(value, cells + 1 + x, distances + x);
    }
    return x;
}

#endif

void backward_keys(const Key* below, std::int32_t* cells, Key* finished, std::size_t width, const KeySteps& steps,
                   float* distances)
{
    finished[0] = steps.far_away;
    finished[width + 1] = steps.far_away;
    std::size_t x = steps.diagonal / 2 >= steps.straight
                        ? backward_key_vectors<true>(below, cells, finished, width, steps, distances)
                        : backward_key_vectors<false>(below, cells, finished, width, steps, distances);
    auto* const bytes = reinterpret_cast<unsigned char*>(cells); // keys and cells share them
    const auto store_cell = [bytes](std::size_t at, std::int32_t cell) {
        std::memcpy(bytes + at * sizeof cell, &cell, sizeof cell);
    };
    for (; x > 0; --x) {
        Key key;
        std::memcpy(&key, bytes + x * sizeof key, sizeof key);
        if (key > steps.straight) {
            const int corners = std::min(below[x - 1], below[x + 1]) + steps.diagonal;
            const int sides = std::min(below[x], finished[x + 1]) + steps.straight;
            key = static_cast<Key>(std::min({int{key}, corners, sides}));
        }
        finished[x] = key;
        const std::int32_t cell = key / 2 * 65536 + key % 2 * 65535;
        distances[x - 1] = static_cast<float>(cell) * kPixelsPerUnit;
        store_cell(x, cell);
    }
    store_cell(0, kFarAway);
    store_cell(width + 1, kFarAway);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(forward_keys);
HWY_EXPORT(backward_keys);

void forward_key_row(const std::uint8_t* src, const std::int16_t* above, std::int16_t* row, std::size_t width,
                     const ChamferSteps<std::int16_t>& steps) noexcept
{
    HWY_DYNAMIC_DISPATCH(forward_keys)(src, above, row, width, steps);
}

void backward_key_row(const std::int16_t* below, std::int32_t* cells, std::int16_t* finished, std::size_t width,
                      const ChamferSteps<std::int16_t>& steps, float* distances) noexcept
{
    HWY_DYNAMIC_DISPATCH(backward_keys)(below, cells, finished, width, steps, distances);
}

} // namespace panoval
#endif
