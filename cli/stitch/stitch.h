// SPDX-License-Identifier: MIT
// panoval stitch: from placed pictures to a panorama file.
#pragma once

#include "cli/base/common_options.h"
#include "image/formats.h"
#include "panoval_mosaic.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoval::cli
{

// Names of the ways to blend, as plans have them, too.
inline constexpr const char* kMultiBand = "multiband";
inline constexpr const char* kFeather = "feather";

// Where pictures give way to each other, likewise.
inline constexpr const char* kOptimalSeams = "optimal";
inline constexpr const char* kNearestSeams = "nearest";
inline constexpr const char* kNoSeams = "none";

inline constexpr int kLargestTile = 1 << 20; // width and height in pixels, far more than memory holds

struct StitchOptions {
    CommonOptions common;
    std::string output;
    std::optional<image::OutputName> target; // the output's name; none where it is the plan
    std::vector<std::string> inputs;         // as given: FILE@X,Y ...
    std::string layout;                      // a file, or empty
    std::string blend;                       // kMultiBand, kFeather, or empty: kMultiBand
    std::string seams;                       // kOptimalSeams, kNearestSeams, kNoSeams, or empty: kOptimalSeams
    int bands = 0;                           // at most; 0: chosen from the overlaps
    bool has_no_gain = false;
    std::string gains;       // a file to load the gains from or, where it does not exist, to save them to; or empty
    std::string gains_per;   // "picture", "channel", or empty: chosen
    bool vignetting = false; // is to be taken out
    std::string anchor;      // the file whose exposure stays, or empty
    bool wraps = false;      // the left and right edge meet
    std::int64_t wrap = 0;   // width of the circle in pixels; 0: what the pictures span
    std::string save_seams;  // a picture of the seams to write, or empty
    std::optional<image::OutputName> seams_target;        // its name
    std::string report;                                   // an HTML file to write, or empty
    int depth = 0;                                        // bits per sample of the panorama; 0: as the inputs
    bool wants_alpha = false;                             //
    std::string compression;                              // of TIFF; empty: none
    int quality = 0;                                      // of JPEG; 0: the format's own
    bool wants_pyramid = false;                           // reduced pictures in the TIFF
    std::uint64_t memory = PANOVAL_MOSAIC_DEFAULT_MEMORY; // bytes
    int threads = 0;                                      // 0: all processors
    int tile_size = 0;                                    // pixels; 0: chosen
    std::string plan;                                     // a file to take everything from, or empty
    bool is_plan_only = false;                            // the output is the plan
    bool splits_seams = false;                            // which go into a file beside the plan
    std::string tiles;                // the output is these alone, a list as 0-15,20; empty: all of it
    bool resumes = false;             // what is in the store stays
    bool is_cropped = false;          // to what is covered everywhere
    bool is_dry_run = false;          // nothing is written
    bool is_unjudged = false;         // no verdict
    bool is_strict = false;           // the verdict is an exit code
    bool wants_distributions = false; // in JSON

    bool feathers() const { return blend == kFeather; }
    bool finds_crop() const { return is_cropped && plan.empty(); } // a plan has found it already
    bool makes_store() const { return target && target->is_store(); }
};

// Does all of it and prints the results.
void stitch(const StitchOptions& options);

} // namespace panoval::cli
