// SPDX-License-Identifier: MIT
// Where targets may be: every oval line of equal level that runs through edges, at every size of the picture.
#pragma once

#include "measure/detect_oval.h"
#include "measure/silhouette.h"
#include "panoval_measure.h"

#include <cstdint>
#include <tuple>
#include <vector>

namespace panoval::measure
{

struct Candidate {
    Oval oval;          // in pixels of the picture
    std::int32_t scale; // at which it was found
};

struct CandidateLimits {
    double least_axis = 2.5; // semi-minor, pixels
    double most_axis = 100;  // semi-major
    double least_aspect = 0.3;
};

struct CandidateList {
    std::vector<Candidate> candidates; // different ones, by rows
    std::vector<Silhouette> closed;    // of closed lines at full size, neither tiny nor huge
    std::int32_t lines = 0;            // closed lines that were looked at
    std::int32_t too_small = 0;
    std::int32_t too_large = 0;
    std::int32_t not_oval = 0;
    double noise = 0; // of the picture, in its own levels
    bool is_out_of_memory = false;
};

// The lower, the better: whole outlines before parts, fine scales before coarse ones, straight lines before shaky ones.
std::tuple<double, std::int32_t, double> rank_of(const Candidate& candidate) noexcept;

CandidateList find_candidates(const PanovalMeasureImage& image, const CandidateLimits& limits);

} // namespace panoval::measure
