// SPDX-License-Identifier: MIT
// Targets that are near to each other: each is measured a second time, in a picture without the others.
#pragma once

#include "measure/adjustment.h"
#include "measure/outline_model.h"
#include "measure/patch.h"
#include "measure/target_record.h"
#include "measure/vicinity.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

namespace panoval::measure
{

class Refinement;

// What was measured of a target, with the place that its levels' slopes count from.
struct MeasuredModel {
    TargetModel model;
    double reference_x = 0;
    double reference_y = 0;
};

// A target beside another one, or around it.
struct Neighbour {
    MeasuredModel measured;
    bool is_around = false;
};

// Gives the patch the samples that it would have without the neighbour: the level outside it, or inside when it lies
// around. False: no memory.
bool take_away(const Neighbour& neighbour, OutlineModel& outlines, Patch& patch) noexcept;

// A difference of two outlines' centres and semi-axes, in pixels.
struct Move {
    std::array<double, 4> by = {};

    double largest() const noexcept;
    double square() const noexcept;
};

struct MeasuredTarget {
    PanovalMeasureTarget target = {};
    MeasuredModel measured;
    Bulges bulges;
    bool is_sound = false;   // is to be measured anew and taken away from others
    double moved = HUGE_VAL; // pixels, by its last measurement, or the way that is left, whichever is more
    Move last_move = {};
    Move way_left = {};
};

// Whether two outlines may be those of a ring.
bool is_concentric(const Outline& one, const Outline& other) noexcept;
Disk disk_of_centres(const Outline& outline) noexcept; // outlines that may be of a ring with it touch this

// As far as edges of others are felt here, or this one there.
Disk influence_of(const MeasuredModel& measured) noexcept;

// Of all targets as far as they reach, by their indices.
Vicinity vicinity_of(const std::vector<MeasuredTarget>& targets);

// The sound targets within reach of an outline that has not been measured.
//
// vicinity  of the targets, as vicinity_of makes it
std::vector<Neighbour> neighbours_beside(const Outline& outline, const std::vector<MeasuredTarget>& targets,
                                         const Vicinity& vicinity);

// Measures all sound targets anew that have others within reach, and flags them; those that have not come to rest, too,
// and what is left of their way becomes part of their covariance. Quality is against the noise of the picture where
// that is above 0. False: no memory.
bool measure_without_neighbours(Refinement& refinement, double picture_noise, std::vector<MeasuredTarget>& targets);

} // namespace panoval::measure
