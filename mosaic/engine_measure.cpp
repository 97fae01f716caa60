// SPDX-License-Identifier: MIT
// What the engine measures, or takes from the host in place of measuring.
#include "mosaic/base/errors.h"
#include "mosaic/base/parallel.h"
#include "mosaic/engine.h"
#include "mosaic/gains/gain_measure.h"
#include "mosaic/pictures/store_blocks.h"
#include "mosaic/seams/seam_find.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>

namespace panoval::mosaic
{

namespace
{

// How the seams are found; nothing of it but the threads depends on the budget.
SeamOptions seam_options(const Settings& settings, std::size_t threads)
{
    SeamOptions options;
    options.mode = settings.seams == SeamChoice::Nearest ? SeamMode::Nearest : SeamMode::Optimal;
    options.threads = threads;
    return options;
}

GainOptions::Per per_of(GainChoice choice)
{
    switch (choice) {
    case GainChoice::PerPicture:
        return GainOptions::Per::Picture;
    case GainChoice::PerChannel:
        return GainOptions::Per::Channel;
    default:
        return GainOptions::Per::Automatic;
    }
}

} // namespace

struct Engine::SeamWork {
    SeamWork(MemoryMeter& meter, const SeamOptions& how) : options(how), memory(meter, how.memory) {}

    SeamOptions options;
    MeteredMemory memory;
    std::optional<EarlyReduction> early; // that goes along with the gains
};

std::uint64_t Engine::seam_memory() const
{
    return seam_search_bytes(plan_->layout, overlaps_, seam_options(plan_->settings, 1));
}

std::uint64_t Engine::least_seam_budget() const
{
    if (!plan_->settings.has_seams() || plan_->seams)
        return 0;
    return seam_memory() + needs().seam_bytes + least_store_bytes(plan_->layout, plan_->traits, 1);
}

void Engine::measure(int parts)
{
    if (parts < 1 || parts > PANOVAL_MOSAIC_MEASURE_ALL)
        fail(Failure::Argument, "found parts ", parts, " to measure; expected 1 to ", PANOVAL_MOSAIC_MEASURE_ALL);
    fix();
    work(); // tells if there is no host
    std::optional<OverlapLooks> looks;
    Crew crew(threads());
    const bool wants_verdict = (parts & PANOVAL_MOSAIC_MEASURE_VERDICT) != 0 && !verdict_;
    const bool wants_seams =
        (wants_verdict || (parts & PANOVAL_MOSAIC_MEASURE_SEAMS) != 0) && plan_->settings.has_seams() && !plan_->seams;
    std::unique_ptr<SeamWork> seams;
    if (wants_seams && !plan_->gains)
        seams = begin_seams();
    if (!plan_->gains)
        measure_gains_now(seams.get());
    if (wants_verdict)
        looks.emplace(plan_->layout, overlaps_, plan_->gains->corrections, work().store, VerdictOptions{threads()});
    // Of few overlaps the search for seams leaves threads idle; what is kept of many takes memory.
    const bool looks_beside = wants_verdict && overlaps_.size() <= threads();
    if (looks_beside)
        crew.begin_beside(overlaps_.size(), [&looks](std::size_t i) { looks->look_at(i); });
    if (wants_seams)
        find_seams_now(std::move(seams));
    if (looks_beside)
        crew.finish_beside();
    if (wants_verdict)
        judge_now(*looks);
}

GainOptions Engine::gain_options() const
{
    GainOptions options;
    options.per = per_of(plan_->settings.gains);
    options.vignetting = plan_->settings.vignetting;
    options.anchor = plan_->settings.anchor;
    options.threads = threads();
    return options;
}

// What the overlaps see of the pictures.
std::vector<RowRange> Engine::shared_rows() const
{
    const Layout& layout = plan_->layout;
    std::map<std::size_t, RowRange> rows;
    const auto add = [&rows](std::size_t picture, const Rect& part) {
        const auto [at, is_new] = rows.try_emplace(picture, RowRange{picture, part.y, part.bottom()});
        if (!is_new)
            at->second = {picture, std::min(at->second.first, part.y), std::max(at->second.end, part.bottom())};
    };
    for (const Overlap& overlap : overlaps_) {
        add(overlap.first, overlap.in_first(layout));
        add(overlap.second, overlap.in_second(layout));
    }
    std::vector<RowRange> ranges;
    ranges.reserve(rows.size());
    for (const auto& [picture, range] : rows)
        ranges.push_back(range);
    return ranges;
}

void Engine::measure_gains_now(SeamWork* seams)
{
    work().store.load(shared_rows(), threads());
    VisitPicture visit;
    if (seams != nullptr)
        visit = [seams](std::size_t picture) { seams->early->reduce(picture); };
    take_statistics(measure_overlaps(plan_->layout, overlaps_, work().store, gain_options(), *progress_, visit));
}

void Engine::take_statistics(GainStatistics statistics)
{
    GainResult result = solve_gains(plan_->layout, overlaps_, std::move(statistics), gain_options());
    plan_->gains = Gains{std::move(result.corrections), result.per_channel, std::move(result.outliers)};
    plan_->statistics = std::move(result.statistics);
}

// On as many threads as leave the pictures the least that they need.
SeamOptions Engine::search_options() const
{
    const std::uint64_t others = least_seam_budget() - seam_memory();
    SeamOptions options = seam_options(plan_->settings, threads());
    const auto needed = [&] { return seam_search_bytes(plan_->layout, overlaps_, options); };
    while (options.threads > 1 && needed() + others > memory())
        --options.threads;
    options.memory = needed();
    return options;
}

// What is left for pictures during the search; nothing where there is none to come, or the memory does not hold it.
std::optional<std::uint64_t> Engine::searching_store() const
{
    if (least_seam_budget() == 0 || memory() < least_seam_budget())
        return std::nullopt;
    return memory() - search_options().memory - needs().seam_bytes;
}

// Sets memory aside for the search.
std::unique_ptr<Engine::SeamWork> Engine::prepare_seams()
{
    const std::optional<std::uint64_t> left = searching_store();
    if (!left)
        fail(Failure::Memory, "the budget of ", memory(), " bytes does not hold the search for seams; expected ",
             least_seam_budget(), " or more");
    work().store.set_budget(static_cast<std::size_t>(*left));
    return std::make_unique<SeamWork>(meter_, search_options());
}

// Where pictures do not stay in memory, but some of them do while their overlaps are read for the gains, has them
// reduced then. Null otherwise.
std::unique_ptr<Engine::SeamWork> Engine::begin_seams()
{
    constexpr std::uint64_t kPicturesKept = 4; // two that overlap, and what is left of others
    const std::optional<std::uint64_t> left = searching_store();
    if (work().store.keeps_all() || !left || !may_reduce_early(overlaps_, search_options()))
        return nullptr;
    const std::uint64_t all = bytes_of_all_pictures(plan_->layout, plan_->traits);
    if (*left < all / plan_->layout.pictures.size() * kPicturesKept)
        return nullptr;
    std::unique_ptr<SeamWork> seams = prepare_seams();
    seams->early.emplace(plan_->layout, overlaps_, seam_grid(plan_->layout, overlaps_, seams->options), work().store);
    return seams;
}

// seams: where the search has begun already
void Engine::find_seams_now(std::unique_ptr<SeamWork> seams)
{
    if (seams == nullptr)
        seams = prepare_seams();
    EarlyReduction* const early = seams->early ? &*seams->early : nullptr;
    SeamMap found = find_seams(plan_->layout, overlaps_, plan_->gains->corrections, work().store, seams->options,
                               *progress_, early);
    seams.reset();
    take_seams(std::move(found));
}

void Engine::judge_now(OverlapLooks& looks)
{
    const SeamMap no_seams;
    verdict_ = judge(looks, plan_->seams ? *plan_->seams : no_seams, *progress_);
}

const Gains& Engine::gains()
{
    fix();
    if (!plan_->gains)
        fail(Failure::Argument, "gains are not known; expected panoval_mosaic_measure or _set_gains before");
    return *plan_->gains;
}

const GainStatistics& Engine::statistics()
{
    fix();
    if (!plan_->statistics)
        fail(Failure::Argument, "statistics of the overlaps are not known; expected gains that were measured, or "
                                "panoval_mosaic_set_statistics, before");
    return *plan_->statistics;
}

void Engine::set_statistics(GainStatistics statistics)
{
    fix();
    if (plan_->settings.gains == GainChoice::Off)
        fail(Failure::Argument,
             "the options say that there are no gains; expected statistics with other options alone");
    check_statistics(statistics, overlaps_.size());
    forget_seams();
    take_statistics(std::move(statistics));
}

void Engine::set_gains(const double* gains, std::int64_t pictures, const double* falloff)
{
    fix();
    const std::size_t count = plan_->layout.pictures.size();
    if (pictures != static_cast<std::int64_t>(count))
        fail(Failure::Argument, "found gains of ", pictures, " pictures; expected ", count);
    Gains taken{Corrections::none(plan_->layout), false, {}};
    for (std::size_t i = 0; i < count; ++i)
        for (std::size_t c = 0; c < 4; ++c) {
            const double gain = gains[4 * i + c];
            if (!(gain >= 1 / kLargestGain && gain <= kLargestGain))
                fail(Failure::Argument, plan_->layout.pictures[i].name, ": found a gain of ", gain, "; expected ",
                     plain(1 / kLargestGain), " to ", plain(kLargestGain));
            taken.corrections.gains[i][c] = gain;
            if (c < static_cast<std::size_t>(plan_->layout.channels) && gain != gains[4 * i])
                taken.per_channel = true;
        }
    if (falloff != nullptr)
        taken.corrections.falloff = {{falloff[0], falloff[1], falloff[2]}};
    check_falloff(taken.corrections.falloff);
    forget_seams();
    plan_->statistics.reset();
    plan_->gains = std::move(taken);
}

// The blender goes as well: it refers to what changes.
void Engine::forget_seams()
{
    plan_->seams.reset();
    verdict_.reset();
    if (work_ != nullptr)
        work_->blender.reset();
}

void Engine::take_seams(SeamMap seams)
{
    forget_seams();
    plan_->seams = std::move(seams);
}

const SeamMap& Engine::seams()
{
    fix();
    if (!plan_->settings.has_seams())
        fail(Failure::Argument, "the options say that there are no seams; expected optimal or nearest ones");
    if (!plan_->seams)
        fail(Failure::Argument, "seams are not known; expected panoval_mosaic_measure or _set_seam_rows before");
    return *plan_->seams;
}

namespace
{

bool covers_column(const Layout& layout, const Rect& rect, std::int64_t x)
{
    return (x >= rect.x && x < rect.right()) || (layout.wraps && x + layout.width < rect.right());
}

void check_labels(const Layout& layout, std::int64_t y, const std::vector<std::int32_t>& labels)
{
    for (std::size_t x = 0; x < labels.size(); ++x) {
        const std::int32_t label = labels[x];
        if (label == kNobody)
            continue;
        const bool is_known = label >= 0 && static_cast<std::size_t>(label) < layout.pictures.size();
        if (is_known) {
            const Rect& rect = layout.pictures[static_cast<std::size_t>(label)].rect;
            if (y >= rect.y && y < rect.bottom() && covers_column(layout, rect, static_cast<std::int64_t>(x)))
                continue;
        }
        fail(Failure::Argument, "found label ", label, " at ", x, ",", y,
             "; expected -1 or the number of a picture that lies there");
    }
}

} // namespace

void Engine::set_seam_rows(std::int64_t first_row, std::int64_t rows, const std::int32_t* labels, std::size_t stride)
{
    fix();
    const Layout& layout = plan_->layout;
    if (!plan_->settings.has_seams())
        fail(Failure::Argument, "the options say that there are no seams; expected optimal or nearest ones");
    const std::int64_t next = coming_seams_ && first_row != 0 ? coming_seams_->height() : 0;
    if (first_row != next)
        fail(Failure::Argument, "found row ", first_row, " of seams; expected 0 or ", next);
    if (rows < 1 || rows > layout.height - first_row)
        fail(Failure::Argument, "found ", rows, " rows of seams; expected 1 to ", layout.height - first_row);
    const auto width = static_cast<std::size_t>(layout.width);
    if (rows > 1 && stride < width * sizeof *labels)
        fail(Failure::Argument, "found ", stride, " bytes from row to row of labels; expected ", width * sizeof *labels,
             " or more");
    std::vector<std::int32_t> row(width);
    const auto read_row = [&](std::int64_t y) {
        std::memcpy(row.data(), reinterpret_cast<const unsigned char*>(labels) + static_cast<std::size_t>(y) * stride,
                    width * sizeof *labels);
    };
    for (std::int64_t y = 0; y < rows; ++y) {
        read_row(y);
        check_labels(layout, first_row + y, row);
    }
    if (first_row == 0)
        coming_seams_ = SeamMap(layout.width);
    for (std::int64_t y = 0; y < rows; ++y) {
        read_row(y);
        coming_seams_->add_row(std::span<const std::int32_t>(row));
    }
    if (coming_seams_->height() < layout.height)
        return;
    take_seams(std::move(*coming_seams_));
    coming_seams_.reset();
}

std::string Engine::verdict(std::int32_t with_distributions) const
{
    if (with_distributions != 0 && with_distributions != 1)
        fail(Failure::Argument, "found with_distributions ", with_distributions, "; expected 0 or 1");
    if (!verdict_)
        fail(Failure::Argument, "the verdict is not known; expected panoval_mosaic_measure before");
    return verdict_json(*verdict_, plan_->layout, with_distributions != 0);
}

} // namespace panoval::mosaic
