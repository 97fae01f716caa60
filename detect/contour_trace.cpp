// SPDX-License-Identifier: MIT
// Contour tracing: boundary pixels are marked row by row, then each unvisited one starts a chain that turns around its
// shape clockwise, keeps the background to its left, and steps back out of dead ends until it meets its first pixel.
#include "detect/contour_trace.h"

#include "core/numbers.h"

#include <cstring>
#include <utility>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "detect/contour_trace.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace
{

namespace hn = hwy::HWY_NAMESPACE;

template <class D>
HWY_INLINE std::size_t mark_boundary_vector(D d, const std::uint8_t* up, const std::uint8_t* row,
                                            const std::uint8_t* down, std::uint8_t* marks)
{
    const auto beside = hn::And(hn::LoadU(d, row - 1), hn::LoadU(d, row + 1));
    const auto above_and_below = hn::And(hn::LoadU(d, up), hn::LoadU(d, down));
    const auto is_boundary = hn::AndNot(hn::And(beside, above_and_below), hn::LoadU(d, row));
    hn::StoreU(is_boundary, d, marks);
    return hn::CountTrue(d, hn::Ne(is_boundary, hn::Zero(d)));
}

} // namespace

std::size_t mark_boundary_row(const std::uint8_t* up, const std::uint8_t* row, const std::uint8_t* down, int width,
                              std::uint8_t* marks)
{
    const hn::ScalableTag<std::uint8_t> d;
    const hn::CappedTag<std::uint8_t, 1> one;
    const int lanes = static_cast<int>(hn::Lanes(d));
    std::size_t count = 0;
    int x = 1;
    for (; x + lanes <= width - 1; x += lanes)
        count += mark_boundary_vector(d, up + x, row + x, down + x, marks + x);
    for (; x < width - 1; ++x) // fewer than one vector left
        count += mark_boundary_vector(one, up + x, row + x, down + x, marks + x);
    return count;
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{

HWY_EXPORT(mark_boundary_row);
std::size_t mark_boundary_row(const std::uint8_t* up, const std::uint8_t* row, const std::uint8_t* down, int width,
                              std::uint8_t* marks)
{
    return HWY_DYNAMIC_DISPATCH(mark_boundary_row)(up, row, down, width, marks);
}

namespace
{

// States of a pixel. A pixel of a finished outline is kNone again: later chains pass over it as over background.
enum : std::uint8_t { kNone = 0, kUntraced = 1, kOwnLabel = 2 };

// Follows the chains of one map of marks.
class ChainTracer
{
public:
    ChainTracer(std::int32_t width, std::uint8_t* marks, std::int32_t* pixels) : marks_(marks), pixels_(pixels)
    {
        const std::int32_t clockwise[8] = {1 - width, 1, 1 + width, width, width - 1, -1, -width - 1, -width};
        for (int d = 0; d < 16; ++d)
            step_[d] = clockwise[d % 8];
    }

    // Follows the chain that starts at an untraced pixel. True when it closed. Otherwise its first pixel alone stays in
    // the list: it keeps the label, which the next chain gets, too.
    bool trace_from(std::int32_t start)
    {
        begin_ = end_;
        start_ = start;
        append(start);
        direction_ = 0;
        for (;;) {
            const Look look = advance();
            if (look == Look::Closed)
                return true;
            if (look == Look::Stuck && !back_out())
                return false;
        }
    }

    // Takes the label away from all pixels that carry it.
    void finish_label()
    {
        for (std::int32_t i = label_begin_; i < end_; ++i)
            marks_[pixels_[i]] = kNone;
        label_begin_ = end_;
    }

    Outline outline() const { return {label_begin_, begin_, end_}; }
    std::int32_t pixel_count() const { return end_; }

private:
    enum class Look { Moved, Closed, Stuck };

    void append(std::int32_t pixel)
    {
        marks_[pixel] = kOwnLabel;
        pixels_[end_++] = pixel;
        current_ = pixel;
    }

    void move(int direction)
    {
        append(current_ + step_[direction]);
        direction_ = (direction + 5) % 8; // the background side, just past the pixel left behind
    }

    // Looks around the current pixel, clockwise from direction_, and takes one step.
    Look advance()
    {
        for (int d = direction_; d < direction_ + 8; ++d) {
            const std::int32_t neighbour = current_ + step_[d];
            const std::uint8_t state = marks_[neighbour];
            if (state == kNone)
                continue;
            if (state == kOwnLabel)
                return neighbour == start_ ? Look::Closed : Look::Stuck;
            move(d);
            return Look::Moved;
        }
        return Look::Stuck;
    }

    // Removes pixels from the end of the chain until one has an untraced neighbour, and goes there. False when none is
    // left.
    bool back_out()
    {
        for (;;) {
            for (int d = 0; d < 8; ++d)
                if (marks_[current_ + step_[d]] == kUntraced) {
                    move(d);
                    return true;
                }
            if (end_ - 1 == begin_)
                return false;
            marks_[current_] = kNone;
            --end_;
            current_ = pixels_[end_ - 1];
        }
    }

    std::uint8_t* marks_;
    std::int32_t* pixels_;
    std::int32_t step_[16];
    std::int32_t label_begin_ = 0; // first of the pixels that carry the present label
    std::int32_t begin_ = 0;       // first pixel of the present chain
    std::int32_t end_ = 0;
    std::int32_t start_ = 0;
    std::int32_t current_ = 0;
    int direction_ = 0;
};

// Whether all of the next 32 pixels are unmarked.
bool are_unmarked(const std::uint8_t* pixels)
{
    std::uint64_t eights[4];
    std::memcpy(eights, pixels, sizeof eights);
    return (eights[0] | eights[1] | eights[2] | eights[3]) == 0;
}

// The first marked pixel, or after.
const std::uint8_t* find_marked(const std::uint8_t* from, const std::uint8_t* after)
{
    while (after - from >= 32 && are_unmarked(from))
        from += 32;
    while (from < after && *from == kNone)
        ++from;
    return from;
}

bool append_outline(OutlineList& list, std::size_t& capacity, const Outline& outline)
{
    if (to_count(list.count) == capacity) {
        capacity = capacity < 32 ? 64 : capacity + capacity / 2;
        if (!grow(list.outlines, capacity))
            return false;
    }
    list.outlines[to_count(list.count++)] = outline;
    return true;
}

// Visits the untraced pixels row by row. What is marked there is untraced: a pixel that keeps its label began a chain,
// and lies behind. False when the heap is exhausted.
bool trace_marked(std::int32_t width, std::int32_t height, std::uint8_t* marks, OutlineList& list)
{
    ChainTracer tracer(width, marks, list.pixels.get());
    std::size_t capacity = 0;
    for (std::int32_t y = 1; y < height - 1; ++y) {
        const std::uint8_t* const after = marks + (to_count(y) + 1) * to_count(width) - 1;
        const std::uint8_t* pixel = marks + to_count(y) * to_count(width) + 1;
        for (; (pixel = find_marked(pixel, after)) < after; ++pixel) {
            if (!tracer.trace_from(static_cast<std::int32_t>(pixel - marks)))
                continue;
            if (!append_outline(list, capacity, tracer.outline()))
                return false;
            tracer.finish_label();
        }
    }
    list.pixel_count = tracer.pixel_count();
    return true;
}

// Marks the whole image. The frame stays unmarked, so that a chain never leaves the interior.
std::size_t mark_boundary(std::int32_t width, std::int32_t height, const std::uint8_t* foreground, std::uint8_t* marks)
{
    const std::size_t stride = to_count(width);
    std::memset(marks, kNone, stride);
    std::memset(marks + stride * to_count(height - 1), kNone, stride);
    std::size_t count = 0;
    for (std::int32_t y = 1; y < height - 1; ++y) {
        const std::uint8_t* const row = foreground + stride * to_count(y);
        std::uint8_t* const row_marks = marks + stride * to_count(y);
        count += mark_boundary_row(row - stride, row, row + stride, width, row_marks);
        row_marks[0] = row_marks[stride - 1] = kNone;
    }
    return count;
}

} // namespace

bool trace_contours(std::int32_t width, std::int32_t height, const std::uint8_t* foreground, OutlineList& list)
{
    list = OutlineList{};
    if (width < 3 || height < 3)
        return true;
    const auto marks = allocate<std::uint8_t>(to_count(width) * to_count(height));
    if (marks == nullptr)
        return false;
    list.pixels = allocate<std::int32_t>(mark_boundary(width, height, foreground, marks.get()));
    if (list.pixels != nullptr && trace_marked(width, height, marks.get(), list))
        return true;
    list = OutlineList{};
    return false;
}

} // namespace panoval
#endif
