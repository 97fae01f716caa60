// SPDX-License-Identifier: MIT
// Inpainting as its definition reads: grids of the whole picture with a frame, a doubly linked list that is walked from
// its end, an outer pass that changes nothing but the signs of zeros, and weights formed anew for each channel.
#pragma once

#include "core/numbers.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::reference
{

template <class T>
struct InpaintGrid {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::vector<T> cells;

    InpaintGrid(std::int32_t w, std::int32_t h, T value)
        : width(w), height(h), cells(static_cast<std::size_t>(w) * static_cast<std::size_t>(h), value)
    {
    }
    T& operator()(std::int32_t row, std::int32_t col)
    {
        return cells.at(static_cast<std::size_t>(row) * static_cast<std::size_t>(width) +
                        static_cast<std::size_t>(col));
    }
    const T& operator()(std::int32_t row, std::int32_t col) const
    {
        return cells.at(static_cast<std::size_t>(row) * static_cast<std::size_t>(width) +
                        static_cast<std::size_t>(col));
    }
};

using InpaintBytes = InpaintGrid<std::uint8_t>;
using InpaintFloats = InpaintGrid<float>;

// One list holds the active nodes in rising order of T and behind them, from the cursor on, the free ones.
class InpaintList
{
public:
    bool init(const InpaintBytes& grid)
    {
        const auto capacity = static_cast<std::size_t>(
            std::count_if(grid.cells.begin(), grid.cells.end(), [](std::uint8_t cell) { return cell != 0; }));
        if (capacity == 0)
            return false;
        nodes_.resize(capacity + 2);
        for (std::size_t i = 0; i < nodes_.size(); ++i)
            nodes_[i] = {3.4028235e38f, -1, -1, i + 1, i - 1};
        nodes_.front().t = -3.4028235e38f;
        cursor_ = 1;
        tail_ = capacity + 1;
        return true;
    }

    bool push(std::int32_t row, std::int32_t col, float t)
    {
        if (cursor_ == tail_)
            return false;
        std::size_t before = nodes_[cursor_].prev;
        while (nodes_[before].t > t)
            before = nodes_[before].prev;
        const std::size_t node = cursor_;
        cursor_ = nodes_[node].next;
        if (before != nodes_[node].prev) {
            unlink(node);
            link_behind(before, node);
        }
        nodes_[node].t = t;
        nodes_[node].row = row;
        nodes_[node].col = col;
        return true;
    }

    bool add(const InpaintBytes& grid)
    {
        for (std::int32_t row = 0; row < grid.height; ++row)
            for (std::int32_t col = 0; col < grid.width; ++col)
                if (grid(row, col) != 0 && !push(row, col, 0.0f))
                    return false;
        return true;
    }

    bool pop(std::int32_t& row, std::int32_t& col)
    {
        const std::size_t node = nodes_[0].next;
        if (node == cursor_)
            return false;
        unlink(node);
        link_behind(nodes_[cursor_].prev, node);
        cursor_ = node;
        row = nodes_[node].row;
        col = nodes_[node].col;
        return true;
    }

private:
    struct Node {
        float t;
        std::int32_t row;
        std::int32_t col;
        std::size_t next;
        std::size_t prev;
    };

    void unlink(std::size_t node)
    {
        nodes_[nodes_[node].prev].next = nodes_[node].next;
        nodes_[nodes_[node].next].prev = nodes_[node].prev;
    }
    void link_behind(std::size_t before, std::size_t node)
    {
        const std::size_t after = nodes_[before].next;
        nodes_[node].prev = before;
        nodes_[node].next = after;
        nodes_[before].next = node;
        nodes_[after].prev = node;
    }

    std::vector<Node> nodes_;
    std::size_t cursor_ = 0;
    std::size_t tail_ = 0;
};

inline float inpaint_solve(const InpaintBytes& flags, const InpaintFloats& t, std::int32_t r1, std::int32_t c1,
                           std::int32_t r2, std::int32_t c2)
{
    const double a = t(r1, c1);
    const double b = t(r2, c2);
    const bool first_inside = flags(r1, c1) == 2;
    const bool second_inside = flags(r2, c2) == 2;
    double result = 0;
    if (!first_inside && !second_inside) {
        if (std::fabs(a - b) >= 1.0)
            result = std::min(a, b) + 1;
        else
            result = (std::sqrt(2 - (a - b) * (a - b)) + a + b) * 0.5;
    } else if (first_inside && !second_inside) {
        result = b + 1;
    } else if (!first_inside) {
        result = a + 1;
    } else {
        result = std::min(a, b) + 1;
    }
    return static_cast<float>(result);
}

inline float inpaint_distance(const InpaintBytes& flags, const InpaintFloats& t, std::int32_t i, std::int32_t j)
{
    return std::min({inpaint_solve(flags, t, i - 1, j, i, j + 1), inpaint_solve(flags, t, i + 1, j, i, j - 1),
                     inpaint_solve(flags, t, i - 1, j, i, j - 1), inpaint_solve(flags, t, i + 1, j, i, j + 1)});
}

inline void inpaint_dilate(const InpaintBytes& source, InpaintBytes& dest)
{
    for (std::int32_t r = 1; r <= source.height - 2; ++r)
        for (std::int32_t c = 1; c <= source.width - 2; ++c) {
            std::uint8_t bits = 0;
            for (std::int32_t rr = r - 1; rr <= r + 1; ++rr)
                for (std::int32_t cc = c - 1; cc <= c + 1; ++cc)
                    bits = static_cast<std::uint8_t>(bits | source(rr, cc));
            dest(r, c) = bits;
        }
}

inline void inpaint_subtract(InpaintBytes& a, const InpaintBytes& b)
{
    for (std::size_t i = 0; i < a.cells.size(); ++i)
        a.cells[i] = static_cast<std::uint8_t>((a.cells[i] - b.cells[i] + 255) % 255);
}

inline void inpaint_clear_frame(InpaintBytes& grid)
{
    for (std::int32_t r = 0; r < grid.height; ++r)
        grid(r, 0) = grid(r, grid.width - 1) = 0;
    for (std::int32_t c = 0; c < grid.width; ++c)
        grid(0, c) = grid(grid.height - 1, c) = 0;
}

inline void inpaint_clear_border_runs(std::uint8_t* mask, std::int32_t width, std::int32_t height)
{
    const auto at = [&](std::int32_t row, std::int32_t col) -> std::uint8_t& {
        return mask[static_cast<std::ptrdiff_t>(row) * width + col];
    };
    for (std::int32_t c = 0; c < width; ++c)
        for (std::int32_t r = 0; r < height && at(r, c) != 0; ++r)
            at(r, c) = 0;
    for (std::int32_t c = 0; c < width; ++c)
        for (std::int32_t r = height - 1; r >= 0 && at(r, c) != 0; --r)
            at(r, c) = 0;
    for (std::int32_t r = 0; r < height; ++r)
        for (std::int32_t c = 0; c < width && at(r, c) != 0; ++c)
            at(r, c) = 0;
    for (std::int32_t r = 0; r < height; ++r)
        if (width > 0)
            at(r, width - 1) = 0;
}

// The outer pass: false when its list has no room, and the filling is left out then.
inline bool inpaint_outer_pass(const InpaintBytes& region, const InpaintBytes& ring, InpaintFloats& t)
{
    InpaintBytes outer(region.width, region.height, 0);
    inpaint_dilate(region, outer);
    inpaint_subtract(outer, region);
    InpaintList list;
    if (!list.init(outer))
        return false;
    list.add(ring);
    inpaint_subtract(outer, ring);
    inpaint_clear_frame(outer);
    std::int32_t i = 0;
    std::int32_t j = 0;
    while (list.pop(i, j)) {
        outer(i, j) = 3;
        const std::int32_t neighbours[4][2] = {{i - 1, j}, {i, j - 1}, {i + 1, j}, {i, j + 1}};
        for (const auto& [r, c] : neighbours) {
            if (r < 0 || r >= outer.height || c < 0 || c >= outer.width || outer(r, c) != 2)
                continue;
            t(r, c) = inpaint_distance(outer, t, r, c);
            outer(r, c) = 1;
            list.push(r, c, t(r, c));
        }
    }
    for (std::size_t cell = 0; cell < outer.cells.size(); ++cell)
        if (outer.cells[cell] == 3) {
            outer.cells[cell] = 0;
            t.cells[cell] = -t.cells[cell];
        }
    return true;
}

struct InpaintVector {
    float x;
    float y;
};

inline InpaintVector inpaint_gradient_of_distance(const InpaintBytes& f, const InpaintFloats& t, std::int32_t i,
                                                  std::int32_t j)
{
    const auto along = [&](std::int32_t di, std::int32_t dj) -> float {
        const bool after_known = f(i + di, j + dj) != 2;
        const bool before_known = f(i - di, j - dj) != 2;
        if (after_known && before_known)
            return (t(i + di, j + dj) - t(i - di, j - dj)) * 0.5f;
        if (after_known)
            return t(i + di, j + dj) - t(i, j);
        if (before_known)
            return t(i, j) - t(i - di, j - dj);
        return 0;
    };
    return {along(0, 1), along(1, 0)};
}

// One channel of the cell (i, j). I is the picture: (row, col) of the current channel.
template <class I>
std::uint8_t inpaint_value(const InpaintBytes& f, const InpaintFloats& t, std::int32_t i, std::int32_t j,
                           std::int64_t range, InpaintVector grad_t, const I& image)
{
    float ia = 0;
    float jx = 0;
    float jy = 0;
    float s = 1e-20f;
    const std::int64_t last_row = std::min<std::int64_t>(i + range, f.height - 2);
    const std::int64_t last_col = std::min<std::int64_t>(j + range, f.width - 2);
    for (std::int64_t kk = std::max<std::int64_t>(i - range, 1); kk <= last_row; ++kk)
        for (std::int64_t ll = std::max<std::int64_t>(j - range, 1); ll <= last_col; ++ll) {
            const auto k = static_cast<std::int32_t>(kk);
            const auto l = static_cast<std::int32_t>(ll);
            if (f(k, l) == 2 || (ll - j) * (ll - j) + (kk - i) * (kk - i) > range * range)
                continue;
            const InpaintVector r = {static_cast<float>(j - l), static_cast<float>(i - k)};
            const float q = r.x * r.x + r.y * r.y;
            const auto dst = static_cast<float>(1.0 / (q * std::sqrt(static_cast<double>(q))));
            const auto lev = static_cast<float>(1.0 / (1.0 + std::fabs(static_cast<double>(t(k, l) - t(i, j)))));
            float dir = r.x * grad_t.x + r.y * grad_t.y;
            if (std::fabs(static_cast<double>(dir)) <= 0.01)
                dir = 0.000001f;
            const float w = std::fabs(dst * lev * dir);

            const std::int32_t km = k - 1 + (k == 1 ? 1 : 0);
            const std::int32_t kp = k - 1 - (k == f.height - 2 ? 1 : 0);
            const std::int32_t lm = l - 1 + (l == 1 ? 1 : 0);
            const std::int32_t lp = l - 1 - (l == f.width - 2 ? 1 : 0);
            InpaintVector grad_i = {0, 0};
            if (f(k, l + 1) != 2)
                grad_i.x = static_cast<float>(f(k, l - 1) != 2 ? (image(km, lp + 1) - image(km, lm - 1)) * 2
                                                               : image(km, lp + 1) - image(km, lm));
            else if (f(k, l - 1) != 2)
                grad_i.x = static_cast<float>(image(km, lp) - image(km, lm - 1));
            if (f(k + 1, l) != 2)
                grad_i.y = static_cast<float>(f(k - 1, l) != 2 ? (image(kp + 1, lm) - image(km - 1, lm)) * 2
                                                               : image(kp + 1, lm) - image(km, lm));
            else if (f(k - 1, l) != 2)
                grad_i.y = static_cast<float>(image(kp, lm) - image(km - 1, lm));

            ia += w * static_cast<float>(image(km, lm));
            jx -= w * grad_i.x * r.x;
            jy -= w * grad_i.y * r.y;
            s += w;
        }
    const double x = jx;
    const double y = jy;
    const double value =
        (x + y) / (std::sqrt(x * x + y * y) + 1e-20) + static_cast<double>(ia) / static_cast<double>(s) + 0.5;
    return low_byte(truncate_to_int(value));
}

// image: width x height x channels; mask: width x height x mask_channels. Both change.
inline void inpaint(std::uint8_t* image, std::int32_t width, std::int32_t height, std::int32_t channels,
                    std::uint8_t* mask, std::int32_t mask_channels, std::int32_t range)
{
    inpaint_clear_border_runs(mask, width, height);
    const std::int32_t grid_width = width + 2;
    const std::int32_t grid_height = height + 2;
    InpaintBytes region(grid_width, grid_height, 0);
    InpaintBytes ring(grid_width, grid_height, 0);
    InpaintBytes f(grid_width, grid_height, 0);
    InpaintFloats t(grid_width, grid_height, 1000000.0f);
    for (std::int32_t r = 0; r < height; ++r)
        for (std::int32_t c = 0; c < width; ++c)
            if (mask[(static_cast<std::ptrdiff_t>(r) * width + c) * mask_channels] != 0)
                ring(r + 1, c + 1) = 2;
    inpaint_dilate(ring, region);
    inpaint_clear_frame(region);
    inpaint_dilate(region, ring);
    InpaintList list;
    if (!list.init(ring))
        return;
    inpaint_subtract(ring, region);
    inpaint_clear_frame(ring);
    list.add(ring);
    for (std::size_t cell = 0; cell < f.cells.size(); ++cell) {
        if (ring.cells[cell] != 0) {
            f.cells[cell] = 1;
            t.cells[cell] = 0;
        }
        if (region.cells[cell] != 0)
            f.cells[cell] = 2;
    }
    if (!inpaint_outer_pass(region, ring, t) || channels != 3)
        return;
    std::int32_t pi = 0;
    std::int32_t pj = 0;
    while (list.pop(pi, pj)) {
        f(pi, pj) = 0;
        const std::int32_t neighbours[4][2] = {{pi - 1, pj}, {pi, pj - 1}, {pi + 1, pj}, {pi, pj + 1}};
        for (const auto& [i, j] : neighbours) {
            if (i < 2 || i > grid_height - 1 || j < 2 || j > grid_width - 1 || f(i, j) != 2)
                continue;
            const float dist = inpaint_distance(f, t, i, j);
            t(i, j) = dist;
            const InpaintVector grad_t = inpaint_gradient_of_distance(f, t, i, j);
            std::uint8_t* const pixel = image + (static_cast<std::ptrdiff_t>(i - 1) * width + j - 1) * 3;
            for (std::int32_t c = 0; c < 3; ++c)
                pixel[c] = inpaint_value(f, t, i, j, range, grad_t, [&](std::int32_t row, std::int32_t col) -> int {
                    return image[(static_cast<std::ptrdiff_t>(row) * width + col) * 3 + c];
                });
            f(i, j) = 1;
            list.push(i, j, dist);
        }
    }
}

} // namespace panoval::reference
