// SPDX-License-Identifier: MIT
// What a picture has inside a window of the canvas, which may reach beyond it where the canvas goes round.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

class PictureWindow
{
public:
    PictureWindow(const Layout& layout, std::size_t picture, const Rect& window);

    // covered: window.pixels() bytes
    void read_cover(PictureReader& reader, std::uint8_t* covered) const;

    // samples: as well, the corrected samples, channels beside each other; unset where nothing is covered
    void read_samples(const Corrections& corrections, PictureReader& reader, PixelBlock& block, std::uint8_t* covered,
                      float* samples) const;

    // keep: 0 where the picture need not keep the pixel
    void read_keep(PictureReader& reader, std::uint8_t* keep) const;

    bool is_empty() const { return parts_.empty(); }

private:
    struct Part {
        Rect own;       // in the picture's own pixels
        std::int64_t x; // in the window
        std::int64_t y;
    };

    const Layout& layout_;
    const std::size_t picture_;
    const Rect window_;
    std::vector<Part> parts_;
};

} // namespace panoval::mosaic
