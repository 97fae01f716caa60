// SPDX-License-Identifier: MIT
// From candidates to records: every candidate is measured, the best first, and a candidate for what has been measured
// already is passed over. What a record is worth follows from its measurement alone.
#include "core/elementary.h"
#include "core/heap.h"
#include "measure/counters.h"
#include "measure/detect_candidates.h"
#include "measure/grains.h"
#include "measure/meshes.h"
#include "measure/picture.h"
#include "measure/refinement.h"
#include "measure/ring_marks.h"
#include "measure/silhouette.h"
#include "measure/target_record.h"
#include "measure/text_lines.h"
#include "measure/vague.h"
#include "panoval_measure.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <tuple>
#include <utility>
#include <vector>

namespace panoval::measure
{

namespace
{

constexpr double kDefaultLeastAxis = PANOVAL_MEASURE_USUAL_RADIUS;
constexpr double kDefaultLeastAspect = PANOVAL_MEASURE_USUAL_ASPECT;
constexpr double kDefaultQuality = PANOVAL_MEASURE_USUAL_QUALITY;
constexpr double kChance = 2;        // deviations of the smaller axis: what noise may have made too small
constexpr double kLeastContrast = 4; // by noise, below which an outline may be one of noise

constexpr double kBearable = 1.2;    // of the picture's noise: what a small target's residuals may come to
constexpr double kGrain = 10;        // semi-minor axis below which a texture's grains are many, pixels
constexpr int kMostHiddenRounds = 4; // in which what is found lets others be found

struct Options {
    CandidateLimits limits;
    std::int32_t polarity = PANOVAL_MEASURE_BOTH;
    std::int32_t max_count = 0;
    double min_quality = kDefaultQuality;
};

bool is_within(double value, double low, double high) noexcept
{
    return value >= low && value <= high; // false for not-a-number
}

// 0 in a record stands for the default.
std::int32_t read_options(const PanovalMeasureImage& image, const PanovalMeasureDetectOptions* given, Options& options)
{
    const PanovalMeasureDetectOptions none = {};
    const PanovalMeasureDetectOptions& o = given != nullptr ? *given : none;
    constexpr double kMost = 1e9;
    if (o.polarity < PANOVAL_MEASURE_BOTH || o.polarity > PANOVAL_MEASURE_BRIGHT || o.max_count < 0 ||
        !is_within(o.min_radius, 0, kMost) || !is_within(o.max_radius, 0, kMost) || !is_within(o.min_aspect, 0, 1) ||
        !(o.min_quality <= 1))
        return PANOVAL_MEASURE_BAD_OPTION;
    options.polarity = o.polarity;
    options.max_count = o.max_count;
    options.limits.least_axis = o.min_radius > 0 ? o.min_radius : kDefaultLeastAxis;
    options.limits.most_axis = o.max_radius > 0 ? o.max_radius : std::max(image.width, image.height) / 3.0;
    options.limits.least_aspect = o.min_aspect > 0 ? o.min_aspect : kDefaultLeastAspect;
    options.min_quality = o.min_quality == 0 ? kDefaultQuality : o.min_quality;
    return PANOVAL_MEASURE_OK;
}

// Whole outlines before parts, fine scales before coarse ones, straight lines before shaky ones; then by rows.
bool comes_before(const Candidate& one, const Candidate& other) noexcept
{
    return std::tuple(rank_of(one), one.oval.y, one.oval.x) < std::tuple(rank_of(other), other.oval.y, other.oval.x);
}

bool is_near(double one, double other, double share, double least) noexcept
{
    return std::fabs(one - other) <= std::max(least, share * std::max(one, other));
}

bool is_same_outline(const PanovalMeasureEllipse& one, double x, double y, double a, double b, double share,
                     double least) noexcept
{
    const double dx = one.x - x;
    const double dy = one.y - y;
    const double near = std::max(least, share * std::min(one.semi_minor, b));
    return dx * dx + dy * dy <= near * near && is_near(one.semi_major, a, share, least) &&
           is_near(one.semi_minor, b, share, least);
}

// How far from a candidate its outline may lie: some pixels of the scale, and what an oval may differ from an ellipse.
double reach_of(const Candidate& candidate) noexcept
{
    const double pixel = static_cast<double>(std::int64_t{1} << candidate.scale);
    return std::max(2.5 * pixel, candidate.oval.b / 12 + 1);
}

PanovalMeasureEllipse start_of(const Oval& oval) noexcept
{
    return {oval.x, oval.y, oval.a, oval.b, atan2(oval.uy, oval.ux)};
}

// What the measurement of a candidate came to.
enum class Outcome {
    kSound,
    kDoubtful,  // of a quality too low to be sure
    kElsewhere, // another outline, or none that can be measured
    kNoEdge,
    kNoMemory
};

// A candidate whose outline was not found to be sound.
struct Hidden {
    Candidate candidate;
    Outcome outcome;
    std::size_t neighbours = 0; // without which it was measured
};

class Detection
{
public:
    Detection(const PanovalMeasureImage& image, const Options& options, PanovalMeasureDetection& result)
        : image_(image), options_(options), result_(result), refinement_(image)
    {
    }

    // False when the heap is exhausted.
    bool run()
    {
        CandidateList list = find_candidates(image_, options_.limits);
        if (list.is_out_of_memory)
            return false;
        noise_ = list.noise;
        refinement_.set_least_contrast(kLeastContrast / 2 * noise_); // half of it is only suspected yet
        result_.candidates = list.lines;
        result_.too_small = list.too_small;
        result_.too_large = list.too_large;
        result_.not_oval = list.not_oval;
        std::sort(list.candidates.begin(), list.candidates.end(), comes_before);
        for (const Candidate& candidate : list.candidates)
            if (!is_known(candidate.oval) && !measure(candidate))
                return false;
        if (!measure_the_hidden())
            return false;
        refinement_.limit_patience(HUGE_VAL);
        if (!measure_without_neighbours(refinement_, noise_, measured_))
            return false;
        doubt_meshes(noise_, measured_);
        doubt_vague(noise_, measured_);
        doubt_counters(image_, measured_);
        if (!doubt_grains(image_, measured_))
            return false;
        const SilhouetteMap silhouettes(std::move(list.closed));
        doubt_ring_marks(silhouettes, measured_);
        doubt_letters(silhouettes, measured_);
        judge();
        return copy_out();
    }

private:
    bool is_known(const Oval& oval) const
    {
        constexpr double kShare = 0.2;
        constexpr double kLeast = 1;
        const std::int32_t polarity = oval.is_dark ? PANOVAL_MEASURE_DARK : PANOVAL_MEASURE_BRIGHT;
        const auto near = vicinity_.near({oval.x, oval.y, std::max(kLeast, kShare * oval.b)});
        return std::any_of(near.begin(), near.end(), [&](std::size_t index) {
            const PanovalMeasureTarget& target = measured_[index].target;
            return target.polarity == polarity && target.quality >= kDefaultQuality &&
                   is_same_outline(target.ellipse, oval.x, oval.y, oval.a, oval.b, kShare, kLeast);
        });
    }

    // False: no memory.
    bool measure(const Candidate& candidate)
    {
        const Outcome outcome = measure_without({}, candidate);
        if (outcome != Outcome::kSound)
            hidden_.push_back({candidate, outcome});
        return outcome != Outcome::kNoMemory;
    }

    // What is near, the other outline of a narrow ring or the next dots of a dense board, may have hidden one; it is
    // known by now. What is found so lets others be found. False: no memory.
    bool measure_the_hidden()
    {
        bool has_found = true;
        for (int round = 0; round < kMostHiddenRounds && has_found; ++round) {
            has_found = false;
            for (Hidden& hidden : hidden_) {
                has_found = find_hidden(hidden) || has_found;
                if (hidden.outcome == Outcome::kNoMemory)
                    return false;
            }
        }
        for (const Hidden& hidden : hidden_)
            result_.too_faint += hidden.outcome == Outcome::kNoEdge;
        return true;
    }

    // Whether it is one now.
    bool find_hidden(Hidden& hidden)
    {
        if (hidden.outcome == Outcome::kSound || is_known(hidden.candidate.oval))
            return false;
        const std::vector<Neighbour> neighbours =
            neighbours_beside(outline_of(start_of(hidden.candidate.oval)), measured_, vicinity_);
        if (neighbours.size() <= hidden.neighbours)
            return false;
        hidden.neighbours = neighbours.size();
        hidden.outcome = measure_without(neighbours, hidden.candidate);
        return hidden.outcome == Outcome::kSound;
    }

    Outcome measure_without(const std::vector<Neighbour>& neighbours, const Candidate& candidate)
    {
        const Oval& oval = candidate.oval;
        PanovalMeasureTarget target = {};
        refinement_.limit_patience(oval.b < kGrain ? kBearable * noise_ : HUGE_VAL);
        const std::int32_t code = refinement_.run_without(neighbours, start_of(oval), reach_of(candidate), target);
        if (code == PANOVAL_MEASURE_NO_MEMORY)
            return Outcome::kNoMemory;
        if (code != PANOVAL_MEASURE_OK)
            return code == PANOVAL_MEASURE_NO_EDGE ? Outcome::kNoEdge : Outcome::kElsewhere;
        const std::int32_t polarity = oval.is_dark ? PANOVAL_MEASURE_DARK : PANOVAL_MEASURE_BRIGHT;
        // What has wandered off has its own candidate there.
        if (target.polarity != polarity || !is_same_outline(target.ellipse, oval.x, oval.y, oval.a, oval.b, 0.4, 2.0))
            return Outcome::kElsewhere;
        // The noise beside a target counts all that is not flat there, clutter, too; against the picture's noise an
        // outline in clutter shows what it is.
        target.quality = quality_of(target, refinement_.bulges(), noise_);
        const bool is_sound = target.quality >= kDefaultQuality;
        add({.target = target,
             .measured = refinement_.measured(),
             .bulges = refinement_.bulges(),
             .is_sound = is_sound});
        return is_sound ? Outcome::kSound : Outcome::kDoubtful;
    }

    void add(const MeasuredTarget& found)
    {
        constexpr double kShare = 0.08;
        constexpr double kLeast = 0.75;
        const PanovalMeasureTarget& target = found.target;
        const PanovalMeasureEllipse& e = target.ellipse;
        for (const std::size_t index : vicinity_.near({e.x, e.y, std::max(kLeast, kShare * e.semi_minor)})) {
            const PanovalMeasureTarget& other = measured_[index].target;
            if (other.polarity == target.polarity &&
                is_same_outline(other.ellipse, e.x, e.y, e.semi_major, e.semi_minor, kShare, kLeast)) {
                if (target.quality > other.quality)
                    put(index, found);
                return;
            }
        }
        measured_.emplace_back();
        put(measured_.size() - 1, found);
    }

    void put(std::size_t index, const MeasuredTarget& found)
    {
        measured_[index] = found;
        vicinity_.put(index, influence_of(found.measured));
    }

    // Leaves what was asked for in targets_, sorted by rows.
    void judge()
    {
        flag_rings();
        for (const MeasuredTarget& measured : measured_) {
            const PanovalMeasureTarget& target = measured.target;
            const double contrast = std::fabs(target.level_inside - target.level_outside);
            const PanovalMeasureEllipse& e = target.ellipse;
            if (contrast < kLeastContrast * std::max(target.noise, noise_))
                ++result_.too_faint;
            else if (e.semi_minor + chance_of(target) < options_.limits.least_axis)
                ++result_.too_small;
            else if (e.semi_major > options_.limits.most_axis)
                ++result_.too_large;
            else if (e.semi_minor < options_.limits.least_aspect * e.semi_major)
                ++result_.not_oval;
            else if (target.quality < options_.min_quality)
                ++result_.below_quality;
            else if (options_.polarity != PANOVAL_MEASURE_BOTH && target.polarity != options_.polarity)
                ++result_.other_polarity;
            else
                targets_.push_back(target);
        }
        keep_best();
        std::stable_sort(targets_.begin(), targets_.end(),
                         [](const PanovalMeasureTarget& one, const PanovalMeasureTarget& other) {
                             return std::tie(one.ellipse.y, one.ellipse.x) < std::tie(other.ellipse.y, other.ellipse.x);
                         });
    }

    // By how much noise may have made the smaller axis too small. Residuals beyond the picture's noise are no chance.
    double chance_of(const PanovalMeasureTarget& target) const noexcept
    {
        return kChance * target.sigma_minor * std::min(1.0, kBearable * noise_ / target.noise);
    }

    // Two outlines about the same centre, one inside the other.
    void flag_rings()
    {
        const Vicinity vicinity = vicinity_of(measured_);
        for (std::size_t i = 0; i < measured_.size(); ++i) {
            PanovalMeasureTarget& one = measured_[i].target;
            const Outline outline = outline_of(one.ellipse);
            for (const std::size_t k : vicinity.near(disk_of_centres(outline))) {
                const PanovalMeasureTarget& other = measured_[k].target;
                if (k != i && std::min(one.quality, other.quality) >= kDefaultQuality &&
                    is_concentric(outline, outline_of(other.ellipse)))
                    one.flags |= PANOVAL_MEASURE_RING;
            }
        }
    }

    void keep_best()
    {
        const auto most = static_cast<std::size_t>(options_.max_count);
        if (most == 0 || targets_.size() <= most)
            return;
        std::stable_sort(targets_.begin(), targets_.end(),
                         [](const PanovalMeasureTarget& one, const PanovalMeasureTarget& other) {
                             return one.quality > other.quality;
                         });
        targets_.resize(most);
    }

    bool copy_out()
    {
        if (targets_.empty())
            return true;
        HeapArray<PanovalMeasureTarget> records = allocate<PanovalMeasureTarget>(targets_.size());
        if (records == nullptr)
            return false;
        std::copy(targets_.begin(), targets_.end(), records.get());
        result_.count = static_cast<std::int32_t>(targets_.size());
        result_.targets = records.release(); // the caller gives it to panoval_measure_free
        return true;
    }

    const PanovalMeasureImage& image_;
    const Options& options_;
    PanovalMeasureDetection& result_;
    Refinement refinement_;
    double noise_ = 0; // of the picture, in its levels
    std::vector<MeasuredTarget> measured_;
    Vicinity vicinity_; // of these
    std::vector<Hidden> hidden_;
    std::vector<PanovalMeasureTarget> targets_; // that are asked for
};

std::int32_t detect(const PanovalMeasureImage& image, const Options& options, PanovalMeasureDetection& result) noexcept
{
    try {
        Detection detection(image, options, result);
        return detection.run() ? PANOVAL_MEASURE_OK : PANOVAL_MEASURE_NO_MEMORY;
    } catch (const std::bad_alloc&) {
        return PANOVAL_MEASURE_NO_MEMORY;
    }
}

} // namespace

} // namespace panoval::measure

extern "C" {

PANOVAL_MEASURE_API int32_t panoval_measure_detect(const PanovalMeasureImage* image,
                                                   const PanovalMeasureDetectOptions* options,
                                                   PanovalMeasureDetection* detection)
{
    if (detection == nullptr)
        return PANOVAL_MEASURE_NULL_ARGUMENT;
    *detection = {};
    std::int32_t code = panoval::measure::check_image(image);
    if (code != PANOVAL_MEASURE_OK)
        return code;
    panoval::measure::Options read;
    code = panoval::measure::read_options(*image, options, read);
    if (code != PANOVAL_MEASURE_OK)
        return code;
    code = panoval::measure::detect(*image, read, *detection);
    if (code != PANOVAL_MEASURE_OK)
        *detection = {};
    return code;
}

PANOVAL_MEASURE_API void panoval_measure_free(PanovalMeasureDetection* detection)
{
    if (detection == nullptr)
        return;
    std::free(detection->targets);
    *detection = {};
}
}
