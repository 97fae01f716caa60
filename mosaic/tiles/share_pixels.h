// SPDX-License-Identifier: MIT
// The pixels of a share near a tile, with their corrections.
#pragma once

#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/seams/seam_zones.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

class SharePixels
{
public:
    // block: for the pixels, where they have to be copied
    SharePixels(const Layout& layout, const Corrections& corrections, PixelBlock& block)
        : layout_(layout), corrections_(corrections), block_(block)
    {
    }

    // Reads a part of the canvas, which lies inside the share's picture.
    void read(PictureReader& reader, const Share& share, const Rect& part);

    // Columns of row y of the canvas, which lie in the part.
    void scaled(std::int64_t y, Interval columns, float* out);
    void difference(std::int64_t y, Interval columns, const float* composite, float* out);
    void finished(std::int64_t y, Interval columns, float scale, void* out, std::size_t sample_bytes);

    // Null where the picture has none: everything is covered.
    const std::uint8_t* mask(std::int64_t y, std::int64_t x) const;

private:
    bool has_falloff() const { return !corrections_.falloff.is_flat(); }
    const std::uint8_t* row(std::int64_t y) const; // of the canvas
    RawRow raw(std::int64_t y, Interval columns) const;
    const float* corrected(std::int64_t y, Interval columns);

    const Layout& layout_;
    const Corrections& corrections_;
    std::size_t picture_ = 0;
    ChannelFactors factors_{};
    PixelBlock& block_;
    HeldRows held_; // instead of the block, if they could be had
    bool is_held_ = false;
    Rect part_;
    std::int64_t corrected_row_ = 0; // with a falloff: the row in corrected_, if it is not empty
    std::vector<float> corrected_;
};

} // namespace panoval::mosaic
