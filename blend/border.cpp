// SPDX-License-Identifier: MIT
// Border indices in closed form, and copies with margins. A margin's pixels are looked up again in every row, which
// costs less than a table would: there are few of them, and nothing has to be allocated.
#include "blend/border.h"

#include "core/numbers.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace panoval
{
namespace
{

// Reflection repeats with a period of the way forth and back.
std::int32_t mirror(std::int64_t p, std::int64_t length, std::int64_t inner)
{
    if (length <= 1)
        return 0;
    const std::int64_t reflected = p < 0 ? inner - p - 1 : 2 * length - inner - p - 1;
    if (reflected >= 0 && reflected < length) // once, as nearly always
        return static_cast<std::int32_t>(reflected);
    const std::int64_t period = 2 * (length - inner);
    std::int64_t q = p % period;
    if (q < 0)
        q += period;
    return static_cast<std::int32_t>(q < length ? q : 2 * length - inner - q - 1);
}

std::int32_t wrap(std::int64_t p, std::int64_t length)
{
    if (length <= 1)
        return 0;
    const std::int64_t q = p % length;
    return static_cast<std::int32_t>(q < 0 ? q + length : q);
}

std::size_t row_bytes(std::int32_t width, std::int32_t elem_bytes)
{
    return to_count(width) * to_count(elem_bytes);
}

// Does the work with the size of a pixel, as a constant where it is that of one, three or four floats.
template <class Work>
void with_pixel(std::size_t bytes, const Work& work)
{
    switch (bytes) {
    case 4:
        return work(std::integral_constant<std::size_t, 4>());
    case 12:
        return work(std::integral_constant<std::size_t, 12>());
    case 16:
        return work(std::integral_constant<std::size_t, 16>());
    default:
        return work(bytes);
    }
}

// Fills a run of pixels with one value.
void fill_pixels(std::uint8_t* dst, std::int32_t count, const std::uint8_t* value, std::size_t elem_bytes)
{
    with_pixel(elem_bytes, [&](auto pixel) {
        for (std::int32_t i = 0; i < count; ++i)
            std::memcpy(dst + to_count(i) * pixel, value, pixel);
    });
}

// Fills pixels first to last - 1 of a row from those that they repeat. inner is pixel 0; the margins lie around it.
void fill_margin(std::uint8_t* inner, std::int32_t first, std::int32_t last, std::int32_t width, std::int32_t rule,
                 std::size_t elem_bytes)
{
    with_pixel(elem_bytes, [&](auto pixel) {
        for (std::int32_t x = first; x < last; ++x)
            std::memcpy(inner + x * static_cast<std::ptrdiff_t>(pixel),
                        inner + to_count(border_interpolate(x, width, rule)) * pixel, pixel);
    });
}

// Rows of the source that find room below the top margin.
std::int32_t rows_to_copy(Size src_size, Size dst_size, std::int32_t top)
{
    return std::min(src_size.height, dst_size.height - top);
}

} // namespace

std::int32_t border_interpolate(std::int32_t p, std::int32_t length, std::int32_t rule)
{
    if (p >= 0 && p < length)
        return p;
    switch (rule) {
    case kBorderConstant:
        return -1;
    case kBorderReplicate:
        return p < 0 || length < 1 ? 0 : length - 1;
    case kBorderMirrorEdge:
        return mirror(p, length, 0);
    case kBorderWrap:
        return wrap(p, length);
    case kBorderMirrorInner:
        return mirror(p, length, 1);
    default:
        return p;
    }
}

void copy_make_border(const std::uint8_t* src, std::size_t src_step, Size src_size, std::uint8_t* dst,
                      std::size_t dst_step, Size dst_size, std::int32_t top, std::int32_t left, std::int32_t elem_bytes,
                      std::int32_t rule)
{
    const std::size_t pixel = to_count(elem_bytes);
    const std::size_t inner_bytes = row_bytes(src_size.width, elem_bytes);
    const std::size_t dst_bytes = row_bytes(dst_size.width, elem_bytes);
    const std::int32_t rows = rows_to_copy(src_size, dst_size, top);
    for (std::int32_t y = 0; y < rows; ++y) {
        const std::uint8_t* const src_row = src + to_count(y) * src_step;
        std::uint8_t* const dst_row = dst + to_count(top + y) * dst_step;
        std::uint8_t* const inner = dst_row + to_count(left) * pixel;
        if (inner != src_row)
            std::memcpy(inner, src_row, inner_bytes);
        fill_margin(inner, -left, 0, src_size.width, rule, pixel);
        fill_margin(inner, src_size.width, dst_size.width - left, src_size.width, rule, pixel);
    }
    const auto copy_row = [&](std::int32_t to, std::int32_t y) {
        const std::int32_t from = top + border_interpolate(y, src_size.height, rule);
        if (from < dst_size.height) // else the row to repeat was itself left out
            std::memcpy(dst + to_count(to) * dst_step, dst + to_count(from) * dst_step, dst_bytes);
    };
    for (std::int32_t i = 0; i < std::min(top, dst_size.height); ++i)
        copy_row(i, i - top);
    for (std::int32_t y = src_size.height; top + y < dst_size.height; ++y)
        copy_row(top + y, y);
}

void copy_make_const_border(const std::uint8_t* src, std::size_t src_step, Size src_size, std::uint8_t* dst,
                            std::size_t dst_step, Size dst_size, std::int32_t top, std::int32_t left,
                            std::int32_t elem_bytes, const std::uint8_t* value)
{
    const std::size_t pixel = to_count(elem_bytes);
    const std::size_t inner_bytes = row_bytes(src_size.width, elem_bytes);
    const std::int32_t right = dst_size.width - src_size.width - left;
    for (std::int32_t y = 0; y < dst_size.height; ++y) {
        std::uint8_t* const dst_row = dst + to_count(y) * dst_step;
        if (y < top || y - top >= src_size.height) {
            fill_pixels(dst_row, dst_size.width, value, pixel);
            continue;
        }
        const std::uint8_t* const src_row = src + to_count(y - top) * src_step;
        std::uint8_t* const inner = dst_row + to_count(left) * pixel;
        if (inner != src_row)
            std::memcpy(inner, src_row, inner_bytes);
        fill_pixels(dst_row, left, value, pixel);
        fill_pixels(inner + inner_bytes, right, value, pixel);
    }
}

} // namespace panoval
