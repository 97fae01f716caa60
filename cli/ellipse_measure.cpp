// SPDX-License-Identifier: MIT
#include "cli/ellipse_measure.h"

#include "cli/errors.h"
#include "cli/system_info.h"

#include <algorithm>
#include <cmath>
#include <cstring>

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

// Samples are painted where the ring is looked at: the rows that it crosses are put back afterwards.
void measure_ring(Image& work, const Image& grey, Target& target)
{
    const double reach = 2 * target.semi_major + 1;
    target.is_ring_inside = target.x - reach >= 0 && target.y - reach >= 0 && target.x + reach <= grey.width - 1 &&
                            target.y + reach <= grey.height - 1;
    if (!target.is_ring_inside)
        return;
    // The finder takes full axes and looks along the ellipse of twice the size.
    const double ellipse[5] = {target.x, target.y, 2 * target.semi_major, 2 * target.semi_minor, target.angle};
    EllipseRegion* records = nullptr;
    const std::uint32_t count = find_small_ellipse(work.data.get(), work.width, work.height, ellipse, &records);
    for (std::uint32_t i = 0; i < count; ++i)
        target.ring.push_back({records[i].cx, records[i].cy, records[i].major});
    std::free(records);
    const auto top = static_cast<std::int32_t>(target.y - reach);
    const auto bottom = static_cast<std::int32_t>(target.y + reach);
    const auto rows = static_cast<std::size_t>(bottom - top + 1);
    std::memcpy(work.row(top), grey.row(top), rows * grey.row_bytes());
}

Image copy_of(const Image& image, const std::string& file)
{
    Image copy = make_image(image.width, image.height, image.channels, image.bits, file);
    std::memcpy(copy.data.get(), image.data.get(), image.bytes());
    return copy;
}

} // namespace

std::int32_t default_divisions(std::int32_t width, std::int32_t height)
{
    constexpr std::int32_t kTileSide = 100; // pixels
    return std::max(1, (std::min(width, height) + kTileSide / 2) / kTileSide);
}

Measurement measure_ellipses(const std::string& file, const Image& grey, const EllipseSettings& settings)
{
    Measurement result;
    result.file = file;
    result.width = grey.width;
    result.height = grey.height;
    result.divisions = divisions_for(file, grey, settings);

    const Stopwatch stopwatch;
    Regions regions;
    {
        const SilentStdout silence; // the finder prints a line for every fit that it rejects
        regions.count = find_ellipse(grey.data.get(), grey.width, grey.height, &regions.records, settings.min_pixels,
                                     settings.max_rms, result.divisions);
    }
    for (std::int32_t i = 0; i < regions.count; ++i)
        result.targets.push_back(target_of(regions.records[i]));
    if (settings.wants_ring) {
        Image work = copy_of(grey, file);
        for (Target& target : result.targets)
            measure_ring(work, grey, target);
    }
    result.seconds = stopwatch.seconds();
    return result;
}

} // namespace panoval::cli
