// SPDX-License-Identifier: MIT
// Per-target pieces of the chamfer passes. Within a row each value depends on the one before it:
// value[x] = min(candidate[x], value[x - 1] + straight), which is a prefix minimum of candidate[x] - x * straight.
// Vectors take it in log2(lanes) steps. Integers make the rearranged sums exact as long as none leaves the type.
#if defined(PANOVAL_FILTER_CHAMFER_SCAN_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef PANOVAL_FILTER_CHAMFER_SCAN_INL
#undef PANOVAL_FILTER_CHAMFER_SCAN_INL
#else
#define PANOVAL_FILTER_CHAMFER_SCAN_INL
#endif

#include "filter/chamfer_rows.h"

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>
#include <limits>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// Two blocks of 128 bits suffice: memory limits wider vectors.
template <class T>
using CellTag = hn::CappedTag<T, kMostLanes<T>>;
template <class T>
using Cells = hn::Vec<CellTag<T>>;

#if HWY_TARGET == HWY_SCALAR // one lane

template <class T>
HWY_INLINE Cells<T> minimum_from_first(Cells<T> v)
{
    return v;
}

template <class T>
HWY_INLINE Cells<T> minimum_to_last(Cells<T> v)
{
    return v;
}

template <class T>
HWY_INLINE Cells<T> first_lane(Cells<T> v)
{
    return v;
}

template <class T>
HWY_INLINE Cells<T> last_lane(Cells<T> v)
{
    return v;
}

#else

template <class T>
constexpr int kLastOfBlock = static_cast<int>(16 / sizeof(T)) - 1;
template <class T>
constexpr bool kTwoBlocks = hn::MaxLanes(CellTag<T>()) > 16 / sizeof(T);

// Lane i becomes the minimum of lanes 0 to i. No lane may be positive: the shifts fill with zeros.
template <class T>
HWY_INLINE Cells<T> minimum_from_first(Cells<T> v)
{
    const CellTag<T> d;
    v = hn::Min(v, hn::ShiftLeftLanes<1>(d, v));
    v = hn::Min(v, hn::ShiftLeftLanes<2>(d, v));
    if constexpr (sizeof(T) == 2)
        v = hn::Min(v, hn::ShiftLeftLanes<4>(d, v));
    if constexpr (kTwoBlocks<T>)
        v = hn::Min(v, hn::ConcatLowerLower(d, hn::Broadcast<kLastOfBlock<T>>(v), v));
    return v;
}

// Lane i becomes the minimum of lanes i to the last. No lane may be positive.
template <class T>
HWY_INLINE Cells<T> minimum_to_last(Cells<T> v)
{
    const CellTag<T> d;
    v = hn::Min(v, hn::ShiftRightLanes<1>(d, v));
    v = hn::Min(v, hn::ShiftRightLanes<2>(d, v));
    if constexpr (sizeof(T) == 2)
        v = hn::Min(v, hn::ShiftRightLanes<4>(d, v));
    if constexpr (kTwoBlocks<T>)
        v = hn::Min(v, hn::ConcatUpperUpper(d, v, hn::Broadcast<0>(v)));
    return v;
}

template <class T>
HWY_INLINE Cells<T> first_lane(Cells<T> v)
{
    const auto first = hn::Broadcast<0>(v);
    if constexpr (kTwoBlocks<T>)
        return hn::ConcatLowerLower(CellTag<T>(), first, first);
    else
        return first;
}

template <class T>
HWY_INLINE Cells<T> last_lane(Cells<T> v)
{
    const auto last = hn::Broadcast<kLastOfBlock<T>>(v);
    if constexpr (kTwoBlocks<T>)
        return hn::ConcatUpperUpper(CellTag<T>(), last, last);
    else
        return last;
}

#endif

// The best way through a neighbouring row that is final in its pass; row points at its cell before the pixel's. Where a
// diagonal step costs at least two straight ones (kDearDiagonal), the corner that the scan of that row came from is no
// better than the way along the row, so kForward tells which corner is left.
template <class T, bool kDearDiagonal, bool kForward>
HWY_INLINE Cells<T> through_neighbour_row(const T* row, Cells<T> straight, Cells<T> diagonal)
{
    const CellTag<T> d;
    auto corner = hn::LoadU(d, kForward ? row + 2 : row);
    if constexpr (!kDearDiagonal)
        corner = hn::Min(corner, hn::LoadU(d, kForward ? row : row + 2));
    return hn::Min(hn::Add(corner, diagonal), hn::Add(hn::LoadU(d, row + 1), straight));
}

// What the scan of a row adds to each lane and takes away again: the steps from the vector's first pixel, negative in
// the forward pass, and a number that is large enough to leave no lane positive.
template <class T>
HWY_INLINE Cells<T> scan_bias(T straight, int direction)
{
    const CellTag<T> d;
    const auto most = static_cast<T>(std::numeric_limits<T>::max() - static_cast<int>(kMostLanes<T>) * straight);
    return hn::Sub(hn::Mul(hn::Iota(d, 0), hn::Set(d, static_cast<T>(direction * straight))), hn::Set(d, most));
}

// One row of the forward pass, vector by vector from the left.
template <class T, bool kDearDiagonal>
class ForwardScan
{
public:
    HWY_INLINE explicit ForwardScan(const ChamferSteps<T>& steps)
        : straight_(hn::Set(d_, steps.straight)), diagonal_(hn::Set(d_, steps.diagonal)),
          stride_(hn::Set(d_, static_cast<T>(static_cast<T>(hn::Lanes(d_)) * steps.straight))),
          bias_(scan_bias(steps.straight, -1)),
          left_(hn::Add(hn::Set(d_, steps.far_away), hn::Add(first_lane<T>(bias_), straight_)))
    {
    }

    // The values of the next pixels, of which src holds the mask and above the row before, from the cell before theirs.
    HWY_INLINE Cells<T> operator()(const std::uint8_t* src, const T* above)
    {
        const auto mask = hn::PromoteTo(d_, hn::LoadU(hn::Rebind<std::uint8_t, CellTag<T>>(), src));
        const auto through = through_neighbour_row<T, kDearDiagonal, true>(above, straight_, diagonal_);
        const auto candidate = hn::IfThenZeroElse(hn::Eq(mask, hn::Zero(d_)), through);
        const auto scan = minimum_from_first<T>(hn::Add(candidate, bias_));
        const auto value = hn::Sub(hn::Min(scan, left_), bias_);
        left_ = hn::Add(hn::Min(last_lane<T>(scan), left_), stride_);
        return value;
    }

private:
    static constexpr CellTag<T> d_{};
    const Cells<T> straight_, diagonal_, stride_, bias_;
    Cells<T> left_; // what the pixel to the left offers to lane 0, biased as that lane is
};

// One row of the backward pass, vector by vector from the right. A value that is at most one straight step stays, even
// where a cheaper diagonal would improve it; a dear diagonal or a step from the right never does.
template <class T, bool kDearDiagonal>
class BackwardScan
{
public:
    HWY_INLINE explicit BackwardScan(const ChamferSteps<T>& steps)
        : straight_(hn::Set(d_, steps.straight)), diagonal_(hn::Set(d_, steps.diagonal)),
          stride_(hn::Set(d_, static_cast<T>(static_cast<T>(hn::Lanes(d_)) * steps.straight))),
          bias_(scan_bias(steps.straight, 1)),
          right_(hn::Add(hn::Set(d_, steps.far_away), hn::Add(first_lane<T>(bias_), stride_)))
    {
    }

    // The values of the next pixels to the left, with their own values so far and the row after, from the cell before
    // theirs.
    HWY_INLINE Cells<T> operator()(Cells<T> own, const T* below)
    {
        const auto through = through_neighbour_row<T, kDearDiagonal, false>(below, straight_, diagonal_);
        auto candidate = hn::Min(own, through);
        if constexpr (!kDearDiagonal)
            candidate = hn::IfThenElse(hn::Gt(own, straight_), candidate, own);
        const auto scan = minimum_to_last<T>(hn::Add(candidate, bias_));
        const auto value = hn::Sub(hn::Min(scan, right_), bias_);
        right_ = hn::Add(hn::Min(first_lane<T>(scan), right_), stride_);
        return value;
    }

private:
    static constexpr CellTag<T> d_{};
    const Cells<T> straight_, diagonal_, stride_, bias_;
    Cells<T> right_; // what the pixel to the right of the vector offers to lane 0, biased as that lane is
};

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();
#endif
