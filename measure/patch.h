// SPDX-License-Identifier: MIT
// The samples around a target, and what part each plays: near the outline, inside or outside it, or none, because it is
// not of this target. What lies away from the outline is told by two planes, and enters an adjustment as their sums.
#pragma once

#include "core/heap.h"
#include "core/numbers.h"
#include "measure/outline.h"
#include "measure/outline_model.h"
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

    void add(double dx, double dy, double value) noexcept;
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
    void set_part(std::int32_t x, std::int32_t y, Part part) noexcept { parts_[index(x, y)] = part; }
    const float* samples(std::int32_t y) const noexcept { return samples_.get() + index(box_.x, y); }
    const Part* parts(std::int32_t y) const noexcept { return parts_.get() + index(box_.x, y); }
    // The columns from the first to behind the last one of a row that are of a part near the outline.
    struct Span {
        std::int32_t begin = 0;
        std::int32_t end = 0;
    };
    // Whether something else was found since the samples were classified.
    bool has_aliens() const noexcept { return has_aliens_; }
    Span edge_span(std::int32_t y) const noexcept { return spans_[to_count(y - box_.y)]; }

    // Linear between the four samples around a place of the box; false outside the picture, or where a sample is not
    // finite.
    bool interpolate(double x, double y, double& value) const noexcept;

    // Gives every sample its part. Samples that are not finite are aliens.
    void classify(const Outline& outline, const Reach& reach) noexcept;

    // Takes samples out of the flat part that are of something else, with their neighbours, and sums up the others.
    // Distances are from the reference point.
    // plane, spread  out: the plane, and the standard deviation of the samples about it
    PlaneSums fit_flat(Part part, double reference_x, double reference_y, double least_spread, LevelPlane& plane,
                       double& spread) noexcept;

    // Makes aliens of the samples beside the ones in question: of an alien's neighbours, those of a part.
    void grow_aliens(Part part) noexcept;

private:
    template <class Measure>
    double median_of(Part part, const Measure& measure) noexcept;
    // Sums the samples within the limit of a plane; the others may be made aliens.
    PlaneSums sum_flat(Part part, double reference_x, double reference_y, const LevelPlane& plane, double limit,
                       bool excludes, bool& has_aliens) noexcept;
    std::size_t index(std::int32_t x, std::int32_t y) const noexcept
    {
        return static_cast<std::size_t>(y - box_.y) * static_cast<std::size_t>(box_.width) +
               static_cast<std::size_t>(x - box_.x);
    }
    std::size_t size() const noexcept
    {
        return static_cast<std::size_t>(box_.width) * static_cast<std::size_t>(box_.height);
    }

    Box box_;
    bool has_aliens_ = false;
    std::int32_t picture_width_ = 0;
    std::int32_t picture_height_ = 0;
    std::size_t capacity_ = 0;
    HeapArray<float> samples_;
    HeapArray<Part> parts_;
    HeapArray<float> scratch_;
    std::size_t span_capacity_ = 0;
    HeapArray<Span> spans_;
};

} // namespace panoval::measure
