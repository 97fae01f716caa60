// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_measure.h"

#include "mosaic/base/parallel.h"
#include "mosaic/base/scratch_pool.h"
#include "mosaic/gains/gain_agreement.h"
#include "mosaic/gains/gain_falloff.h"
#include "mosaic/gains/gain_noise.h"
#include "mosaic/gains/gain_pair.h"
#include "mosaic/gains/gain_rounded.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numeric>
#include <optional>

namespace panoval::mosaic
{

namespace
{

using Says = OverlapStatistics::Says;

constexpr double kMostlySaturated = 0.9;

// What single samples say about a ratio: all pairs of them, as far as they are rounded alone, or most.
struct SampledRatio {
    std::optional<RoundedRatio> rounded;
    std::optional<NoisyRatio> noisy;
};

// All that is known of an overlap.
struct Pair {
    GainBlocks blocks;
    BlockRadii radii;
    BlockLevels levels;                // of all channels together
    RatioEstimate ratio;               // of all channels together
    RatioEstimate summed;              // the same as sums alone tell it, without what it says of each block
    std::vector<SampledRatio> sampled; // of each channel, then of all; empty where it is not dark
};

// Whether a ratio of blocks is one that noise below black can have made of the true one: blocks are biased as sums of
// all samples are, dark ones more, and those that are left out are not.
bool is_consistent(const NoisyRatio& noisy, const RatioEstimate& blocks)
{
    constexpr double kClear = 3;   // standard errors
    constexpr double kDarkest = 3; // times the bias of all samples
    const double margin = kClear * blocks.error;
    const double biased = noisy.log_ratio + kDarkest * (noisy.of_sums - noisy.log_ratio);
    return blocks.log_ratio >= std::min(noisy.log_ratio, biased) - margin &&
           blocks.log_ratio <= std::max(noisy.log_ratio, biased) + margin;
}

LogRatio log_ratio_of(const RatioEstimate& ratio)
{
    const bool is_known = ratio.kind == RatioEstimate::Kind::Known && std::fabs(ratio.log_ratio) <= kLargestLogRatio &&
                          ratio.error <= kLargestLogRatio;
    return is_known ? LogRatio{ratio.log_ratio, ratio.error, true} : LogRatio{};
}

class OverlapMeasurement
{
public:
    OverlapMeasurement(const Layout& layout, const std::vector<Overlap>& overlaps, PictureReader& reader,
                       const GainOptions& options, Progress& progress, const VisitPicture& visit)
        : layout_(layout), overlaps_(overlaps), reader_(reader), options_(options), progress_(progress), visit_(visit),
          channels_(static_cast<std::size_t>(layout.channels)), pairs_(overlaps.size())
    {
    }

    GainStatistics run()
    {
        result_.overlaps.resize(overlaps_.size());
        read_overlaps();
        judge_pairs();
        if (options_.vignetting)
            estimate_lens();
        estimate_ratios();
        progress_.report(Phase::Gains, 1);
        return std::move(result_);
    }

private:
    // Some rows of an overlap's blocks, or a picture that is to be visited.
    struct Part {
        std::size_t number; // of the pair, or of the picture
        std::size_t first;
        std::size_t end;
        bool is_visit = false;
        GainTotals totals{};
    };

    // Where there are few overlaps, each is shared between threads. The last overlap comes first: seams are looked for
    // from the first picture on, which is then still in memory. A picture is visited before the overlaps with those
    // after it.
    std::vector<Part> parts_of_overlaps() const
    {
        constexpr std::size_t kPartsPerThread = 4;
        const std::size_t wanted = options_.threads > 1 ? kPartsPerThread * options_.threads : 1;
        const std::size_t each = (wanted + pairs_.size() - 1) / std::max<std::size_t>(pairs_.size(), 1);
        std::vector<Part> parts;
        std::size_t visited = visit_ ? layout_.pictures.size() : 0; // this one and all later ones
        const auto visit_from = [&](std::size_t picture) {
            while (visited > picture)
                parts.push_back({--visited, 0, 0, true});
        };
        for (std::size_t p = pairs_.size(); p-- > 0;) {
            visit_from(overlaps_[p].first);
            const std::size_t rows = pairs_[p].blocks.rows;
            const std::size_t count = std::min(std::max<std::size_t>(each, 1), rows);
            for (std::size_t k = 0; k < count; ++k)
                parts.push_back({p, rows * k / count, rows * (k + 1) / count});
        }
        visit_from(0);
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
            if (part.is_visit)
                visit_(part.number);
            else
                part.totals = sum_blocks(layout_, overlaps_[part.number], part.first, part.end, reader_, *strips.take(),
                                         pairs_[part.number].blocks);
            progress_.report(Phase::Gains, static_cast<double>(++done) / static_cast<double>(parts.size() + 1));
        });
        for (const Part& part : parts)
            if (!part.is_visit)
                add_totals(part.totals, pairs_[part.number].blocks);
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
            pair.summed = {pair.ratio.kind, pair.ratio.log_ratio, pair.ratio.error, pair.ratio.spread, {}, {}, {}, {}};
            if (is_dark(pair))
                sample_pair(p);
            OverlapStatistics& overlap = result_.overlaps[p];
            overlap.shared = pair.blocks.shared;
            judge_pair(pair, overlap);
            overlap.seen = log_ratio_of(pair.ratio);
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

    void sample_pair(std::size_t p)
    {
        Pair& pair = pairs_[p];
        const OverlapSamples samples = count_samples(layout_, overlaps_[p], pair.blocks, {}, reader_);
        pair.sampled.resize(channels_ + 1);
        bool are_rounded = true;
        for (std::size_t k = 0; k <= channels_; ++k) {
            pair.sampled[k].rounded = find_rounded_ratio(samples.pairs[k], range_of(pair, k));
            are_rounded = are_rounded && pair.sampled[k].rounded;
        }
        if (are_rounded)
            return;
        const std::vector<char>& is_apart = pair.ratio.is_apart;
        if (std::find(is_apart.begin(), is_apart.end(), 1) == is_apart.end())
            explain_noise(samples, pair);
        else
            explain_noise(count_samples(layout_, overlaps_[p], pair.blocks, is_apart, reader_), pair);
    }

    void explain_noise(const OverlapSamples& samples, Pair& pair) const
    {
        if (!is_white(samples.neighbours))
            return;
        for (std::size_t k = 0; k <= channels_; ++k)
            if (!pair.sampled[k].rounded)
                pair.sampled[k].noisy = find_noisy_ratio(samples.pairs[k], pair.ratio.log_ratio);
    }

    void judge_pair(Pair& pair, OverlapStatistics& overlap) const
    {
        using Kind = RatioEstimate::Kind;
        const double samples = static_cast<double>(pair.blocks.shared) * static_cast<double>(channels_);
        const double first_saturated = static_cast<double>(pair.blocks.first_saturated) / std::max(samples, 1.0);
        const double second_saturated = static_cast<double>(pair.blocks.second_saturated) / std::max(samples, 1.0);
        const bool is_first_white = first_saturated > kMostlySaturated && second_saturated < 0.5;
        const bool is_second_white = second_saturated > kMostlySaturated && first_saturated < 0.5;
        if (pair.ratio.kind == Kind::FirstBlack || is_first_white)
            overlap.says = Says::FirstBlank;
        else if (pair.ratio.kind == Kind::SecondBlack || is_second_white)
            overlap.says = Says::SecondBlank;
        else if (pair.ratio.kind == Kind::Known)
            compare_content(pair, overlap);
    }

    RatioRange range_of(const Pair& pair, std::size_t index) const
    {
        const RatioRanges& ranges = pair.blocks.ranges;
        if (index < channels_)
            return ranges[index];
        return std::accumulate(ranges.begin(), ranges.begin() + layout_.channels, RatioRange(), common_range);
    }

    // Whether one ratio explains all samples of a dark overlap; then that is the ratio. In bright ones sums tell it
    // better, as long as rounding allows for what they tell.
    bool refine_by_samples(const Pair& pair, std::size_t index, RatioEstimate& ratio) const
    {
        if (layout_.bits != 8 || ratio.kind != RatioEstimate::Kind::Known)
            return false;
        const bool is_dark = !pair.sampled.empty();
        const auto rounded =
            is_dark ? pair.sampled[index].rounded : nearest_inside(range_of(pair, index), ratio.log_ratio);
        if (rounded) {
            ratio.log_ratio = rounded->log_ratio;
            ratio.error = rounded->error;
            return is_dark;
        }
        if (is_dark && pair.sampled[index].noisy && is_consistent(*pair.sampled[index].noisy, ratio)) {
            ratio.log_ratio = pair.sampled[index].noisy->log_ratio;
            ratio.error = pair.sampled[index].noisy->error;
        }
        return false;
    }

    void compare_content(Pair& pair, OverlapStatistics& overlap) const
    {
        const PairAgreement agreement = judge_agreement(pair.levels, pair.ratio);
        overlap.correlation = agreement.correlation;
        overlap.unevenness = agreement.unevenness;
        const bool is_explained = refine_by_samples(pair, channels_, pair.ratio); // one ratio fits all of their samples
        overlap.says = is_explained || agreement.agrees ? Says::Agree : Says::Disagree;
    }

    void estimate_lens()
    {
        const GainMisfits misfits = find_misfits(layout_, overlaps_, result_.overlaps);
        std::vector<FalloffPair> lenses;
        for (std::size_t p = 0; p < pairs_.size(); ++p)
            if (result_.overlaps[p].says == Says::Agree && !misfits.is_contradiction[p] && misfits.counts(overlaps_[p]))
                lenses.push_back({&pairs_[p].levels, &pairs_[p].radii});
        result_.falloff = estimate_falloff(lenses, options_.threads);
    }

    // Of each channel and of all together, with the falloff taken out.
    void estimate_ratios()
    {
        const std::size_t each = channels_ + 1;
        run_in_parallel(pairs_.size() * each, options_.threads, [&](std::size_t i) {
            const std::size_t index = i % each;
            OverlapStatistics& overlap = result_.overlaps[i / each];
            const RatioEstimate ratio = estimate_without_falloff(pairs_[i / each], index);
            if (index < channels_) {
                overlap.channels[index] = log_ratio_of(ratio);
            } else {
                overlap.all = log_ratio_of(ratio);
                overlap.spread = ratio.spread;
            }
        });
    }

    // index: of the channel, the number of channels for all together
    RatioEstimate estimate_without_falloff(const Pair& pair, std::size_t index) const
    {
        const bool is_all = index == channels_;
        const BlockLevels& levels =
            is_all ? pair.levels : block_levels(pair.blocks, static_cast<int>(index), layout_.channels, layout_.bits);
        if (!result_.falloff.is_flat())
            return estimate_ratio(flatten(levels, pair.radii, result_.falloff));
        RatioEstimate ratio = is_all ? pair.summed : estimate_ratio(levels);
        static_cast<void>(refine_by_samples(pair, index, ratio));
        return ratio;
    }

    const Layout& layout_;
    const std::vector<Overlap>& overlaps_;
    PictureReader& reader_;
    const GainOptions& options_;
    Progress& progress_;
    const VisitPicture& visit_;
    const std::size_t channels_;
    std::vector<Pair> pairs_;
    GainStatistics result_;
};

} // namespace

GainStatistics measure_overlaps(const Layout& layout, const std::vector<Overlap>& overlaps, PictureReader& reader,
                                const GainOptions& options, Progress& progress, const VisitPicture& visit)
{
    return OverlapMeasurement(layout, overlaps, reader, options, progress, visit).run();
}

} // namespace panoval::mosaic
