// SPDX-License-Identifier: MIT
// The feather blender as it is defined, one sample after the other. What an image of a wrong channel count would add
// behind the canvas is dropped.
#pragma once

#include "panoval.h"
#include "tests/reference/distance_transform.h"
#include "tests/reference/normalize.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace panoval::reference
{

inline void feather_blender_prepare(FeatherBlender* blender, std::int32_t channels, const Roi* dst_roi)
{
    blender->sharpness = 0.02f;
    MatfReset(&blender->dst, dst_roi->width, dst_roi->height, channels);
    blender->dstRoi = *dst_roi;
    MatfReset(&blender->dstWeightMap, dst_roi->width, dst_roi->height, 1);
}

inline void feather_blender_feed(FeatherBlender* blender, const Mat* img, const Matb* mask, Point tl)
{
    Matf& weights = blender->weightMap;
    MatfReset(&weights, mask->width, mask->height, 1);
    const float steps[3] = {1.0f, 2.0f, 3.0f};
    reference::distanceTransform_3x3(mask, &blender->distScratch, &weights, steps);
    for (std::ptrdiff_t i = 0; i < std::ptrdiff_t{weights.width} * weights.height; ++i) {
        const float product = weights.data[i] * blender->sharpness;
        weights.data[i] = product > 1.0f ? 1.0f : product;
    }

    Matf& dst = blender->dst;
    const std::ptrdiff_t sums = std::ptrdiff_t{dst.width} * dst.height * dst.channels;
    const std::int32_t dx = tl.x - blender->dstRoi.x;
    const std::int32_t dy = tl.y - blender->dstRoi.y;
    for (std::int32_t y = 0; y < img->height; ++y) {
        const std::int32_t yc = y + dy;
        if (yc < 0 || yc >= blender->dstRoi.height)
            continue;
        for (std::int32_t x = 0; x < img->width; ++x) {
            const std::int32_t xc = x + dx;
            if (xc < 0 || xc >= blender->dstRoi.width)
                continue;
            const float w = weights.data[std::ptrdiff_t{y} * weights.width + x];
            for (std::int32_t c = 0; c < img->channels; ++c) {
                const std::ptrdiff_t from = (std::ptrdiff_t{y} * img->width + x) * img->channels + c;
                const std::ptrdiff_t to = (std::ptrdiff_t{yc} * dst.width + xc) * dst.channels + c;
                if (to >= sums)
                    continue;
                if (img->elemSize == 1) {
                    const float product = static_cast<float>(img->data[from]) * w;
                    dst.data[to] = dst.data[to] + product;
                } else if (img->elemSize == 2) {
                    std::uint16_t sample;
                    std::memcpy(&sample, img->data + 2 * from, 2);
                    const float product = static_cast<float>(sample) * w;
                    dst.data[to] = dst.data[to] + product;
                }
            }
            blender->dstWeightMap.data[std::ptrdiff_t{yc} * blender->dstWeightMap.width + xc] += w;
        }
    }
}

inline std::int32_t feather_sample(float value)
{
    const double wide = static_cast<double>(value);
    return wide > -2147483649.0 && wide < 2147483648.0 ? static_cast<std::int32_t>(wide) : -2147483647 - 1;
}

inline void feather_blender_blend(FeatherBlender* blender, Mat* dst, std::int32_t elem_size)
{
    const Matf& sums = blender->dst;
    reference::normalize_by_weight(&blender->dstWeightMap, &blender->dst);
    std::free(blender->weightMap.data);
    std::free(blender->distScratch.data);
    MatReset(dst, sums.width, sums.height, sums.channels, elem_size);
    for (std::ptrdiff_t i = 0; i < std::ptrdiff_t{sums.width} * sums.height; ++i)
        for (std::ptrdiff_t c = 0; c < sums.channels; ++c) {
            if (!(blender->dstWeightMap.data[i] > 1e-5f))
                continue;
            const std::ptrdiff_t index = i * sums.channels + c;
            const auto bits = static_cast<std::uint32_t>(feather_sample(sums.data[index]));
            if (elem_size == 1) {
                dst->data[index] = static_cast<std::uint8_t>(bits & 0xFF);
            } else if (elem_size == 2) {
                const auto low = static_cast<std::uint16_t>(bits & 0xFFFF);
                std::memcpy(dst->data + 2 * index, &low, 2);
            }
        }
    std::free(blender->dstWeightMap.data);
    std::free(blender->dst.data);
    blender->weightMap.data = blender->distScratch.data = nullptr;
    blender->dstWeightMap.data = blender->dst.data = nullptr;
}

} // namespace panoval::reference
