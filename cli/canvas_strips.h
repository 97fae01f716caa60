// SPDX-License-Identifier: MIT
// The canvas cut into strips that are blended one after the other: the blender's floats, by far the most memory that a
// panorama takes, are then those of one strip. Strips overlap by what the bands see, so that the panorama is the same,
// bit for bit, as that of a single canvas.
#pragma once

#include "cli/panorama_plan.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::cli
{

// Rows of the canvas, the last one excluded.
struct CanvasStrip {
    std::int32_t first = 0; // to blend
    std::int32_t end = 0;
    std::int32_t first_kept = 0; // of those, the ones that go into the panorama
    std::int32_t end_kept = 0;

    std::int32_t rows() const { return end - first; }
};

// The canvas in at most so many strips; fewer where they would have more rows to overlap than rows of their own.
std::vector<CanvasStrip> cut_canvas(const PanoramaPlan& plan, int bands, std::size_t most);

// What the multi-band blender takes for so many rows of the canvas, in bytes.
std::uint64_t multi_band_bytes(const PanoramaPlan& plan, std::int32_t rows);

// As few strips as keep the blender, the pictures and the panorama within the memory budget; none where no number does.
std::vector<CanvasStrip> strips_within_budget(const PanoramaPlan& plan, int bands, int bits,
                                              std::uint64_t picture_bytes);

// What a multi-band panorama of this plan may take in all, in bytes: as much as the blender of the whole canvas and a
// little more.
std::uint64_t memory_budget(const PanoramaPlan& plan);

} // namespace panoval::cli
