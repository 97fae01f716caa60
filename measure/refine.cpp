// SPDX-License-Identifier: MIT
// A target from its start to its record: rays find the outline roughly, flat parts give levels, slopes and noise, the
// adjustment gives the rest; what does not fit is left out, and the adjustment is repeated without it.
#include "measure/refinement.h"

#include "core/elementary.h"
#include "core/numbers.h"
#include "measure/picture.h"
#include "measure/target_record.h"
#include "panoval_measure.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

namespace panoval::measure
{

namespace
{

constexpr int kMostRounds = 5;
constexpr int kPatience = 20; // of 4,200 rendered targets none took more than 6 steps; grains of textures do
constexpr double kBoxVariance = 1.0 / 12;
constexpr double kBlurRange = 1.8;       // factor by which a round may change the blur
constexpr double kLeastSemiMinor = 0.75; // of a start, pixels
constexpr double kLeastMeasured = 0.3;   // of a result: noise makes small targets smaller

// An edge sample further from the model than so many deviations is of something else.
constexpr double kAlienDeviations = 5;
// And before the adjustment, with the outline known to a fraction of a pixel only: so much of the contrast.
constexpr double kAlienShare = 0.4;

// Another edge is felt so many deviations before a ray notices it.
constexpr double kOtherEdge = 3;

// With so many of the rays agreeing, and nothing else in sight, there is nothing to leave out before the adjustment.
constexpr double kClearShare = 0.95;

// Of the slope's variance where the outside shows none: what the inside may have of it.
constexpr double kUnseenShare = 0.15;

// The squared deviations, of two slopes, that make the tie of the slopes an error: by chance once in 8,000 targets.
constexpr double kContradiction = 18;

// How often haze, or a camera's offset, is what changes across a target, rather than light.
constexpr double kHaze = 0.3;

// A change of the tie by less than the root of so many squared deviations of the slopes does not pay an adjustment.
constexpr double kDoubt = 0.02;

// A blur or a contrast that has grown by so much since the surroundings were looked at wants another look.
constexpr double kOutgrown = 1.3;

// Of the contrast: noise where no flat sample tells it.
constexpr double kUnknownNoise = 0.02;

double edge_spread(double blur) noexcept
{
    return std::sqrt(blur * blur + kBoxVariance);
}

double edge_reach_of(double blur) noexcept
{
    return 3.6 * edge_spread(blur) + 0.7;
}

// Edges end where the next thing may begin to show.
Reach reach_of(const EdgeGuess& guess, const Outline& outline, double blur) noexcept
{
    const double own = edge_reach_of(blur) / least_widening(outline);
    const double flat = own + flat_reach(outline);
    const double other = kOtherEdge * edge_spread(blur);
    Reach reach;
    reach.flat_inside = std::min(flat, guess.free_inside - other);
    reach.flat_outside = std::min(flat, guess.free_outside - other);
    const double least = 1.5 * edge_spread(blur) + 0.5;
    reach.edge_inside = std::min(own, std::max(least, reach.flat_inside));
    reach.edge_outside = std::min(own, std::max(least, reach.flat_outside));
    return reach;
}

// The inside's level by the outside's: the ratio of the slopes when light falls off.
double level_share(const TargetModel& model) noexcept
{
    return model.outside.level > 0 ? std::clamp(model.inside.level / model.outside.level, 0.0, 20.0) : 0;
}

// Noise may flatten a small outline to a line, whose surroundings have no bounds: the next round begins with a wider
// one.
Outline widened_to_measure(Outline outline) noexcept
{
    if (outline.semi_minor() >= kLeastMeasured)
        return outline;
    outline.mean = std::max(outline.mean, kLeastMeasured);
    const double share = (outline.mean - kLeastMeasured) / std::max(outline.skew(), std::numeric_limits<double>::min());
    outline.skew_x *= share;
    outline.skew_y *= share;
    return outline;
}

std::int32_t check_start(const PanovalMeasureImage& image, const PanovalMeasureEllipse& start) noexcept
{
    for (const double value : {start.x, start.y, start.semi_major, start.semi_minor, start.angle})
        if (!std::isfinite(value))
            return PANOVAL_MEASURE_NOT_A_NUMBER;
    if (!(start.semi_major > 0) || !(start.semi_minor > 0))
        return PANOVAL_MEASURE_BAD_START;
    if (!(start.x >= -0.5) || !(start.y >= -0.5) || !(start.x <= image.width - 0.5) || !(start.y <= image.height - 0.5))
        return PANOVAL_MEASURE_OUTSIDE;
    if (std::min(start.semi_major, start.semi_minor) < kLeastSemiMinor)
        return PANOVAL_MEASURE_TOO_SMALL;
    const Outline outline = outline_of(start);
    if (2 * outline.half_width() > image.width || 2 * outline.half_height() > image.height)
        return PANOVAL_MEASURE_TOO_LARGE;
    return PANOVAL_MEASURE_OK;
}

} // namespace

double Refinement::least_variance() const noexcept
{
    return image_.sample_type == PANOVAL_MEASURE_F32 ? 0 : 1.0 / 12;
}

bool Refinement::copy_patch(const Box& box) noexcept
{
    if (!patch_.copy(image_, box))
        return false;
    return neighbours_ == nullptr || std::all_of(neighbours_->begin(), neighbours_->end(), [this](const Neighbour& n) {
               return take_away(n, neighbour_outlines_, patch_);
           });
}

std::int32_t Refinement::search(const Outline& start, double reach) noexcept
{
    if (!copy_patch(box_around(start, std::max(reach, 8.0 + flat_reach(start)) + reach + 3)))
        return PANOVAL_MEASURE_NO_MEMORY;
    if (!find_edge(patch_, start, reach, guess_))
        return PANOVAL_MEASURE_NO_EDGE;
    model_.outline = guess_.outline;
    model_.blur = std::clamp(guess_.blur, 0.3, std::max(0.5, 0.5 * guess_.outline.semi_minor()));
    model_.inside = {guess_.inside, 0, 0};
    model_.outside = {guess_.outside, 0, 0};
    return PANOVAL_MEASURE_OK;
}

// The search sees little of a soft edge: its end looks like the next thing.
bool Refinement::look_again() noexcept
{
    const double contrast = std::fabs(model_.inside.level - model_.outside.level);
    if (model_.blur < kOutgrown * guess_.blur && contrast < kOutgrown * std::fabs(guess_.inside - guess_.outside))
        return true;
    guess_.outline = model_.outline;
    guess_.blur = model_.blur;
    guess_.inside = model_.inside.level;
    guess_.outside = model_.outside.level;
    if (!copy_patch(box_around(model_.outline, flat_reach(model_.outline) + 2 * edge_reach_of(model_.blur))))
        return false;
    look_around(patch_, guess_);
    return true;
}

// Light that falls off across a target changes the inside and the outside level by the same share, and haze that lies
// over both by the same amount; the slopes' ratio is the levels' share, or 1. Where the outside shows no slope, the
// inside has none either.
void Refinement::tie_slopes() noexcept
{
    const PlaneSums& sums = input_.flat_outside;
    const double contrast = model_.inside.level - model_.outside.level;
    const double spread = sums.count > 10 ? flat_spread_ : kUnknownNoise * contrast;
    const double noise = std::max(spread * spread, least_variance());
    double slope_square = 0;
    double certainty = 0; // of the slope that the outside shows
    double unseen = 0;    // what may be left of it, squared
    if (sums.count > 10) {
        const double cxx = sums.xx - sums.x * sums.x / sums.count;
        const double cyy = sums.yy - sums.y * sums.y / sums.count;
        const double gx = model_.outside.slope_x;
        const double gy = model_.outside.slope_y;
        const double chance = noise / std::max(cxx, 1e-9) + noise / std::max(cyy, 1e-9);
        const double square = gx * gx + gy * gy;
        slope_square = std::max(0.0, square - 2 * chance);
        certainty = square > chance ? 1 - chance / square : 0;
        unseen = kUnseenShare * (1 - certainty) * chance;
    }
    const double share = level_share(model_);
    const double radius = model_.outline.mean_radius();
    // Mean and variance of a ratio that is one of the two.
    const double middle = share + haze_ * (1 - share);
    const double variance = haze_ * (1 - haze_) * (1 - share) * (1 - share);
    const double floor = 1e-4 * contrast / radius;
    const double freedom = is_tied_ ? variance * slope_square + middle * middle * unseen + floor * floor
                                    : contrast * contrast / (radius * radius);
    input_.tie.ratio = is_tied_ ? certainty * middle : 0;
    input_.tie.weight = freedom > 0 ? noise / freedom : 0; // COUNT_EXCL_BRANCH: both levels have come to the same bits
}

// What the samples alone, without the tie, say about the inside's slopes: how far they are from those of fallen-off
// light and of haze, in squared deviations. What they know follows from what is known with the tie.
Refinement::SlopeEvidence Refinement::weigh_slopes() const noexcept
{
    const double noise =
        std::max(adjusted_.edge_cost / std::max(1.0, adjusted_.edge_count - kUnknowns), least_variance());
    const double weight = input_.tie.weight;
    const double ratio = input_.tie.ratio;
    SlopeEvidence evidence;
    // COUNT_EXCL_START: neither contrast nor noise, or floating samples that the model meets without any rounding
    if (!(weight * noise > 0))
        return evidence;
    // COUNT_EXCL_STOP
    const Matrix12& inverse = adjusted_.inverse;
    const double share = level_share(model_);
    for (int axis = 0; axis < 2; ++axis) {
        const int in = kInsideSlopeX + axis;
        const int out = kOutsideSlopeX + axis;
        const double outside = axis == 0 ? model_.outside.slope_x : model_.outside.slope_y;
        const double off = (axis == 0 ? model_.inside.slope_x : model_.inside.slope_y) - ratio * outside;
        const double left = inverse(in, in) - 2 * ratio * inverse(in, out) + ratio * ratio * inverse(out, out);
        const double information = 1 / left - weight;
        if (!(information > 1e-9 * weight))
            continue;
        const double alone = off / (left * information); // without the tie's pull
        const auto square = [&](double expected) {
            const double d = alone - (expected - ratio) * outside;
            return d * d * information / noise;
        };
        evidence.against_light += square(share);
        evidence.against_haze += square(1);
        evidence.against_tie += square(ratio);
        const double doubt = (1 - share) * outside;
        evidence.doubt += doubt * doubt / (left * noise);
    }
    return evidence;
}

// Ties the slopes to what the samples show: one of the two kinds, or both where they cannot tell, or neither. Returns
// whether the adjustment is to be repeated.
bool Refinement::judge_slopes() noexcept
{
    if (!is_tied_)
        return false;
    const SlopeEvidence evidence = weigh_slopes();
    if (std::min({evidence.against_light, evidence.against_haze, evidence.against_tie}) > kContradiction) {
        is_tied_ = false;
        return true;
    }
    const double odds = std::clamp((evidence.against_haze - evidence.against_light) / 2, -30.0, 30.0);
    const double before = haze_;
    haze_ = kHaze / (kHaze + (1 - kHaze) * exp(odds));
    return (haze_ - before) * (haze_ - before) * evidence.doubt > kDoubt;
}

// Adjusts without the tie, and takes it back when the samples do not fit so much better as their slopes promised: where
// blur and radius are alike, an inside slope does what a displacement does, and promises are far from the truth.
// Returns whether the slopes stay free.
bool Refinement::release_slopes() noexcept
{
    const TargetModel tied_model = model_;
    const AdjustmentResult tied = adjusted_;
    tie_slopes();
    adjusted_ = adjust(input_, outlines_, model_);
    const double noise = std::max(tied.edge_cost / std::max(1.0, tied.edge_count - kUnknowns), least_variance());
    const double gain = tied.edge_cost + tied.flat_cost - adjusted_.edge_cost - adjusted_.flat_cost;
    if (gain > kContradiction * noise)
        return true;
    is_tied_ = true;
    model_ = tied_model;
    adjusted_ = tied;
    return false;
}

std::size_t Refinement::exclude(double limit, double beyond) noexcept
{
    if (!outlines_.sample(model_.outline, model_.blur)) // COUNT_EXCL_BRANCH: as below
        return 0; // COUNT_EXCL: where a last step of some millionths of a pixel, taken without a look, left the box
    std::size_t excluded = 0;
    const DistanceTo distance(model_.outline);
    const Box& box = patch_.box();
    for (std::int32_t y = box.y; y < box.y + box.height; ++y) {
        const RowSpans& spans = patch_.spans(y);
        if (spans.edge >= spans.edge_end)
            continue;
        const float* const planes = outlines_.coverage_row(y, spans);
        for (std::int32_t x = spans.edge; x < spans.edge_end; ++x) {
            if (patch_.part(x, y) != Part::kEdge)
                continue;
            const double said = predict(model_, planes, outlines_.stride(), static_cast<std::size_t>(x - box.x),
                                        x - input_.reference_x, y - input_.reference_y);
            if (!(std::fabs(static_cast<double>(patch_.sample(x, y)) - said) > limit))
                continue;
            if (beyond > 0 && !(std::fabs(distance.distance(distance.place(x, y))) > beyond))
                continue;
            patch_.exclude(x, y);
            ++excluded;
        }
    }
    if (excluded > 0)
        patch_.grow_aliens(Part::kEdge);
    return excluded;
}

std::int32_t Refinement::adjust_once() noexcept
{
    model_.outline = widened_to_measure(model_.outline);
    edge_reach_ = edge_reach_of(model_.blur);
    input_.least_blur = std::max(kLeastBlur, model_.blur / kBlurRange);
    input_.largest_blur = std::max(model_.blur * kBlurRange, 0.3);
    const double semi_major = 1.15 * model_.outline.semi_major() + 1;
    reach_ = reach_of(guess_, model_.outline, model_.blur);
    const double margin =
        std::max(std::max(reach_.edge_outside, reach_.flat_outside), kReach * input_.largest_blur + 5);
    if (!copy_patch(box_around(model_.outline, margin)) ||
        !outlines_.reserve(patch_.box(), semi_major, input_.least_blur, input_.largest_blur))
        return PANOVAL_MEASURE_NO_MEMORY;
    patch_.classify(model_.outline, reach_);
    input_.patch = &patch_;
    input_.reference_x = model_.outline.x;
    input_.reference_y = model_.outline.y;

    const double contrast = std::fabs(model_.inside.level - model_.outside.level);
    if (contrast < least_contrast_)
        return PANOVAL_MEASURE_NO_EDGE;
    const double least_spread = std::max(0.3 * std::sqrt(12 * least_variance()), 0.002 * contrast);
    double inside_spread = 0;
    LevelPlane inside;
    LevelPlane outside;
    input_.flat_inside =
        patch_.fit_flat(Part::kInside, input_.reference_x, input_.reference_y, least_spread, inside, inside_spread);
    input_.flat_outside =
        patch_.fit_flat(Part::kOutside, input_.reference_x, input_.reference_y, least_spread, outside, flat_spread_);
    if (input_.flat_outside.count > 10)
        model_.outside = outside;
    if (input_.flat_inside.count > 10)
        model_.inside.level = inside.level;
    tie_slopes();
    model_.inside.slope_x = input_.tie.ratio * model_.outside.slope_x;
    model_.inside.slope_y = input_.tie.ratio * model_.outside.slope_y;
    if (guess_.share < kClearShare || patch_.shows_others())
        exclude(kAlienShare * contrast, 1.5 + edge_spread(model_.blur));
    adjusted_ = adjust(input_, outlines_, model_);
    return adjusted_.has_left || is_hopeless() ? PANOVAL_MEASURE_NO_EDGE : PANOVAL_MEASURE_OK;
}

bool Refinement::is_hopeless() const noexcept
{
    return adjusted_.iterations >= kPatience && residual_deviation() > bearable_;
}

std::int32_t Refinement::run(const PanovalMeasureEllipse& start, double reach, PanovalMeasureTarget& target) noexcept
{
    std::int32_t code = check_start(image_, start);
    if (code != PANOVAL_MEASURE_OK)
        return code;
    const Outline outline = outline_of(start);
    code = search(outline, std::min(reach, search_reach(outline)));
    is_tied_ = true;
    haze_ = kHaze;
    for (int round = 0; round < kMostRounds && code == PANOVAL_MEASURE_OK; ++round) {
        const TargetModel before = model_;
        code = round == 0 || look_again() ? adjust_once() : PANOVAL_MEASURE_NO_MEMORY;
        if (code != PANOVAL_MEASURE_OK)
            break;
        const double noise = residual_deviation();
        const double contrast = std::fabs(model_.inside.level - model_.outside.level);
        const double limit =
            kAlienDeviations * std::max({noise, flat_spread_, 0.004 * contrast, std::sqrt(least_variance())});
        if (adjusted_.largest_residual > limit && exclude(limit, 0) > 0) {
            adjusted_ = adjust(input_, outlines_, model_);
            exclude(limit, 0);
            adjusted_ = adjust(input_, outlines_, model_);
        }
        const double blur_change = model_.blur / before.blur;
        const double moved = std::fabs(model_.outline.x - before.outline.x) +
                             std::fabs(model_.outline.y - before.outline.y) +
                             std::fabs(model_.outline.mean - before.outline.mean) +
                             std::fabs(model_.outline.skew() - before.outline.skew());
        const bool repeats = judge_slopes();
        const bool releases = repeats && !is_tied_ && release_slopes();
        if (repeats && !releases) {
            tie_slopes();
            adjusted_ = adjust(input_, outlines_, model_);
        }
        const bool is_same_reach = std::fabs(edge_reach_of(model_.blur) - edge_reach_) < 0.5;
        if (!releases && is_same_reach && blur_change > 0.7 && blur_change < 1.4 && moved < 0.5)
            break;
    }
    if (code != PANOVAL_MEASURE_OK)
        return code;
    if (model_.outline.semi_minor() < kLeastMeasured)
        return PANOVAL_MEASURE_TOO_SMALL;
    const Measurement measurement = {
        model_, adjusted_, &input_, edge_reach_, reach_, highest_sample(image_.sample_type), least_variance()};
    return make_record(measurement, outlines_, target, bulges_) ? PANOVAL_MEASURE_OK : PANOVAL_MEASURE_NO_EDGE;
}

std::int32_t Refinement::run_without(const std::vector<Neighbour>& neighbours, const PanovalMeasureEllipse& start,
                                     double reach, PanovalMeasureTarget& target) noexcept
{
    neighbours_ = &neighbours;
    const std::int32_t code = run(start, reach, target);
    neighbours_ = nullptr;
    return code;
}

namespace
{

constexpr double kSoundQuality = 0.5;

// Each from its start, and those that are near to each other once more. False: no memory.
bool refine_all(const PanovalMeasureImage& image, const PanovalMeasureEllipse* starts, std::vector<MeasuredTarget>& all)
{
    Refinement refinement(image);
    for (std::size_t i = 0; i < all.size(); ++i) {
        const std::int32_t code = refinement.run(starts[i], HUGE_VAL, all[i].target);
        if (code != PANOVAL_MEASURE_OK)
            all[i].target = {};
        all[i].target.code = code;
        all[i].measured = refinement.measured();
        all[i].is_sound = all[i].target.quality >= kSoundQuality;
    }
    return measure_without_neighbours(refinement, 0, all);
}

std::int32_t refine(const PanovalMeasureImage& image, const PanovalMeasureEllipse* starts, std::size_t count,
                    PanovalMeasureTarget* targets) noexcept
{
    try {
        std::vector<MeasuredTarget> all(count);
        if (refine_all(image, starts, all)) {
            std::int32_t first_code = PANOVAL_MEASURE_OK;
            for (const MeasuredTarget& measured : all) {
                *targets++ = measured.target;
                first_code = first_code == PANOVAL_MEASURE_OK ? measured.target.code : first_code;
            }
            return first_code;
        }
    } catch (const std::bad_alloc&) { // as where it is told
    }
    PanovalMeasureTarget nothing = {};
    nothing.code = PANOVAL_MEASURE_NO_MEMORY;
    std::fill_n(targets, count, nothing);
    return PANOVAL_MEASURE_NO_MEMORY;
}

} // namespace

} // namespace panoval::measure

extern "C" PANOVAL_MEASURE_API int32_t panoval_measure_refine(const PanovalMeasureImage* image,
                                                              const PanovalMeasureEllipse* starts, int32_t count,
                                                              PanovalMeasureTarget* targets)
{
    const std::int32_t image_code = panoval::measure::check_image(image);
    if (image_code != PANOVAL_MEASURE_OK)
        return image_code;
    if (count < 0)
        return PANOVAL_MEASURE_BAD_COUNT;
    if (count > 0 && (starts == nullptr || targets == nullptr))
        return PANOVAL_MEASURE_NULL_ARGUMENT;
    return panoval::measure::refine(*image, starts, panoval::to_count(count), targets);
}
