// SPDX-License-Identifier: MIT
// Pixels where a smoothed picture is steepest across an edge.
#pragma once

#include "measure/detect_scales.h"

#include <cstdint>
#include <cstring>

namespace panoval::measure
{

enum EdgeMark : std::uint8_t {
    kNoEdge = 0,
    kEdge = 1,
    kSeen = 2 // an edge that an outline has passed
};

struct Gradient {
    float x;
    float y;
};

// Of the pixel, which is none of the outermost.
inline Gradient gradient_at(const Scale& scale, std::int32_t x, std::int32_t y) noexcept
{
    const std::uint16_t* const p = scale.samples.get() + scale.at(x, y);
    return {0.5f * static_cast<float>(p[1] - p[-1]), 0.5f * static_cast<float>(p[scale.width] - p[-scale.width])};
}

// The first column from x on, before end, whose mark is not kNoEdge; end if there is none.
inline std::int32_t next_mark(const std::uint8_t* marks, std::int32_t x, std::int32_t end) noexcept
{
    constexpr std::int32_t kAtOnce = 8;
    std::uint64_t several = 0;
    static_assert(sizeof(several) == kAtOnce && kNoEdge == 0);
    while (x + kAtOnce <= end) {
        std::memcpy(&several, marks + x, kAtOnce);
        if (several != 0)
            break;
        x += kAtOnce;
    }
    while (x < end && marks[x] == kNoEdge)
        ++x;
    return x;
}

// Sets the scale's edge_gradient for a picture of that noise, and its edges: where the gradient is above it and the
// longest across the edge.
void mark_edges(Scale& scale, double noise);

// The level half way up the edge at an edge pixel.
double level_of_edge(const Scale& scale, std::int32_t x, std::int32_t y) noexcept;

} // namespace panoval::measure
