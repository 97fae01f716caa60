// SPDX-License-Identifier: MIT
// Image pyramids as they are defined: rings of filtered rows, single precision, the sums in the documented order.
#pragma once

#include "tests/reference/border.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace panoval::reference
{

// A float image that owns its samples.
struct Image {
    Image() = default;
    Image(int w, int h, int c)
        : width(w), height(h), channels(c),
          data(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * static_cast<std::size_t>(c))
    {
    }

    std::size_t row_length() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(channels); }
    float* row(int y) { return data.data() + static_cast<std::size_t>(y) * row_length(); }
    const float* row(int y) const { return data.data() + static_cast<std::size_t>(y) * row_length(); }
    // A level's size.
    static Image reduced(const Image& finer)
    {
        return Image((finer.width + 1) / 2, (finer.height + 1) / 2, finer.channels);
    }

    int width = 0;
    int height = 0;
    int channels = 0;
    std::vector<float> data;
};

// Across: 4 (s(2x-1) + s(2x+1)) + 6 s(2x) + s(2x-2) + s(2x+2).
inline void reduce_across(const float* src, int src_width, int channels, int rule, float* dst, int dst_width)
{
    for (int x = 0; x < dst_width; ++x) {
        int column[5];
        for (int k = 0; k < 5; ++k)
            column[k] = border_interpolate(2 * x - 2 + k, src_width, rule) * channels;
        for (int c = 0; c < channels; ++c) {
            float sum = 4.0f * (src[column[1] + c] + src[column[3] + c]);
            sum = sum + 6.0f * src[column[2] + c];
            sum = sum + src[column[0] + c];
            sum = sum + src[column[4] + c];
            dst[x * channels + c] = sum;
        }
    }
}

// Down: the columns that fill whole fours, then the others, have their own order.
inline void reduce_down(const float* const r[5], int count, float* dst)
{
    const int in_fours = count / 4 * 4;
    for (int i = 0; i < in_fours; ++i) {
        const float near_sum = 4.0f * ((r[1][i] + r[3][i]) + r[2][i]);
        const float far_sum = (r[0][i] + r[4][i]) + 2.0f * r[2][i];
        dst[i] = (near_sum + far_sum) * 0.00390625f;
    }
    for (int i = in_fours; i < count; ++i) {
        float sum = 4.0f * (r[1][i] + r[3][i]);
        sum = sum + 6.0f * r[2][i];
        sum = sum + r[0][i];
        sum = sum + r[4][i];
        dst[i] = sum * 0.00390625f;
    }
}

inline void pyr_down(const Image& src, Image& dst, int rule)
{
    const int count = dst.width * dst.channels;
    std::vector<std::vector<float>> ring(5, std::vector<float>(static_cast<std::size_t>((count + 15) / 16 * 16)));
    int sy = -2;
    for (int y = 0; y < dst.height; ++y) {
        for (; sy <= 2 * y + 2; ++sy)
            reduce_across(src.row(border_interpolate(sy, src.height, rule)), src.width, src.channels, rule,
                          ring[static_cast<std::size_t>((sy + 2) % 5)].data(), dst.width);
        const float* rows[5];
        for (int k = 0; k < 5; ++k)
            rows[k] = ring[static_cast<std::size_t>((2 * y + k) % 5)].data();
        reduce_down(rows, count, dst.row(y));
    }
}

// Across: even l + 6 s + r, odd 4 (s + r). Writes twice the source's width.
inline void expand_across(const float* src, int width, int channels, float* dst)
{
    for (int c = 0; c < channels; ++c) {
        const auto s = [&](int x) { return src[x * channels + c]; };
        const auto out = [&](int x) -> float& { return dst[x * channels + c]; };
        if (width == 1) {
            out(0) = 8.0f * s(0);
            out(1) = 8.0f * s(0);
            continue;
        }
        const int last = width - 1;
        out(0) = 6.0f * s(0) + 2.0f * s(1);
        out(1) = 4.0f * (s(0) + s(1));
        for (int x = 1; x < last; ++x) {
            out(2 * x) = (s(x - 1) + 6.0f * s(x)) + s(x + 1);
            out(2 * x + 1) = 4.0f * (s(x) + s(x + 1));
        }
        out(2 * last) = s(last - 1) + 7.0f * s(last);
        out(2 * last + 1) = 8.0f * s(last);
    }
}

inline void pyr_up(const Image& src, Image& dst)
{
    const int count = dst.width * dst.channels;
    const auto ring_length = static_cast<std::size_t>(((dst.width + 1) * dst.channels + 15) / 16 * 16);
    std::vector<std::vector<float>> ring(3, std::vector<float>(ring_length));
    int sy = -1;
    for (int y = 0; y < src.height; ++y) {
        for (; sy <= y + 1; ++sy)
            expand_across(src.row(border_interpolate(2 * sy, 2 * src.height, 4) / 2), src.width, src.channels,
                          ring[static_cast<std::size_t>((sy + 1) % 3)].data());
        const float* const r0 = ring[static_cast<std::size_t>(y % 3)].data();
        const float* const r1 = ring[static_cast<std::size_t>((y + 1) % 3)].data();
        const float* const r2 = ring[static_cast<std::size_t>((y + 2) % 3)].data();
        float* const odd = dst.row(std::min(2 * y + 1, dst.height - 1));
        for (int i = 0; i < count; ++i)
            odd[i] = (4.0f * (r1[i] + r2[i])) * 0.015625f;
        float* const even = dst.row(2 * y);
        for (int i = 0; i < count; ++i)
            even[i] = ((r0[i] + 6.0f * r1[i]) + r2[i]) * 0.015625f;
    }
}

inline Image subtract(const Image& a, const Image& b)
{
    Image difference(a.width, a.height, a.channels);
    for (std::size_t i = 0; i < a.data.size(); ++i)
        difference.data[i] = a.data[i] - b.data[i];
    return difference;
}

inline std::vector<Image> create_laplace_pyr(const Image& src, int n)
{
    std::vector<Image> pyr(static_cast<std::size_t>(n) + 1);
    Image current = src;
    Image down = Image::reduced(current);
    pyr_down(current, down, 4);
    for (int i = 1; i <= n - 1; ++i) {
        Image next = Image::reduced(down);
        pyr_down(down, next, 4);
        Image up(current.width, current.height, current.channels);
        pyr_up(down, up);
        pyr[static_cast<std::size_t>(i - 1)] = subtract(current, up);
        current = std::move(down);
        down = std::move(next);
    }
    Image up(current.width, current.height, current.channels);
    pyr_up(down, up);
    pyr[static_cast<std::size_t>(n - 1)] = subtract(current, up);
    pyr[static_cast<std::size_t>(n)] = std::move(down);
    return pyr;
}

} // namespace panoval::reference
