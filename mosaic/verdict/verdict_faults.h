// SPDX-License-Identifier: MIT
// What is wrong with one overlap by what was measured of it, and how it is said.
#pragma once

#include "mosaic/verdict/verdict.h"

#include <cstddef>
#include <optional>
#include <string>

namespace panoval::mosaic
{

inline constexpr double kDisplacedLook = 0.7; // pixels; edges begin to look doubled or broken
inline constexpr double kSoft = 0.6;          // sharpness of one picture relative to the other

// The picture's name in quotes, or its number.
std::string name_of(const Layout& layout, std::size_t picture);

// Sharpness of the softer picture relative to the other one.
double softness(const OverlapVerdict& overlap);
std::size_t softer_one(const OverlapVerdict& overlap);

// How sure it is by how far the pictures are displaced, though not in which direction, or not everywhere the same.
double certainty(const OverlapVerdict& overlap);

// Whether it is sure enough that the pictures are displaced by so many pixels or more.
bool is_displaced(const OverlapVerdict& overlap, double by);

// What is remarkable among the overlaps of a panorama, in levels of 255.
struct ToneLimits {
    double curve = 0;                 // that differences in the curves of brightness exceed
    std::optional<double> unevenness; // nothing where the overlaps are too few to tell
    bool has_gains = true;            // that nothing misled
};

ToneLimits tone_limits(const Verdict& verdict);

// Sets the overlap's word and its explanation.
void describe(const Layout& layout, const ToneLimits& limits, OverlapVerdict& overlap);

} // namespace panoval::mosaic
