// SPDX-License-Identifier: MIT
// Every overlap is measured by itself, in parallel. What a picture's noise is, and who is to blame, is then told from
// all of them together.
#include "mosaic/verdict/verdict.h"

#include "core/median.h"
#include "mosaic/base/parallel.h"
#include "mosaic/verdict/displacement.h"
#include "mosaic/verdict/ghosts.h"
#include "mosaic/verdict/overlap_cells.h"
#include "mosaic/verdict/verdict_cover.h"
#include "mosaic/verdict/verdict_swaps.h"
#include "mosaic/verdict/verdict_tone.h"
#include "mosaic/verdict/verdict_words.h"

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
    std::unique_ptr<OverlapCells> cells;   // until they are compared along the seam
    std::unique_ptr<ToneModel> rough_tone; // likewise; refers to the cells
    std::vector<BlockShift> blocks;
    EmptySides empty_sides;
    double level = 0;      // mean brightness of both, of 255
    double unevenness = 0; // of the light between them, levels of 255
    bool differs_at_ghosts_only = false;
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

// Whether nothing but these few places differs: then those are things that moved, though they may be all that there is
// to see.
bool are_all_that_differs(const std::vector<Ghost>& ghosts, const OverlapCells& cells, const ToneModel& tone,
                          const KnownNoise& noise)
{
    constexpr std::size_t kFew = 3;
    constexpr double kVisible = 4;      // levels
    constexpr double kBeyondNoise = 4;  // standard deviations
    constexpr double kHardlyAny = 0.01; // of the other cells
    if (ghosts.empty() || ghosts.size() > kFew)
        return false;
    OverlapCells others = cells;
    leave_out(ghosts, others);
    const double step = static_cast<double>(cells.step);
    const double limit = kVisible + kBeyondNoise * std::sqrt((noise.first + noise.second) / kNoiseLeft) / step;
    std::vector<double> tones(cells.width);
    double known = 0;
    double differing = 0;
    for (std::size_t y = 0; y < cells.height; ++y)
        for (std::size_t c = 0; c < cells.channels; ++c) {
            tone.at_row(y, c, tones);
            for (std::size_t x = 0, i = y * cells.width; x < cells.width; ++x, ++i) {
                known += others.known[i];
                differing += others.known[i] != 0 && std::fabs(cells.difference(i, c) - tones[x]) > limit ? 1 : 0;
            }
        }
    return 2 * known > static_cast<double>(cells.cells() * cells.channels) && differing < kHardlyAny * known;
}

bool is_blank(const EmptySides& sides)
{
    return sides.first == Emptiness::Certain || sides.second == Emptiness::Certain;
}

void look_for_ghosts(const PictureSource& source, const OverlapCells& cells, const ToneModel& tone,
                     const std::vector<std::uint8_t>& owners, Facts& facts)
{
    constexpr double kFar = 8; // pixels; may be how far a thing moved
    const KnownNoise noise = noise_of_blocks(facts.blocks);
    const ShiftVote found = vote(facts.blocks, noise, facts.empty_sides, facts.unevenness);
    std::vector<Ghost>& ghosts = facts.verdict.ghosts;
    if (is_blank(facts.empty_sides)) // and no thing stands before it
        return;
    const bool is_mismatch = found.empty || (found.mismatch > 0.5 && found.weight > 0.5);
    if (is_mismatch || found.displaced_by > kFar) {
        ghosts = find_ghosts(cells, tone, owners, {}, source.layout);
        facts.differs_at_ghosts_only = are_all_that_differs(ghosts, cells, tone, noise);
        if (facts.differs_at_ghosts_only)
            return;
        ghosts.clear();
    }
    if (!is_mismatch) // otherwise everything differs
        ghosts = find_ghosts(cells, tone, owners, found.displacement.value_or(Displacement{}), source.layout);
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

// All that does not depend on seams.
Facts look_at_overlap(const PictureSource& source, const Overlap& overlap, std::size_t threads)
{
    Facts facts;
    OverlapVerdict& verdict = facts.verdict;
    verdict.first = overlap.first;
    verdict.second = overlap.second;
    verdict.region = overlap.region;
    facts.cells = std::make_unique<OverlapCells>(read_cells(source, overlap));
    const OverlapCells& cells = *facts.cells;
    verdict.shared_pixels = cells.shared_pixels;
    if (cells.shared_pixels == 0)
        return facts;
    verdict.before = cells.before;
    verdict.after = cells.after;
    facts.rough_tone = std::make_unique<ToneModel>(cells);
    facts.blocks = measure_blocks(source, cells, *facts.rough_tone, threads);
    facts.empty_sides = find_empty(cells);
    facts.level = mean_level(cells);
    facts.unevenness = facts.rough_tone->unevenness();
    return facts;
}

// The rest.
void compare_along_seams(const PictureSource& source, const SeamMap& seams, Facts& facts)
{
    const std::unique_ptr<OverlapCells> cells = std::move(facts.cells);
    const std::unique_ptr<ToneModel> rough_tone = std::move(facts.rough_tone);
    OverlapVerdict& verdict = facts.verdict;
    if (verdict.shared_pixels == 0)
        return;
    const std::vector<std::uint8_t> owners = owners_of_cells(*cells, source.layout, seams);
    look_for_ghosts(source, *cells, *rough_tone, owners, facts);
    if (verdict.ghosts.empty()) {
        tell_tone(*cells, *rough_tone, owners, verdict);
    } else {
        leave_out(verdict.ghosts, *cells); // what moved is no matter of brightness
        tell_tone(*cells, ToneModel(*cells), owners, verdict);
    }
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
std::vector<double> noise_of_pictures(std::size_t pictures, const std::vector<std::optional<Facts>>& facts)
{
    std::vector<std::vector<double>> of_picture(pictures);
    std::vector<double> of_all;
    for (const std::optional<Facts>& fact : facts)
        for (const BlockShift& block : fact->blocks) {
            if (!block.fit.is_valid || block.step > 1)
                continue;
            of_picture[fact->verdict.first].push_back(most_noise(block, false));
            of_picture[fact->verdict.second].push_back(most_noise(block, true));
            if (is_matched(block)) {
                of_all.push_back(of_picture[fact->verdict.first].back());
                of_all.push_back(of_picture[fact->verdict.second].back());
            }
        }
    const double usual = of_all.empty() ? 1e9 : median_of(std::span(of_all));
    std::vector<double> noise(pictures, of_all.empty() ? 0.0 : usual);
    for (std::size_t i = 0; i < pictures; ++i)
        if (!of_picture[i].empty())
            noise[i] = std::min(median_of(std::span(of_picture[i])), 4 * usual);
    return noise;
}

// Variances of fine detail, summed over blocks.
struct Detail {
    double of_picture = 0;
    double own_noise = 0;     // in it, as the picture shows
    double assumed_noise = 0; // likewise, with what the other picture's tells
};

struct SharedDetail {
    Detail first;
    Detail second;
    double shared = 0;
};

// own       noise of each picture as it shows
// assumed   with what the other one's tells of it
// rounding  what that of samples leaves in prepared patches; calm places show none of it
SharedDetail add_up_detail(const std::vector<BlockShift>& blocks, const KnownNoise& own, const KnownNoise& assumed,
                           double rounding)
{
    constexpr double kNoiseInDetail = 0.143; // of the variance of noise in prepared patches
    SharedDetail sum;
    for (const BlockShift& block : blocks) {
        if (!is_matched(block) || block.step > 1 || is_coding_alone(block))
            continue;
        const double of_first = most_noise(block, false);
        const double of_second = most_noise(block, true);
        sum.first.of_picture += block.detail_first;
        sum.second.of_picture += block.detail_second;
        sum.shared += block.detail_shared;
        sum.first.own_noise += kNoiseInDetail * std::max(own.first, of_first);
        sum.second.own_noise += kNoiseInDetail * std::max(own.second, of_second);
        sum.first.assumed_noise += kNoiseInDetail * std::max({assumed.first, of_first, rounding});
        sum.second.assumed_noise += kNoiseInDetail * std::max({assumed.second, of_second, rounding});
    }
    return sum;
}

// Detail that both blocks share tells which of them is softer; noise is in neither of the products.
void measure_sharpness(const SharedDetail& sum, OverlapVerdict& verdict)
{
    constexpr double kClearly = 0.5; // of the noise
    constexpr double kShared = 0.85;
    constexpr double kMuchNoisier = 4; // in variance
    constexpr double kLeast = 0.001;   // level squared
    constexpr double kSoftShares = 0.025;
    constexpr double kBeyondNoise = 30;
    constexpr double kUnseen = 0.25; // level squared
    const auto excess = [&](const Detail& detail) {
        return (detail.of_picture - sum.shared) / std::max(detail.assumed_noise, kLeast);
    };
    // Noise may be more than the calm places say, as where it grows with the light: what both have beyond what they
    // share is noise, in proportion. One that is not sharp has next to nothing beyond.
    const double grown = std::max(1.0, std::min(excess(sum.first), excess(sum.second)));
    const auto clean = [&](const Detail& detail) { return detail.of_picture - grown * detail.assumed_noise; };
    const bool is_second = clean(sum.second) < clean(sum.first);
    const Detail& soft = is_second ? sum.second : sum.first;
    const Detail& other = is_second ? sum.first : sum.second;
    const double sharper = clean(other);
    const double most_assumed = std::max(soft.assumed_noise, other.assumed_noise);
    // Noise that calm places do not show, as JPEG leaves it out there, is in one picture alone; what is soft still
    // shares something.
    const bool may_be_noise = sum.shared < kSoftShares * sharper && sharper < kBeyondNoise * most_assumed;
    // Pictures that are equal to the level differ in nothing that shows.
    const bool is_unseen = verdict.after.mean == 0 && sharper < kUnseen;
    verdict.is_sharpness_known = sharper >= kClearly * grown * most_assumed + kLeast && !may_be_noise && !is_unseen;
    // What is not sharp shares less with the other picture, too; a wrong idea of its noise would not change that.
    if (!verdict.is_sharpness_known || sum.shared > kShared * sharper)
        return;
    // And it shows less than both share, however much noisier the other one is, and whatever moved in that one.
    if ((!verdict.ghosts.empty() && clean(soft) > kShared * sum.shared) ||
        (other.own_noise > kMuchNoisier * soft.own_noise &&
         soft.of_picture - grown * soft.own_noise > kShared * sum.shared))
        return;
    const double ratio = std::sqrt(std::max(0.0, clean(soft)) / sharper);
    verdict.sharpness = is_second ? ratio : 1 / std::max(ratio, 0.01);
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
    const ShiftVote found = vote(facts.blocks, noise, facts.empty_sides, facts.unevenness);
    verdict.noise = std::sqrt(0.5 * (noise.first + noise.second) / kNoiseLeft);
    verdict.displacement = found.displacement;
    verdict.displaced_by = found.displaced_by;
    verdict.uncertainty = found.uncertainty;
    verdict.evidence = found.weight;
    // Coding may leave nothing in common of what is as fine and as faint as its errors.
    constexpr double kFaint = 0.02; // of the brightness
    verdict.is_mismatch = found.mismatch > 0.5 && found.weight > 0.5 && verdict.after.mean > kFaint * facts.level;
    if (facts.differs_at_ghosts_only) {
        verdict.is_mismatch = false;
        verdict.displaced_by = 0; // but for things
    }
    if (verdict.is_mismatch || found.empty || facts.differs_at_ghosts_only)
        verdict.displacement.reset();
    if (found.empty && !facts.differs_at_ghosts_only)
        verdict.empty = *found.empty ? verdict.second : verdict.first;
    verdict.is_blank = verdict.empty && is_blank(facts.empty_sides);
    const double unit = 255.0 / static_cast<double>(layout.largest_sample());
    const KnownNoise assumed = with_gains(noise, layout, corrections, verdict);
    measure_sharpness(add_up_detail(facts.blocks, noise, assumed, kNoiseLeft * unit * unit / 12), verdict);
}

} // namespace

struct OverlapLooks::Work {
    PictureSource source;
    const std::vector<Overlap>& overlaps;
    std::size_t threads;
    std::vector<std::optional<Facts>> facts; // of overlaps that have been looked at
};

OverlapLooks::OverlapLooks(const Layout& layout, const std::vector<Overlap>& overlaps, const Corrections& corrections,
                           PictureReader& reader, const VerdictOptions& options)
    : work_(std::make_unique<Work>(Work{{layout, corrections, reader}, overlaps, options.threads, {}}))
{
    work_->facts.resize(overlaps.size());
}

OverlapLooks::~OverlapLooks() = default;

void OverlapLooks::look_at(std::size_t overlap)
{
    const std::size_t each = work_->threads / work_->overlaps.size(); // threads for one of few
    work_->facts[overlap] = look_at_overlap(work_->source, work_->overlaps[overlap], std::max<std::size_t>(each, 1));
}

Verdict judge(OverlapLooks& looks, const SeamMap& seams, Progress& progress)
{
    OverlapLooks::Work& work = *looks.work_;
    const PictureSource& source = work.source;
    const std::vector<Overlap>& overlaps = work.overlaps;
    std::atomic<std::size_t> done{0};
    progress.report(Phase::Verdict, 0);
    run_backwards(overlaps.size(), work.threads, [&](std::size_t i) {
        if (!work.facts[i])
            looks.look_at(i);
        compare_along_seams(source, seams, *work.facts[i]);
        progress.report(Phase::Verdict, static_cast<double>(++done) / static_cast<double>(overlaps.size()));
    });
    std::erase_if(work.facts, [](const auto& fact) { return fact->verdict.shared_pixels == 0; });
    const Layout& layout = source.layout;
    const std::vector<double> noise = noise_of_pictures(layout.pictures.size(), work.facts);
    Verdict verdict;
    for (std::optional<Facts>& fact : work.facts) {
        settle_overlap(*fact, layout, source.corrections, noise);
        verdict.overlaps.push_back(std::move(fact->verdict));
    }
    verdict.swapped = find_swaps(source, overlaps, verdict);
    const std::vector<bool> covers = pictures_that_cover(layout, source.reader, seams, verdict.overlaps);
    verdict.groups = connected_groups(covers, verdict.overlaps);
    Uncovered uncovered = find_uncovered(seams, layout.wraps);
    verdict.uncovered_pixels = uncovered.pixels;
    verdict.holes = std::move(uncovered.holes);
    put_into_words(layout, verdict);
    progress.report(Phase::Verdict, 1);
    return verdict;
}

} // namespace panoval::mosaic
