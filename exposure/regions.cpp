// SPDX-License-Identifier: MIT
// Rectangles cut out of images and masks, and the intersection of masks. A cut writes every byte of its result once:
// what lies inside the source is copied, only the rest is cleared.
#include "exposure/regions.h"

#include "core/containers.h"
#include "core/numbers.h"

#include <algorithm>
#include <cstring>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "exposure/regions.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

std::size_t intersect_masks(const std::uint8_t* a, const std::uint8_t* b, std::size_t count, std::uint8_t* out)
{
    const hn::ScalableTag<std::uint8_t> d;
    std::size_t covered = 0;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) {
        const auto lesser = hn::Min(hn::LoadU(d, a + i), hn::LoadU(d, b + i)); // 0 where one of them is
        const auto both = hn::Ne(lesser, hn::Zero(d));
        hn::StoreU(hn::VecFromMask(d, both), d, out + i);
        covered += hn::CountTrue(d, both);
    }
    for (; i < count; ++i) {
        const bool both = a[i] != 0 && b[i] != 0;
        out[i] = both ? 255 : 0;
        covered += both ? 1 : 0;
    }
    return covered;
}

// The processor foresees no jump from one row to the next, so that a call asks for the next row's lines while it copies
// its own. The last vector may overlap the one before it.
void copy_row(const std::uint8_t* src, const std::uint8_t* next, std::size_t length, std::uint8_t* dst)
{
    const hn::ScalableTag<std::uint8_t> d;
    const std::size_t lanes = hn::Lanes(d);
    if (length < lanes) {
        std::memcpy(dst, src, length);
        return;
    }
    std::size_t i = 0;
    for (; i + 2 * lanes <= length; i += 2 * lanes) {
        hwy::Prefetch(next + i);
        const auto first = hn::LoadU(d, src + i);
        const auto second = hn::LoadU(d, src + i + lanes);
        hn::StoreU(first, d, dst + i);
        hn::StoreU(second, d, dst + i + lanes);
    }
    for (; i + lanes <= length; i += lanes)
        hn::StoreU(hn::LoadU(d, src + i), d, dst + i);
    if (i < length)
        hn::StoreU(hn::LoadU(d, src + length - lanes), d, dst + length - lanes);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
namespace
{

// Where a run of a source's length lies on an axis, seen from the rectangle: [begin, end), empty when begin == end.
struct Span {
    std::int32_t begin;
    std::int32_t end;
};

Span span_inside(std::int32_t start, std::int32_t length, std::int32_t source_length) noexcept
{
    const std::int64_t first = start; // 64 bits, because start + length may leave 32
    const std::int64_t begin = std::max<std::int64_t>(first, 0) - first;
    const std::int64_t end = std::min<std::int64_t>(first + length, source_length) - first;
    if (begin >= end)
        return {0, 0};
    return {static_cast<std::int32_t>(begin), static_cast<std::int32_t>(end)};
}

// Whether the sizes are positive and their product does not wrap, so that positions can be told from it.
bool is_proper_shape(std::int32_t width, std::int32_t height, std::int32_t channels, std::int32_t elem_size) noexcept
{
    std::int64_t product = 1;
    for (const std::int32_t size : {width, height, channels, elem_size}) {
        product *= size;
        if (size <= 0 || product > std::numeric_limits<std::int32_t>::max())
            return false;
    }
    return true;
}

// One run; the next one starts stride bytes further on. A long one is a copy like any other.
void copy_run(const std::uint8_t* src, std::size_t stride, std::size_t length, std::uint8_t* dst) noexcept
{
    constexpr std::size_t kLongRun = 16384; // two of them fill the nearest cache
    if (length < kLongRun)
        copy_row(src, src + stride, length, dst);
    else
        std::memcpy(dst, src, length);
}

// Copies count runs of the given length, stride bytes apart, to dst, with gap zeros between them. Returns dst's end.
std::uint8_t* copy_runs(const std::uint8_t* src, std::size_t stride, std::size_t count, std::size_t length,
                        std::size_t gap, std::uint8_t* dst) noexcept
{
    if (gap == 0 && length == stride) { // one run of memory
        length *= count;
        count = 1;
    }
    for (std::size_t run = 0; run < count; ++run) {
        if (run > 0 && gap > 0)
            std::memset(dst + run * (length + gap) - gap, 0, gap);
        copy_run(src + run * stride, run + 1 < count ? stride : 0, length, dst + run * (length + gap));
    }
    return dst + count * (length + gap) - gap;
}

// Copies the rectangle's part inside the source and clears the rest. dst has the rectangle's size.
void cut_pixels(const std::uint8_t* src, std::int32_t src_width, std::int32_t src_height, std::size_t pixel_bytes,
                const Roi& roi, std::uint8_t* dst) noexcept
{
    const std::size_t dst_stride = to_count(roi.width) * pixel_bytes;
    std::uint8_t* const dst_end = dst + to_count(roi.height) * dst_stride;
    const Roi part = part_inside(roi, src_width, src_height);
    if (part.height > 0) {
        const std::size_t src_stride = to_count(src_width) * pixel_bytes;
        const std::size_t length = to_count(part.width) * pixel_bytes;
        const std::size_t before = to_count(part.y) * dst_stride + to_count(part.x) * pixel_bytes;
        std::memset(dst, 0, before);
        src += to_count(roi.y + part.y) * src_stride + to_count(roi.x + part.x) * pixel_bytes;
        dst = copy_runs(src, src_stride, to_count(part.height), length, dst_stride - length, dst + before);
    }
    std::memset(dst, 0, static_cast<std::size_t>(dst_end - dst));
}

} // namespace

bool find_overlap(Point tl1, Point tl2, Size sz1, Size sz2, Roi& roi) noexcept
{
    const std::int32_t x = std::max(tl1.x, tl2.x);
    const std::int32_t y = std::max(tl1.y, tl2.y);
    const std::int32_t x_end = std::min(wrapping_add(tl1.x, sz1.width), wrapping_add(tl2.x, sz2.width));
    const std::int32_t y_end = std::min(wrapping_add(tl1.y, sz1.height), wrapping_add(tl2.y, sz2.height));
    if (x >= x_end || y >= y_end)
        return false;
    roi = {x, y, wrapping_sub(x_end, x), wrapping_sub(y_end, y)};
    return true;
}

Roi part_inside(const Roi& roi, std::int32_t source_width, std::int32_t source_height) noexcept
{
    const Span columns = span_inside(roi.x, roi.width, source_width);
    const Span rows = span_inside(roi.y, roi.height, source_height);
    if (columns.begin == columns.end || rows.begin == rows.end)
        return {0, 0, 0, 0};
    return {columns.begin, rows.begin, columns.end - columns.begin, rows.end - rows.begin};
}

HWY_EXPORT(copy_row);
HWY_EXPORT(intersect_masks);

void copy_row(const std::uint8_t* src, const std::uint8_t* next, std::size_t length, std::uint8_t* dst)
{
    HWY_DYNAMIC_DISPATCH(copy_row)(src, next, length, dst);
}

std::size_t intersect_masks(const std::uint8_t* a, const std::uint8_t* b, std::size_t count, std::uint8_t* out)
{
    return HWY_DYNAMIC_DISPATCH(intersect_masks)(a, b, count, out);
}

} // namespace panoval

extern "C" {

std::int32_t overlapRoi(Point tl1, Point tl2, Size sz1, Size sz2, Roi* roi)
{
    return panoval::find_overlap(tl1, tl2, sz1, sz2, *roi) ? 1 : 0;
}

void get_sub_image(const Mat* src, const Roi* roi, Mat* dst)
{
    const bool is_copied = (src->elemSize == 1 || src->elemSize == 2) &&
                           panoval::is_proper_shape(roi->width, roi->height, src->channels, src->elemSize);
    if (!is_copied) {
        MatReset(dst, roi->width, roi->height, src->channels, src->elemSize);
        return;
    }
    if (!panoval::reset_uncleared(*dst, roi->width, roi->height, src->channels, src->elemSize))
        return;
    const std::size_t pixel_bytes = panoval::to_count(src->channels * src->elemSize);
    panoval::cut_pixels(src->data, src->width, src->height, pixel_bytes, *roi, dst->data);
}

void get_sub_mask(const Matb* mask, const Roi* roi, Matb* dst)
{
    if (!panoval::is_proper_shape(roi->width, roi->height, 1, 1)) {
        MatbReset(dst, roi->width, roi->height, 1);
        return;
    }
    if (panoval::reset_uncleared(*dst, roi->width, roi->height, 1))
        panoval::cut_pixels(mask->data, mask->width, mask->height, 1, *roi, dst->data);
}

std::int32_t get_mask_intersect(const Matb* a, const Matb* b, Matb* out)
{
    if (!panoval::reset_uncleared(*out, a->width, a->height, 1) || out->data == nullptr)
        return 0;
    const std::size_t pixels = panoval::to_count(panoval::wrapping_mul(a->width, a->height));
    return static_cast<std::int32_t>(panoval::intersect_masks(a->data, b->data, pixels, out->data));
}

} // extern "C"
#endif
