// SPDX-License-Identifier: MIT
// Calls find_ellipse and takes everything that it leaves: records, points and the lines on standard output.
#pragma once

#include "panoval.h"
#include "tests/support/buffers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace panoval::test
{

struct Found {
    std::vector<EllipseRegion> records; // points is null
    std::vector<std::vector<std::int32_t>> points;
    std::string printed;
    bool array_is_null = true;
};

inline Found find_and_capture(const std::vector<std::uint8_t>& pixels, int width, int height, int min_pixels,
                              int max_rms, int divisions)
{
    const Guarded<std::uint8_t> image(pixels);
    Found found;
    EllipseRegion* regions = reinterpret_cast<EllipseRegion*>(std::uintptr_t{16});
    testing::internal::CaptureStdout();
    const int count = find_ellipse(image.data(), width, height, &regions, min_pixels, max_rms, divisions);
    std::fflush(stdout);
    EXPECT_TRUE(image.intact() && same_bits(image.values(), pixels)) << "the image is read only";
    found.printed = testing::internal::GetCapturedStdout();
    found.printed.erase(std::remove(found.printed.begin(), found.printed.end(), '\r'), found.printed.end());
    found.array_is_null = regions == nullptr;
    for (int i = 0; i < count; ++i) {
        EllipseRegion& region = regions[i];
        found.points.emplace_back(region.points, region.points + region.point_count);
        std::free(region.points);
        region.points = nullptr;
        found.records.push_back(region);
    }
    std::free(regions);
    return found;
}

// All numbers of a record, so that two records can be compared bit by bit.
inline std::array<double, 10> fields_of(const EllipseRegion& region)
{
    return {region.cx,
            region.cy,
            region.major,
            region.minor,
            region.angle,
            static_cast<double>(region.pixel_count),
            static_cast<double>(region.point_count),
            region.reserved[0],
            region.reserved[1],
            region.rms};
}

} // namespace panoval::test
