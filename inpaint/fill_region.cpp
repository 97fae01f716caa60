// SPDX-License-Identifier: MIT
// Finding the region to be filled: the marks' bounding box, then two dilations inside the window around it.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "inpaint/fill_region.cpp"
#include <hwy/foreach_target.h> // compiles this file once per instruction set

#include <hwy/highway.h>

#include "inpaint/fill_region.h"

#include <algorithm>
#include <bit>
#include <cstring>

HWY_BEFORE_NAMESPACE();
namespace panoval::HWY_NAMESPACE
{
namespace hn = hwy::HWY_NAMESPACE;

template <class D>
HWY_INLINE hn::Vec<D> around(D d, const std::uint8_t* row)
{
    return hn::Or(hn::LoadU(d, row - 1), hn::Or(hn::LoadU(d, row), hn::LoadU(d, row + 1)));
}

template <class D>
HWY_INLINE void dilate_vector(D d, const std::uint8_t* row, std::ptrdiff_t stride, const std::uint8_t* taken,
                              std::uint8_t* out)
{
    const auto all = hn::Or(around(d, row - stride), hn::Or(around(d, row), around(d, row + stride)));
    hn::StoreU(hn::AndNot(hn::LoadU(d, taken), all), d, out);
}

void dilate_row(const std::uint8_t* row, std::ptrdiff_t stride, std::size_t count, const std::uint8_t* taken,
                std::uint8_t* out)
{
    const hn::ScalableTag<std::uint8_t> d;
    const hn::CappedTag<std::uint8_t, 1> one;
    std::size_t i = 0;
    for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d))
        dilate_vector(d, row + i, stride, taken + i, out + i);
    for (; i < count; ++i)
        dilate_vector(one, row + i, stride, taken + i, out + i);
}

} // namespace panoval::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace panoval
{
HWY_EXPORT(dilate_row);

void dilate_row(const std::uint8_t* row, std::ptrdiff_t stride, std::size_t count, const std::uint8_t* taken,
                std::uint8_t* out)
{
    HWY_DYNAMIC_DISPATCH(dilate_row)(row, stride, count, taken, out);
}

namespace
{

// Whether a row holds a mark, and the first and last one.
bool find_marks_of_row(const std::uint8_t* row, std::int32_t width, std::int32_t channels, std::int32_t& first,
                       std::int32_t& last)
{
    const auto at = [&](std::int32_t c) {
        return row[static_cast<std::size_t>(c) * static_cast<std::size_t>(channels)];
    };
    std::int32_t c = 0;
    if (channels == 1)
        for (std::uint64_t eight; c + 8 <= width; c += 8) {
            std::memcpy(&eight, row + c, sizeof eight);
            if (eight != 0)
                break;
        }
    while (c < width && at(c) == 0)
        ++c;
    if (c == width)
        return false;
    first = c;
    last = width - 1;
    while (at(last) == 0)
        --last;
    return true;
}

// Sets the window around all marks: two dilations, then the neighbourhoods and their own neighbours.
bool find_window(FillRegion& region, const Marks& marks, std::int32_t width, std::int32_t height, std::int32_t reach)
{
    std::int32_t top = height;
    std::int32_t bottom = -1;
    std::int32_t left = width;
    std::int32_t right = -1;
    for (std::int32_t r = 0; r < std::min(height, marks.height); ++r) {
        std::int32_t first = 0;
        std::int32_t last = 0;
        if (!find_marks_of_row(marks.row(r), std::min(width, marks.width), marks.channels, first, last))
            continue;
        top = std::min(top, r);
        bottom = r;
        left = std::min(left, first);
        right = std::max(right, last);
    }
    if (bottom < 0)
        return false;
    const std::int64_t margin = std::int64_t{reach} + 2;
    const auto before = [margin](std::int32_t pixel) {
        return static_cast<std::int32_t>(std::max<std::int64_t>(pixel + 1 - margin, 0));
    };
    const auto behind = [margin](std::int32_t pixel, std::int32_t cells) {
        return static_cast<std::int32_t>(std::min<std::int64_t>(pixel + 2 + margin, cells));
    };
    region.first_row = before(top);
    region.end_row = behind(bottom, region.grid_rows);
    region.first_col = before(left);
    region.end_col = behind(right, region.grid_cols);
    region.stride = static_cast<std::size_t>(region.end_col - region.first_col) + kCellsBehindRow;
    return true;
}

void copy_marks(const FillRegion& region, const Marks& marks, std::uint8_t* cells)
{
    const std::int32_t end_row = std::min(region.end_row - 1, marks.height + 1);
    const std::int32_t end_col = std::min(region.end_col - 1, marks.width + 1);
    for (std::int32_t row = region.first_row + 1; row < end_row; ++row) {
        const std::uint8_t* const source = marks.row(row - 1);
        std::uint8_t* const dest = cells + region.index(row, region.first_col);
        for (std::int32_t col = region.first_col + 1; col < end_col; ++col)
            dest[col - region.first_col] =
                source[static_cast<std::size_t>(col - 1) * static_cast<std::size_t>(marks.channels)] != 0 ? 1 : 0;
    }
}

// Dilates all cells of the window but its outermost ones, which are out of every mark's reach or the picture's frame.
void dilate_window(const FillRegion& region, const std::uint8_t* cells, const std::uint8_t* taken, std::uint8_t* out)
{
    const auto count = static_cast<std::size_t>(region.end_col - region.first_col) - 2;
    for (std::int32_t row = region.first_row + 1; row < region.end_row - 1; ++row) {
        const std::size_t i = region.index(row, region.first_col + 1);
        dilate_row(cells + i, static_cast<std::ptrdiff_t>(region.stride), count, taken + i, out + i);
    }
}

void set_cell(const FillRegion& region, std::size_t cell, float distance, std::uint32_t colour, std::uint32_t known)
{
    region.words[2 * cell] = std::bit_cast<std::uint32_t>(distance);
    region.words[2 * cell + 1] = colour | known << 24;
}

void make_pixels_of_row(const FillRegion& region, std::int32_t row, const std::uint8_t* inside,
                        const std::uint8_t* image)
{
    const std::int32_t first_col = std::max(region.first_col, 1);
    const std::int32_t end_col = std::min(region.end_col, region.grid_cols - 1);
    const auto width = static_cast<std::size_t>(region.grid_cols) - 2;
    const std::uint8_t* pixel =
        image + 3 * (static_cast<std::size_t>(row - 1) * width + static_cast<std::size_t>(first_col - 1));
    std::size_t cell = region.index(row, first_col);
    for (std::int32_t col = first_col; col < end_col; ++col, ++cell, pixel += 3)
        set_cell(region, cell, region.ring[cell] != 0 ? 0.0f : kFarAway,
                 pixel[0] | static_cast<std::uint32_t>(pixel[1]) << 8 | static_cast<std::uint32_t>(pixel[2]) << 16,
                 inside[cell] != 0 ? kInside : kPixel);
}

void make_cells(const FillRegion& region, const std::uint8_t* inside, const std::uint8_t* image)
{
    for (std::int32_t row = region.first_row; row < region.end_row; ++row) {
        const std::size_t first = region.index(row, region.first_col);
        for (std::size_t cell = first; cell < first + region.stride; ++cell)
            set_cell(region, cell, kFarAway, 0, kFrame);
        if (row > 0 && row < region.grid_rows - 1)
            make_pixels_of_row(region, row, inside, image);
    }
}

std::size_t count_ones(const std::uint8_t* cells, std::size_t count)
{
    return static_cast<std::size_t>(std::count(cells, cells + count, 1));
}

} // namespace

bool find_fill_region(FillRegion& region, const Marks& marks, const std::uint8_t* image, std::int32_t width,
                      std::int32_t height, std::int32_t reach)
{
    region.grid_rows = height + 2;
    region.grid_cols = width + 2;
    if (!find_window(region, marks, width, height, reach))
        return false;
    const std::size_t cells = region.cells();
    const HeapArray<std::uint8_t> marked = allocate_zeroed<std::uint8_t>(cells);
    const HeapArray<std::uint8_t> inside = allocate_zeroed<std::uint8_t>(cells);
    region.ring = allocate_zeroed<std::uint8_t>(cells);
    region.words = allocate<std::uint32_t>(2 * cells);
    if (marked == nullptr || inside == nullptr || region.ring == nullptr || region.words == nullptr)
        return false;
    copy_marks(region, marks, marked.get());
    dilate_window(region, marked.get(), region.ring.get(), inside.get()); // nothing is taken yet
    dilate_window(region, inside.get(), inside.get(), region.ring.get());
    const std::size_t ring = count_ones(region.ring.get(), cells);
    region.band_capacity = ring + count_ones(inside.get(), cells);
    if (ring != 0)
        make_cells(region, inside.get(), image);
    return ring != 0;
}

} // namespace panoval
#endif
