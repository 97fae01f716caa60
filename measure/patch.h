// SPDX-License-Identifier: MIT
// The samples around a target, and what part each plays: near the outline, inside or outside it, or none, because it is
// not of this target. What lies away from the outline is told by two planes, and enters an adjustment as their sums.
#pragma once

#include "core/heap.h"
#include "core/numbers.h"
#include "measure/outline.h"
#include "measure/outline_model.h"
#include "measure/patch_kernel.h"
#include "measure/row_spans.h"
#include "panoval_measure.h"

#include <cstddef>
#include <cstdint>

namespace panoval::measure
{

// The part that a sample plays.
enum class Part : std::uint8_t {
    kNone,    // out of reach, or outside the picture
    kInside,  // evenly inside the outline
    kOutside, // evenly outside
    kEdge,    // so near that the outline shows in it
    kAlien    // within reach, but of something else
};

// How far from the outline samples are of a part, inside and outside; flat parts include what is before them.
struct Reach {
    double edge_inside = 0;
    double edge_outside = 0;
    double flat_inside = 0;
    double flat_outside = 0;
};

// A level that changes evenly: level + slope_x * (x - reference) + slope_y * (y - reference).
struct LevelPlane {
    double level = 0;
    double slope_x = 0;
    double slope_y = 0;
    double at(double dx, double dy) const noexcept { return level + slope_x * dx + slope_y * dy; }
};

// Sums over samples, of which every plane's squared residuals follow. Samples are counted from an origin of levels.
struct PlaneSums {
    double origin = 0;
    double count = 0;
    double x = 0, y = 0, xx = 0, xy = 0, yy = 0;
    double v = 0, vx = 0, vy = 0, vv = 0;

    // Of samples of one row, counted from the same origin.
    void add_row(const RowSums& row, double dy) noexcept;
    double squared_residuals(const LevelPlane& plane) const noexcept;
    // The best plane; false, with the mean level, if there are too few samples for slopes.
    bool fit(LevelPlane& plane) const noexcept;
};

class Patch
{
public:
    // Copies what of the picture lies in the box. False: no memory.
    bool copy(const PanovalMeasureImage& image, const Box& box) noexcept;

    const Box& box() const noexcept { return box_; }
    bool is_in_picture(std::int32_t x, std::int32_t y) const noexcept;
    float sample(std::int32_t x, std::int32_t y) const noexcept { return samples_[index(x, y)]; }
    Part part(std::int32_t x, std::int32_t y) const noexcept { return parts_[index(x, y)]; }
    void add(std::int32_t x, std::int32_t y, float value) noexcept { samples_[index(x, y)] += value; }
    // Makes the sample an alien, to be grown.
    void exclude(std::int32_t x, std::int32_t y) noexcept;
    const float* samples(std::int32_t y) const noexcept { return samples_.get() + index(box_.x, y); }
    const Part* parts(std::int32_t y) const noexcept { return parts_.get() + index(box_.x, y); }
    // Where the parts of a row of the box lie; aliens may be among them.
    const RowSpans& spans(std::int32_t y) const noexcept { return spans_[to_count(y - box_.y)]; }
    // Whether more samples of the flat parts were of something else than noise makes so.
    bool shows_others() const noexcept { return shows_others_; }

    // Values at count places, each by (dx, dy) from the one before it; linear between the four samples around a place.
    // is_known  out: false outside the picture, or where a sample is not finite
    void read_line(double x, double y, double dx, double dy, std::size_t count, double* values,
                   bool* is_known) const noexcept;

    // Gives every sample its part. Samples that are not finite are aliens.
    void classify(const Outline& outline, const Reach& reach) noexcept;

    // Takes samples out of the flat part that are of something else, with their neighbours, and sums up the others.
    // Distances are from the reference point.
    // plane, spread  out: the plane, and the standard deviation of the samples about it
    PlaneSums fit_flat(Part part, double reference_x, double reference_y, double least_spread, LevelPlane& plane,
                       double& spread) noexcept;

    // Makes aliens of those samples of a part that lie beside excluded ones.
    void grow_aliens(Part part) noexcept;

private:
    // Calls visit(y, begin, end) for all runs of a part's samples, by rows.
    template <class Visit>
    void for_each_run(Part part, const Visit& visit) const noexcept;
    std::int32_t count_of(Part part) const noexcept;
    // The median of the samples' differences from a plane, or of the size of these.
    double median_of(Part part, double reference_x, double reference_y, const LevelPlane& plane, bool of_size) noexcept;
    // Sums the samples within the limit of a plane.
    PlaneSums sum_flat(Part part, double reference_x, double reference_y, const LevelPlane& plane,
                       double limit) const noexcept;
    // Makes aliens of the others.
    void exclude_flat(Part part, double reference_x, double reference_y, const LevelPlane& plane,
                      double limit) noexcept;
    // Whether the four samples around a place are in box and picture.
    bool can_interpolate(double x, double y) const noexcept;
    double interpolate(double x, double y) const noexcept;
    std::size_t index(std::int32_t x, std::int32_t y) const noexcept
    {
        return static_cast<std::size_t>(y - box_.y) * static_cast<std::size_t>(box_.width) +
               static_cast<std::size_t>(x - box_.x);
    }
    std::size_t size() const noexcept
    {
        return static_cast<std::size_t>(box_.width) * static_cast<std::size_t>(box_.height);
    }

    struct Pixel {
        std::int32_t x, y;
    };
    void set_part(std::int32_t x, std::int32_t y, Part part) noexcept { parts_[index(x, y)] = part; }

    Box box_;
    bool has_aliens_ = false;
    bool shows_others_ = false;
    bool is_finite_ = true; // all samples
    std::size_t excluded_count_ = 0;
    HeapArray<Pixel> excluded_; // not grown yet
    std::int32_t picture_width_ = 0;
    std::int32_t picture_height_ = 0;
    std::size_t capacity_ = 0;
    HeapArray<float> samples_;
    HeapArray<Part> parts_;
    HeapArray<float> scratch_;
    std::size_t span_capacity_ = 0;
    HeapArray<RowSpans> spans_;
};

} // namespace panoval::measure
