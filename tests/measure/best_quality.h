// SPDX-License-Identifier: MIT
// What detection thinks of an outline in a picture, however little that is.
#pragma once

#include "panoval_measure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace panoval::test
{

// The best quality of the outlines for which is_meant(ellipse) is true; 0 if there is none.
template <class IsMeant>
double best_quality(const std::vector<std::uint8_t>& pixels, std::int32_t width, const IsMeant& is_meant)
{
    const auto height = static_cast<std::int32_t>(pixels.size()) / width;
    const PanovalMeasureImage image = {pixels.data(), width, height, width, PANOVAL_MEASURE_U8, 0};
    PanovalMeasureDetectOptions options = {};
    options.min_quality = -1;
    PanovalMeasureDetection detection = {};
    EXPECT_EQ(panoval_measure_detect(&image, &options, &detection), PANOVAL_MEASURE_OK);
    double best = 0;
    for (std::int32_t i = 0; i < detection.count; ++i)
        if (is_meant(detection.targets[i].ellipse))
            best = std::max(best, detection.targets[i].quality);
    panoval_measure_free(&detection);
    return best;
}

} // namespace panoval::test
