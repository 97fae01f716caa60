// SPDX-License-Identifier: MIT
// From what the overlaps say to the gains that make all pictures alike.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/gains/gain_statistics.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace panoval::mosaic
{

struct GainOptions {
    // Automatic: one gain a picture, or one a channel where the white balance differs clearly.
    enum class Per { Automatic, Picture, Channel } per = Per::Automatic;
    bool vignetting = false;             // estimate one falloff for all pictures and take it out
    std::optional<std::size_t> anchor{}; // the picture that keeps its exposure, and its group's with it
    std::size_t threads = 1;
};

struct GainResult {
    Corrections corrections;
    bool per_channel = false;          // channels of a picture have gains of their own
    std::vector<std::size_t> outliers; // pictures that do not fit their neighbours, ascending
    std::vector<std::size_t> groups;   // of each picture: number of the group that good overlaps connect
    GainStatistics statistics;
};

// Overlaps and pictures that cannot be believed.
struct GainMisfits {
    std::vector<char> is_contradiction; // of each overlap: its ratio contradicts those of the others
    std::vector<std::size_t> outliers;  // pictures, ascending
    std::vector<char> is_outlier;       // of each picture

    bool counts(const Overlap& overlap) const { return !is_outlier[overlap.first] && !is_outlier[overlap.second]; }
};

// statistics  of each overlap; what they say, how large they are, and the ratio that is seen are enough
GainMisfits find_misfits(const Layout& layout, const std::vector<Overlap>& overlaps,
                         const std::vector<OverlapStatistics>& statistics);

GainResult solve_gains(const Layout& layout, const std::vector<Overlap>& overlaps, GainStatistics statistics,
                       const GainOptions& options);

} // namespace panoval::mosaic
