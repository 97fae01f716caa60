// SPDX-License-Identifier: MIT
// From a rough start to an outline within a fraction of a pixel: the steepest place of each of many rays across the
// start, and the ellipse through most of them.
#pragma once

#include "measure/patch.h"

namespace panoval::measure
{

// What is known of a target before the adjustment.
struct EdgeGuess {
    Outline outline;
    double inside = 0;       // level
    double outside = 0;      // level
    double blur = 0;         // of the optics, pixels
    double share = 0;        // of the rays that agree with the outline
    double free_inside = 0;  // pixels from the outline to the next thing inside
    double free_outside = 0; // and outside, as far as was looked
};

// How far from a start an outline is looked for of which nothing is known.
double search_reach(const Outline& start) noexcept;

// How far from the outline the surroundings count: half a radius tells slopes of light so well that they cost the
// centre three per cent; beyond, neighbours come.
double flat_reach(const Outline& outline) noexcept;

// False when there is no edge within reach that closes around the start.
bool find_edge(const Patch& patch, const Outline& start, double reach, EdgeGuess& guess) noexcept;

// How far the surroundings of the guess's outline are free, by its blur and levels.
void look_around(const Patch& patch, EdgeGuess& guess) noexcept;

} // namespace panoval::measure
