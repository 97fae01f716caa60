// SPDX-License-Identifier: MIT
// Some pixels at a time; most vectors have no steep pixel and end with the first comparison.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "measure/edge_kernel.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#include "measure/edge_kernel.h"

HWY_BEFORE_NAMESPACE();
namespace panoval::measure::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

using Pixels = hn::ScalableTag<float>;
using OnePixel = hn::CappedTag<float, 1>;

// Calls visit(tag, x) for all pixels but the outermost two.
template <class Visit>
HWY_INLINE void for_each_inner(std::size_t width, const Visit& visit)
{
    const Pixels several;
    const OnePixel one;
    std::size_t x = 1;
    for (; x + hn::Lanes(several) < width; x += hn::Lanes(several))
        visit(several, x);
    for (; x + 1 < width; ++x)
        visit(one, x);
}

// Exact: differences of 16-bit numbers are integers of 17 bits.
template <class D>
HWY_INLINE hn::Vec<D> difference(D tag, const std::uint16_t* from, const std::uint16_t* to)
{
    const hn::RebindToSigned<D> integers;
    const hn::Rebind<std::uint16_t, D> narrow;
    const auto wide = [=](const std::uint16_t* samples)
                          HWY_ATTR { return hn::PromoteTo(integers, hn::LoadU(narrow, samples)); };
    return hn::ConvertTo(tag, hn::Sub(wide(to), wide(from)));
}

bool square_gradients(const std::uint16_t* above, const std::uint16_t* row, const std::uint16_t* below,
                      std::size_t width, float least, float* squares)
{
    squares[0] = squares[width - 1] = 0;
    bool any = false;
    for_each_inner(width, [=, &any](auto tag, std::size_t x) HWY_ATTR {
        const auto dx = difference(tag, row + x - 1, row + x + 1);
        const auto dy = difference(tag, above + x, below + x);
        const auto square = hn::Add(hn::Mul(dx, dx), hn::Mul(dy, dy));
        hn::StoreU(square, tag, squares + x);
        any |= !hn::AllFalse(tag, hn::Gt(square, hn::Set(tag, least)));
    });
    return any;
}

// 1 or 0 for each pixel from x on.
template <class D>
HWY_INLINE void store_marks(D tag, hn::Mask<D> mask, std::uint8_t* marks)
{
    const hn::RebindToSigned<D> integers;
    const hn::Rebind<std::uint8_t, D> bytes;
    const auto ones = hn::BitCast(integers, hn::IfThenElseZero(mask, hn::BitCast(tag, hn::Set(integers, 1))));
    hn::StoreU(hn::DemoteTo(bytes, ones), bytes, marks);
}

// The steep pixels that are the steepest of three.
template <class D>
HWY_INLINE hn::Mask<D> is_steepest(D tag, const EdgeRows& rows, std::size_t x, hn::Vec<D> here, hn::Mask<D> is_steep)
{
    const auto dx = difference(tag, rows.samples[1] + x - 1, rows.samples[1] + x + 1);
    const auto dy = difference(tag, rows.samples[0] + x, rows.samples[2] + x);
    const auto ax = hn::Abs(dx);
    const auto ay = hn::Abs(dy);
    const auto slant = hn::Set(tag, kSlant);
    const auto is_upright = hn::Lt(ax, hn::Mul(slant, ay)); // steps along y alone
    const auto is_level = hn::Lt(ay, hn::Mul(slant, ax));   // and along x alone
    const auto is_right = hn::Gt(dx, hn::Zero(tag));
    const auto is_down = hn::Gt(dy, hn::Zero(tag));
    const auto is_falling = hn::Not(hn::Xor(is_right, is_down)); // from the top left to the bottom right
    const auto at = [&](std::size_t row, std::size_t column)
                        HWY_ATTR { return hn::LoadU(tag, rows.squares[row] + x + column - 1); };
    // Of each pair of neighbours the one to the right, or below, and the other one.
    const auto slanted_right = hn::IfThenElse(is_falling, at(2, 2), at(0, 2));
    const auto slanted_left = hn::IfThenElse(is_falling, at(0, 0), at(2, 0));
    const auto level_right = hn::IfThenElse(is_level, at(1, 2), slanted_right);
    const auto level_left = hn::IfThenElse(is_level, at(1, 0), slanted_left);
    const auto right = hn::IfThenElse(is_upright, at(2, 1), level_right);
    const auto left = hn::IfThenElse(is_upright, at(0, 1), level_left);
    const auto towards_right = hn::Or(hn::And(is_upright, is_down), hn::AndNot(is_upright, is_right));
    const auto uphill = hn::IfThenElse(towards_right, right, left);
    const auto downhill = hn::IfThenElse(towards_right, left, right);
    return hn::And(is_steep, hn::And(hn::Ge(here, downhill), hn::Gt(here, uphill)));
}

void mark_steepest(const EdgeRows& rows, std::size_t width, float least, std::uint8_t* marks)
{
    for_each_inner(width, [=, &rows](auto tag, std::size_t x) HWY_ATTR {
        const auto here = hn::LoadU(tag, rows.squares[1] + x);
        const auto is_steep = hn::Gt(here, hn::Set(tag, least));
        if (hn::AllFalse(tag, is_steep))
            store_marks(tag, is_steep, marks + x);
        else
            store_marks(tag, is_steepest(tag, rows, x, here, is_steep), marks + x);
    });
}

} // namespace panoval::measure::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval::measure
{

HWY_EXPORT(square_gradients);
HWY_EXPORT(mark_steepest);

bool square_gradients(const std::uint16_t* above, const std::uint16_t* row, const std::uint16_t* below,
                      std::size_t width, float least, float* squares)
{
    return HWY_DYNAMIC_DISPATCH(square_gradients)(above, row, below, width, least, squares);
}

void mark_steepest(const EdgeRows& rows, std::size_t width, float least, std::uint8_t* marks)
{
    HWY_DYNAMIC_DISPATCH(mark_steepest)(rows, width, least, marks);
}

} // namespace panoval::measure
#endif
