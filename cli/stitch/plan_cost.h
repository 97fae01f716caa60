// SPDX-License-Identifier: MIT
// What a panorama costs that is made tile by tile, each tile by itself: told from places and sizes alone.
#pragma once

#include "cli/stitch/output_tiles.h"

#include <cstdint>
#include <vector>

namespace panoval::cli
{

struct PlanCost {
    std::int64_t tiles = 0;
    std::uint64_t picture_reads = 0; // by all tiles together; one picture counts once for each tile that needs it
    std::uint64_t decoded_bytes = 0; // samples and masks of these reads
    std::uint64_t read_bytes = 0;    // of files, as far as their lengths are known; else what is decoded
    std::uint64_t written_bytes = 0; // samples and coverage, before they are compressed
    double blending_hours = 0;       // of one core
    double reading_hours = 0;
    double writing_hours = 0;

    double hours() const { return blending_hours + reading_hours + writing_hours; }
};

// numbers: the tiles that are asked for; empty = all of them. Takes time in proportion to the pictures.
PlanCost cost_of(const PanoramaJob& job, const OutputTiles& tiles, const std::vector<std::int64_t>& numbers);

} // namespace panoval::cli
