// SPDX-License-Identifier: MIT
// What panoval stitch tells about its work.
#pragma once

#include "cli/stitch/panorama_job.h"

#include <string>

namespace panoval::cli
{

struct StitchOutcome {
    const PanoramaJob& job;
    PanovalMosaicRect made{}; // what was put out, on the canvas
    PanoramaGains gains;
    Json verdict; // an object; empty where nothing was judged
    double seconds = 0;
    double decodes = 0; // of all pictures together
};

// e.g. "multi-band, 5 bands at most, optimal seams"
std::string blend_in_words(const PanoramaJob& job);

void print_outcome(const StitchOutcome& outcome);

// Of --dry-run.
void print_estimate(const PanoramaJob& job);

// The one word for the panorama, on standard error. Nothing with --quiet or --json.
void print_verdict(const StitchOptions& options, const Json& verdict);

} // namespace panoval::cli
