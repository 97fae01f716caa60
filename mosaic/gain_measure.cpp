// SPDX-License-Identifier: MIT
#include "mosaic/gain_measure.h"

#include "core/elementary.h"
#include "mosaic/errors.h"
#include "mosaic/gain_agreement.h"
#include "mosaic/gain_graph.h"
#include "mosaic/gain_pair.h"
#include "mosaic/gain_rounded.h"
#include "mosaic/parallel.h"
#include "mosaic/scratch_pool.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

constexpr int kFalloffRounds = 8;
constexpr int kRoughRounds = 2;
constexpr double kMostlySaturated = 0.9;
constexpr double kLargestGain = 50;

// All that is known of an overlap.
struct Pair {
    GainBlocks blocks;
    BlockRadii radii;
    BlockLevels levels;  // of all channels together
    RatioEstimate ratio; // of all channels together
    PairAgreement agreement;
    std::vector<SamplePairs> samples; // of each channel, then of all; empty where it is not dark
    OverlapGain::Use use = OverlapGain::Use::Nothing;
    Suspicion::Whose whose = Suspicion::Whose::Nobody;
};

class GainMeasurement
{
public:
    GainMeasurement(const Layout& layout, const std::vector<Overlap>& overlaps, PictureReader& reader,
                    const GainOptions& options, Progress& progress)
        : layout_(layout), overlaps_(overlaps), reader_(reader), options_(options), progress_(progress),
          channels_(static_cast<std::size_t>(layout.channels)), pairs_(overlaps.size())
    {
    }

    GainResult run()
    {
        result_.corrections = Corrections::none(layout_);
        result_.overlaps.resize(overlaps_.size());
        read_overlaps();
        judge_pairs();
        find_misfits();
        estimate_lens();
        estimate_channels();
        result_.per_channel = wants_channels();
        solve_all();
        keep_overlaps();
        return std::move(result_);
    }

private:
    using Brightness = std::vector<double>;

    // Some rows of an overlap's blocks.
    struct Part {
        std::size_t pair;
        std::size_t first;
        std::size_t end;
        GainTotals totals{};
    };

    // Where there are few overlaps, each is shared between threads.
    std::vector<Part> parts_of_overlaps() const
    {
        constexpr std::size_t kPartsPerThread = 4;
        const std::size_t wanted = options_.threads > 1 ? kPartsPerThread * options_.threads : 1;
        const std::size_t each = (wanted + pairs_.size() - 1) / std::max<std::size_t>(pairs_.size(), 1);
        std::vector<Part> parts;
        for (std::size_t p = 0; p < pairs_.size(); ++p) {
            const std::size_t rows = pairs_[p].blocks.rows;
            const std::size_t count = std::min(std::max<std::size_t>(each, 1), rows);
            for (std::size_t k = 0; k < count; ++k)
                parts.push_back({p, rows * k / count, rows * (k + 1) / count});
        }
        return parts;
    }

    void read_overlaps()
    {
        const std::size_t most = most_blocks(overlaps_.size());
        for (std::size_t p = 0; p < pairs_.size(); ++p)
            pairs_[p].blocks = lay_out_blocks(overlaps_[p].region, most);
        std::vector<Part> parts = parts_of_overlaps();
        std::atomic<std::size_t> done{0};
        ScratchPool<GainStrips> strips;
        run_in_parallel(parts.size(), options_.threads, [&](std::size_t i) {
            Part& part = parts[i];
            part.totals = sum_blocks(layout_, overlaps_[part.pair], part.first, part.end, reader_, *strips.take(),
                                     pairs_[part.pair].blocks);
            progress_.report(Phase::Gains, static_cast<double>(++done) / static_cast<double>(parts.size() + 1));
        });
        for (const Part& part : parts)
            add_totals(part.totals, pairs_[part.pair].blocks);
        run_in_parallel(pairs_.size(), options_.threads, [&](std::size_t p) {
            Pair& pair = pairs_[p];
            pair.radii = block_radii(layout_, overlaps_[p], pair.blocks);
            pair.levels = block_levels(pair.blocks, kAllChannels, layout_.channels, layout_.bits);
        });
    }

    void judge_pairs()
    {
        run_in_parallel(pairs_.size(), options_.threads, [&](std::size_t p) {
            Pair& pair = pairs_[p];
            pair.ratio = estimate_ratio(pair.levels);
            if (is_dark(pair))
                pair.samples = count_sample_pairs(layout_, overlaps_[p], reader_);
            judge_pair(pair);
        });
    }

    // Of so few levels that rounding matters.
    bool is_dark(const Pair& pair) const
    {
        constexpr double kDark = 24; // mean level of the brighter picture
        if (layout_.bits != 8 || pair.ratio.kind != RatioEstimate::Kind::Known)
            return false;
        double first = 0;
        double second = 0;
        double samples = 0;
        for (const BlockLevel& block : pair.levels.blocks) {
            first += block.weight * block.first;
            second += block.weight * block.second;
            samples += block.weight;
        }
        return std::max(first, second) < kDark * samples;
    }

    void judge_pair(Pair& pair) const
    {
        using Kind = RatioEstimate::Kind;
        const double samples = static_cast<double>(pair.blocks.shared) * static_cast<double>(channels_);
        const double first_saturated = static_cast<double>(pair.blocks.first_saturated) / std::max(samples, 1.0);
        const double second_saturated = static_cast<double>(pair.blocks.second_saturated) / std::max(samples, 1.0);
        const bool is_first_white = first_saturated > kMostlySaturated && second_saturated < 0.5;
        const bool is_second_white = second_saturated > kMostlySaturated && first_saturated < 0.5;
        pair.use = OverlapGain::Use::OneBlank;
        if (pair.ratio.kind == Kind::FirstBlack || is_first_white)
            pair.whose = Suspicion::Whose::First;
        else if (pair.ratio.kind == Kind::SecondBlack || is_second_white)
            pair.whose = Suspicion::Whose::Second;
        else if (pair.ratio.kind == Kind::Nothing)
            pair.use = OverlapGain::Use::Nothing;
        else
            compare_content(pair);
    }

    // Whether one ratio explains the samples of a dark overlap; then that is the ratio.
    static bool refine_by_samples(const Pair& pair, std::size_t index, RatioEstimate& ratio)
    {
        if (pair.samples.empty() || ratio.kind != RatioEstimate::Kind::Known)
            return false;
        const auto rounded = find_rounded_ratio(pair.samples[index]);
        if (!rounded)
            return false;
        ratio.log_ratio = rounded->log_ratio;
        ratio.error = rounded->error;
        return true;
    }

    void compare_content(Pair& pair) const
    {
        pair.agreement = judge_agreement(pair.levels, pair.ratio);
        if (refine_by_samples(pair, channels_, pair.ratio))
            pair.agreement.agrees = true; // one ratio explains all of their samples
        pair.use = pair.agreement.agrees ? OverlapGain::Use::Used : OverlapGain::Use::Disagrees;
        pair.whose = pair.agreement.agrees ? Suspicion::Whose::Nobody : Suspicion::Whose::Either;
    }

    std::vector<GainEdge> pooled_edges() const
    {
        std::vector<GainEdge> edges;
        for (std::size_t p = 0; p < pairs_.size(); ++p)
            edges.push_back({overlaps_[p].first, overlaps_[p].second, pairs_[p].ratio.log_ratio, pairs_[p].ratio.error,
                             pairs_[p].use == OverlapGain::Use::Used});
        return edges;
    }

    void find_misfits()
    {
        const std::vector<GainEdge> edges = pooled_edges();
        const std::vector<bool> contradicts =
            find_contradictions(edges, solve_brightness(layout_.pictures.size(), edges));
        std::vector<Suspicion> votes;
        for (std::size_t p = 0; p < pairs_.size(); ++p) {
            if (contradicts[p]) {
                pairs_[p].use = OverlapGain::Use::Contradicts;
                pairs_[p].whose = Suspicion::Whose::Either;
            }
            if (pairs_[p].use != OverlapGain::Use::Nothing)
                votes.push_back({overlaps_[p].first, overlaps_[p].second, pairs_[p].blocks.shared, pairs_[p].whose});
        }
        result_.outliers = find_outliers(layout_.pictures.size(), votes);
        is_outlier_.assign(layout_.pictures.size(), 0);
        for (const std::size_t i : result_.outliers)
            is_outlier_[i] = 1;
    }

    bool has_outlier(std::size_t p) const
    {
        return is_outlier_[overlaps_[p].first] || is_outlier_[overlaps_[p].second];
    }

    void estimate_lens()
    {
        std::vector<FalloffPair> lenses;
        for (std::size_t p = 0; p < pairs_.size(); ++p)
            if (pairs_[p].use == OverlapGain::Use::Used && !has_outlier(p))
                lenses.push_back({&pairs_[p].levels, &pairs_[p].radii});
        result_.vignetting =
            estimate_falloff(lenses, options_.vignetting ? kFalloffRounds : kRoughRounds, options_.threads);
        if (options_.vignetting)
            result_.corrections.falloff = result_.vignetting.falloff;
        result_.vignetting_would_help = !options_.vignetting && result_.vignetting.is_worthwhile();
        result_.vignetting_undetermined = options_.vignetting && !result_.vignetting.is_determined;
    }

    // Ratios of each channel and of all together, before and after the falloff is taken out.
    void estimate_channels()
    {
        edges_.assign(channels_ + 1, std::vector<GainEdge>(pairs_.size()));
        run_in_parallel(pairs_.size(), options_.threads, [&](std::size_t p) {
            for (std::size_t c = 0; c < channels_; ++c)
                edges_[c][p] = estimate_channel(p, static_cast<int>(c));
            edges_[channels_][p] = estimate_channel(p, kAllChannels);
        });
    }

    GainEdge estimate_channel(std::size_t p, int channel)
    {
        const Pair& pair = pairs_[p];
        OverlapGain& overlap = result_.overlaps[p];
        const BlockLevels levels =
            channel == kAllChannels ? pair.levels : block_levels(pair.blocks, channel, layout_.channels, layout_.bits);
        RatioEstimate ratio = estimate_ratio(levels);
        if (channel != kAllChannels)
            overlap.before[static_cast<std::size_t>(channel)] = ratio.log_ratio;
        if (!result_.corrections.falloff.is_flat())
            ratio = estimate_ratio(flatten(levels, pair.radii, result_.corrections.falloff));
        const bool is_known = ratio.kind == RatioEstimate::Kind::Known;
        const std::size_t index = channel == kAllChannels ? channels_ : static_cast<std::size_t>(channel);
        if (result_.corrections.falloff.is_flat())
            static_cast<void>(refine_by_samples(pair, index, ratio));
        if (channel == kAllChannels) {
            overlap.spread = ratio.spread;
        } else {
            const auto c = static_cast<std::size_t>(channel);
            overlap.is_known[c] = is_known;
            overlap.after[c] = ratio.log_ratio;
            overlap.error[c] = ratio.error;
        }
        return {overlaps_[p].first, overlaps_[p].second, ratio.log_ratio, ratio.error,
                is_known && pair.use == OverlapGain::Use::Used};
    }

    // Whether a picture has a white balance of its own: at most of its overlaps the channels' ratios differ by more
    // than their errors and by more than the eye forgives.
    bool wants_channels()
    {
        if (options_.per != GainOptions::Per::Automatic || channels_ == 1)
            return options_.per == GainOptions::Per::Channel && channels_ > 1;
        std::vector<std::size_t> clear(layout_.pictures.size(), 0);
        std::vector<std::size_t> all(layout_.pictures.size(), 0);
        for (std::size_t p = 0; p < pairs_.size(); ++p) {
            if (pairs_[p].use != OverlapGain::Use::Used || has_outlier(p))
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

    bool differs_in_colour(std::size_t p)
    {
        constexpr double kVisible = 0.005;
        constexpr double kClear = 4;
        bool is_clear = false;
        for (std::size_t c = 0; c < channels_; ++c) {
            const GainEdge& edge = edges_[c][p];
            const GainEdge& all = edges_[channels_][p];
            if (!edge.is_used || !all.is_used)
                continue;
            const double difference = std::fabs(edge.log_ratio - all.log_ratio);
            result_.white_balance = std::max(result_.white_balance, difference);
            is_clear = is_clear || difference > std::max(kVisible, kClear * edge.error);
        }
        return is_clear;
    }

    void solve_all()
    {
        result_.groups = find_groups(layout_.pictures.size(), edges_for_solving(channels_));
        if (!result_.per_channel) {
            const Brightness brightness = solve(channels_);
            for (std::size_t c = 0; c < channels_; ++c)
                keep_gains(brightness, c);
            return;
        }
        for (std::size_t c = 0; c < channels_; ++c)
            keep_gains(solve(c), c);
    }

    std::vector<GainEdge> edges_for_solving(std::size_t c) const
    {
        std::vector<GainEdge> edges = edges_[c];
        for (std::size_t p = 0; p < edges.size(); ++p) {
            // A channel that is saturated or black everywhere follows the others.
            if (!edges[p].is_used && edges_[channels_][p].is_used)
                edges[p] = edges_[channels_][p];
            edges[p].is_used = edges[p].is_used && !has_outlier(p);
        }
        return edges;
    }

    Brightness solve(std::size_t c) const
    {
        const std::size_t pictures = layout_.pictures.size();
        Brightness brightness = solve_brightness(pictures, edges_for_solving(c));
        const std::vector<char> counts(pictures, 1);
        settle_groups(brightness, result_.groups, counts, options_.anchor.value_or(pictures));
        place_outliers(c, brightness);
        return brightness;
    }

    // What their good overlaps say; otherwise they stay as they are.
    void place_outliers(std::size_t c, Brightness& brightness) const
    {
        std::vector<std::vector<Weighted>> says(brightness.size());
        for (std::size_t p = 0; p < pairs_.size(); ++p) {
            const GainEdge& edge = edges_[c][p].is_used ? edges_[c][p] : edges_[channels_][p];
            if (!edge.is_used || is_outlier_[edge.first] == is_outlier_[edge.second])
                continue;
            const double weight = 1 / (edge.error * edge.error + 1e-4);
            if (is_outlier_[edge.first])
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
        const double limit = log(kLargestGain);
        for (std::size_t i = 0; i < brightness.size(); ++i)
            result_.corrections.gains[i][c] = exp(-std::clamp(brightness[i], -limit, limit));
        for (std::size_t p = 0; p < pairs_.size(); ++p)
            if (result_.overlaps[p].is_known[c])
                result_.overlaps[p].after[c] -= brightness[overlaps_[p].first] - brightness[overlaps_[p].second];
    }

    void keep_overlaps()
    {
        for (std::size_t p = 0; p < pairs_.size(); ++p) {
            OverlapGain& overlap = result_.overlaps[p];
            overlap.use = pairs_[p].use;
            overlap.shared = pairs_[p].blocks.shared;
            overlap.correlation = pairs_[p].agreement.correlation;
            overlap.unevenness = pairs_[p].agreement.unevenness;
        }
        progress_.report(Phase::Gains, 1);
    }

    const Layout& layout_;
    const std::vector<Overlap>& overlaps_;
    PictureReader& reader_;
    const GainOptions& options_;
    Progress& progress_;
    const std::size_t channels_;
    std::vector<Pair> pairs_;
    std::vector<char> is_outlier_;
    std::vector<std::vector<GainEdge>> edges_; // of each channel, then of all together
    GainResult result_;
};

} // namespace

GainResult measure_gains(const Layout& layout, const std::vector<Overlap>& overlaps, PictureReader& reader,
                         const GainOptions& options, Progress& progress)
{
    if (options.anchor && *options.anchor >= layout.pictures.size())
        fail(Failure::Argument, "anchor ", *options.anchor, ": there are ", layout.pictures.size(), " pictures");
    return GainMeasurement(layout, overlaps, reader, options, progress).run();
}

} // namespace panoval::mosaic
