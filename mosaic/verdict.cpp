// SPDX-License-Identifier: MIT
// Every overlap is measured by itself, in parallel. What a picture's noise is, and who is to blame, is then told from
// all of them together.
#include "mosaic/verdict.h"

#include "mosaic/displacement.h"
#include "mosaic/ghosts.h"
#include "mosaic/overlap_cells.h"
#include "mosaic/parallel.h"
#include "mosaic/verdict_cover.h"
#include "mosaic/verdict_swaps.h"
#include "mosaic/verdict_tone.h"
#include "mosaic/verdict_words.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

// What is measured of one overlap before all are known.
struct Facts {
    OverlapVerdict verdict;
    std::vector<BlockShift> blocks;
    EmptySides empty_sides;
    double level = 0; // mean brightness of both, of 255
};

double mean_level(const OverlapCells& cells)
{
    double sum = 0;
    double count = 0;
    for (std::size_t i = 0; i < cells.cells(); ++i)
        if (cells.known[i] != 0) {
            for (std::size_t c = 0; c < cells.channels; ++c)
                sum += cells.level(i, c);
            count += static_cast<double>(cells.channels);
        }
    return count > 0 ? sum / count : 0;
}

KnownNoise noise_of_blocks(const std::vector<BlockShift>& blocks)
{
    KnownNoise noise{1e9, 1e9};
    for (const BlockShift& block : blocks)
        if (block.fit.is_valid && block.step == 1) {
            noise.first = std::min(noise.first, block.noise_first);
            noise.second = std::min(noise.second, block.noise_second);
        }
    return noise;
}

void look_for_ghosts(const PictureSource& source, const OverlapCells& cells, const ToneModel& tone,
                     const std::vector<std::uint8_t>& owners, Facts& facts)
{
    const ShiftVote found = vote(facts.blocks, noise_of_blocks(facts.blocks), facts.empty_sides);
    if (found.empty || (found.mismatch > 0.5 && found.weight > 0.5))
        return; // everything differs
    facts.verdict.ghosts = find_ghosts(cells, tone, owners, found.displacement.value_or(Displacement{}), source.layout);
}

void leave_out(const std::vector<Ghost>& ghosts, OverlapCells& cells)
{
    const Rect& region = cells.overlap.region;
    const Rect all{0, 0, static_cast<std::int64_t>(cells.width), static_cast<std::int64_t>(cells.height)};
    for (const Ghost& ghost : ghosts) {
        const Rect box{(ghost.box.x - region.x) / cells.step, (ghost.box.y - region.y) / cells.step,
                       ghost.box.width / cells.step + 1, ghost.box.height / cells.step + 1};
        const Rect inside = intersect(box.grown(2), all);
        for (std::int64_t y = inside.y; y < inside.bottom(); ++y)
            for (std::int64_t x = inside.x; x < inside.right(); ++x)
                cells.known[static_cast<std::size_t>(y) * cells.width + static_cast<std::size_t>(x)] = 0;
    }
}

void tell_tone(const OverlapCells& cells, const ToneModel& tone, const std::vector<std::uint8_t>& owners,
               OverlapVerdict& verdict)
{
    const SeamStep step = measure_step(cells, tone, owners);
    verdict.step = step.levels;
    verdict.has_seam = step.has_seam;
    verdict.tone = tone.curve();
    verdict.unevenness = tone.unevenness();
    verdict.offset = tone.offset();
}

Facts measure_overlap(const PictureSource& source, const Overlap& overlap, const SeamMap& seams, std::size_t threads)
{
    Facts facts;
    OverlapVerdict& verdict = facts.verdict;
    verdict.first = overlap.first;
    verdict.second = overlap.second;
    verdict.region = overlap.region;
    OverlapCells cells = read_cells(source, overlap);
    verdict.shared_pixels = cells.shared_pixels;
    if (cells.shared_pixels == 0)
        return facts;
    verdict.before = cells.before;
    verdict.after = cells.after;
    const ToneModel rough_tone(cells);
    facts.blocks = measure_blocks(source, cells, rough_tone, threads);
    facts.empty_sides = find_empty(cells);
    facts.level = mean_level(cells);
    const std::vector<std::uint8_t> owners = owners_of_cells(cells, source.layout, seams);
    look_for_ghosts(source, cells, rough_tone, owners, facts);
    if (verdict.ghosts.empty()) {
        tell_tone(cells, rough_tone, owners, verdict);
    } else {
        leave_out(verdict.ghosts, cells); // what moved is no matter of brightness
        tell_tone(cells, ToneModel(cells), owners, verdict);
    }
    return facts;
}

double median_of(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// The noise of a block, no more than what remains of it where it fits; the other block may have less than half of that.
double most_noise(const BlockShift& block, bool is_second)
{
    const double own = is_second ? block.noise_second : block.noise_first;
    const double other = is_second ? block.noise_first : block.noise_second;
    if (!is_matched(block))
        return own;
    const ShiftFit& fit = block.fit;
    const double covariance = fit.correlation * std::sqrt(fit.variance_first * fit.variance_second);
    const double both = fit.variance_first + fit.variance_second - 2 * covariance;
    return std::min(own, std::max(0.5 * fit.residual, both - other));
}

// The noise of each picture's prepared patches: no block shows more of it than what remains between two pictures that
// fit.
std::vector<double> noise_of_pictures(std::size_t pictures, const std::vector<Facts>& facts)
{
    std::vector<std::vector<double>> of_picture(pictures);
    std::vector<double> of_all;
    for (const Facts& fact : facts)
        for (const BlockShift& block : fact.blocks) {
            if (!block.fit.is_valid || block.step > 1)
                continue;
            of_picture[fact.verdict.first].push_back(most_noise(block, false));
            of_picture[fact.verdict.second].push_back(most_noise(block, true));
            if (is_matched(block)) {
                of_all.push_back(of_picture[fact.verdict.first].back());
                of_all.push_back(of_picture[fact.verdict.second].back());
            }
        }
    const double usual = of_all.empty() ? 1e9 : median_of(of_all);
    std::vector<double> noise(pictures, of_all.empty() ? 0.0 : usual);
    for (std::size_t i = 0; i < pictures; ++i)
        if (!of_picture[i].empty())
            noise[i] = std::min(median_of(of_picture[i]), 4 * usual);
    return noise;
}

// Detail that both blocks share tells which of them is softer; noise is in neither of the products.
// rounding  what that of samples leaves in prepared patches; calm places show none of it
void measure_sharpness(const std::vector<BlockShift>& blocks, const KnownNoise& noise, double rounding,
                       OverlapVerdict& verdict)
{
    constexpr double kNoiseInDetail = 0.143; // of the variance of noise in prepared patches
    constexpr double kClearly = 0.5;         // of the noise
    constexpr double kShared = 0.85;
    constexpr double kLeast = 0.001; // level squared
    double first = 0;
    double second = 0;
    double shared = 0;
    double noise_first = 0;
    double noise_second = 0;
    for (const BlockShift& block : blocks) {
        if (!is_matched(block) || block.step > 1 || is_coding_alone(block))
            continue;
        first += block.detail_first;
        second += block.detail_second;
        shared += block.detail_shared;
        noise_first += kNoiseInDetail * std::max({noise.first, most_noise(block, false), rounding});
        noise_second += kNoiseInDetail * std::max({noise.second, most_noise(block, true), rounding});
    }
    // Noise may be more than the calm places say, as where it grows with the light: what both have beyond what they
    // share is noise, in proportion. One that is not sharp has next to nothing beyond.
    const double grown = std::max(1.0, std::min((first - shared) / std::max(noise_first, kLeast),
                                                (second - shared) / std::max(noise_second, kLeast)));
    const double clean_first = first - grown * noise_first;
    const double clean_second = second - grown * noise_second;
    const double sharper = std::max(clean_first, clean_second);
    const double softer = std::max(0.0, std::min(clean_first, clean_second));
    verdict.is_sharpness_known = sharper >= kClearly * grown * std::max(noise_first, noise_second) + kLeast;
    // What is not sharp shares less with the other picture, too; a wrong idea of its noise would not change that.
    if (!verdict.is_sharpness_known || shared > kShared * sharper)
        return;
    const double ratio = std::sqrt(softer / sharper);
    verdict.sharpness = clean_second < clean_first ? ratio : 1 / std::max(ratio, 0.01);
}

// What is known of the noise, made as large as that of the other picture would be after this one's gain: calm places of
// a dark picture, where samples end at black, show too little of it.
KnownNoise with_gains(const KnownNoise& noise, const Layout& layout, const Corrections& corrections,
                      const OverlapVerdict& verdict)
{
    const ChannelGains& first = corrections.gains[verdict.first];
    const ChannelGains& second = corrections.gains[verdict.second];
    const std::size_t green = layout.channels < 3 ? 0 : 1;
    const double ratio = second[green] / first[green];
    return {std::max(noise.first, noise.second / (ratio * ratio)),
            std::max(noise.second, noise.first * (ratio * ratio))};
}

void settle_overlap(Facts& facts, const Layout& layout, const Corrections& corrections,
                    const std::vector<double>& noise_of_picture)
{
    OverlapVerdict& verdict = facts.verdict;
    const KnownNoise noise{noise_of_picture[verdict.first], noise_of_picture[verdict.second]};
    const ShiftVote found = vote(facts.blocks, noise, facts.empty_sides);
    verdict.noise = std::sqrt(0.5 * (noise.first + noise.second) / kNoiseLeft);
    verdict.displacement = found.displacement;
    verdict.displaced_by = found.displaced_by;
    verdict.uncertainty = found.uncertainty;
    verdict.evidence = found.weight;
    // Coding may leave nothing in common of what is as fine and as faint as its errors.
    constexpr double kFaint = 0.02; // of the brightness
    verdict.is_mismatch = found.mismatch > 0.5 && found.weight > 0.5 && verdict.after.mean > kFaint * facts.level;
    if (verdict.is_mismatch || found.empty)
        verdict.displacement.reset();
    if (found.empty)
        verdict.empty = *found.empty ? verdict.second : verdict.first;
    const double unit = 255.0 / static_cast<double>(layout.largest_sample());
    measure_sharpness(facts.blocks, with_gains(noise, layout, corrections, verdict), kNoiseLeft * unit * unit / 12,
                      verdict);
}

std::vector<Facts> measure_all(const PictureSource& source, const std::vector<Overlap>& overlaps, const SeamMap& seams,
                               const VerdictOptions& options, Progress& progress)
{
    std::vector<Facts> facts(overlaps.size());
    std::atomic<std::size_t> done{0};
    progress.report(Phase::Verdict, 0);
    const std::size_t each = options.threads / std::max<std::size_t>(overlaps.size(), 1); // threads for one of few
    run_in_parallel(overlaps.size(), options.threads, [&](std::size_t i) {
        facts[i] = measure_overlap(source, overlaps[i], seams, std::max<std::size_t>(each, 1));
        progress.report(Phase::Verdict, static_cast<double>(++done) / static_cast<double>(overlaps.size()));
    });
    std::erase_if(facts, [](const Facts& fact) { return fact.verdict.shared_pixels == 0; });
    return facts;
}

} // namespace

Verdict judge(const Layout& layout, const std::vector<Overlap>& overlaps, const Corrections& corrections,
              const SeamMap& seams, PictureReader& reader, const VerdictOptions& options, Progress& progress)
{
    const PictureSource source{layout, corrections, reader};
    std::vector<Facts> facts = measure_all(source, overlaps, seams, options, progress);
    const std::vector<double> noise = noise_of_pictures(layout.pictures.size(), facts);
    Verdict verdict;
    for (Facts& fact : facts) {
        settle_overlap(fact, layout, corrections, noise);
        verdict.overlaps.push_back(std::move(fact.verdict));
    }
    verdict.swapped = find_swaps(source, overlaps, verdict);
    verdict.groups = connected_groups(layout.pictures.size(), verdict.overlaps);
    Uncovered uncovered = find_uncovered(seams, layout.wraps);
    verdict.uncovered_pixels = uncovered.pixels;
    verdict.holes = std::move(uncovered.holes);
    put_into_words(layout, verdict);
    progress.report(Phase::Verdict, 1);
    return verdict;
}

} // namespace panoval::mosaic
