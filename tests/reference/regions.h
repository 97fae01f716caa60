// SPDX-License-Identifier: MIT
// Regions and masks by their definition: pixel by pixel, sample by sample.
#pragma once

#include "panoval.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace panoval::reference
{

inline std::int32_t overlap_roi(Point tl1, Point tl2, Size sz1, Size sz2, Roi* roi)
{
    const std::int32_t x = tl1.x > tl2.x ? tl1.x : tl2.x;
    const std::int32_t y = tl1.y > tl2.y ? tl1.y : tl2.y;
    const std::int32_t x_end1 = tl1.x + sz1.width;
    const std::int32_t x_end2 = tl2.x + sz2.width;
    const std::int32_t y_end1 = tl1.y + sz1.height;
    const std::int32_t y_end2 = tl2.y + sz2.height;
    const std::int32_t x_end = x_end1 < x_end2 ? x_end1 : x_end2;
    const std::int32_t y_end = y_end1 < y_end2 ? y_end1 : y_end2;
    if (x >= x_end || y >= y_end)
        return 0;
    *roi = {x, y, x_end - x, y_end - y};
    return 1;
}

inline void reset_mask(Matb* m, std::int32_t width, std::int32_t height)
{
    const auto bytes = static_cast<std::size_t>(width * height);
    m->data = static_cast<std::uint8_t*>(std::realloc(m->data, bytes == 0 ? 1 : bytes));
    m->width = width;
    m->height = height;
    m->channels = 1;
    std::memset(m->data, 0, bytes);
}

inline void get_sub_image(const Mat* src, const Roi* roi, Mat* dst)
{
    MatReset(dst, roi->width, roi->height, src->channels, src->elemSize);
    for (std::int32_t r = 0; r < roi->height; ++r) {
        const std::int32_t sy = roi->y + r;
        if (sy < 0 || sy >= src->height)
            continue;
        for (std::int32_t c = 0; c < roi->width; ++c) {
            const std::int32_t sx = roi->x + c;
            if (sx < 0)
                continue;
            if (sx >= src->width)
                break;
            for (std::int32_t k = 0; k < src->channels; ++k) {
                const std::int32_t from = (sy * src->width + sx) * src->channels + k;
                const std::int32_t to = (r * roi->width + c) * src->channels + k;
                if (src->elemSize == 1)
                    dst->data[to] = src->data[from];
                if (src->elemSize == 2)
                    std::memcpy(dst->data + 2 * to, src->data + 2 * from, 2);
            }
        }
    }
}

inline void get_sub_mask(const Matb* mask, const Roi* roi, Matb* dst)
{
    reset_mask(dst, roi->width, roi->height);
    for (std::int32_t r = 0; r < roi->height; ++r)
        for (std::int32_t c = 0; c < roi->width; ++c) {
            const std::int32_t sx = roi->x + c;
            const std::int32_t sy = roi->y + r;
            if (sx >= 0 && sx < mask->width && sy >= 0 && sy < mask->height)
                dst->data[r * roi->width + c] = mask->data[sy * mask->width + sx];
        }
}

inline std::int32_t get_mask_intersect(const Matb* a, const Matb* b, Matb* out)
{
    reset_mask(out, a->width, a->height);
    std::int32_t count = 0;
    for (std::int32_t i = 0; i < a->width * a->height; ++i) {
        if (a->data[i] != 0 && b->data[i] != 0) {
            out->data[i] = 255;
            ++count;
        } else {
            out->data[i] = 0;
        }
    }
    return count;
}

} // namespace panoval::reference
