// SPDX-License-Identifier: MIT
// What the report shows of seams: where they run in the panorama, and pieces of the pictures on both sides of them.
#pragma once

#include "cli/stitch/panorama_job.h"

#include <string>

namespace panoval::cli
{

// An SVG group with all seams in the canvas's coordinates; empty where the panorama has none.
std::string seam_drawing(const PanoramaJob& job);

// Both pictures of an overlap at one pixel for a pixel, where they differ most, and their difference with the seam over
// it: an HTML figure.
class OverlapCrops
{
public:
    OverlapCrops(const PanoramaJob& job, const PanoramaGains& gains) : job_(job), gains_(gains) {}

    // overlap  of the verdict
    std::string figure(const Json& overlap);

private:
    // A picture as it was read last.
    struct Loaded {
        std::size_t number = 0;
        Image image;
    };

    const Image& load(Loaded& loaded, std::size_t number);

    const PanoramaJob& job_;
    const PanoramaGains& gains_;
    Loaded first_;
    Loaded second_;
};

} // namespace panoval::cli
