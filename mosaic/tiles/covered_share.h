// SPDX-License-Identifier: MIT
// How much of what a pixel of each level is made of is covered by any picture. Where that is not all, at the panorama's
// outline, levels are means of the covered part alone: differences go on to the very edge.
#pragma once

#include "mosaic/base/band_window.h"
#include "mosaic/base/plane.h"
#include "mosaic/seams/label_runs.h"

#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

class CoveredShare
{
public:
    // labels: of the canvas around the tile; beyond them nothing is covered
    // products: of each level, where bands are asked for; shares are known of all that these are made of
    void reset(const LabelRuns& labels, const TileLevels& levels, const std::vector<Window>& products);

    // Divides a row of a level of 1 and up by its shares; samples and weights are 0 where the share is.
    void normalize(int level, std::int64_t y, std::int64_t first, std::int64_t count, int channels, float* samples,
                   float* weights) const;

private:
    void put_finest(const LabelRuns& labels, const Rect& frame, const Window& window);
    void reduce(const Plane<float>& fine, const Rect& rect, Plane<float>& coarse);

    bool is_whole_ = false; // everything that is seen is covered
    std::vector<Plane<float>> planes_;
    std::vector<float> across_; // a plane that is reduced one way
};

} // namespace panoval::mosaic
