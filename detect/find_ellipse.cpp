// SPDX-License-Identifier: MIT
// Finder of dark elliptical shapes: a smoothed copy is cut at a local threshold, the outlines of the dark parts are
// traced, each outline point is moved onto the gradient's ridge of the picture itself, and an ellipse is fitted.
#include "core/heap.h"
#include "core/numbers.h"
#include "detect/contour_trace.h"
#include "detect/edge_refine.h"
#include "detect/oval_fit.h"
#include "detect/tile_threshold.h"
#include "panoval.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace
{

using namespace panoval;

constexpr std::int32_t kFrame = 3; // pixels along the border that an outline must not touch

struct Picture {
    const std::uint8_t* pixels;
    std::int32_t width;
    std::int32_t height;
};

// The records for the caller, each with its own block of points. Frees what is not released.
class FoundRegions
{
public:
    FoundRegions() = default;
    FoundRegions(const FoundRegions&) = delete;
    FoundRegions& operator=(const FoundRegions&) = delete;
    ~FoundRegions()
    {
        for (std::size_t i = 0; i < count_; ++i)
            HeapArray<std::int32_t>(records_[i].points).reset();
    }

    // The array exists as soon as an outline was seen, even if none is kept.
    [[nodiscard]] bool open() { return count_ < capacity_ || make_room(); }

    [[nodiscard]] bool append(const EllipseRegion& record, const std::int32_t* points)
    {
        const std::size_t point_count = to_count(record.point_count);
        auto own_points = allocate<std::int32_t>(point_count);
        if (own_points == nullptr || !open())
            return false;
        std::memcpy(own_points.get(), points, point_count * sizeof *points);
        records_[count_] = record;
        records_[count_].points = own_points.release();
        ++count_;
        return true;
    }

    // The caller takes over the array and the points.
    std::int32_t release(EllipseRegion** regions)
    {
        const auto count = static_cast<std::int32_t>(count_);
        count_ = 0;
        *regions = records_.release();
        return count;
    }

private:
    bool make_room()
    {
        const std::size_t more = capacity_ + capacity_ / 2 + 8;
        if (!grow(records_, more))
            return false;
        capacity_ = more;
        return true;
    }

    HeapArray<EllipseRegion> records_;
    std::size_t count_ = 0;
    std::size_t capacity_ = 0;
};

// The outlines of what is dark against its neighbourhood. False when the heap is exhausted.
bool trace_dark_outlines(const Picture& picture, std::int32_t divisions, OutlineList& outlines)
{
    const auto map = allocate<std::uint8_t>(to_count(picture.width) * to_count(picture.height));
    if (map == nullptr)
        return false;
    smooth_image(picture.pixels, picture.width, picture.height, map.get());
    return adaptive_tile_threshold(picture.width, picture.height, map.get(), map.get(), divisions) &&
           trace_contours(picture.width, picture.height, map.get(), outlines);
}

// Whether an outline keeps clear of the border and is neither a line nor ten times longer than wide.
bool has_sound_bounds(const Picture& picture, const std::int32_t* points, std::int32_t count)
{
    std::int32_t left = picture.width;
    std::int32_t right = 0;
    std::int32_t top = picture.height;
    std::int32_t bottom = 0;
    for (std::int32_t i = 0; i < count; ++i) {
        const std::int32_t y = points[i] / picture.width;
        const std::int32_t x = points[i] - y * picture.width;
        left = std::min(left, x);
        right = std::max(right, x);
        top = std::min(top, y);
        bottom = std::max(bottom, y);
    }
    if (left < kFrame || top < kFrame || right >= picture.width - kFrame || bottom >= picture.height - kFrame)
        return false;
    if (bottom == top)
        return false;
    const double aspect = static_cast<double>(right - left) / static_cast<double>(bottom - top);
    return aspect > 0.1 && aspect < 10.0;
}

// Fits one outline after the other; all share one block of scratch.
class OutlineFitter
{
public:
    explicit OutlineFitter(const Picture& picture) : picture_(picture) {}

    // Makes room for an outline of so many points.
    [[nodiscard]] bool reserve(std::int32_t count)
    {
        if (to_count(count) <= capacity_)
            return true;
        capacity_ = 0;
        scratch_.reset(); // before the larger block is taken
        scratch_ = allocate<double>((2 + kOvalFitScratch) * to_count(count));
        if (scratch_ == nullptr)
            return false;
        capacity_ = to_count(count);
        return true;
    }

    // False when the outline is no ellipse, or its centre lies left of or above the image.
    bool fit(const std::int32_t* points, std::int32_t count, OvalFit& oval)
    {
        double* const refined = scratch_.get();
        refine(points, to_count(count), refined);
        return fit_oval(count, refined, refined + 2 * to_count(count), &oval) != 0 && oval.x0 >= 0 && oval.y0 >= 0;
    }

private:
    void refine(const std::int32_t* points, std::size_t count, double* refined) const
    {
        MagnitudePatches patches;
        for (std::size_t first = 0; first < count; first += MagnitudePatches::kCount) {
            const std::size_t some = std::min(MagnitudePatches::kCount, count - first);
            measure_patches(picture_.pixels, picture_.width, points + first, some, patches);
            refine_edge_points(patches, picture_.width, points + first, some, refined + 2 * first);
        }
    }

    Picture picture_;
    HeapArray<double> scratch_; // x, y pairs, then what the fit needs
    std::size_t capacity_ = 0;  // points that there is room for
};

EllipseRegion record_of(const OvalFit& oval, std::int32_t pixel_count, std::int32_t point_count)
{
    EllipseRegion record{};
    record.cx = oval.x0;
    record.cy = oval.y0;
    record.major = oval.semi_major;
    record.minor = oval.semi_minor;
    record.angle = oval.theta;
    record.pixel_count = pixel_count;
    record.point_count = point_count;
    record.rms = oval.rms;
    return record;
}

struct Limits {
    std::int32_t min_pixels;
    std::int32_t max_rms;
};

// Whether the fit is good enough; if not, says so.
bool is_accepted(const OvalFit& oval, const Limits& limits)
{
    if (static_cast<double>(limits.max_rms) > oval.rms) // not-a-number is rejected
        return true;
    std::printf("rms=%.2f\n", oval.rms);
    return false;
}

// Measures every outline and keeps the good ones, in order. False when the heap is exhausted.
bool measure_outlines(const Picture& picture, const OutlineList& outlines, const Limits& limits, FoundRegions& found)
{
    OutlineFitter fitter(picture);
    for (std::int32_t i = 0; i < outlines.count; ++i) {
        const Outline& outline = outlines.outlines[to_count(i)];
        const std::int32_t* const points = outlines.pixels.get() + outline.begin;
        const std::int32_t pixel_count = outline.end - outline.labelled_begin;
        const std::int32_t point_count = outline.end - outline.begin;
        if (pixel_count < limits.min_pixels || !has_sound_bounds(picture, points, point_count))
            continue;
        if (!fitter.reserve(point_count))
            return false;
        OvalFit oval;
        if (fitter.fit(points, point_count, oval) && is_accepted(oval, limits) &&
            !found.append(record_of(oval, pixel_count, point_count), points))
            return false;
    }
    return true;
}

} // namespace

extern "C" {

std::int32_t find_ellipse(const std::uint8_t* image, std::int32_t width, std::int32_t height, EllipseRegion** regions,
                          std::int32_t min_pixels, std::int32_t max_rms, std::int32_t divisions)
{
    *regions = nullptr;
    if (width < 3 || height < 3)
        return 0;
    const Picture picture{image, width, height};
    OutlineList outlines;
    if (!trace_dark_outlines(picture, divisions, outlines) || outlines.pixel_count == 0)
        return 0;
    FoundRegions found;
    if (!found.open() || !measure_outlines(picture, outlines, {min_pixels, max_rms}, found))
        return 0;
    return found.release(regions);
}

} // extern "C"
