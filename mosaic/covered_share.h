// SPDX-License-Identifier: MIT
// How much of what a pixel of each level is made of is covered by any picture. Where that is not all, at the panorama's
// outline, levels are means of the covered part alone: differences go on to the very edge.
#pragma once

#include "mosaic/band_window.h"
#include "mosaic/label_runs.h"
#include "mosaic/plane.h"

#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

class CoveredShare
{
public:
    // labels: of the canvas around the tile; beyond them nothing is covered
    CoveredShare(const LabelRuns& labels, const TileLevels& levels);

    // Divides a row of a level of 1 and up by its shares; samples and weights are 0 where the share is.
    void normalize(int level, std::int64_t y, std::int64_t first, std::int64_t count, int channels, float* samples,
                   float* weights) const;

private:
    bool is_whole_; // everything that the tile sees is covered
    std::vector<Plane<float>> planes_;
};

} // namespace panoval::mosaic
