// SPDX-License-Identifier: MIT
// Fit of an ellipse to points: the conic x*x + B*x*y + C*y*y + D*x + E*y + F = 0 by iteratively reweighted least
// squares on its algebraic residual, from the circle around the mean point, then centre, axes, angle, and the
// residual of the focal sums. Every sum runs over the points in their order, in double precision; every expression is
// evaluated as it is written.
#include "detect/oval_fit.h"
#include "core/elementary.h"
#include "core/heap.h"
#include "core/numbers.h"
#include "detect/conic_residuals.h"
#include "detect/least_squares.h"
#include "panoval.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace panoval
{
namespace
{

constexpr std::int32_t kUnknowns = 5;
constexpr std::int32_t kMaxIterations = 50;
constexpr std::int32_t kAlwaysReweightFrom = 26; // iterations
constexpr double kConvergedRms = 0.01;           // of the algebraic residuals
constexpr double kStalledCorrection = 1e-6;
constexpr double kStalledRmsChange = 1e-6;
constexpr double kOutlierFactor = 1.5; // times the rms
constexpr double kHalfPi = 1.5707963267948966;

struct Points {
    const double* xy; // pairs
    std::size_t count;
};

Conic circle_through_first_point(const Points& points)
{
    double sum_x = 0;
    double sum_y = 0;
    for (std::size_t i = 0; i < points.count; ++i) {
        sum_x += points.xy[2 * i];
        sum_y += points.xy[2 * i + 1];
    }
    const double mean_x = sum_x / static_cast<double>(points.count);
    const double mean_y = sum_y / static_cast<double>(points.count);
    const double dx = points.xy[0] - mean_x;
    const double dy = points.xy[1] - mean_y;
    const double radius = std::sqrt(dx * dx + dy * dy);
    return {0, 1, -2 * mean_x, -2 * mean_y, mean_x * mean_x + mean_y * mean_y - radius * radius};
}

// Design rows of many points at once, which the equations take once they have left the store buffer. They do not change
// from pass to pass: up to kMaxPoints points are designed only once.
class DesignRows
{
public:
    static constexpr std::size_t kMaxPoints = 512;

    explicit DesignRows(const Points& points) : points_(points) {}

    // The rows of the points from `first` on, a multiple of kMaxPoints.
    const double (*rows_from(std::size_t first))[kUnknowns]
    {
        if (first_ != first)
            design_rows(points_.xy + 2 * first, std::min(kMaxPoints, points_.count - first), row_);
        first_ = first;
        return row_;
    }

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    Points points_;
    std::size_t first_ = kNone;
    double row_[kMaxPoints][kUnknowns];
};

// One pass over the points. Fills the equations and the residuals, and returns the weighted rms.
double accumulate(const Points& points, const Conic& conic, const double* weights, DesignRows& design,
                  double* residuals, NormalEquations<kUnknowns>& equations)
{
    double weight_sum = 0;
    double square_sum = 0;
    equations.clear();
    conic_residuals(conic, points.xy, points.count, residuals);
    for (std::size_t first = 0; first < points.count; first += DesignRows::kMaxPoints) {
        const double(*const rows)[kUnknowns] = design.rows_from(first);
        const std::size_t end = std::min(first + DesignRows::kMaxPoints, points.count);
        for (std::size_t i = first; i < end; ++i) {
            const double v = residuals[i];
            const double w = weights[i];
            equations.add(rows[i - first], v, w);
            weight_sum += w;
            square_sum += (w * v) * v;
        }
    }
    return std::sqrt(square_sum / weight_sum);
}

void correct(Conic& conic, const double* correction)
{
    conic.b += correction[0];
    conic.c += correction[1];
    conic.d += correction[2];
    conic.e += correction[3];
    conic.f += correction[4];
}

bool are_small(const double* correction)
{
    for (std::int32_t i = 0; i < kUnknowns; ++i)
        if (!(std::fabs(correction[i]) < kStalledCorrection))
            return false;
    return true;
}

Conic fit_conic(const Points& points, double* weights, double* residuals)
{
    DesignRows design(points);
    NormalEquations<kUnknowns> equations;
    Conic conic = circle_through_first_point(points);
    double previous_rms = 0;
    bool is_converged = false;
    bool is_stalled = false;
    for (std::int32_t k = 0; k < kMaxIterations && !is_converged; ++k) {
        double correction[kUnknowns];
        const double rms = accumulate(points, conic, weights, design, residuals, equations);
        equations.solve(correction);
        correct(conic, correction);
        is_converged = rms < kConvergedRms;
        is_stalled = is_stalled || are_small(correction); // COUNT_EXCL_BRANCH: still so at kConvergedRms exactly
        if ((is_stalled && rms > kConvergedRms) || (k > 0 && rms > previous_rms) || k >= kAlwaysReweightFrom) {
            lower_weights(residuals, points.count, kOutlierFactor * rms, rms, weights);
            is_stalled = false;
        }
        if (k > 0 && is_stalled && std::fabs(previous_rms - rms) < kStalledRmsChange) // COUNT_EXCL_BRANCH: beside it
            break; // COUNT_EXCL: needs both rms within kStalledRmsChange of kConvergedRms
        previous_rms = rms;
    }
    return conic;
}

// Not-a-number is no ellipse.
bool is_ellipse(const Conic& conic)
{
    for (const double value : {conic.b, conic.c, conic.d, conic.e, conic.f})
        if (std::isinf(value))
            return false;
    return conic.b * conic.b - 4 * conic.c < 0;
}

// Sets centre, axes and angle. The one-argument arctangent leaves the angle within 45 degrees of x; where the other
// axis is the major one the two change places.
void measure_axes(const Conic& conic, OvalFit& fit)
{
    const auto [b, c, d, e, f] = conic;
    fit.x0 = (b * e - 2 * c * d) / (4 * c - b * b);
    fit.y0 = (b * d - 2 * e) / (4 * c - b * b);
    fit.theta = 0.5 * panoval::atan(b / (1 - c));
    const double cosine = panoval::cos(fit.theta);
    const double sine = panoval::sin(fit.theta);
    const double at_centre = f + (d * fit.x0 + e * fit.y0) / 2;
    const double scaled = at_centre * (cosine * cosine - sine * sine);
    fit.semi_major = std::sqrt(scaled / (c * (sine * sine) - cosine * cosine));
    fit.semi_minor = std::sqrt(scaled / (sine * sine - c * (cosine * cosine)));
    if (fit.semi_minor > fit.semi_major) {
        const double longer = fit.semi_minor;
        fit.semi_minor = fit.semi_major;
        fit.semi_major = longer;
        fit.theta += kHalfPi;
    }
}

// Sets rms and the largest residual: by how much the distances to both foci add up to more than the major axis.
void measure_residuals(const Points& points, const double* weights, double* residuals, OvalFit& fit)
{
    const double focal = std::sqrt(fit.semi_major * fit.semi_major - fit.semi_minor * fit.semi_minor);
    const double x = focal * panoval::cos(fit.theta);
    const double y = focal * panoval::sin(fit.theta);
    focal_residuals({fit.x0 - x, fit.y0 - y, fit.x0 + x, fit.y0 + y, 2 * fit.semi_major}, points.xy, points.count,
                    residuals);
    double weight_sum = 0;
    double square_sum = 0;
    double largest = 0;
    for (std::size_t i = 0; i < points.count; ++i) {
        const double residual = residuals[i];
        weight_sum += weights[i];
        square_sum += weights[i] * (residual * residual);
        if (residual > largest)
            largest = residual;
    }
    fit.rms = std::sqrt(square_sum / weight_sum);
    fit.max_residual = largest;
}

} // namespace

std::int32_t fit_oval(std::int32_t count, const double* points, double* scratch, OvalFit* result)
{
    if (count <= kUnknowns)
        return 0;
    const Points all{points, to_count(count)};
    double* const weights = scratch;
    double* const residuals = scratch + all.count;
    std::fill_n(weights, all.count, 1.0);

    const Conic conic = fit_conic(all, weights, residuals);
    *result = OvalFit{};
    result->coef_a = 1;
    result->coef_b = conic.b;
    result->coef_c = conic.c;
    result->coef_d = conic.d;
    result->coef_e = conic.e;
    result->coef_f = conic.f;
    if (!is_ellipse(conic))
        return 0;
    measure_axes(conic, *result);
    measure_residuals(all, weights, residuals, *result);
    return 1;
}

} // namespace panoval

extern "C" PANOVAL_API int32_t oval_fit(int32_t count, const double* points, OvalFit* result)
{
    using namespace panoval;
    if (count <= kUnknowns)
        return 0;
    const HeapArray<double> scratch = allocate<double>(kOvalFitScratch * to_count(count));
    return scratch != nullptr ? fit_oval(count, points, scratch.get(), result) : 0;
}
