// SPDX-License-Identifier: MIT
// The feather blender: weighted sums of placed images on one canvas. Each image's weights grow with the city-block
// distance from the edge of its mask. A row's backward distance pass, its weights and its sums follow each other while
// the row is in the cache.
#include "blend/blender_settings.h"
#include "blend/feather_rows.h"
#include "blend/rounded_mean.h"
#include "core/containers.h"
#include "core/heap.h"
#include "core/numbers.h"
#include "filter/distance_transform.h"
#include "panoval.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace panoval
{
namespace
{

// The part of an image that falls on the canvas, in image coordinates: columns x to x_end - 1, rows y to y_end - 1.
struct Visible {
    std::int64_t x, x_end, y, y_end;
};

Visible visible_part(const FeatherBlender& blender, const Mat& img, std::int64_t dx, std::int64_t dy) noexcept
{
    const Roi& canvas = blender.dstRoi;
    return {std::max<std::int64_t>(0, -dx), std::min<std::int64_t>(img.width, canvas.width - dx),
            std::max<std::int64_t>(0, -dy), std::min<std::int64_t>(img.height, canvas.height - dy)};
}

// Whether image, weights and canvas fit together as they are meant to, so that whole rows can be added.
bool is_regular(const FeatherBlender& blender, const Mat& img) noexcept
{
    return (img.elemSize == 1 || img.elemSize == 2) && img.channels > 0 && img.channels == blender.dst.channels &&
           img.width == blender.weightMap.width && img.height == blender.weightMap.height &&
           blender.dst.width == blender.dstRoi.width && blender.dst.height == blender.dstRoi.height &&
           blender.dst.data != nullptr && blender.dstWeightMap.data != nullptr;
}

// Row y of a regular image.
void add_row(FeatherBlender& blender, const Mat& img, const Visible& part, std::int64_t dx, std::int64_t dy,
             std::int64_t y) noexcept
{
    const std::int64_t pixel = y * img.width + part.x;
    const std::int64_t canvas_pixel = (y + dy) * blender.dst.width + part.x + dx;
    const std::int64_t sample = pixel * img.channels;
    float* const sums = blender.dst.data + canvas_pixel * img.channels;
    float* const weight_sums = blender.dstWeightMap.data + canvas_pixel;
    const float* const weights = blender.weightMap.data + pixel;
    const std::size_t count = to_count(part.x_end - part.x);
    const std::size_t channels = to_count(img.channels);
    if (img.elemSize == 1)
        add_weighted_row(img.data + sample, weights, sums, weight_sums, count, channels);
    else
        add_weighted_row(reinterpret_cast<const std::uint16_t*>(img.data) + sample, weights, sums, weight_sums, count,
                         channels);
}

float sample_at(const Mat& img, std::int64_t index) noexcept
{
    if (img.elemSize == 1)
        return static_cast<float>(img.data[index]);
    std::uint16_t sample;
    std::memcpy(&sample, img.data + 2 * index, sizeof sample);
    return static_cast<float>(sample);
}

// Elements that positions may be told from; none where sizes are negative or their product wraps.
std::int64_t element_count(const Matf& m) noexcept
{
    const bool has_elements = m.data != nullptr && is_addressable(m.width, m.height, m.channels);
    return has_elements ? std::int64_t{m.width} * m.height * m.channels : 0;
}

// Images of another sample size, channel count or mask size, and canvases whose rectangle the host has changed: each
// sample goes where its own indices say, in order, as long as that is a place in the maps.
void add_irregular(FeatherBlender& blender, const Mat& img, const Visible& part, std::int64_t dx,
                   std::int64_t dy) noexcept
{
    const std::int64_t weight_count = element_count(blender.weightMap);
    const std::int64_t sum_count = element_count(blender.dst);
    const std::int64_t weight_sum_count = element_count(blender.dstWeightMap);
    if (weight_count == 0 || weight_sum_count == 0)
        return;
    const bool has_colour = (img.elemSize == 1 || img.elemSize == 2) && sum_count > 0;
    const std::int64_t colours = has_colour ? img.channels : 0;
    for (std::int64_t y = part.y; y < part.y_end; ++y)
        for (std::int64_t x = part.x; x < part.x_end; ++x) {
            const std::int64_t weight_index = y * blender.weightMap.width + x;
            const std::int64_t weight_sum_index = (y + dy) * blender.dstWeightMap.width + x + dx;
            if (weight_index >= weight_count || weight_sum_index >= weight_sum_count)
                continue;
            const float weight = blender.weightMap.data[weight_index];
            const std::int64_t first = ((y + dy) * blender.dst.width + x + dx) * blender.dst.channels;
            for (std::int64_t c = 0; c < colours && first + c < sum_count; ++c)
                blender.dst.data[first + c] += sample_at(img, (y * img.width + x) * img.channels + c) * weight;
            blender.dstWeightMap.data[weight_sum_index] += weight;
        }
}

void feed(FeatherBlender& blender, const Mat& img, const Matb& mask, Point tl) noexcept
{
    Matf& weights = blender.weightMap;
    if (!reset_uncleared(weights, mask.width, mask.height, 1)) {
        empty_container(blender.distScratch);
        return;
    }
    const ChamferPass pass = begin_distance_transform(mask, blender.distScratch, kCityBlockSteps);
    if (pass.frame == nullptr || mask.width < 0 || mask.height < 0) {
        empty_container(weights);
        return;
    }
    const std::int64_t dx = wrapping_sub(tl.x, blender.dstRoi.x);
    const std::int64_t dy = wrapping_sub(tl.y, blender.dstRoi.y);
    const Visible part = visible_part(blender, img, dx, dy);
    const bool regular = is_regular(blender, img) && part.x < part.x_end;
    const std::size_t width = to_count(pass.width);
    for (std::int32_t y = pass.height - 1; y >= 0 && width > 0; --y) {
        float* const row = weights.data + to_count(y) * width;
        finish_distance_row(pass, y, row);
        ramp_row(row, width, blender.sharpness);
        if (regular && y >= part.y && y < part.y_end)
            add_row(blender, img, part, dx, dy, y);
    }
    if (!is_regular(blender, img))
        add_irregular(blender, img, part, dx, dy);
}

template <class Sample>
void store_means(const FeatherBlender& blender, Sample* out) noexcept
{
    const std::size_t width = to_count(blender.dst.width);
    const std::size_t channels = to_count(blender.dst.channels);
    for (std::size_t y = 0; y < to_count(blender.dst.height); ++y) {
        const std::size_t sample = y * width * channels;
        store_means_row(blender.dst.data + sample, blender.dstWeightMap.data + y * width, out + sample, width,
                        channels);
    }
}

// Fills the panorama, or leaves it empty without memory.
void write_panorama(const FeatherBlender& blender, Mat& dst, std::int32_t elem_size) noexcept
{
    const Matf& sums = blender.dst;
    const bool has_samples = sums.width > 0 && sums.height > 0 && sums.channels > 0;
    const bool is_sample_size = elem_size == 1 || elem_size == 2;
    if (!has_samples || !is_sample_size || sums.data == nullptr || blender.dstWeightMap.data == nullptr) {
        MatReset(&dst, sums.width, sums.height, sums.channels, elem_size);
        return;
    }
    if (elem_size == 2 && std::int64_t{sums.width} * sums.height > 0x3FFFFFFF / sums.channels) {
        MatDestroy(&dst); // more bytes than a size can tell
        MatInit(&dst);
        return;
    }
    if (!reset_uncleared(dst, sums.width, sums.height, sums.channels, elem_size))
        return;
    if (elem_size == 1)
        store_means(blender, dst.data);
    else
        store_means(blender, reinterpret_cast<std::uint16_t*>(dst.data));
}

void release(Matf& m) noexcept
{
    std::free(m.data);
    m.data = nullptr;
}

} // namespace
} // namespace panoval

extern "C" {

void feather_blender_prepare(FeatherBlender* blender, int32_t channels, const Roi* dst_roi)
{
    const Roi roi = *dst_roi;
    blender->sharpness = panoval::kFeatherSharpness;
    blender->dstRoi = roi;
    const bool has_pixels = roi.width > 0 && roi.height > 0;
    if (!has_pixels || panoval::is_addressable(roi.width, roi.height, std::max(channels, 1))) {
        MatfReset(&blender->dst, roi.width, roi.height, channels);
        MatfReset(&blender->dstWeightMap, roi.width, roi.height, 1);
        if (!has_pixels || (blender->dstWeightMap.data != nullptr && (blender->dst.data != nullptr || channels <= 0)))
            return;
    }
    panoval::empty_container(blender->dst);
    panoval::empty_container(blender->dstWeightMap);
}

void feather_blender_feed(FeatherBlender* blender, const Mat* img, const Matb* mask, Point tl)
{
    panoval::feed(*blender, *img, *mask, tl);
}

void feather_blender_blend(FeatherBlender* blender, Mat* dst, int32_t elem_size)
{
    panoval::release(blender->weightMap);
    panoval::release(blender->distScratch);
    panoval::write_panorama(*blender, *dst, elem_size);
    panoval::release(blender->dstWeightMap);
    panoval::release(blender->dst);
}

} // extern "C"
