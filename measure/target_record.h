// SPDX-License-Identifier: MIT
// From an adjustment to what the host reads: levels at the centre, noise, covariance, the share of the outline that has
// an edge, flags and quality.
#pragma once

#include "measure/adjustment.h"

#include <array>
#include <cstddef>

namespace panoval::measure
{

struct Measurement {
    TargetModel model;
    AdjustmentResult adjustment;
    const AdjustmentInput* input = nullptr;
    double edge_reach = 0;     // of the blurred edge from the outline, pixels
    Reach reach;               // as far as samples were taken
    double highest_sample = 0; // where samples saturate; 0 = nowhere
    double least_variance = 0; // of the noise: what rounding alone makes
};

inline constexpr std::size_t kLobeOrders = 6; // from the third on

// How far stretches of the outline's edge lie off the ellipse.
struct Bulges {
    double square = 0;      // mean square, in pixels squared
    double noise_gain = 0;  // what noise of variance 1 makes of that
    double count = 0;       // of stretches
    double least_clear = 0; // levels that even noiseless samples may be off by: what rounding makes of smooth shades
    struct Lobe {
        double cosine = 0; // amplitudes before the blur, in pixels
        double sine = 0;
        double noise_gain = 0; // what noise of variance 1 makes of the square of either; 0 where nothing is known
        double left = 0;       // by the blur, as a share

        double square() const noexcept { return (cosine * cosine + sine * sine) / 2; } // mean
    };
    std::array<Lobe, kLobeOrders> lobes{}; // that go round the outline so often
};

// False when the samples show no target: no contrast beyond what noise explains, or no edge around most of the outline.
bool make_record(const Measurement& measurement, OutlineModel& outlines, PanovalMeasureTarget& target,
                 Bulges& bulges) noexcept;

// How sure it is that a measured target is one, 0 to 1: its edge goes round, stands out of the noise, and looks like
// the edge of an evenly filled ellipse.
//
// noise  standard deviation of samples where nothing is: what exceeds it beside the outline speaks against the target
double quality_of(const PanovalMeasureTarget& target, const Bulges& bulges, double noise) noexcept;

} // namespace panoval::measure
