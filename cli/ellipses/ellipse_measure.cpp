// SPDX-License-Identifier: MIT
#include "cli/ellipses/ellipse_measure.h"

#include "cli/base/errors.h"
#include "cli/base/exhausted_heap.h"
#include "cli/base/system_info.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace panoval::cli
{

namespace
{

constexpr std::int32_t kSmallestSide = 3; // pixels; below it the finder finds nothing

// The result array of find_ellipse, with the outlines of its first `count` records.
class Regions
{
public:
    Regions() = default;
    Regions(const Regions&) = delete;
    Regions& operator=(const Regions&) = delete;
    ~Regions()
    {
        for (std::int32_t i = 0; i < count; ++i)
            std::free(records[i].points);
        std::free(records);
    }

    EllipseRegion* records = nullptr;
    std::int32_t count = 0;
};

std::int32_t divisions_for(const std::string& file, const Image& grey, const EllipseSettings& settings)
{
    const std::int32_t most = std::min(grey.width, grey.height);
    if (most < kSmallestSide)
        fail_input(file, describe(grey), concat("at least ", kSmallestSide, " pixels on each side"));
    if (!settings.divisions.has_value())
        return default_divisions(grey.width, grey.height);
    if (*settings.divisions > most)
        fail_input(file, concat("--divisions ", *settings.divisions, " for ", describe(grey)),
                   concat("1 to ", most, ", the smaller side"));
    return *settings.divisions;
}

Target target_of(const EllipseRegion& region)
{
    Target target;
    target.x = region.cx;
    target.y = region.cy;
    target.semi_major = region.major;
    target.semi_minor = region.minor;
    target.angle = region.angle;
    target.rms = region.rms;
    target.pixel_count = region.pixel_count;
    target.outline_points = region.point_count;
    return target;
}

// How far the ring of twice the target's size reaches from its centre, with a pixel for the rounding of its samples.
struct Reach {
    double x, y;

    explicit Reach(const Target& target)
    {
        const double cosine = std::cos(target.angle);
        const double sine = std::sin(target.angle);
        x = 2 * std::hypot(target.semi_major * cosine, target.semi_minor * sine) + 1;
        y = 2 * std::hypot(target.semi_major * sine, target.semi_minor * cosine) + 1;
    }
};

bool lies_inside(const Image& grey, const Target& target, const Reach& reach)
{
    return target.x - reach.x >= 0 && target.y - reach.y >= 0 && target.x + reach.x <= grey.width - 1 &&
           target.y + reach.y <= grey.height - 1;
}

// The finder gets a picture of the ring with the target in its middle: it takes the angles that marks span from there,
// and paints where it looks.
void measure_ring(const Image& grey, const std::string& file, Target& target)
{
    const Reach reach(target);
    target.is_ring_inside = lies_inside(grey, target, reach);
    if (!target.is_ring_inside)
        return;
    const auto column = static_cast<std::int32_t>(std::lround(target.x));
    const auto row = static_cast<std::int32_t>(std::lround(target.y));
    const auto right = static_cast<std::int32_t>(reach.x) + 1; // pixels beside the middle one
    const auto below = static_cast<std::int32_t>(reach.y) + 1;
    const Roi surroundings = {column - right, row - below, 2 * right + 1, 2 * below + 1};
    const Matb picture = {grey.width, grey.height, 1, grey.data.get()};
    Matb cut = {0, 0, 0, nullptr};
    get_sub_mask(&picture, &surroundings, &cut);
    const Block pixels(cut.data);
    const auto pixels_of_ring =
        static_cast<std::uint64_t>(surroundings.width) * static_cast<std::uint64_t>(surroundings.height);
    if (pixels == nullptr)
        fail_memory(file, pixels_of_ring);

    // The finder takes full axes and looks along the ellipse of twice the size.
    const double ellipse[5] = {target.x - surroundings.x, target.y - surroundings.y, 2 * target.semi_major,
                               2 * target.semi_minor, target.angle};
    EllipseRegion* records = nullptr;
    const HeapWatch watch;
    const std::uint32_t count = find_small_ellipse(pixels.get(), cut.width, cut.height, ellipse, &records);
    for (std::uint32_t i = 0; i < count; ++i)
        target.ring.push_back({records[i].cx + surroundings.x, records[i].cy + surroundings.y, records[i].major});
    std::free(records);
    if (watch.has_failed())
        fail_memory(file, pixels_of_ring);
}

} // namespace

std::int32_t default_divisions(std::int32_t width, std::int32_t height)
{
    constexpr std::int32_t kTileSide = 100; // pixels
    return std::max(1, (std::min(width, height) + kTileSide / 2) / kTileSide);
}

namespace
{

// Bytes a pixel that the finder may need for its map and its outlines. It finds nothing where it has less.
constexpr std::size_t kFinderBytes = 10;

Measurement measure_with_finder(const std::string& file, const Image& grey, const EllipseSettings& settings)
{
    Measurement result;
    result.divisions = divisions_for(file, grey, settings);
    need_memory(kFinderBytes * grey.pixels(), file);
    Regions regions;
    const HeapWatch watch;
    {
        const SilentStdout silence; // the finder prints a line for every fit that it rejects
        regions.count = find_ellipse(grey.data.get(), grey.width, grey.height, &regions.records, settings.min_pixels,
                                     settings.max_rms, result.divisions);
    }
    if (watch.has_failed())
        fail_memory(file, kFinderBytes * grey.pixels());
    for (std::int32_t i = 0; i < regions.count; ++i)
        result.targets.push_back(target_of(regions.records[i]));
    if (result.targets.empty())
        result.nothing_because = "no dark outline is long enough and oval enough";
    return result;
}

} // namespace

void measure_rings(const std::string& file, const Image& grey, Measurement& measurement)
{
    for (Target& target : measurement.targets)
        measure_ring(grey, file, target);
}

Measurement measure_ellipses(const std::string& file, const Image& grey, const EllipseSettings& settings)
{
    const Stopwatch stopwatch;
    Measurement result = settings.method == Method::Precise ? measure_precisely(file, grey, settings)
                                                            : measure_with_finder(file, grey, settings);
    result.file = file;
    result.width = grey.width;
    result.height = grey.height;
    result.bits = grey.bits;
    result.method = settings.method;
    result.seconds = stopwatch.seconds();
    return result;
}

} // namespace panoval::cli
