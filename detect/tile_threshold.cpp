// SPDX-License-Identifier: MIT
// A threshold for every pixel: each tile of the image has one of its own (Otsu, A threshold selection method from
// gray-level histograms, 1979), and between the tiles' centres they are interpolated.
#include "detect/tile_threshold.h"

#include "core/heap.h"
#include "core/numbers.h"

#include <algorithm>

extern "C" {
int omp_get_max_threads(void);
int omp_get_thread_num(void);
}

namespace panoval
{
namespace
{

constexpr int kLevels = 256;

struct Histogram {
    std::uint32_t bins[kLevels];
};

struct Grid {
    std::int32_t tile_width;
    std::int32_t tile_height;
    std::int32_t columns;
    std::int32_t rows;
};

void count_levels(const std::uint8_t* pixels, std::size_t stride, std::int32_t width, std::int32_t height,
                  Histogram& histogram)
{
    histogram = {};
    for (std::int32_t y = 0; y < height; ++y, pixels += stride)
        for (std::int32_t x = 0; x < width; ++x)
            ++histogram.bins[pixels[x]];
}

std::int32_t best_level(const Histogram& histogram, std::int32_t pixel_count)
{
    float p[kLevels];
    for (int i = 0; i < kLevels; ++i)
        p[i] = static_cast<float>(static_cast<double>(static_cast<std::int32_t>(histogram.bins[i])) /
                                  static_cast<double>(pixel_count));
    float best = 0;
    std::int32_t result = 0;
    float w0 = 0;
    float s0 = 0;
    for (int t = 0; t < kLevels; ++t) {
        if (histogram.bins[t] == 0)
            continue; // all four sums are those of the level before
        w0 += p[t];
        s0 += static_cast<float>(t) * p[t];
        float w1 = 0;
        float s1 = 0;
        for (int i = t + 1; i < kLevels; ++i) {
            w1 += p[i];
            s1 += static_cast<float>(i) * p[i];
        }
        if (w1 == 0)
            break;
        const double d = s0 / w0 - s1 / w1;
        const float weight = w1 * w0;
        const auto score = static_cast<float>(d * d * static_cast<double>(weight));
        if (score > best) {
            best = score;
            result = t;
        }
    }
    return result;
}

// One histogram for each thread that may share the loop over the tiles; here it runs on the calling thread alone. A
// host that calls from a parallel region of its own may have a higher thread number than this region's maximum.
bool threshold_tiles(const Grid& grid, std::int32_t width, std::int32_t height, const std::uint8_t* image,
                     std::uint8_t* thresholds)
{
    const std::int32_t thread = omp_get_thread_num();
    const HeapArray<Histogram> slots = allocate<Histogram>(to_count(std::max(omp_get_max_threads(), thread + 1)));
    if (slots == nullptr)
        return false;
    Histogram& histogram = slots[to_count(thread)];
    for (std::int32_t ty = 0; ty < grid.rows; ++ty)
        for (std::int32_t tx = 0; tx < grid.columns; ++tx) {
            const std::int32_t x = tx * grid.tile_width;
            const std::int32_t y = ty * grid.tile_height;
            const std::int32_t tile_width = std::min(grid.tile_width, width - x);
            const std::int32_t tile_height = std::min(grid.tile_height, height - y);
            count_levels(image + to_count(y) * to_count(width) + x, to_count(width), tile_width, tile_height,
                         histogram);
            *thresholds++ = low_byte(best_level(histogram, wrapping_mul(tile_width, tile_height)));
        }
    return true;
}

std::int32_t interpolate(const Grid& grid, const std::uint8_t* thresholds, std::int32_t x, std::int32_t y)
{
    const std::int32_t gy = y + grid.tile_height / 2;
    const std::int32_t gx = x + grid.tile_width / 2;
    const std::int32_t ty = gy / grid.tile_height;
    const std::int32_t tx = gx / grid.tile_width;
    const double fy = static_cast<double>(gy % grid.tile_height) / static_cast<double>(grid.tile_height);
    const double fx = static_cast<double>(gx % grid.tile_width) / static_cast<double>(grid.tile_width);
    const std::uint8_t* const upper = thresholds + to_count(std::max(ty - 1, 0)) * to_count(grid.columns);
    const std::uint8_t* const lower = thresholds + to_count(std::min(ty, grid.rows - 1)) * to_count(grid.columns);
    const std::int32_t left = std::max(tx - 1, 0);
    const std::int32_t right = std::min(tx, grid.columns - 1);
    return truncate_to_int(lower[right] * fx * fy) + truncate_to_int(lower[left] * (1 - fx) * fy) +
           truncate_to_int(upper[right] * fx * (1 - fy)) + truncate_to_int(upper[left] * (1 - fx) * (1 - fy));
}

template <class Mark>
bool mark_dark(std::int32_t width, std::int32_t height, const std::uint8_t* image, Mark* map, std::int32_t divisions)
{
    if (width < 1 || height < 1)
        return true;
    const std::size_t count = to_count(width) * to_count(height);
    if (divisions < 1 || divisions > std::min(width, height)) {
        std::fill_n(map, count, Mark{0});
        return true;
    }
    Grid grid{width / divisions, height / divisions, 0, 0};
    grid.columns = (width - 1) / grid.tile_width + 1;
    grid.rows = (height - 1) / grid.tile_height + 1;
    const HeapArray<std::uint8_t> thresholds = allocate<std::uint8_t>(to_count(grid.columns) * to_count(grid.rows));
    if (thresholds == nullptr || !threshold_tiles(grid, width, height, image, thresholds.get()))
        return false;
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x, ++image, ++map)
            *map = *image <= low_byte(interpolate(grid, thresholds.get(), x, y)) ? 1 : 0;
    return true;
}

} // namespace

std::int32_t tile_otsu_threshold(std::int32_t width, std::int32_t height, const std::uint8_t* pixels)
{
    Histogram histogram;
    count_levels(pixels, to_count(width), width, height, histogram);
    return best_level(histogram, wrapping_mul(width, height));
}

bool adaptive_tile_threshold(std::int32_t width, std::int32_t height, const std::uint8_t* image, std::uint32_t* map,
                             std::int32_t divisions)
{
    return mark_dark(width, height, image, map, divisions);
}

bool adaptive_tile_threshold(std::int32_t width, std::int32_t height, const std::uint8_t* image, std::uint8_t* map,
                             std::int32_t divisions)
{
    return mark_dark(width, height, image, map, divisions);
}

} // namespace panoval
