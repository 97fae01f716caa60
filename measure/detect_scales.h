// SPDX-License-Identifier: MIT
// The picture that detection looks at: 16 bit, smoothed, and the same at half, a quarter, ... of the size, so that
// faint and blurred targets show the same few pixels of edge that sharp ones show at full size.
#pragma once

#include "core/heap.h"
#include "panoval_measure.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::measure
{

// One size of the picture. A pixel of scale k covers 2^k x 2^k pixels.
struct Scale {
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t index = 0;
    HeapArray<std::uint16_t> samples; // smoothed with 1 2 1 in each direction
    HeapArray<std::uint8_t> edges;    // EdgeMark
    float edge_gradient = 0;          // units per pixel of this scale that noise does not reach

    std::size_t at(std::int32_t x, std::int32_t y) const noexcept
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
    }
    double pixels() const noexcept { return static_cast<double>(std::int64_t{1} << index); }
    // Where this scale's pixel coordinate lies in the picture.
    double to_picture(double coordinate) const noexcept { return coordinate * pixels() + (pixels() - 1) / 2; }
};

// How samples become 16-bit units: (sample - offset) * factor, limited to 0 .. 65535.
struct UnitScale {
    double offset = 0;
    double factor = 1;
};

UnitScale unit_scale_of(const PanovalMeasureImage& image) noexcept;

// Deviation of the noise in units, from differences that straight edges and slopes do not show. Never below what
// rounding to integer samples makes of slow changes.
double noise_of(const PanovalMeasureImage& image, const UnitScale& units);

// All sizes of the picture down to a few pixels. Empty when the heap is exhausted.
std::vector<Scale> scales_of(const PanovalMeasureImage& image, const UnitScale& units);

} // namespace panoval::measure
