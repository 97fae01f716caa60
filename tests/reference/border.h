// SPDX-License-Identifier: MIT
// Border indices one reflection at a time, and margins through tables of byte positions.
#pragma once

#include "panoval.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace panoval::reference
{

inline int border_interpolate(int p, int length, int rule)
{
    const auto is_inside = [&] { return static_cast<unsigned>(p) < static_cast<unsigned>(length); };
    if (is_inside())
        return p;
    if (length < 1 && rule >= 1 && rule <= 4)
        return 0; // there is no index inside
    if (rule == 1)
        return p < 0 ? 0 : length - 1;
    if (rule == 2 || rule == 4) {
        const int d = rule == 4 ? 1 : 0;
        if (length == 1)
            return 0;
        do {
            if (p < 0)
                p = d - p - 1;
            else
                p = 2 * length - d - p - 1;
        } while (!is_inside());
        return p;
    }
    if (rule == 3) {
        if (p < 0)
            p = p - ((p - length + 1) / length) * length;
        if (p >= length)
            p = p % length;
        return p;
    }
    return rule == 0 ? -1 : p;
}

inline void copy_make_border(const std::uint8_t* src, int src_step, Size src_size, std::uint8_t* dst, int dst_step,
                             Size dst_size, int top, int left, int elem_bytes, int rule)
{
    const int right = dst_size.width - src_size.width - left;
    const int bottom = dst_size.height - src_size.height - top;
    std::vector<int> table;
    for (int i = 0; i < left; ++i)
        for (int k = 0; k < elem_bytes; ++k)
            table.push_back(border_interpolate(i - left, src_size.width, rule) * elem_bytes + k);
    for (int i = 0; i < right; ++i)
        for (int k = 0; k < elem_bytes; ++k)
            table.push_back(border_interpolate(src_size.width + i, src_size.width, rule) * elem_bytes + k);

    const int left_bytes = left * elem_bytes;
    const int inner_bytes = src_size.width * elem_bytes;
    const int right_bytes = right * elem_bytes;
    for (int r = 0; r < src_size.height && r + top < dst_size.height; ++r) {
        const std::uint8_t* const from = src + r * src_step;
        std::uint8_t* const to = dst + (r + top) * dst_step;
        if (to + left_bytes != from)
            std::memcpy(to + left_bytes, from, static_cast<std::size_t>(inner_bytes));
        for (int i = 0; i < left_bytes; ++i)
            to[i] = from[table[static_cast<std::size_t>(i)]];
        for (int i = 0; i < right_bytes; ++i)
            to[left_bytes + inner_bytes + i] = from[table[static_cast<std::size_t>(left_bytes + i)]];
    }
    const auto whole_row = static_cast<std::size_t>(dst_size.width * elem_bytes);
    for (int i = 0; i < top; ++i)
        std::memcpy(dst + i * dst_step, dst + (top + border_interpolate(i - top, src_size.height, rule)) * dst_step,
                    whole_row);
    for (int i = 0; i < bottom; ++i)
        std::memcpy(dst + (top + src_size.height + i) * dst_step,
                    dst + (top + border_interpolate(src_size.height + i, src_size.height, rule)) * dst_step, whole_row);
}

inline void copy_make_const_border(const std::uint8_t* src, int src_step, Size src_size, std::uint8_t* dst,
                                   int dst_step, Size dst_size, int top, int left, int elem_bytes,
                                   const std::uint8_t* value)
{
    const int right = dst_size.width - src_size.width - left;
    const int bottom = dst_size.height - src_size.height - top;
    std::vector<std::uint8_t> margin_row;
    for (int i = 0; i < dst_size.width; ++i)
        margin_row.insert(margin_row.end(), value, value + elem_bytes);
    const auto copy = [&](std::uint8_t* to, const std::uint8_t* from, int pixels) {
        if (pixels > 0 && to != from)
            std::memcpy(to, from, static_cast<std::size_t>(pixels * elem_bytes));
    };
    for (int r = 0; r < src_size.height && r + top < dst_size.height; ++r) {
        std::uint8_t* const to = dst + (r + top) * dst_step;
        copy(to + left * elem_bytes, src + r * src_step, src_size.width);
        copy(to, margin_row.data(), left);
        copy(to + (left + src_size.width) * elem_bytes, margin_row.data(), right);
    }
    for (int i = 0; i < top; ++i)
        copy(dst + i * dst_step, margin_row.data(), dst_size.width);
    for (int i = 0; i < bottom; ++i)
        copy(dst + (top + src_size.height + i) * dst_step, margin_row.data(), dst_size.width);
}

} // namespace panoval::reference
