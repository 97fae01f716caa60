// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_solve.h"

#include "core/elementary.h"
#include "mosaic/base/errors.h"
#include "mosaic/gains/gain_graph.h"
#include "mosaic/gains/gain_pair.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace panoval::mosaic
{

namespace
{

using Brightness = std::vector<double>;
using Says = OverlapStatistics::Says;
using Whose = Suspicion::Whose;

constexpr double kStrongestGain = 50;

GainEdge edge_of(const Overlap& overlap, const LogRatio& ratio, bool is_used)
{
    return {overlap.first, overlap.second, ratio.value, ratio.error, is_used};
}

Whose whose_fault(Says says)
{
    switch (says) {
    case Says::FirstBlank:
        return Whose::First;
    case Says::SecondBlank:
        return Whose::Second;
    case Says::Disagree:
        return Whose::Either;
    default:
        return Whose::Nobody;
    }
}

class GainSolution
{
public:
    GainSolution(const Layout& layout, const std::vector<Overlap>& overlaps, GainStatistics statistics,
                 const GainOptions& options)
        : layout_(layout), overlaps_(overlaps), options_(options), channels_(static_cast<std::size_t>(layout.channels)),
          misfits_(find_misfits(layout, overlaps, statistics.overlaps))
    {
        result_.corrections = Corrections::none(layout);
        result_.corrections.falloff = statistics.falloff;
        result_.statistics = std::move(statistics);
        result_.outliers = misfits_.outliers;
    }

    GainResult run()
    {
        list_edges();
        result_.per_channel = wants_channels();
        result_.groups = find_groups(layout_.pictures.size(), edges_for_solving(channels_));
        if (result_.per_channel) {
            for (std::size_t c = 0; c < channels_; ++c)
                keep_gains(solve(c), c);
        } else {
            const Brightness brightness = solve(channels_);
            for (std::size_t c = 0; c < channels_; ++c)
                keep_gains(brightness, c);
        }
        return std::move(result_);
    }

private:
    void list_edges()
    {
        edges_.resize(channels_ + 1);
        for (std::size_t p = 0; p < overlaps_.size(); ++p) {
            const OverlapStatistics& overlap = result_.statistics.overlaps[p];
            const bool is_good = overlap.says == Says::Agree && !misfits_.is_contradiction[p];
            for (std::size_t c = 0; c <= channels_; ++c) {
                const LogRatio& ratio = c == channels_ ? overlap.all : overlap.channels[c];
                edges_[c].push_back(edge_of(overlaps_[p], ratio, is_good && ratio.is_known));
            }
        }
    }

    // Whether a picture has a white balance of its own: at most of its overlaps the channels' ratios differ by more
    // than their errors and by more than the eye forgives.
    bool wants_channels() const
    {
        if (options_.per != GainOptions::Per::Automatic || channels_ == 1)
            return options_.per == GainOptions::Per::Channel && channels_ > 1;
        std::vector<std::size_t> clear(layout_.pictures.size(), 0);
        std::vector<std::size_t> all(layout_.pictures.size(), 0);
        for (std::size_t p = 0; p < overlaps_.size(); ++p) {
            const bool is_good = result_.statistics.overlaps[p].says == Says::Agree && !misfits_.is_contradiction[p];
            if (!is_good || !misfits_.counts(overlaps_[p]))
                continue;
            const bool is_clear = differs_in_colour(p);
            for (const std::size_t i : {overlaps_[p].first, overlaps_[p].second}) {
                ++all[i];
                clear[i] += is_clear ? 1 : 0;
            }
        }
        for (std::size_t i = 0; i < clear.size(); ++i)
            if (2 * clear[i] > all[i])
                return true;
        return false;
    }

    bool differs_in_colour(std::size_t p) const
    {
        constexpr double kVisible = 0.005;
        constexpr double kClear = 4;
        const GainEdge& all = edges_[channels_][p];
        for (std::size_t c = 0; c < channels_ && all.is_used; ++c) {
            const GainEdge& edge = edges_[c][p];
            const double difference = std::fabs(edge.log_ratio - all.log_ratio);
            if (edge.is_used && difference > std::max(kVisible, kClear * edge.error))
                return true;
        }
        return false;
    }

    std::vector<GainEdge> edges_for_solving(std::size_t c) const
    {
        std::vector<GainEdge> edges = edges_[c];
        for (std::size_t p = 0; p < edges.size(); ++p) {
            // A channel that is saturated or black everywhere follows the others.
            if (!edges[p].is_used && edges_[channels_][p].is_used)
                edges[p] = edges_[channels_][p];
            edges[p].is_used = edges[p].is_used && misfits_.counts(overlaps_[p]);
        }
        return edges;
    }

    // Of the pictures, relative to the largest: the panorama as a whole keeps its brightness and colour, which a small
    // picture that is put into it does not decide.
    std::vector<double> areas() const
    {
        std::vector<double> areas;
        for (const PlacedPicture& picture : layout_.pictures)
            areas.push_back(static_cast<double>(picture.rect.pixels()));
        const double largest = *std::max_element(areas.begin(), areas.end());
        for (double& area : areas)
            area /= largest;
        return areas;
    }

    Brightness solve(std::size_t c) const
    {
        const std::size_t pictures = layout_.pictures.size();
        Brightness brightness = solve_brightness(pictures, edges_for_solving(c));
        settle_groups(brightness, result_.groups, areas(), options_.anchor.value_or(pictures));
        place_outliers(c, brightness);
        return brightness;
    }

    // What their good overlaps say; otherwise they stay as they are.
    void place_outliers(std::size_t c, Brightness& brightness) const
    {
        std::vector<std::vector<Weighted>> says(brightness.size());
        const std::vector<char>& is_outlier = misfits_.is_outlier;
        for (std::size_t p = 0; p < overlaps_.size(); ++p) {
            const GainEdge& edge = edges_[c][p].is_used ? edges_[c][p] : edges_[channels_][p];
            if (!edge.is_used || is_outlier[edge.first] == is_outlier[edge.second])
                continue;
            const double weight = 1 / (edge.error * edge.error + 1e-4);
            if (is_outlier[edge.first])
                says[edge.first].push_back({brightness[edge.second] + edge.log_ratio, weight});
            else
                says[edge.second].push_back({brightness[edge.first] - edge.log_ratio, weight});
        }
        for (const std::size_t i : result_.outliers)
            if (options_.anchor != i)
                brightness[i] = weighted_median(says[i]);
    }

    void keep_gains(const Brightness& brightness, std::size_t c)
    {
        const double limit = log(kStrongestGain);
        for (std::size_t i = 0; i < brightness.size(); ++i)
            result_.corrections.gains[i][c] = exp(-std::clamp(brightness[i], -limit, limit));
    }

    const Layout& layout_;
    const std::vector<Overlap>& overlaps_;
    const GainOptions& options_;
    const std::size_t channels_;
    const GainMisfits misfits_;
    std::vector<std::vector<GainEdge>> edges_; // of each channel, then of all together
    GainResult result_;
};

} // namespace

GainMisfits find_misfits(const Layout& layout, const std::vector<Overlap>& overlaps,
                         const std::vector<OverlapStatistics>& statistics)
{
    const std::size_t pictures = layout.pictures.size();
    std::vector<GainEdge> edges;
    for (std::size_t p = 0; p < overlaps.size(); ++p)
        edges.push_back(
            edge_of(overlaps[p], statistics[p].seen, statistics[p].says == Says::Agree && statistics[p].seen.is_known));
    const std::vector<bool> contradicts = find_contradictions(edges, solve_brightness(pictures, edges));
    std::vector<Suspicion> votes;
    for (std::size_t p = 0; p < overlaps.size(); ++p)
        if (const Says says = statistics[p].says; says != Says::Nothing)
            votes.push_back({overlaps[p].first, overlaps[p].second, statistics[p].shared,
                             contradicts[p] ? Whose::Either : whose_fault(says)});
    GainMisfits misfits;
    misfits.is_contradiction.assign(contradicts.begin(), contradicts.end());
    misfits.outliers = find_outliers(pictures, votes);
    misfits.is_outlier.assign(pictures, 0);
    for (const std::size_t i : misfits.outliers)
        misfits.is_outlier[i] = 1;
    return misfits;
}

GainResult solve_gains(const Layout& layout, const std::vector<Overlap>& overlaps, GainStatistics statistics,
                       const GainOptions& options)
{
    if (options.anchor && *options.anchor >= layout.pictures.size())
        fail(Failure::Argument, "anchor ", *options.anchor, ": there are ", layout.pictures.size(), " pictures");
    return GainSolution(layout, overlaps, std::move(statistics), options).run();
}

} // namespace panoval::mosaic
