// SPDX-License-Identifier: MIT
// Where near a tile pictures meet: everything that differs from the composite lies there. A picture is sent through its
// pyramids only where its own area and what it shows of others' areas come so near to each other that the bands of a
// level see both.
#pragma once

#include "mosaic/base/band_window.h"
#include "mosaic/base/layout.h"
#include "mosaic/base/row_spans.h"
#include "mosaic/seams/label_runs.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// An appearance of a picture within reach of the tile. Everything in pixels of the canvas.
struct Share {
    std::size_t picture;
    Rect rect;
    RowSpans owned;  // its own pixels
    RowSpans others; // those of its pixels that are not its own

    std::int32_t label() const { return static_cast<std::int32_t>(picture); }
    Interval columns() const { return {rect.x, rect.right()}; }
};

// Those that own any pixel of the labels.
std::vector<Share> find_shares(const Layout& layout, const LabelRuns& labels);

// A share that needs a correction. Spans of levels are in the frame's pixels.
struct SeamZone {
    const Share* share;
    std::vector<RowSpans> products; // where its blurred area and its difference from the composite meet
    std::vector<RowSpans> needed;   // what its bands are made of
    RowSpans shown;                 // on the canvas: what it shows of others' areas in there
};

std::vector<SeamZone> find_zones(const std::vector<Share>& shares, const TileLevels& levels);

} // namespace panoval::mosaic
