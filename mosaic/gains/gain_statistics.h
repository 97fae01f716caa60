// SPDX-License-Identifier: MIT
// What the overlaps say about the pictures' brightness: all that the gains follow from.
#pragma once

#include "mosaic/pictures/corrections.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// Of the first picture's brightness to the second's.
struct LogRatio {
    double value = 0; // natural logarithm
    double error = 0; // its standard error
    bool is_known = false;

    friend bool operator==(const LogRatio&, const LogRatio&) = default;
};

struct OverlapStatistics {
    enum class Says : int {
        Nothing = 0,     // no pixel in common that is neither black nor saturated
        Agree = 1,       // both pictures show the same things
        Disagree = 2,    // they do not
        FirstBlank = 3,  // the first one is black or saturated there, the second one is not
        SecondBlank = 4, //
    } says = Says::Nothing;
    std::uint64_t shared = 0;           // pixels that both pictures cover
    std::array<LogRatio, 4> channels{}; // without the falloff
    LogRatio all;                       // the same of all channels together
    LogRatio seen;                      // of all channels together, with the falloff that is in the pictures
    double spread = 0;                  // of single blocks' logarithmic ratios, standard deviation
    double correlation = 0;             // of the two pictures' blocks
    double unevenness = 0;              // how much the ratio differs between parts of the overlap, planes taken out

    friend bool operator==(const OverlapStatistics&, const OverlapStatistics&) = default;
};

struct GainStatistics {
    std::vector<OverlapStatistics> overlaps; // in the order of find_overlaps
    Falloff falloff;                         // that was taken out

    friend bool operator==(const GainStatistics&, const GainStatistics&) = default;
};

inline constexpr double kLargestLogRatio = 1000; // and of its error
inline constexpr double kLargestFalloff = 1e6;
inline constexpr int kKindsOfSaying = 5;

// Throw an Error (Failure::Argument) that names the first value without a meaning.
void check_falloff(const Falloff& falloff);
void check_statistics(const GainStatistics& statistics, std::size_t overlaps);

} // namespace panoval::mosaic
