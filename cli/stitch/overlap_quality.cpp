// SPDX-License-Identifier: MIT
#include "cli/stitch/overlap_quality.h"

#include "cli/base/common_options.h"
#include "cli/base/errors.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace panoval::cli
{

namespace
{

constexpr std::size_t kLevels = 256;

// Mean absolute differences after compensation, in grey levels: up to which a seam gets its verdict.
constexpr double kInvisible = 2.0;
constexpr double kGood = 6.0;
constexpr double kFair = 12.0;
// A difference that has mostly one sign is one of brightness.
constexpr double kOneSided = 0.6;

// The upper 8 bits of a sample.
std::size_t level_at(const Image& image, std::size_t sample)
{
    if (image.bits == 8)
        return image.data[sample];
    std::uint16_t value = 0;
    std::memcpy(&value, image.data.get() + 2 * sample, 2);
    return value >> 8;
}

std::array<std::int32_t, kLevels> gained_levels(double gain)
{
    std::array<std::int32_t, kLevels> levels;
    for (std::size_t v = 0; v < kLevels; ++v)
        levels[v] = static_cast<std::int32_t>(std::clamp(std::floor(static_cast<double>(v) * gain + 0.5), 0.0, 255.0));
    return levels;
}

std::int32_t percentile(const std::array<double, 256>& distribution, double share)
{
    double sum = 0;
    for (std::size_t d = 0; d < distribution.size(); ++d) {
        sum += distribution[d];
        if (sum >= share)
            return static_cast<std::int32_t>(d);
    }
    return 255;
}

Verdict verdict_of(const Differences& after)
{
    if (after.mean <= kInvisible)
        return Verdict::Invisible;
    if (after.mean <= kGood)
        return Verdict::Good;
    return after.mean <= kFair ? Verdict::Fair : Verdict::Poor;
}

std::string explain(Verdict verdict, const Differences& after)
{
    const std::string levels = concat("the pictures differ by ", fixed(after.mean, 1), " of 255 levels on average");
    const bool is_brightness = std::fabs(after.signed_mean) > kOneSided * after.mean;
    const std::string reason = is_brightness
                                   ? "mostly in brightness: the exposure changes within a picture, or a gain is wrong"
                                   : "not in brightness alone: a wrong place, something that moved, or noise";
    switch (verdict) {
    case Verdict::Invisible:
        return concat("No seam will show: ", levels, ".");
    case Verdict::Good:
        return concat("A seam will hardly show: ", levels, ".");
    case Verdict::Fair:
        return concat("A seam may show in smooth areas: ", levels, ", ", reason, ".");
    case Verdict::Poor:
        return concat("Do not trust this seam: ", levels, ", ", reason, ".");
    case Verdict::NothingShared:
        break;
    }
    return "The rectangles meet, but no pixel is covered by both pictures.";
}

// Of the only poor overlap. The picture that agrees less with its other neighbours is the suspect.
std::string suspect_of_two(const PanoramaPlan& plan, const Overlap& poor, const std::vector<std::size_t>& fair_of)
{
    const std::string first = plan.layers[poor.first].name();
    const std::string second = plan.layers[poor.second].name();
    if (fair_of[poor.first] == fair_of[poor.second])
        return concat("Look at '", first, "' and '", second, "': their overlap is the only poor one.");
    const bool is_first = fair_of[poor.first] > fair_of[poor.second];
    return concat("'", is_first ? first : second, "' is probably the bad picture: its overlap with '",
                  is_first ? second : first, "' is poor, and with others it is only fair.");
}

} // namespace

std::string name_of(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Invisible:
        return "invisible";
    case Verdict::Good:
        return "good";
    case Verdict::Fair:
        return "fair";
    case Verdict::Poor:
        return "poor";
    case Verdict::NothingShared:
        break;
    }
    return "nothing shared";
}

OverlapCounts::OverlapCounts(const Overlap& overlap, const PanoramaPlan& plan, const Image& first, const Image& second)
    : overlap_(overlap)
{
    std::vector<std::uint32_t> counts(kLevels * kLevels); // level of the first picture, level of the second
    const Point a = plan.layers[overlap.first].corner;
    const Point b = plan.layers[overlap.second].corner;
    const auto channels = static_cast<std::size_t>(plan.channels);
    const auto pixel = [](const Image& image, std::int64_t x, std::int64_t y) {
        return static_cast<std::size_t>(y * image.width + x);
    };
    for (std::int64_t y = overlap.region.y; y < std::int64_t{overlap.region.y} + overlap.region.height; ++y)
        for (std::int64_t x = overlap.region.x; x < std::int64_t{overlap.region.x} + overlap.region.width; ++x) {
            const std::size_t i = pixel(first, x - a.x, y - a.y);
            const std::size_t j = pixel(second, x - b.x, y - b.y);
            if (first.mask[i] == 0 || second.mask[j] == 0)
                continue;
            ++shared_pixels_;
            for (std::size_t c = 0; c < channels; ++c)
                ++counts[level_at(first, i * channels + c) * kLevels + level_at(second, j * channels + c)];
        }
    samples_ = shared_pixels_ * channels;
    keep(counts);
}

// Objects live until the gains are known, so they hold the pairs that occur alone.
void OverlapCounts::keep(const std::vector<std::uint32_t>& counts)
{
    const auto occurring = counts.size() - static_cast<std::size_t>(std::count(counts.begin(), counts.end(), 0u));
    pairs_.reserve(occurring);
    counts_.reserve(occurring);
    for (std::size_t i = 0; i < counts.size(); ++i)
        if (counts[i] != 0) {
            pairs_.push_back({static_cast<std::uint8_t>(i / kLevels), static_cast<std::uint8_t>(i % kLevels)});
            counts_.push_back(counts[i]);
        }
}

Differences OverlapCounts::differences(double gain_first, double gain_second) const
{
    Differences result;
    const auto first = gained_levels(gain_first);
    const auto second = gained_levels(gain_second);
    for (std::size_t i = 0; i < pairs_.size(); ++i) {
        const double share = counts_[i] / static_cast<double>(samples_);
        const std::int32_t difference = second[pairs_[i].second] - first[pairs_[i].first];
        result.signed_mean += share * difference;
        result.mean += share * std::abs(difference);
        result.distribution[static_cast<std::size_t>(std::abs(difference))] += share;
    }
    result.median = percentile(result.distribution, 0.5);
    result.percentile_95 = percentile(result.distribution, 0.95);
    return result;
}

OverlapQuality OverlapCounts::quality(double gain_first, double gain_second) const
{
    OverlapQuality result;
    result.overlap = overlap_;
    result.shared_pixels = shared_pixels_;
    if (samples_ != 0) {
        result.before = differences(1.0, 1.0);
        result.after = differences(gain_first, gain_second);
        result.verdict = verdict_of(result.after);
    }
    result.explanation = explain(result.verdict, result.after);
    return result;
}

std::optional<std::string> find_suspect(const PanoramaPlan& plan, const std::vector<OverlapQuality>& overlaps)
{
    const auto count_of = [&](Verdict verdict) {
        std::vector<std::size_t> counts(plan.layers.size());
        for (const OverlapQuality& quality : overlaps)
            if (quality.verdict == verdict) {
                ++counts[quality.overlap.first];
                ++counts[quality.overlap.second];
            }
        return counts;
    };
    const auto is_poor = [](const OverlapQuality& quality) { return quality.verdict == Verdict::Poor; };
    const auto poor = static_cast<std::size_t>(std::count_if(overlaps.begin(), overlaps.end(), is_poor));
    if (poor == 0)
        return std::nullopt;
    const auto poor_of = count_of(Verdict::Poor);
    if (poor == 1)
        return suspect_of_two(plan, std::find_if(overlaps.begin(), overlaps.end(), is_poor)->overlap,
                              count_of(Verdict::Fair));
    const auto most = std::max_element(poor_of.begin(), poor_of.end());
    const std::string name = plan.layers[static_cast<std::size_t>(most - poor_of.begin())].name();
    if (*most == poor)
        return concat("'", name, "' is probably the bad picture: all ", poor, " poor overlaps are with it.");
    return concat(poor, " overlaps are poor; '", name, "' has most of them, ", *most, ".");
}

} // namespace panoval::cli
