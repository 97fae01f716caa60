// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_statistics.h"

#include "mosaic/base/errors.h"

#include <cmath>

namespace panoval::mosaic
{

namespace
{

void check_ratio(const LogRatio& ratio, const char* name, std::size_t overlap)
{
    if (!(std::fabs(ratio.value) <= kLargestLogRatio && ratio.error >= 0 && ratio.error <= kLargestLogRatio))
        fail(Failure::Argument, "overlap ", overlap, ": found a ratio ", name, " of ", ratio.value,
             " with an error of ", ratio.error, "; expected -1000 to 1000 with an error of 0 to 1000");
}

void check_overlap(const OverlapStatistics& overlap, std::size_t number)
{
    const int says = static_cast<int>(overlap.says);
    if (says < 0 || says >= kKindsOfSaying)
        fail(Failure::Argument, "overlap ", number, ": found says ", says, "; expected 0 to ", kKindsOfSaying - 1);
    for (const LogRatio& ratio : overlap.channels)
        check_ratio(ratio, "of a channel", number);
    check_ratio(overlap.all, "of all channels", number);
    check_ratio(overlap.seen, "that is seen", number);
    for (const double value : {overlap.spread, overlap.correlation, overlap.unevenness})
        if (!(std::fabs(value) <= kLargestLogRatio))
            fail(Failure::Argument, "overlap ", number, ": found ", value,
                 " as spread, correlation or unevenness; expected ", plain(-kLargestLogRatio), " to ",
                 plain(kLargestLogRatio));
}

} // namespace

void check_falloff(const Falloff& falloff)
{
    for (const double c : falloff.c)
        if (!(std::fabs(c) <= kLargestFalloff))
            fail(Failure::Argument, "found a falloff of ", c, "; expected ", plain(-kLargestFalloff), " to ",
                 plain(kLargestFalloff));
}

void check_statistics(const GainStatistics& statistics, std::size_t overlaps)
{
    if (statistics.overlaps.size() != overlaps)
        fail(Failure::Argument, "found statistics of ", statistics.overlaps.size(), " overlaps; expected ", overlaps);
    for (std::size_t p = 0; p < overlaps; ++p)
        check_overlap(statistics.overlaps[p], p);
    check_falloff(statistics.falloff);
}

} // namespace panoval::mosaic
