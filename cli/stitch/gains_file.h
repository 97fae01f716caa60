// SPDX-License-Identifier: MIT
// Gains as a JSON file: saved from one panorama, loaded for the next one of the same camera.
#pragma once

#include "cli/stitch/panorama_plan.h"
#include "image/output_file.h"

#include <array>
#include <string>
#include <vector>

namespace panoval::cli
{

struct PanoramaGains {
    std::vector<std::array<double, 4>> pictures; // of each channel; 1 for channels that there are not
    std::array<double, 3> falloff{};             // of the lens, as the engine has it
    bool per_channel = false;

    // One number a picture: the mean of its channels' gains.
    double of_picture(std::size_t index, int channels) const;
};

// Does not commit.
void write_gains(OutputFile& output, const PanoramaPlan& plan, const PanoramaGains& gains);

// Gains go to pictures in their order; there must be one for each.
//
// notes  out: entries whose names are not those of the pictures, a sentence each
PanoramaGains load_gains(const std::string& name, const PanoramaPlan& plan, std::vector<std::string>& notes);

} // namespace panoval::cli
