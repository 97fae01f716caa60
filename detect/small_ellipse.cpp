// SPDX-License-Identifier: MIT
// Bright features on a ring around a known ellipse: the ring is sampled, its samples are split into two classes, and
// each run of bright samples that covers a moderate angle gives one or two records. Every expression is evaluated as it
// is written, in double precision.
#include "core/elementary.h"
#include "core/heap.h"
#include "core/numbers.h"
#include "detect/histogram.h"
#include "detect/inside_mean.h"
#include "detect/ring_positions.h"
#include "panoval.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace panoval
{
namespace
{

constexpr double kTwoPi = 6.283185307179586;
constexpr double kBrightShareOfInside = 0.6;
// Of a run of bright samples, in radians.
constexpr double kSmallestExtent = 0.2;
constexpr double kLargestSingleExtent = 0.6;
constexpr double kLargestExtent = 1.2;

struct Image {
    std::uint8_t* pixels;
    std::int32_t width, height;

    bool contains(std::int32_t index) const
    {
        return index >= 0 &&
               index < static_cast<std::int64_t>(to_count(width)) * static_cast<std::int64_t>(to_count(height));
    }
};

// In ring order. The levels turn into flags once they are classified.
struct Ring {
    std::int32_t count;
    HeapArray<std::int32_t> index; // y * width + x; may lie outside the image
    HeapArray<std::uint8_t> level; // grey level, 0 outside the image; then 1 = bright, 0 = not

    bool is_bright(std::int32_t i) const { return level[static_cast<std::size_t>(i)] != 0; }
    std::int32_t next(std::int32_t i) const { return i + 1 == count ? 0 : i + 1; }
};

void sample(const Image& image, const RingShape& target, Ring& ring)
{
    std::int32_t x[kRingBatch];
    std::int32_t y[kRingBatch];
    for (std::int32_t first = 0; first < ring.count;) {
        const std::int32_t count = std::min(kRingBatch, ring.count - first);
        ring_positions(target, first, count, ring.count, x, y);
        for (std::int32_t i = 0; i < count; ++i) {
            const std::int32_t index = wrapping_add(wrapping_mul(y[i], image.width), x[i]);
            const auto at = static_cast<std::size_t>(first) + static_cast<std::size_t>(i);
            ring.index[at] = index;
            ring.level[at] = image.contains(index) ? image.pixels[index] : std::uint8_t{0};
        }
        first += count;
    }
}

std::int32_t threshold_of(const Ring& ring)
{
    double bins[kGreyLevels] = {};
    for (std::int32_t i = 0; i < ring.count; ++i)
        bins[ring.level[static_cast<std::size_t>(i)]] += 1.0;
    for (double& bin : bins)
        bin /= ring.count;
    return between_class_threshold(bins);
}

// The ellipse itself is half as large as its ring: the ring's semi-axes are its full axes.
std::int32_t mean_inside(const Image& image, const RingShape& target)
{
    const double a = target.a / 2;
    const double b = target.b / 2;
    const double c = truncate_to_int(std::sqrt(a * a - b * b));
    const Foci foci = {static_cast<double>(truncate_to_int(target.x - c * target.cosine)),
                       static_cast<double>(truncate_to_int(target.y - c * target.sine)),
                       static_cast<double>(truncate_to_int(target.x + c * target.cosine)),
                       static_cast<double>(truncate_to_int(target.y + c * target.sine)), target.a};
    return mean_inside(image.pixels, image.width, image.height, foci);
}

// Turns levels into flags and paints them into the image.
void classify(const Image& image, std::int32_t threshold, std::int32_t inside, Ring& ring)
{
    for (std::int32_t i = 0; i < ring.count; ++i) {
        std::uint8_t& level = ring.level[static_cast<std::size_t>(i)];
        const std::int32_t index = ring.index[static_cast<std::size_t>(i)];
        const bool is_bright = level > threshold && level > kBrightShareOfInside * inside;
        level = is_bright ? 1 : 0;
        if (image.contains(index))
            image.pixels[index] = is_bright ? 0 : 255;
    }
}

// The first sample that is dark and has a bright successor; -1 without one.
std::int32_t first_rise(const Ring& ring)
{
    for (std::int32_t i = 0; i < ring.count; ++i)
        if (!ring.is_bright(i) && ring.is_bright(ring.next(i)))
            return i;
    return -1;
}

struct Pixel {
    std::int32_t column, row;
};

Pixel pixel_of(std::int32_t index, std::int32_t width)
{
    return {index % width, index / width};
}

// The angle of a ring sample in the ellipse's frame, its minor direction stretched to a circle. Positions count from
// the middle of the image, on purpose.
double stretched_angle(const Image& image, const RingShape& target, std::int32_t index)
{
    const Pixel pixel = pixel_of(index, image.width);
    const Pixel middle = {image.width / 2, image.height / 2};
    const double x = static_cast<double>(pixel.column) - middle.column;
    const double y = static_cast<double>(pixel.row) - middle.row;
    const double stretch = target.a / target.b;
    return panoval::atan2(stretch * (y * target.cosine - x * target.sine), x * target.cosine + y * target.sine);
}

class Records
{
public:
    // False when the heap is exhausted.
    bool add(Pixel at, std::int64_t size)
    {
        if (count_ == capacity_) {
            const std::size_t more = capacity_ == 0 ? 8 : 2 * capacity_;
            if (!grow(records_, more))
                return false;
            capacity_ = more;
        }
        EllipseRegion record = {};
        record.cx = at.column;
        record.cy = at.row;
        record.major = record.minor = static_cast<double>(size);
        records_[count_++] = record;
        return true;
    }

    std::size_t count() const { return count_; }
    EllipseRegion* release() { return records_.release(); }

private:
    HeapArray<EllipseRegion> records_;
    std::size_t count_ = 0;
    std::size_t capacity_ = 0;
};

// One run of bright samples: start is the dark sample before it, end its last one, beyond count where the run passes
// the ring's origin. False when the heap is exhausted.
bool report_run(const Image& image, const RingShape& target, const Ring& ring, std::int64_t start, std::int64_t end,
                Records& records)
{
    const auto index_at = [&](std::int64_t i) { return ring.index[static_cast<std::size_t>(i % ring.count)]; };
    const auto add = [&](std::int64_t i, std::int64_t size) {
        return records.add(pixel_of(index_at(i), image.width), size);
    };
    double extent = stretched_angle(image, target, index_at(end)) - stretched_angle(image, target, index_at(start));
    if (extent < 0)
        extent += kTwoPi;
    if (!(extent > kSmallestExtent && extent < kLargestExtent))
        return true;
    if (extent > kLargestSingleExtent) {
        const std::int64_t quarter = (end - start) / 4;
        return add(start + quarter, quarter) && add(end - quarter, quarter);
    }
    return add((start + end) / 2, (end - start) / 2);
}

bool report_runs(const Image& image, const RingShape& target, const Ring& ring, std::int32_t first, Records& records)
{
    std::int64_t start = first;
    std::int32_t k = first;
    for (std::int32_t j = 0; j < ring.count; ++j) {
        const std::int32_t next = ring.next(k);
        if (!ring.is_bright(k) && ring.is_bright(next))
            start = k;
        if (ring.is_bright(k) && !ring.is_bright(next)) {
            const std::int64_t end = k < first ? static_cast<std::int64_t>(k) + ring.count : k;
            if (!report_run(image, target, ring, start, end, records))
                return false;
        }
        k = next;
    }
    return true;
}

std::int32_t sample_count(const RingShape& target)
{
    return truncate_to_int((2 * target.a - 2 * target.b) * 4 + 2 * target.b * kTwoPi);
}

} // namespace
} // namespace panoval

extern "C" PANOVAL_API uint32_t find_small_ellipse(uint8_t* image, int32_t width, int32_t height, const double* ellipse,
                                                   EllipseRegion** regions)
{
    using namespace panoval;
    *regions = nullptr;
    const RingShape target = {
        ellipse[0], ellipse[1], ellipse[2], ellipse[3], panoval::cos(ellipse[4]), panoval::sin(ellipse[4])};
    const Image picture = {image, width, height};
    Ring ring = {sample_count(target), {}, {}};
    if (ring.count < 1 || target.b == 0)
        return 0;
    ring.index = allocate<std::int32_t>(to_count(ring.count));
    ring.level = allocate<std::uint8_t>(to_count(ring.count));
    if (!ring.index || !ring.level)
        return 0;

    sample(picture, target, ring);
    const std::int32_t threshold = threshold_of(ring);
    if (threshold <= 0)
        return 0;
    classify(picture, threshold, mean_inside(picture, target), ring);
    const std::int32_t first = first_rise(ring);
    if (first < 0)
        return 0;
    Records records;
    if (!report_runs(picture, target, ring, first, records) || records.count() == 0)
        return 0;
    *regions = records.release();
    return static_cast<std::uint32_t>(records.count());
}
