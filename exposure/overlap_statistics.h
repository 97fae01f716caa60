// SPDX-License-Identifier: MIT
// What the gain compensators measure of a pair of placed images: how many pixels both cover, and how bright each is
// there.
#pragma once

#include "panoval.h"

#include <cstdint>

namespace panoval
{

struct PlacedImage {
    Point corner;
    const Mat* image;
    const Matb* mask;
};

// The sums run pixel by pixel over the whole overlap, or each row is summed by itself first. The last bits differ.
enum class SumOrder { PixelByPixel, RowByRow };

enum class Overlap { None, Measured, NoMemory }; // images of different formats need a copy

struct OverlapStatistics {
    Overlap overlap = Overlap::None;
    std::int32_t count = 0; // pixels that both cover, at least 1
    double mean_i = 0;      // mean pixel norm of image i over them
    double mean_j = 0;
};

OverlapStatistics measure_overlap(const PlacedImage& i, const PlacedImage& j, SumOrder order);

} // namespace panoval
