// SPDX-License-Identifier: MIT
// Chamfer distances in two raster passes (Borgefors, Distance transformations in digital images, 1986), in fixed-point
// integers. Within a row each value depends on the one before it: value[x] = min(candidate[x], value[x - 1] +
// straight). That is a prefix minimum of candidate[x] - x * straight, which vectors take in log2(lanes) steps. Integers
// make the rearranged sums exact as long as none of them leaves 32 bits; other costs take the plain loop, whose sums
// wrap.
#include "filter/distance_transform.h"

#include "core/containers.h"
#include "core/numbers.h"

#include <algorithm>
#include <cmath>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "filter/distance_transform.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

#ifndef PANOVAL_FILTER_DISTANCE_TRANSFORM_ONCE
#define PANOVAL_FILTER_DISTANCE_TRANSFORM_ONCE
namespace panoval
{

inline constexpr std::int32_t kFarAway = 0x1FFFFFFF; // initial distance, and the frame around the mask
inline constexpr float kPixelsPerUnit = 1.0f / 65536.0f;
inline constexpr std::int32_t kMostLanes = 8; // of the vectors below

} // namespace panoval
#endif

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

// Eight lanes suffice: memory limits wider ones.
using Distances = hn::CappedTag<std::int32_t, kMostLanes>;
using Vector = hn::Vec<Distances>;

#if HWY_TARGET == HWY_SCALAR // one lane

HWY_INLINE Vector minimum_from_first(Vector v)
{
    return v;
}

HWY_INLINE Vector minimum_to_last(Vector v)
{
    return v;
}

HWY_INLINE Vector first_lane(Vector v)
{
    return v;
}

HWY_INLINE Vector last_lane(Vector v)
{
    return v;
}

#else

constexpr bool kTwoBlocks = hn::MaxLanes(Distances()) == 8; // of 128 bits; otherwise one

// Lane i becomes the minimum of lanes 0 to i. No lane may be positive: the shifts fill with zeros.
HWY_INLINE Vector minimum_from_first(Vector v)
{
    const Distances d;
    v = hn::Min(v, hn::ShiftLeftLanes<1>(d, v));
    v = hn::Min(v, hn::ShiftLeftLanes<2>(d, v));
    if constexpr (kTwoBlocks)
        v = hn::Min(v, hn::ConcatLowerLower(d, hn::Broadcast<3>(v), v));
    return v;
}

// Lane i becomes the minimum of lanes i to the last. No lane may be positive.
HWY_INLINE Vector minimum_to_last(Vector v)
{
    const Distances d;
    v = hn::Min(v, hn::ShiftRightLanes<1>(d, v));
    v = hn::Min(v, hn::ShiftRightLanes<2>(d, v));
    if constexpr (kTwoBlocks)
        v = hn::Min(v, hn::ConcatUpperUpper(d, v, hn::Broadcast<0>(v)));
    return v;
}

HWY_INLINE Vector first_lane(Vector v)
{
    const auto first = hn::Broadcast<0>(v);
    if constexpr (kTwoBlocks)
        return hn::ConcatLowerLower(Distances(), first, first);
    return first;
}

HWY_INLINE Vector last_lane(Vector v)
{
    const auto last = hn::Broadcast<3>(v);
    if constexpr (kTwoBlocks)
        return hn::ConcatUpperUpper(Distances(), last, last);
    return last;
}

#endif

// What the scan of a row adds to each lane and takes away again: the steps from the vector's first pixel, negative in
// the forward pass, and a number that is large enough to leave no lane positive.
HWY_INLINE Vector scan_bias(std::int32_t straight, std::int32_t direction)
{
    const Distances d;
    const std::int32_t most = std::numeric_limits<std::int32_t>::max() - kMostLanes * straight;
    return hn::Sub(hn::Mul(hn::Iota(d, 0), hn::Set(d, direction * straight)), hn::Set(d, most));
}

// The best way through a neighbouring row that is final in its pass; row points at its element before the pixel's.
// Where a diagonal step costs at least two straight ones (kDearDiagonal), the corner that the scan of that row came
// from is no better than the way along the row: kFirst tells which corner that is.
template <bool kDearDiagonal, bool kFirst>
HWY_INLINE Vector through_neighbour_row(const std::int32_t* row, Vector straight, Vector diagonal)
{
    const Distances d;
    auto corner = hn::LoadU(d, kFirst ? row + 2 : row);
    if constexpr (!kDearDiagonal)
        corner = hn::Min(corner, hn::LoadU(d, kFirst ? row : row + 2));
    return hn::Min(hn::Add(corner, diagonal), hn::Add(hn::LoadU(d, row + 1), straight));
}

// The whole vectors of one row of the forward pass; returns the number of pixels done.
template <bool kDearDiagonal>
std::size_t forward_vectors(const std::uint8_t* src, const std::int32_t* above, std::int32_t* row,
                            const ChamferPass& pass)
{
    const Distances d;
    const hn::Rebind<std::uint8_t, Distances> bytes;
    const std::size_t lanes = hn::Lanes(d);
    const auto straight = hn::Set(d, pass.straight);
    const auto diagonal = hn::Set(d, pass.diagonal);
    const auto stride = hn::Set(d, static_cast<std::int32_t>(lanes) * pass.straight);
    const auto bias = scan_bias(pass.straight, -1);
    // What the pixel to the left offers to lane 0, biased as that lane is.
    auto left = hn::Add(hn::Set(d, kFarAway), hn::Add(first_lane(bias), straight));
    std::size_t x = 0;
    for (; x + lanes <= to_count(pass.width); x += lanes) {
        const auto mask = hn::PromoteTo(d, hn::LoadU(bytes, src + x));
        const auto through = through_neighbour_row<kDearDiagonal, true>(above + x, straight, diagonal);
        const auto candidate = hn::IfThenZeroElse(hn::Eq(mask, hn::Zero(d)), through);
        const auto scan = minimum_from_first(hn::Add(candidate, bias));
        hn::StoreU(hn::Sub(hn::Min(scan, left), bias), d, row + 1 + x);
        left = hn::Add(hn::Min(last_lane(scan), left), stride);
    }
    return x;
}

// One row of the forward pass. src: width mask bytes. above, row: rows of the scratch with their frame, width + 2
// elements each.
void forward_row(const std::uint8_t* src, const std::int32_t* above, std::int32_t* row, const ChamferPass& pass)
{
    const std::size_t width = to_count(pass.width);
    row[0] = kFarAway;
    row[width + 1] = kFarAway;
    std::size_t x = 0;
    if (pass.scan_is_exact)
        x = pass.diagonal_is_dear ? forward_vectors<true>(src, above, row, pass)
                                  : forward_vectors<false>(src, above, row, pass);
    for (; x < width; ++x) {
        const std::int32_t corners =
            std::min(wrapping_add(above[x], pass.diagonal), wrapping_add(above[x + 2], pass.diagonal));
        const std::int32_t sides =
            std::min(wrapping_add(above[x + 1], pass.straight), wrapping_add(row[x], pass.straight));
        row[x + 1] = src[x] == 0 ? 0 : std::min(corners, sides);
    }
}

// The whole vectors of one row of the backward pass, from its right end; returns the number of pixels left. A value
// that is at most one straight step stays, even where a cheaper diagonal would improve it; a dear diagonal or a step
// from the right never does.
template <bool kDearDiagonal>
std::size_t backward_vectors(const std::int32_t* below, std::int32_t* row, const ChamferPass& pass, float* distances)
{
    const Distances d;
    const hn::RebindToFloat<Distances> df;
    const std::size_t lanes = hn::Lanes(d);
    const auto straight = hn::Set(d, pass.straight);
    const auto diagonal = hn::Set(d, pass.diagonal);
    const auto stride = hn::Set(d, static_cast<std::int32_t>(lanes) * pass.straight);
    const auto bias = scan_bias(pass.straight, 1);
    const auto scale = hn::Set(df, kPixelsPerUnit);
    // What the pixel to the right of the vector offers to lane 0, biased as that lane is.
    auto right = hn::Add(hn::Set(d, kFarAway), hn::Add(first_lane(bias), stride));
    std::size_t x = to_count(pass.width);
    for (; x >= lanes; x -= lanes) {
        std::int32_t* const at = row + 1 + x - lanes;
        const auto own = hn::LoadU(d, at);
        const auto through = through_neighbour_row<kDearDiagonal, false>(below + x - lanes, straight, diagonal);
        auto candidate = hn::Min(own, through);
        if constexpr (!kDearDiagonal)
            candidate = hn::IfThenElse(hn::Gt(own, straight), candidate, own);
        const auto scan = minimum_to_last(hn::Add(candidate, bias));
        const auto value = hn::Sub(hn::Min(scan, right), bias);
        hn::StoreU(value, d, at);
        hn::StoreU(hn::Mul(hn::ConvertTo(df, value), scale), df, distances + x - lanes);
        right = hn::Add(hn::Min(first_lane(scan), right), stride);
    }
    return x;
}

// One row of the backward pass. below, row: rows of the scratch with their frame.
void backward_row(const std::int32_t* below, std::int32_t* row, const ChamferPass& pass, float* distances)
{
    std::size_t x = to_count(pass.width);
    if (pass.scan_is_exact)
        x = pass.diagonal_is_dear ? backward_vectors<true>(below, row, pass, distances)
                                  : backward_vectors<false>(below, row, pass, distances);
    for (; x > 0; --x) {
        std::int32_t value = row[x];
        if (value > pass.straight) {
            const std::int32_t corners =
                std::min(wrapping_add(below[x - 1], pass.diagonal), wrapping_add(below[x + 1], pass.diagonal));
            const std::int32_t sides =
                std::min(wrapping_add(below[x], pass.straight), wrapping_add(row[x + 1], pass.straight));
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
namespace
{

HWY_EXPORT(forward_row);
HWY_EXPORT(backward_row);

// Rounded to the nearest unit: the product in single precision, the rounding in double.
std::int32_t fixed_point_cost(float pixels) noexcept
{
    const double units = static_cast<double>(pixels * 65536.0f);
    return truncate_to_int(std::floor(units + 0.5));
}

// A pixel is never farther than by the straight way from the nearest side of the frame, so the largest value is
// kFarAway + straight * smaller side. To that come one step of either kind, and the two vectors of straight steps that
// the scan's bias allows for.
bool is_scan_exact(const ChamferPass& pass) noexcept
{
    if (pass.straight < 0 || pass.diagonal < 0)
        return false;
    const std::int64_t steps = std::int64_t{std::min(pass.width, pass.height)} + 2 * kMostLanes + 1;
    return kFarAway + steps * pass.straight + pass.diagonal <= std::numeric_limits<std::int32_t>::max();
}

void start_distance_row(const ChamferPass& pass, std::int32_t y, const std::uint8_t* src) noexcept
{
    const std::size_t pitch = to_count(pass.width) + 2;
    std::int32_t* const above = pass.frame + to_count(y) * pitch;
    HWY_DYNAMIC_DISPATCH(forward_row)(src, above, above + pitch, pass);
}

} // namespace

ChamferPass begin_distance_transform(const Matb& src, Matf& scratch, const float* metrics) noexcept
{
    ChamferPass pass;
    pass.straight = fixed_point_cost(metrics[0]);
    pass.diagonal = fixed_point_cost(metrics[1]);
    const std::int32_t frame_width = wrapping_add(src.width, 2);
    const std::int32_t frame_height = wrapping_add(src.height, 2);
    if (!is_addressable(frame_width, frame_height, 1)) {
        MatfReset(&scratch, frame_width, frame_height, 1);
        return pass;
    }
    if (!reset_uncleared(scratch, frame_width, frame_height, 1) || scratch.data == nullptr)
        return pass;

    // The scratch is a container of floats by its type alone; nobody reads a float from it.
    pass.frame = reinterpret_cast<std::int32_t*>(scratch.data);
    const std::size_t pitch = to_count(frame_width);
    if (src.width < 0 || src.height < 0) { // a single column or row, all of it frame
        std::fill_n(pass.frame, pitch * to_count(frame_height), kFarAway);
        return pass;
    }
    pass.width = src.width;
    pass.height = src.height;
    pass.scan_is_exact = is_scan_exact(pass);
    pass.diagonal_is_dear = pass.diagonal >= std::int64_t{2} * pass.straight;
    std::fill_n(pass.frame, pitch, kFarAway);
    std::fill_n(pass.frame + pitch * (to_count(frame_height) - 1), pitch, kFarAway);
    for (std::int32_t y = 0; y < src.height; ++y)
        start_distance_row(pass, y, src.data + to_count(y) * to_count(src.width));
    return pass;
}

void finish_distance_row(const ChamferPass& pass, std::int32_t y, float* distances) noexcept
{
    const std::size_t pitch = to_count(pass.width) + 2;
    std::int32_t* const row = pass.frame + (to_count(y) + 1) * pitch;
    HWY_DYNAMIC_DISPATCH(backward_row)(row + pitch, row, pass, distances);
}

} // namespace panoval

extern "C" void distanceTransform_3x3(const Matb* src, Matf* scratch, Matf* dist, const float* metrics)
{
    const panoval::ChamferPass pass = panoval::begin_distance_transform(*src, *scratch, metrics);
    const std::ptrdiff_t stride = dist->width;
    for (std::int32_t y = pass.height - 1; y >= 0 && pass.width > 0; --y)
        panoval::finish_distance_row(pass, y, dist->data + y * stride);
}
#endif
