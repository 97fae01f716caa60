// SPDX-License-Identifier: MIT
// What blending a tile takes for itself, counted from what the blenders ask the heap for.
#pragma once

#include "mosaic/base/layout.h"

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

class TileScratch
{
public:
    // bands: as the library counts them. The layout must outlive the object.
    TileScratch(const Layout& layout, int bands);

    // Bytes for the least fortunate place of a tile of so many pixels: with seams ...
    std::size_t composite_bytes(std::int64_t width, std::int64_t height) const;
    // ... and without them.
    std::size_t bands_bytes(std::int64_t width, std::int64_t height) const;
    std::size_t feather_bytes(std::int64_t width, std::int64_t height) const;

private:
    std::int64_t shares_near(const Rect& seen) const;

    const Layout& layout_;
    const int bands_;
    std::int64_t filled_row_ = 0; // of pictures with masks whole rows are prepared
    std::int64_t widest_ = 0;     // picture
    std::int64_t highest_ = 0;
    double picture_widths_ = 0; // sums over all pictures
    double picture_heights_ = 0;
    double picture_pixels_ = 0;
};

} // namespace panoval::mosaic
