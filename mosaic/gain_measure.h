// SPDX-License-Identifier: MIT
// How bright each picture was exposed, from what it shows in common with its neighbours, and the gains that make all of
// them alike. One pass over the overlaps.
#pragma once

#include "mosaic/corrections.h"
#include "mosaic/gain_falloff.h"
#include "mosaic/layout.h"
#include "mosaic/pixel_block.h"
#include "mosaic/progress.h"

#include <array>
#include <cstddef>
#include <cstdint>
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

// What an overlap had to say. Logarithms are of the first picture's brightness to the second's.
struct OverlapGain {
    enum class Use {
        Used,
        Disagrees,   // the two pictures do not show the same things
        Contradicts, // its ratio contradicts those of the other overlaps
        OneBlank,    // one of the pictures is black or saturated there, the other one is not
        Nothing,     // no pixel in common that is neither
    } use = Use::Nothing;
    std::uint64_t shared = 0;       // pixels that both pictures cover
    std::array<double, 4> before{}; // of each channel, robust mean
    std::array<double, 4> after{};  // the same with gains and falloff
    std::array<double, 4> error{};  // standard error of both
    std::array<bool, 4> is_known{}; // whether the channel has anything to say
    double spread = 0;              // of single blocks' logarithmic ratios after gains, standard deviation
    double correlation = 0;         // of the two pictures' blocks
    double unevenness = 0;          // how much the ratio differs between parts of the overlap, planes taken out
};

struct GainResult {
    Corrections corrections;
    bool per_channel = false;             // channels of a picture have gains of their own
    double white_balance = 0;             // largest difference between channels' logarithmic ratios at good overlaps
    std::vector<std::size_t> outliers;    // pictures that do not fit their neighbours, ascending
    std::vector<std::size_t> groups;      // of each picture: number of the group that good overlaps connect
    std::vector<OverlapGain> overlaps;    // in the order of the argument
    FalloffEstimate vignetting;           // also where it was not asked for, then only roughly
    bool vignetting_would_help = false;   // it was not asked for, and is clearly there
    bool vignetting_undetermined = false; // it was asked for, and the overlaps cannot tell
};

// overlaps  all of the layout's, as find_overlaps gives them
GainResult measure_gains(const Layout& layout, const std::vector<Overlap>& overlaps, PictureReader& reader,
                         const GainOptions& options, Progress& progress);

} // namespace panoval::mosaic
