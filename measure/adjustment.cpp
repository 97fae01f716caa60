// SPDX-License-Identifier: MIT
// Levenberg-Marquardt over the twelve unknowns of a target.
#include "measure/adjustment.h"

#include "core/numbers.h"
#include "measure/outline_kernel.h"

#include <Eigen/Cholesky>

#include <algorithm>
#include <cmath>

namespace panoval::measure
{

namespace
{

constexpr int kMostIterations = 40;
constexpr double kFirstDamping = 1e-4;
constexpr double kMostDamping = 1e8;
constexpr std::size_t kBatch = 32; // equations that are collected before they are added

// A step is the last one when it moves the outline by less than this many pixels,
constexpr double kSettled = 1e-6;
// or by less than these many pixels and all unknowns by less than a third of what noise leaves open: the next one would
// be a fiftieth of that.
constexpr double kNearlySettled = 3e-3;
constexpr double kSettledAgainstNoise = 0.1;

// By so many variances of the noise may a step raise the cost that is no step back: samples of the outline, whose
// number changes with the blur, leave a ripple of that order.
constexpr double kRipple = 0.05;

struct Equations {
    Matrix12 normal;
    Vector12 rhs;
    double edge_cost = 0;
    double edge_count = 0;
    double largest_residual = 0;
    double flat_cost = 0;
    double cost = 0;
};

// Equations of samples that wait to be added.
struct Batch {
    double rows[kBatch * kUnknowns];
    double residuals[kBatch];
    std::size_t count = 0;
    void add_to(Equations& equations) noexcept
    {
        add_equations(rows, residuals, count, equations.normal.data(), equations.rhs.data());
        count = 0;
    }
};

// One row of pixels.
void add_samples(const AdjustmentInput& input, const TargetModel& model, const float* planes, std::size_t stride,
                 std::int32_t y, const Span& span, Batch& batch, Equations& equations) noexcept
{
    const Box& box = input.patch->box();
    const Part* const parts = input.patch->parts(y);
    const float* const samples = input.patch->samples(y);
    const double dy = y - input.reference_y;
    for (std::size_t i = to_count(span.begin - box.x); i < to_count(span.end - box.x); ++i) {
        if (parts[i] != Part::kEdge)
            continue;
        double* const row = batch.rows + kUnknowns * batch.count;
        const double dx = box.x + static_cast<std::int32_t>(i) - input.reference_x;
        const auto at = [&](Plane plane) { return static_cast<double>(planes[plane * stride + i]); };
        const double area = at(kCoverage);
        const double rest = 1 - area;
        const double contrast = model.inside.at(dx, dy) - model.outside.at(dx, dy);
        for (std::size_t plane = 0; plane <= kByBlur; ++plane)
            row[plane] = contrast * static_cast<double>(planes[plane * stride + i]);
        row[kInside] = area;
        row[kInsideSlopeX] = area * dx;
        row[kInsideSlopeY] = area * dy;
        row[kOutside] = rest;
        row[kOutsideSlopeX] = rest * dx;
        row[kOutsideSlopeY] = rest * dy;
        const double residual = static_cast<double>(samples[i]) - predict(model, planes, stride, i, dx, dy);
        equations.edge_cost += residual * residual;
        equations.edge_count += 1;
        equations.largest_residual = std::max(equations.largest_residual, std::fabs(residual));
        batch.residuals[batch.count++] = residual;
        if (batch.count == kBatch)
            batch.add_to(equations);
    }
}

// The samples away from the outline, by their sums.
void add_flat(const PlaneSums& sums, const LevelPlane& plane, int first, Equations& equations) noexcept
{
    Matrix12& normal = equations.normal;
    const double moments[3][3] = {{sums.count, sums.x, sums.y}, {sums.x, sums.xx, sums.xy}, {sums.y, sums.xy, sums.yy}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            normal(first + i, first + j) += moments[i][j];
    const double level = plane.level - sums.origin;
    equations.rhs[first] += sums.v - (level * sums.count + plane.slope_x * sums.x + plane.slope_y * sums.y);
    equations.rhs[first + 1] += sums.vx - (level * sums.x + plane.slope_x * sums.xx + plane.slope_y * sums.xy);
    equations.rhs[first + 2] += sums.vy - (level * sums.y + plane.slope_x * sums.xy + plane.slope_y * sums.yy);
    equations.flat_cost += sums.squared_residuals(plane);
}

void add_tie(const SlopeTie& tie, const TargetModel& model, Equations& equations) noexcept
{
    const double off[2] = {model.inside.slope_x - tie.ratio * model.outside.slope_x,
                           model.inside.slope_y - tie.ratio * model.outside.slope_y};
    for (int axis = 0; axis < 2; ++axis) {
        const int in = kInsideSlopeX + axis;
        const int out = kOutsideSlopeX + axis;
        equations.normal(in, in) += tie.weight;
        equations.normal(in, out) -= tie.weight * tie.ratio;
        equations.normal(out, in) -= tie.weight * tie.ratio;
        equations.normal(out, out) += tie.weight * tie.ratio * tie.ratio;
        equations.rhs[in] -= tie.weight * off[axis];
        equations.rhs[out] += tie.weight * tie.ratio * off[axis];
        equations.cost += tie.weight * off[axis] * off[axis];
    }
}

bool evaluate(const AdjustmentInput& input, OutlineModel& outlines, const TargetModel& model,
              Equations& equations) noexcept
{
    if (!outlines.sample(model.outline, model.blur))
        return false;
    equations.normal.setZero();
    equations.rhs.setZero();
    equations.edge_cost = equations.edge_count = equations.flat_cost = equations.cost = 0;
    equations.largest_residual = 0;
    Batch batch;
    const Box& box = input.patch->box();
    for (std::int32_t y = box.y; y < box.y + box.height; ++y) {
        const RowSpans& spans = input.patch->spans(y);
        if (spans.edge >= spans.edge_end)
            continue;
        const float* const planes = outlines.row(y, spans);
        add_samples(input, model, planes, outlines.stride(), y, {spans.edge, spans.inside}, batch, equations);
        add_samples(input, model, planes, outlines.stride(), y, {spans.inside_end, spans.edge_end}, batch, equations);
    }
    batch.add_to(equations);
    // The kernel leaves the lower triangle to us.
    for (int i = 0; i < kUnknowns; ++i)
        for (int j = 0; j < i; ++j)
            equations.normal(i, j) = equations.normal(j, i);
    add_flat(input.flat_inside, model.inside, kInside, equations);
    add_flat(input.flat_outside, model.outside, kOutside, equations);
    add_tie(input.tie, model, equations);
    equations.cost += equations.edge_cost + equations.flat_cost;
    return std::isfinite(equations.cost);
}

// The damped step. Unknowns are scaled by the roots of the diagonal first, for they have different units.
Vector12 solve(const Equations& equations, double damping, bool is_blur_fixed) noexcept
{
    Vector12 scale;
    for (int i = 0; i < kUnknowns; ++i)
        scale[i] = equations.normal(i, i) > 0 ? 1 / std::sqrt(equations.normal(i, i)) : 1;
    Matrix12 scaled;
    Vector12 rhs;
    for (int i = 0; i < kUnknowns; ++i) {
        for (int j = 0; j < kUnknowns; ++j)
            scaled(i, j) = equations.normal(i, j) * scale[i] * scale[j];
        scaled(i, i) = 1 + damping;
        rhs[i] = equations.rhs[i] * scale[i];
    }
    if (is_blur_fixed) {
        scaled.row(kBlurSquare).setZero();
        scaled.col(kBlurSquare).setZero();
        scaled(kBlurSquare, kBlurSquare) = 1;
        rhs[kBlurSquare] = 0;
    }
    Vector12 step = scaled.ldlt().solve(rhs);
    for (int i = 0; i < kUnknowns; ++i)
        step[i] *= scale[i];
    return step;
}

TargetModel moved(const AdjustmentInput& input, const TargetModel& model, const Vector12& step) noexcept
{
    TargetModel result = model;
    result.outline.x += step[kX];
    result.outline.y += step[kY];
    result.outline.mean += step[kMean];
    result.outline.skew_x += step[kSkewX];
    result.outline.skew_y += step[kSkewY];
    const double square = std::clamp(model.blur * model.blur + step[kBlurSquare], input.least_blur * input.least_blur,
                                     input.largest_blur * input.largest_blur);
    result.blur = std::clamp(std::sqrt(square), input.least_blur, input.largest_blur);
    result.inside.level += step[kInside];
    result.inside.slope_x += step[kInsideSlopeX];
    result.inside.slope_y += step[kInsideSlopeY];
    result.outside.level += step[kOutside];
    result.outside.slope_x += step[kOutsideSlopeX];
    result.outside.slope_y += step[kOutsideSlopeY];
    return result;
}

double largest_move(const Vector12& step) noexcept
{
    double most = 0;
    for (int i = kX; i <= kBlurSquare; ++i)
        most = std::max(most, std::fabs(step[i]));
    return most;
}

// A step against the range of the blur is taken without it.
Vector12 step_within_range(const AdjustmentInput& input, const TargetModel& model, const Equations& equations,
                           double damping) noexcept
{
    const Vector12 step = solve(equations, damping, false);
    const bool is_at_least = model.blur <= input.least_blur && step[kBlurSquare] < 0;
    const bool is_at_most = model.blur >= input.largest_blur && step[kBlurSquare] > 0;
    return is_at_least || is_at_most ? solve(equations, damping, true) : step;
}

double noise_of(const Equations& equations) noexcept
{
    return equations.edge_cost / std::max(1.0, equations.edge_count - kUnknowns);
}

bool is_settled(const Equations& equations, const Vector12& step) noexcept
{
    const double move = largest_move(step);
    if (move < kSettled)
        return true;
    return move < kNearlySettled && step.dot(equations.normal * step) < kSettledAgainstNoise * noise_of(equations);
}

Matrix12 invert_normal(const Matrix12& normal) noexcept
{
    Vector12 scale;
    for (int i = 0; i < kUnknowns; ++i)
        scale[i] = normal(i, i) > 0 ? 1 / std::sqrt(normal(i, i)) : 1;
    Matrix12 scaled;
    for (int i = 0; i < kUnknowns; ++i)
        for (int j = 0; j < kUnknowns; ++j)
            scaled(i, j) = i == j ? 1 : normal(i, j) * scale[i] * scale[j];
    const Matrix12 inverse = scaled.ldlt().solve(Matrix12::Identity());
    Matrix12 result;
    for (int i = 0; i < kUnknowns; ++i)
        for (int j = 0; j < kUnknowns; ++j)
            result(i, j) = (inverse(i, j) + inverse(j, i)) / 2 * scale[i] * scale[j];
    return result;
}

} // namespace

double predict(const TargetModel& model, const float* planes, std::size_t stride, std::size_t column, double dx,
               double dy) noexcept
{
    const double outside = model.outside.at(dx, dy);
    const double contrast = model.inside.at(dx, dy) - outside;
    // Light is taken to change behind the blur, as a lens makes it fall off. Light that changes before it would mix
    // levels of different places: the same picture as of an outline that lies s_e^2 times the difference of the slopes
    // over the contrast further on, so that no picture can tell the two.
    return outside + contrast * static_cast<double>(planes[kCoverage * stride + column]);
}

AdjustmentResult adjust(const AdjustmentInput& input, OutlineModel& outlines, TargetModel& model) noexcept
{
    AdjustmentResult result;
    Equations now;
    Equations next;
    if (!evaluate(input, outlines, model, now)) {
        result.has_left = true;
        return result;
    }
    double damping = kFirstDamping;
    while (result.iterations < kMostIterations && damping < kMostDamping) {
        ++result.iterations;
        const Vector12 step = step_within_range(input, model, now, damping);
        const TargetModel tried = moved(input, model, step);
        if (is_settled(now, step)) {
            // So small a step changes neither matrix nor residuals: they need not be computed again.
            model = tried;
            result.has_converged = true;
            break;
        }
        const bool is_inside = evaluate(input, outlines, tried, next);
        if (is_inside && next.cost <= now.cost + kRipple * noise_of(now)) {
            model = tried;
            now = next;
            damping = std::max(damping / 10, 1e-9);
        } else {
            damping *= 10;
        }
    }
    result.inverse = invert_normal(now.normal);
    result.edge_cost = now.edge_cost;
    result.flat_cost = now.flat_cost;
    result.edge_count = now.edge_count;
    result.largest_residual = now.largest_residual;
    return result;
}

} // namespace panoval::measure
