// SPDX-License-Identifier: MIT
// How well overlapping pictures agree, before and after their gains, and what that means for the seams.
#pragma once

#include "cli/base/image_names.h"
#include "cli/stitch/panorama_gains.h"
#include "image/image.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoval::cli
{

// Absolute differences of the samples that both pictures cover, in grey levels of 8 bit.
struct Differences {
    double mean = 0;
    double signed_mean = 0;                    // second minus first
    std::int32_t median = 0;                   // half of the samples differ by no more
    std::int32_t percentile_95 = 0;            // all but a twentieth differ by no more
    std::array<double, 256> distribution = {}; // share of the samples at each difference
};

enum class Verdict { Invisible, Good, Fair, Poor, NothingShared };

struct OverlapQuality {
    Overlap overlap;
    std::uint64_t shared_pixels = 0;
    Differences before;
    Differences after;
    Verdict verdict = Verdict::NothingShared;
    std::string explanation; // a sentence
};

std::string name_of(Verdict verdict);

// Counts how often each pair of levels meets in an overlap, so that the differences can be told for any gains.
class OverlapCounts
{
public:
    // What an object takes of a photograph, whose pairs lie near a line; noise takes six times as much.
    static constexpr std::size_t kUsualBytes = std::size_t{1} << 16;

    OverlapCounts(const Overlap& overlap, const PanoramaPlan& plan, const Image& first, const Image& second);
    OverlapQuality quality(double gain_first, double gain_second) const;

private:
    struct Pair { // of levels that meet
        std::uint8_t first, second;
    };

    void keep(const std::vector<std::uint32_t>& counts);
    Differences differences(double gain_first, double gain_second) const;

    Overlap overlap_;
    std::uint64_t shared_pixels_ = 0;
    std::uint64_t samples_ = 0;
    std::vector<Pair> pairs_;
    std::vector<std::uint32_t> counts_; // of each pair
};

// Which picture spoils the panorama, in a sentence that names it; nothing where all overlaps are at least fair.
std::optional<std::string> find_suspect(const PanoramaPlan& plan, const std::vector<OverlapQuality>& overlaps);

} // namespace panoval::cli
