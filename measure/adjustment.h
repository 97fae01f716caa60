// SPDX-License-Identifier: MIT
// The adjustment: outline, blur and both level planes together, so that the squared differences between the samples and
// the model of a blurred area become least. Levenberg-Marquardt with analytic derivatives.
#pragma once

#include "measure/outline_model.h"
#include "measure/patch.h"

#include <Eigen/Core>

namespace panoval::measure
{

// Order of the unknowns.
enum Unknown : int {
    kX,
    kY,
    kMean,
    kSkewX,
    kSkewY,
    kBlurSquare,
    kInside,
    kInsideSlopeX,
    kInsideSlopeY,
    kOutside,
    kOutsideSlopeX,
    kOutsideSlopeY
};

inline constexpr int kUnknowns = 12;

using Vector12 = Eigen::Matrix<double, kUnknowns, 1>;
using Matrix12 = Eigen::Matrix<double, kUnknowns, kUnknowns>;

struct TargetModel {
    Outline outline;
    double blur = 1;
    LevelPlane inside;
    LevelPlane outside;
};

// That the inside slopes are `ratio` times the outside ones, up to a deviation.
struct SlopeTie {
    double ratio = 1;
    double weight = 0; // noise variance over the deviation's
};

struct AdjustmentInput {
    const Patch* patch = nullptr;
    double reference_x = 0; // of the planes
    double reference_y = 0;
    PlaneSums flat_inside;
    PlaneSums flat_outside;
    SlopeTie tie;
    double least_blur = 0; // the range that is reserved
    double largest_blur = 0;
};

struct AdjustmentResult {
    Matrix12 inverse;     // of the normal matrix at the end, the tie included: the covariance for noise of variance 1
    double edge_cost = 0; // squared residuals of the edge samples
    double flat_cost = 0; // of the flat ones
    double edge_count = 0;
    double largest_residual = 0; // of an edge sample
    int iterations = 0;
    bool has_converged = false;
    bool has_left = false; // the outline ran out of its box
};

// Adjusts the model in place.
AdjustmentResult adjust(const AdjustmentInput& input, OutlineModel& outlines, TargetModel& model) noexcept;

// What the model says of one sample, given a row of the outline's planes.
double predict(const TargetModel& model, const float* planes, std::size_t stride, std::size_t column, double dx,
               double dy) noexcept;

} // namespace panoval::measure
