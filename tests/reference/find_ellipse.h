// SPDX-License-Identifier: MIT
// The definition of the ellipse finder: every scratch image in full, every step on its own. The lines that the routine
// prints are collected instead.
#pragma once

#include "panoval.h"
#include "tests/reference/contour_trace.h"
#include "tests/reference/edge_refine.h"
#include "tests/reference/oval_fit.h"
#include "tests/reference/smooth.h"
#include "tests/reference/tile_threshold.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace panoval::reference
{

struct FoundEllipses {
    std::vector<EllipseRegion> records;            // points is null
    std::vector<std::vector<std::int32_t>> points; // of each record
    std::vector<std::vector<std::int32_t>> traced; // every outline, kept or not
    std::vector<OvalFit> fits;                     // every ellipse that was fitted, kept or not
    std::string printed;
    bool array_is_null = true;
};

// The tests b to e of one record. True when it reaches the residual test, with its fit the last of `fits`.
inline bool passes_geometry(int width, int height, const std::int16_t* magnitude, EllipseRegion& region,
                            const std::vector<std::int32_t>& points, std::vector<OvalFit>& fits)
{
    region.cx = region.cx / region.pixel_count;
    if (region.cx < 0)
        region.cx = 0;
    if (region.cx >= width)
        region.cx = width - 1;
    region.cy = region.cy / region.pixel_count;
    if (region.cy < 0)
        region.cy = 0;
    if (region.cy >= height)
        region.cy = height - 1;

    int xmin = width;
    int xmax = 0;
    int ymin = height;
    int ymax = 0;
    for (const std::int32_t index : points) {
        xmin = std::min(xmin, index % width);
        xmax = std::max(xmax, index % width);
        ymin = std::min(ymin, index / width);
        ymax = std::max(ymax, index / width);
    }
    if (!(xmin >= 3 && ymin >= 3 && xmax < width - 3 && ymax < height - 3 && ymax != ymin))
        return false;

    const double aspect = static_cast<double>(std::abs(xmax - xmin)) / static_cast<double>(std::abs(ymax - ymin));
    if (!(aspect > 0.1 && aspect < 10.0))
        return false;

    std::vector<double> refined(2 * points.size());
    for (std::size_t i = 0; i < points.size(); ++i)
        refine_edge_point(width, height, magnitude, points[i] % width, points[i] / width, &refined[2 * i]);
    OvalFit fit;
    const int result = reference::oval_fit(static_cast<std::int32_t>(points.size()), refined.data(), &fit);
    if (result == 0)
        return false;
    fits.push_back(fit);
    return fit.x0 >= 0 && fit.y0 >= 0;
}

inline FoundEllipses find_ellipse(const std::vector<std::uint8_t>& image, int width, int height, int min_pixels,
                                  int max_rms, int divisions)
{
    FoundEllipses found;
    std::vector<std::uint8_t> smoothed(image.size());
    reference::smooth_image(image.data(), width, height, smoothed.data());
    const std::vector<std::int16_t> magnitude = gradient_magnitude(image, width, height);
    std::vector<std::uint32_t> map(image.size(), 0);
    adaptive_tile_threshold(width, height, smoothed.data(), map.data(), divisions);
    const TracedContours contours = trace_contours(width, height, map);
    found.array_is_null = !contours.any_opened;
    found.traced = contours.outlines;

    std::vector<EllipseRegion> regions(contours.outlines.size(), EllipseRegion{});
    for (int y = 1; y <= height - 2; ++y)
        for (int x = 1; x <= width - 2; ++x) {
            const std::uint32_t label = contours.labels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                                                        static_cast<std::size_t>(x)];
            if (label > 1 && label - 2 < regions.size()) {
                regions[label - 2].cx = regions[label - 2].cx + x;
                regions[label - 2].cy = regions[label - 2].cy + y;
                regions[label - 2].pixel_count = regions[label - 2].pixel_count + 1;
            }
        }

    for (std::size_t r = 0; r < regions.size(); ++r) {
        EllipseRegion& region = regions[r];
        const std::vector<std::int32_t>& points = contours.outlines[r];
        region.point_count = static_cast<std::int32_t>(points.size());
        if (!(region.pixel_count > 0 && region.point_count >= 1 && region.pixel_count >= min_pixels))
            continue;
        if (!passes_geometry(width, height, magnitude.data(), region, points, found.fits))
            continue;
        const OvalFit& fit = found.fits.back();
        region.cx = fit.x0;
        region.cy = fit.y0;
        region.major = fit.semi_major;
        region.minor = fit.semi_minor;
        region.angle = fit.theta;
        region.rms = fit.rms;
        if (static_cast<double>(max_rms) > region.rms) {
            found.records.push_back(region);
            found.points.push_back(points);
            continue;
        }
        char line[400];
        std::snprintf(line, sizeof line, "rms=%.2f\n", region.rms);
        found.printed += line;
    }
    return found;
}

} // namespace panoval::reference
