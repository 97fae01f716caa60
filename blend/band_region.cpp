// SPDX-License-Identifier: MIT
// Both directions follow the same rule and are worked out apart. Positions are 64 bit wide: an image may lie anywhere.
#include "blend/band_region.h"

#include <algorithm>

namespace panoval
{
namespace
{

struct Interval {
    std::int32_t first_visible; // in the image
    std::int32_t visible;       // pixels, 0 if the image lies beside the canvas
    std::int32_t first;         // on the canvas
    std::int32_t length;
    std::int32_t margin; // before the first visible pixel
};

Interval find_interval(std::int64_t canvas_start, std::int64_t canvas_length, std::int32_t num_bands,
                       std::int64_t image_start, std::int64_t image_length)
{
    const std::int64_t offset = image_start - canvas_start;
    const std::int64_t begin = std::max<std::int64_t>(0, offset);
    const std::int64_t end = std::min(offset + image_length, canvas_length);
    if (end <= begin)
        return {};
    const std::int64_t unit = std::int64_t{1} << num_bands;
    const std::int64_t gap = 3 * unit;
    const std::int64_t first = std::max<std::int64_t>(0, begin - gap) / unit * unit;
    // The canvas is a multiple of the unit as well, so rounding up does not leave it.
    const std::int64_t last = (std::min(canvas_length, end + gap) + unit - 1) / unit * unit;
    return {static_cast<std::int32_t>(begin - offset), static_cast<std::int32_t>(end - begin),
            static_cast<std::int32_t>(first), static_cast<std::int32_t>(last - first),
            static_cast<std::int32_t>(begin - first)};
}

} // namespace

BandRegion find_band_region(const Roi& canvas, std::int32_t num_bands, Point tl, Size image_size)
{
    const Interval x = find_interval(canvas.x, canvas.width, num_bands, tl.x, image_size.width);
    const Interval y = find_interval(canvas.y, canvas.height, num_bands, tl.y, image_size.height);
    return {{x.first_visible, y.first_visible, x.visible, y.visible},
            {x.first, y.first, x.length, y.length},
            x.margin,
            y.margin};
}

} // namespace panoval
