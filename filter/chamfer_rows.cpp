// SPDX-License-Identifier: MIT
// The chamfer passes on rows of 32-bit cells, which hold distances of any costs.
#include "filter/chamfer_rows.h"

#include "core/numbers.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "filter/chamfer_rows.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "filter/chamfer_scan_inl.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

using Steps = ChamferSteps<std::int32_t>;

// The whole vectors of a row; returns the number of pixels done.
template <bool kDearDiagonal>
std::size_t forward_vectors(const std::uint8_t* src, const std::int32_t* above, std::int32_t* row, std::size_t width,
                            const Steps& steps)
{
    const CellTag<std::int32_t> d;
    ForwardScan<std::int32_t, kDearDiagonal> scan(steps);
    std::size_t x = 0;
    for (; x + hn::Lanes(d) <= width; x += hn::Lanes(d))
        hn::StoreU(scan(src + x, above + x), d, row + 1 + x);
    return x;
}

void forward(const std::uint8_t* src, const std::int32_t* above, std::int32_t* row, std::size_t width,
             const Steps& steps, bool exact)
{
    row[0] = steps.far_away;
    row[width + 1] = steps.far_away;
    std::size_t x = 0;
    if (exact)
        x = steps.diagonal / 2 >= steps.straight ? forward_vectors<true>(src, above, row, width, steps)
                                                 : forward_vectors<false>(src, above, row, width, steps);
    for (; x < width; ++x) {
        const std::int32_t corners =
            std::min(wrapping_add(above[x], steps.diagonal), wrapping_add(above[x + 2], steps.diagonal));
        const std::int32_t sides =
            std::min(wrapping_add(above[x + 1], steps.straight), wrapping_add(row[x], steps.straight));
        row[x + 1] = src[x] == 0 ? 0 : std::min(corners, sides);
    }
}

// The whole vectors of a row from its right end; returns the number of pixels left.
template <bool kDearDiagonal>
std::size_t backward_vectors(const std::int32_t* below, std::int32_t* row, std::size_t width, const Steps& steps,
                             float* distances)
{
    const CellTag<std::int32_t> d;
    const hn::RebindToFloat<CellTag<std::int32_t>> df;
    BackwardScan<std::int32_t, kDearDiagonal> scan(steps);
    const auto scale = hn::Set(df, kPixelsPerUnit);
    std::size_t x = width;
    while (x >= hn::Lanes(d)) {
        x -= hn::Lanes(d);
        const auto value = scan(hn::LoadU(d, row + 1 + x), below + x);
        hn::StoreU(value, d, row + 1 + x);
        hn::StoreU(hn::Mul(hn::ConvertTo(df, value), scale), df, distances + x);
    }
    return x;
}

void backward(const std::int32_t* below, std::int32_t* row, std::size_t width, const Steps& steps, bool exact,
              float* distances)
{
    std::size_t x = width;
    if (exact)
        x = steps.diagonal / 2 >= steps.straight ? backward_vectors<true>(below, row, width, steps, distances)
                                                 : backward_vectors<false>(below, row, width, steps, distances);
    for (; x > 0; --x) {
        std::int32_t value = row[x];
        if (value > steps.straight) {
            const std::int32_t corners =
                std::min(wrapping_add(below[x - 1], steps.diagonal), wrapping_add(below[x + 1], steps.diagonal));
            const std::int32_t sides =
                std::min(wrapping_add(below[x], steps.straight), wrapping_add(row[x + 1], steps.straight));
            value = std::min(value, std::min(corners, sides));
            row[x] = value;
        }
        distances[x - 1] = static_cast<float>(value) * kPixelsPerUnit;
    }
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(forward);
HWY_EXPORT(backward);

void forward_row(const std::uint8_t* src, const std::int32_t* above, std::int32_t* row, std::size_t width,
                 const ChamferSteps<std::int32_t>& steps, bool exact) noexcept
{
    HWY_DYNAMIC_DISPATCH(forward)(src, above, row, width, steps, exact);
}

void backward_row(const std::int32_t* below, std::int32_t* row, std::size_t width,
                  const ChamferSteps<std::int32_t>& steps, bool exact, float* distances) noexcept
{
    HWY_DYNAMIC_DISPATCH(backward)(below, row, width, steps, exact, distances);
}

} // namespace panoval
#endif
