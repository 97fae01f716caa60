// SPDX-License-Identifier: MIT
// Records of measured targets.
#include "measure/target_record.h"

#include "core/elementary.h"
#include "core/numbers.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace panoval::measure
{

namespace
{

constexpr std::size_t kMostSectors = 32;
constexpr double kSectorLength = 3;     // pixels of the outline, at least
constexpr double kLeastAmplitude = 0.5; // of a sector's edge against the whole outline's, to count as one
constexpr double kMostAmplitude = 1.6;
constexpr double kAlienShare = 0.02; // of the edge samples, before a neighbour is spoken of
constexpr double kSaturatedShare = 0.02;

constexpr double kNoiseSlack = 1.32; // by which the variance of a part of the picture may be above the whole's

// Of quality: three quarters of an outline are the rim of something that is hidden, a seventh may touch a neighbour.
constexpr double kLeastShare = 0.6;
constexpr double kFullShare = 0.95;
// Of the contrast: root mean square that noise does not explain in the edge. Shaded and textured things reach 0.2.
constexpr double kHalfMisfit = 0.35;
constexpr double kHalfClear = 2; // deviations of noise, beside the contrast
// Of integer samples: smooth shades that are rounded, or compressed, lie in terraces of a level or two.
constexpr double kTerrace = 1.25;
// Of the semi-minor axis: root mean square by which stretches of the outline lie off the ellipse. Rectangles and half
// discs reach 0.08 and more. A printed dot may be off by some hundredths of a pixel.
constexpr double kHalfBulge = 0.025;
constexpr double kHalfBulgePixels = 0.03;
constexpr double kHalfLobe = 0.8;        // of what makes half of a bulge: a print's irregularities are of many orders
constexpr double kLeastLobesLeft = 0.3;  // by the blur: of lobes of which less is left one outline tells nothing
constexpr double kFewestLobesLeft = 0.1; // and its look-alikes' outlines together
constexpr double kLobeChance = 18; // squared deviations of two numbers: one of six orders is above in 1300 outlines
// Edge spread by the semi-minor axis at which the blur has taken every shape's own form.
constexpr double kFormless = 0.6;
constexpr double kFormChance = 0.7; // deviations of either
// Point samples know an outline to half a pixel only. They show as an edge without blur, and are allowed more.
constexpr double kAliasedBlur = 0.3;
constexpr double kAliasedMisfit = 0.15;
constexpr double kAliasedPixels = 0.1;
constexpr double kBulgeChance = 2.5; // deviations that noise may make of it
constexpr double kFitElements = 5;   // of an outline: what noise makes of stretches the fit takes so many of away
// Noise makes the measured difference of the axes longer than it is, the more the rounder the outline. This many
// variances less than its square is right to a twentieth of a deviation, except for circles, whose axes differ by half
// of one instead of by one.
constexpr double kRoundness = 1.1;

// Sums of a sector: the model's edge against the samples' one, and where that lies.
struct Sector {
    double count = 0, t = 0, tt = 0, v = 0, vt = 0;
    double gg = 0, gr = 0; // slopes of the model across the outline, and residuals times slopes
};

constexpr std::size_t kFirstLobes = 3; // the fit takes those of lower orders away

// Residuals times the model's slopes across the outline, by cosine and sine of multiples of the place's turn.
struct Lobes {
    std::array<double, kLobeOrders> cosines{};
    std::array<double, kLobeOrders> sines{};
};

struct Survey {
    std::array<Sector, kMostSectors> sectors{};
    Lobes lobes;
    std::size_t sector_count = 8;
    double aliens = 0;
    double outside_picture = 0;
    double edge = 0;
    double saturated = 0;
};

// A number from 0 to 4 that grows with the angle of (u, v).
double turn_of(double u, double v) noexcept
{
    const double sum = std::fabs(u) + std::fabs(v);
    if (!(sum > 0))
        return 0;
    const double t = v / sum;
    if (u < 0)
        return 2 - t;
    return v < 0 ? 4 + t : t;
}

// Where the outline's unit circle has the place.
struct Direction {
    double u, v; // of any length
};

Direction direction_of(const Outline& outline, double x, double y) noexcept
{
    const double a = outline.mean + outline.skew_x;
    const double b = outline.skew_y;
    const double c = outline.mean - outline.skew_x;
    return {c * (x - outline.x) - b * (y - outline.y), a * (y - outline.y) - b * (x - outline.x)};
}

std::size_t sector_of(const Direction& direction, std::size_t sectors) noexcept
{
    const double turn = turn_of(direction.u, direction.v);
    return std::min(sectors - 1, to_count(truncate_to_int(turn / 4 * static_cast<double>(sectors))));
}

void add_to_lobes(const Direction& direction, double value, Lobes& lobes) noexcept
{
    const double length = std::sqrt(direction.u * direction.u + direction.v * direction.v);
    if (!(length > 0))
        return;
    const double cosine = direction.u / length;
    const double sine = direction.v / length;
    double u = value;
    double v = 0;
    for (std::size_t order = 1; order < kFirstLobes + kLobeOrders; ++order) {
        const double turned = u * cosine - v * sine;
        v = u * sine + v * cosine;
        u = turned;
        if (order < kFirstLobes)
            continue;
        lobes.cosines[order - kFirstLobes] += u;
        lobes.sines[order - kFirstLobes] += v;
    }
}

void survey_sample(const Measurement& m, const float* planes, std::size_t stride, std::size_t column, std::int32_t x,
                   std::int32_t y, Survey& survey) noexcept
{
    const Patch& patch = *m.input->patch;
    const double dx = x - m.input->reference_x;
    const double dy = y - m.input->reference_y;
    const double outside = m.model.outside.at(dx, dy);
    const double edge =
        (m.model.inside.at(dx, dy) - outside) * static_cast<double>(planes[kCoverage * stride + column]);
    const auto sample = static_cast<double>(patch.sample(x, y));
    survey.edge += 1;
    survey.aliens += patch.part(x, y) == Part::kAlien ? 1 : 0;
    if (m.highest_sample > 0 && (sample <= 0 || sample >= m.highest_sample))
        survey.saturated += 1;
    if (!std::isfinite(sample))
        return;
    const Direction direction = direction_of(m.model.outline, x, y);
    Sector& sector = survey.sectors[sector_of(direction, survey.sector_count)];
    sector.count += 1;
    sector.t += edge;
    sector.tt += edge * edge;
    sector.v += sample - outside;
    sector.vt += (sample - outside) * edge;
    if (patch.part(x, y) == Part::kAlien)
        return;
    const double slope = (m.model.inside.at(dx, dy) - outside) * static_cast<double>(planes[kByMean * stride + column]);
    sector.gg += slope * slope;
    const double pull = slope * (sample - predict(m.model, planes, stride, column, dx, dy));
    sector.gr += pull;
    add_to_lobes(direction, pull, survey.lobes);
}

// Every pixel near the outline, aliens and those outside the picture included.
Survey survey_outline(const Measurement& m, OutlineModel& outlines) noexcept
{
    Survey survey;
    const Outline& outline = m.model.outline;
    const double length = 2 * kPi * std::sqrt((outline.mean * outline.mean + outline.skew() * outline.skew()));
    survey.sector_count = std::clamp<std::size_t>(to_count(truncate_to_int(length / kSectorLength)), 8, kMostSectors);
    if (!outlines.sample(outline, m.model.blur))
        return survey;
    const Patch& patch = *m.input->patch;
    const Box& box = patch.box();
    const Span columns = {box.x, box.x + box.width};
    // Not into what else is near: the other edge of a narrow ring.
    const WidenedOutline outer(outline, std::min(m.edge_reach, m.reach.edge_outside));
    const WidenedOutline inner(outline, -std::min(m.edge_reach, m.reach.edge_inside));
    for (std::int32_t y = box.y; y < box.y + box.height; ++y) {
        const Span all = outer.columns(y, columns);
        const Span middle = inner.columns(y, all);
        if (all.begin >= all.end)
            continue;
        const RowSpans spans = {all.begin,  all.begin,  middle.begin, middle.begin,
                                middle.end, middle.end, all.end,      all.end};
        const float* const planes = outlines.coverage_row(y, spans);
        for (std::int32_t x = all.begin; x < all.end; ++x) {
            if (x == middle.begin)
                x = middle.end;
            if (x >= all.end)
                break;
            if (patch.is_in_picture(x, y))
                survey_sample(m, planes, outlines.stride(), to_count(x - box.x), x, y, survey);
            else
                survey.outside_picture += 1;
        }
    }
    return survey;
}

double edge_share_of(const Survey& survey, double contrast) noexcept
{
    std::size_t found = 0;
    for (std::size_t i = 0; i < survey.sector_count; ++i) {
        const Sector& s = survey.sectors[i];
        if (s.count < 3)
            continue;
        const double own = s.tt - s.t * s.t / s.count;
        const double common = s.vt - s.v * s.t / s.count;
        if (!(own > 1e-3 * contrast * contrast))
            continue;
        const double amplitude = common / own;
        found += amplitude > kLeastAmplitude && amplitude < kMostAmplitude ? 1 : 0;
    }
    return static_cast<double>(found) / static_cast<double>(survey.sector_count);
}

// How far stretches of the outline lie off it. Those of which the samples tell little are left out.
Bulges bulges_of(const Survey& survey) noexcept
{
    double mean = 0;
    for (std::size_t i = 0; i < survey.sector_count; ++i)
        mean += survey.sectors[i].gg / static_cast<double>(survey.sector_count);
    Bulges bulges;
    for (std::size_t i = 0; i < survey.sector_count; ++i) {
        const Sector& s = survey.sectors[i];
        if (!(s.gg > 0.25 * mean))
            continue;
        const double offset = s.gr / s.gg;
        bulges.square += offset * offset;
        bulges.noise_gain += 1 / s.gg;
        bulges.count += 1;
    }
    if (bulges.count > 0) {
        bulges.square /= bulges.count;
        bulges.noise_gain /= bulges.count;
    }
    return bulges;
}

// The order of lobes that is strongest against what noise makes of it, as it was before the blur.
void find_lobes(const Survey& survey, const TargetModel& model, Bulges& bulges) noexcept
{
    double information = 0;
    for (std::size_t i = 0; i < survey.sector_count; ++i)
        information += survey.sectors[i].gg;
    if (!(information > 0))
        return;
    const double radius = model.outline.mean_radius();
    const double spread = (model.blur * model.blur + 1.0 / 12) / (radius * radius);
    for (std::size_t i = 0; i < kLobeOrders; ++i) {
        const auto order = static_cast<double>(i + kFirstLobes);
        const double left = panoval::exp(-order * order * spread / 2);
        if (left < kFewestLobesLeft)
            return;
        const double u = survey.lobes.cosines[i];
        const double v = survey.lobes.sines[i];
        const double scale = 2 / (information * left);
        bulges.lobes[i] = {u * scale, v * scale, scale / left, left};
    }
}

struct Noise {
    double variance = 0; // of a sample, for the covariance
    double chi_square = 1;
    double flat = 0; // variance of the flat samples; of all, where there are too few
};

Noise noise_of(const Measurement& m) noexcept
{
    const double flat_count = m.input->flat_inside.count + m.input->flat_outside.count;
    const AdjustmentResult& a = m.adjustment;
    const double edge_freedom = std::max(1.0, a.edge_count - 6);
    const double flat_freedom = flat_count - 6;
    const double edge = std::max(a.edge_cost / edge_freedom, m.least_variance);
    Noise noise;
    noise.variance = noise.flat = edge;
    if (flat_freedom < 20)
        return noise;
    const double flat = std::max(a.flat_cost / flat_freedom, m.least_variance);
    const double pooled =
        std::max((a.edge_cost + a.flat_cost) / (a.edge_count + flat_count - kUnknowns), m.least_variance);
    noise.chi_square = flat > 0 ? edge / flat : 1;
    noise.flat = flat;
    // Both parts tell the same noise, unless they differ by more than chance would make them.
    const double chance = 4 * std::sqrt(2 / edge_freedom + 2 / flat_freedom);
    noise.variance = noise.chi_square > 1 + chance || noise.chi_square < 1 - chance ? edge : pooled;
    return noise;
}

void write_levels(const Measurement& m, PanovalMeasureTarget& target) noexcept
{
    const double dx = m.model.outline.x - m.input->reference_x;
    const double dy = m.model.outline.y - m.input->reference_y;
    target.level_inside = m.model.inside.at(dx, dy);
    target.level_outside = m.model.outside.at(dx, dy);
    target.slope_inside_x = m.model.inside.slope_x;
    target.slope_inside_y = m.model.inside.slope_y;
    target.slope_outside_x = m.model.outside.slope_x;
    target.slope_outside_y = m.model.outside.slope_y;
    target.polarity = target.level_inside < target.level_outside ? PANOVAL_MEASURE_DARK : PANOVAL_MEASURE_BRIGHT;
}

// Returns whether the axes differ significantly.
bool write_covariance(const Measurement& m, double variance, PanovalMeasureTarget& target) noexcept
{
    const Matrix12& inverse = m.adjustment.inverse;
    double geometry[25];
    for (int i = 0; i < 5; ++i)
        for (int j = 0; j < 5; ++j)
            geometry[5 * i + j] = inverse(i, j) * variance;
    const bool is_oval = transform_covariance(m.model.outline, geometry, target.covariance);
    target.sigma_x = std::sqrt(std::max(0.0, target.covariance[0]));
    target.sigma_y = std::sqrt(std::max(0.0, target.covariance[6]));
    target.sigma_major = std::sqrt(std::max(0.0, target.covariance[12]));
    target.sigma_minor = std::sqrt(std::max(0.0, target.covariance[18]));
    target.sigma_angle = std::sqrt(std::max(0.0, target.covariance[24]));
    const double blur_variance = inverse(kBlurSquare, kBlurSquare) * variance;
    target.sigma_blur = std::sqrt(std::max(0.0, blur_variance)) / (2 * m.model.blur);
    return is_oval;
}

void write_ellipse(const Measurement& m, double variance, PanovalMeasureTarget& target) noexcept
{
    const Outline& outline = m.model.outline;
    target.ellipse = ellipse_of(outline);
    const double square = outline.skew() * outline.skew();
    if (!(square > 0))
        return;
    const Matrix12& inverse = m.adjustment.inverse;
    // Of the difference's change across its direction.
    const double across = (outline.skew_y * outline.skew_y * inverse(kSkewX, kSkewX) -
                           2 * outline.skew_x * outline.skew_y * inverse(kSkewX, kSkewY) +
                           outline.skew_x * outline.skew_x * inverse(kSkewY, kSkewY)) /
                          square * variance;
    const double skew = std::sqrt(std::max(0.0, square - kRoundness * across));
    target.ellipse.semi_major = outline.mean + skew;
    target.ellipse.semi_minor = outline.mean - skew;
}

// What a sum of `freedom` squares of normal numbers may come to: its cube root is nearly normal (Wilson and Hilferty,
// 1931), while few squares' sum is far from it.
double largest_by_chance(double freedom) noexcept
{
    const double variance = 2 / (9 * freedom);
    const double root = 1 - variance + kBulgeChance * std::sqrt(variance);
    return freedom * root * root * root;
}

} // namespace

double quality_of(const PanovalMeasureTarget& target, const Bulges& bulges, double noise) noexcept
{
    const double contrast = std::fabs(target.level_inside - target.level_outside);
    if (!(contrast > 0))
        return 0;
    const double variance = noise * noise;
    const double misfit = std::max(0.0, target.noise * target.noise - kNoiseSlack * variance);
    const double aliased = std::max(0.0, 1 - target.blur / kAliasedBlur);
    const double half_misfit = (kHalfMisfit + kAliasedMisfit * aliased) * contrast;
    const double freedom = std::max(1.0, bulges.count - kFitElements);
    const double chance = largest_by_chance(freedom) / std::max(1.0, bulges.count);
    const double bulge = std::max(0.0, bulges.square - chance * variance * bulges.noise_gain);
    double lobe = 0;
    for (const Bulges::Lobe& order : bulges.lobes)
        if (order.left >= kLeastLobesLeft)
            lobe = std::max(lobe, order.square() - kLobeChance * target.noise * target.noise * order.noise_gain / 2);
    const double half_bulge = kHalfBulge * target.ellipse.semi_minor + kHalfBulgePixels + kAliasedPixels * aliased;
    const double round = std::clamp((target.edge_share - kLeastShare) / (kFullShare - kLeastShare), 0.0, 1.0);
    const double local = target.noise / std::sqrt(std::max(1.0, target.chi_square)); // beside the edge
    const double clear = contrast / (contrast + kHalfClear * std::max({local, noise, bulges.least_clear}));
    const double even = 1 / (1 + misfit / (half_misfit * half_misfit) +
                             std::max(bulge, lobe / (kHalfLobe * kHalfLobe)) / (half_bulge * half_bulge));
    // Noise makes small targets smaller and their blur larger at once: what may be chance is not held against them.
    const double blur = std::max(0.0, target.blur - kFormChance * target.sigma_blur);
    const double axis = target.ellipse.semi_minor + kFormChance * target.sigma_minor;
    const double spread_by_axis_square = (blur * blur + 1.0 / 12) / (axis * axis);
    const double form = spread_by_axis_square / (kFormless * kFormless);
    return round * clear * even / (1 + form * form);
}

bool make_record(const Measurement& m, OutlineModel& outlines, PanovalMeasureTarget& target, Bulges& bulges) noexcept
{
    write_levels(m, target);
    const double contrast = std::fabs(target.level_inside - target.level_outside);
    const Noise noise = noise_of(m);
    const bool is_oval = write_covariance(m, noise.variance, target);
    const Survey survey = survey_outline(m, outlines);
    write_ellipse(m, noise.variance, target);
    target.blur = m.model.blur;
    target.noise = std::sqrt(noise.variance);
    target.chi_square = noise.chi_square;
    target.edge_share = edge_share_of(survey, contrast);
    target.iterations = m.adjustment.iterations;
    target.pixels = truncate_to_int(m.adjustment.edge_count + m.input->flat_inside.count + m.input->flat_outside.count);
    bulges = bulges_of(survey);
    find_lobes(survey, m.model, bulges);
    bulges.least_clear = m.least_variance > 0 ? kTerrace : 0;
    target.quality = quality_of(target, bulges, std::sqrt(noise.flat));
    target.flags |= is_oval ? 0 : PANOVAL_MEASURE_ROUND;
    target.flags |= survey.outside_picture > 0 ? PANOVAL_MEASURE_BORDER : 0;
    target.flags |= survey.aliens > kAlienShare * survey.edge ? PANOVAL_MEASURE_NEIGHBOUR : 0;
    target.flags |= survey.saturated > kSaturatedShare * survey.edge ? PANOVAL_MEASURE_SATURATED : 0;
    target.flags |= m.model.blur > m.model.outline.semi_minor() / 4 ? PANOVAL_MEASURE_BLURRED : 0;
    target.flags |= m.adjustment.has_converged ? 0 : PANOVAL_MEASURE_NOT_CONVERGED;
    const double sigma = std::max(target.sigma_x, target.sigma_y);
    return contrast > 0 && target.edge_share >= 0.3 && sigma < target.ellipse.semi_minor / 2;
}

} // namespace panoval::measure
