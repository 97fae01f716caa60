// SPDX-License-Identifier: MIT
// The refinement of one target after the other, with scratch that is kept from one to the next.
#pragma once

#include "measure/adjustment.h"
#include "measure/edge_search.h"
#include "measure/neighbours.h"
#include "measure/patch.h"
#include "measure/target_record.h"
#include "panoval_measure.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::measure
{

class Refinement
{
public:
    // The picture has been checked; it is only read.
    explicit Refinement(const PanovalMeasureImage& image) noexcept : image_(image) {}

    // Outlines that show less between their levels are not measured: they have no edge.
    void set_least_contrast(double levels) noexcept { least_contrast_ = levels; }

    // An adjustment that does not settle soon, and leaves residuals above these, ends the measurement: there is no
    // edge.
    void limit_patience(double residuals) noexcept { bearable_ = residuals; }

    // reach  how far from the start the outline is looked for, at most; pixels
    // Returns a PanovalMeasureCode; the record is complete only when that is PANOVAL_MEASURE_OK.
    std::int32_t run(const PanovalMeasureEllipse& start, double reach, PanovalMeasureTarget& target) noexcept;

    // As if the neighbours were not in the picture.
    std::int32_t run_without(const std::vector<Neighbour>& neighbours, const PanovalMeasureEllipse& start, double reach,
                             PanovalMeasureTarget& target) noexcept;

    // Of the last target.
    MeasuredModel measured() const noexcept { return {model_, input_.reference_x, input_.reference_y}; }
    const Bulges& bulges() const noexcept { return bulges_; }

private:
    bool copy_patch(const Box& box) noexcept; // false when the heap is exhausted
    std::int32_t search(const Outline& start, double reach) noexcept;
    bool look_again() noexcept; // false when the heap is exhausted
    std::int32_t adjust_once() noexcept;
    bool is_hopeless() const noexcept;
    double residual_deviation() const noexcept
    {
        return std::sqrt(adjusted_.edge_cost / std::max(1.0, adjusted_.edge_count - kUnknowns));
    }
    void tie_slopes() noexcept;
    // Makes aliens of edge samples that are further from the model than the limit, and further than `beyond` pixels
    // from the outline. Returns how many.
    std::size_t exclude(double limit, double beyond) noexcept;
    double least_variance() const noexcept; // of a sample: what rounding makes
    // Squared deviations of what the samples say about slopes from what is expected.
    struct SlopeEvidence {
        double against_light = 0; // that changes both levels by the same share
        double against_haze = 0;  // that changes both by the same amount
        double against_tie = 0;   // as it is
        double doubt = 0;         // between light and haze with the tie
    };
    SlopeEvidence weigh_slopes() const noexcept;
    bool judge_slopes() noexcept;
    bool release_slopes() noexcept;

    const PanovalMeasureImage& image_;
    const std::vector<Neighbour>* neighbours_ = nullptr;
    OutlineModel neighbour_outlines_;
    double least_contrast_ = 0;
    double bearable_ = HUGE_VAL; // levels
    Patch patch_;
    EdgeGuess guess_;
    OutlineModel outlines_;
    TargetModel model_;
    AdjustmentInput input_;
    AdjustmentResult adjusted_;
    Bulges bulges_;
    double edge_reach_ = 0;
    Reach reach_;
    double flat_spread_ = 0; // standard deviation of the flat samples
    bool is_tied_ = true;
    double haze_ = 0; // how probable it is that haze, rather than light, makes the slopes
};

} // namespace panoval::measure
