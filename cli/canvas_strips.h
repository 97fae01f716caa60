// SPDX-License-Identifier: MIT
// The canvas cut into strips that are blended one after the other, or two at a time: the blender's floats, by far the
// most memory that a panorama takes, are then those of the strips at work. Strips overlap by what the bands see, so
// that the panorama is the same, bit for bit, as that of a single canvas.
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

// The canvas in at most so many strips with about as many rows to blend each; fewer where they would have more rows to
// overlap than rows of their own.
std::vector<CanvasStrip> cut_canvas(const PanoramaPlan& plan, int bands, std::size_t most);

// What the multi-band blender takes for so many rows of the canvas, in bytes.
std::uint64_t multi_band_bytes(const PanoramaPlan& plan, std::int32_t rows);

// What a multi-band panorama of this plan may take in all, in bytes: as much as the blender of the whole canvas and a
// little more.
std::uint64_t memory_budget(const PanoramaPlan& plan);

// As few strips as let at_once of them and other_bytes fit the memory budget, and at least that many; none where no
// number does.
std::vector<CanvasStrip> strips_within_budget(const PanoramaPlan& plan, int bands, int bits, std::uint64_t other_bytes,
                                              std::size_t at_once);

} // namespace panoval::cli
