// SPDX-License-Identifier: MIT
// The panorama's geometry: the canvas, where each picture lies on it, and which pictures meet.
//
// A picture is one input with its own samples. A placement is one appearance of it on the canvas: a canvas that goes
// round the horizon (period > 0) shows a picture that crosses its right edge a second time at its left one.
#pragma once

#include "mosaic/base/rect.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace panoval::mosaic
{

struct PlacedPicture {
    Rect rect;             // on the canvas, whose top-left corner is (0, 0); x >= 0, y >= 0
    bool has_mask = false; // otherwise covered everywhere
    std::string name;      // for messages and reports
};

struct Layout {
    std::int64_t width = 0; // of the canvas
    std::int64_t height = 0;
    int channels = 0;          // of every picture: 1, 3 or 4
    int bits = 0;              // per sample of every picture: 8 or 16
    bool wraps = false;        // the left and right edge of the canvas meet; pictures are at most as wide as it
    std::int64_t origin_x = 0; // of the canvas in the host's frame
    std::int64_t origin_y = 0;
    std::vector<PlacedPicture> pictures;

    Rect canvas() const { return {0, 0, width, height}; }
    int sample_bytes() const { return bits / 8; }
    int pixel_bytes() const { return channels * sample_bytes(); }
    std::int64_t largest_sample() const { return bits == 8 ? 255 : 65535; }
};

// An appearance of a picture on the canvas. Without wrapping there is one for each picture, in the same order.
struct Placement {
    std::size_t picture = 0;
    Rect rect; // may reach beyond the canvas where the layout wraps
};

// Sorted by picture, then by x.
std::vector<Placement> find_placements(const Layout& layout);

// Two different pictures whose rectangles share pixels; first < second.
struct Overlap {
    std::size_t first = 0;
    std::size_t second = 0;
    Rect region;                     // in the frame in which the first picture lies at its rect
    std::int64_t second_shift_x = 0; // the second picture's rect is to be moved by that into this frame: 0 or +-width

    // The region in each picture's own pixels.
    Rect in_first(const Layout& layout) const;
    Rect in_second(const Layout& layout) const;
    friend bool operator==(const Overlap&, const Overlap&) = default;
};

// All overlaps, sorted by first, second, shift. A pair that meets on both sides of a wrapped canvas gives two. Takes
// time in proportion to the number of pictures and overlaps, not to its square.
std::vector<Overlap> find_overlaps(const Layout& layout);

} // namespace panoval::mosaic
