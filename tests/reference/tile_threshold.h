// SPDX-License-Identifier: MIT
// The definition of the tile threshold: every sum is built anew for every level, every pixel interpolates by itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::reference
{

// bins: pixels of each of the 256 levels, pixel_count together
inline std::int32_t otsu_threshold(const std::uint32_t* bins, int pixel_count)
{
    float p[256];
    for (int i = 0; i < 256; ++i)
        p[i] = static_cast<float>(static_cast<double>(bins[i]) / static_cast<double>(pixel_count));
    float best = 0.0f;
    int result = 0;
    for (int t = 0; t < 256; ++t) {
        float w0 = 0.0f;
        float s0 = 0.0f;
        float w1 = 0.0f;
        float s1 = 0.0f;
        for (int i = 0; i <= t; ++i) {
            w0 = w0 + p[i];
            s0 = s0 + static_cast<float>(i) * p[i];
        }
        for (int i = t + 1; i < 256; ++i) {
            w1 = w1 + p[i];
            s1 = s1 + static_cast<float>(i) * p[i];
        }
        if (w0 == 0.0f)
            continue;
        if (w1 == 0.0f)
            break;
        const float d = s0 / w0 - s1 / w1;
        const float weight = w1 * w0;
        const double square = static_cast<double>(d) * static_cast<double>(d);
        const float score = static_cast<float>(square * static_cast<double>(weight));
        if (score > best) {
            best = score;
            result = t;
        }
    }
    return result;
}

inline std::int32_t tile_otsu_threshold(int width, int height, const std::uint8_t* pixels)
{
    std::uint32_t bins[256] = {};
    for (int x = 0; x < width; ++x)
        for (int y = 0; y < height; ++y)
            ++bins[pixels[static_cast<std::ptrdiff_t>(y) * width + x]];
    return otsu_threshold(bins, width * height);
}

// One row of marks. Of each of the four tiles around, the products of its threshold and each column's fraction; the
// vertical fraction, and what it lacks of 1.
template <class Mark>
void mark_row(const double* lower_right, const double* lower_left, const double* upper_right, const double* upper_left,
              double lower, double upper, const std::uint8_t* pixels, std::size_t width, Mark* map)
{
    for (std::size_t x = 0; x < width; ++x) {
        const int threshold = static_cast<int>(lower_right[x] * lower) + static_cast<int>(lower_left[x] * lower) +
                              static_cast<int>(upper_right[x] * upper) + static_cast<int>(upper_left[x] * upper);
        map[x] = pixels[x] <= threshold ? 1 : 0;
    }
}

// divisions between 1 and the smaller side
template <class Mark>
void adaptive_tile_threshold(int width, int height, const std::uint8_t* image, Mark* map, int divisions)
{
    const int tw = width / divisions;
    const int th = height / divisions;
    const int ntx = (width - 1 + tw) / tw;
    const int nty = (height - 1 + th) / th;
    std::vector<std::uint8_t> table(static_cast<std::size_t>(ntx) * static_cast<std::size_t>(nty));
    const auto at = [&](int r, int c) -> std::uint8_t& { return table[static_cast<std::size_t>(r * ntx + c)]; };
    std::vector<std::uint8_t> tile(static_cast<std::size_t>(tw) * static_cast<std::size_t>(th));
    for (int ty = 0; ty < nty; ++ty)
        for (int tx = 0; tx < ntx; ++tx) {
            const int w = tx == ntx - 1 ? width - (ntx - 1) * tw : tw;
            const int h = ty == nty - 1 ? height - (nty - 1) * th : th;
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    tile[static_cast<std::size_t>(y * w + x)] =
                        image[static_cast<std::ptrdiff_t>(ty * th + y) * width + tx * tw + x];
            at(ty, tx) = static_cast<std::uint8_t>(tile_otsu_threshold(w, h, tile.data()) & 0xFF);
        }
    const auto clamped = [](int v, int last) { return v < 0 ? 0 : v > last ? last : v; };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const int gy = y + th / 2;
            const int ty = gy / th;
            const double fy = static_cast<double>(gy - ty * th) / static_cast<double>(th);
            const int gx = x + tw / 2;
            const int tx = gx / tw;
            const double fx = static_cast<double>(gx % tw) / static_cast<double>(tw);
            const int r0 = clamped(ty - 1, nty - 1);
            const int r1 = clamped(ty, nty - 1);
            const int c0 = clamped(tx - 1, ntx - 1);
            const int c1 = clamped(tx, ntx - 1);
            const int threshold =
                static_cast<int>(at(r1, c1) * fx * fy) + static_cast<int>(at(r1, c0) * (1 - fx) * fy) +
                static_cast<int>(at(r0, c1) * fx * (1 - fy)) + static_cast<int>(at(r0, c0) * (1 - fx) * (1 - fy));
            const std::ptrdiff_t i = static_cast<std::ptrdiff_t>(y) * width + x;
            map[i] = image[i] <= static_cast<std::uint8_t>(threshold) ? 1 : 0;
        }
}

} // namespace panoval::reference
