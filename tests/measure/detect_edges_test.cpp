// SPDX-License-Identifier: MIT
#include "measure/detect_edges.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace
{

using panoval::measure::kEdge;
using panoval::measure::kNoEdge;
using panoval::measure::level_of_edge;
using panoval::measure::mark_edges;
using panoval::measure::Scale;

constexpr std::int32_t kHeight = 9;

// Every row is alike.
Scale scale_of(const std::vector<std::uint16_t>& row)
{
    Scale scale;
    scale.width = static_cast<std::int32_t>(row.size());
    scale.height = kHeight;
    const std::size_t count = row.size() * kHeight;
    scale.samples = panoval::allocate<std::uint16_t>(count);
    scale.edges = panoval::allocate<std::uint8_t>(count);
    for (std::size_t i = 0; i < count; ++i)
        scale.samples[i] = row[i % row.size()];
    return scale;
}

TEST(LevelOfEdge, IsHalfWayUpTheSteepestStep)
{
    const Scale scale = scale_of({100, 100, 100, 200, 900, 1000, 1000, 1000});
    EXPECT_DOUBLE_EQ(level_of_edge(scale, 3, 4), 200 + 0.5 * 0.5 * 800) << "half a pixel on, at most";
    const Scale even = scale_of({100, 100, 200, 550, 900, 1000, 1000, 1000});
    EXPECT_DOUBLE_EQ(level_of_edge(even, 3, 4), 550) << "the same on either side";
}

TEST(LevelOfEdge, IsThePixelsOwnOnAnEvenSlope)
{
    const Scale scale = scale_of({0, 100, 200, 300, 400, 500, 600, 700});
    EXPECT_EQ(level_of_edge(scale, 3, 4), 300);
}

TEST(MarkEdges, MarksTheSteepestPixelOfEachRow)
{
    Scale scale = scale_of({100, 100, 100, 200, 5000, 9800, 9900, 9900, 9900, 9900});
    mark_edges(scale, 10);
    for (std::int32_t y = 1; y + 1 < kHeight; ++y)
        for (std::int32_t x = 0; x < scale.width; ++x)
            EXPECT_EQ(scale.edges[scale.at(x, y)], x == 4 ? kEdge : kNoEdge) << x << ", " << y;
    EXPECT_EQ(scale.edges[scale.at(4, 0)], kNoEdge) << "the outermost row";
}

TEST(MarkEdges, MarksNothingThatNoiseReaches)
{
    Scale scale = scale_of({100, 100, 100, 110, 150, 190, 200, 200, 200, 200});
    mark_edges(scale, 1000);
    for (std::size_t i = 0; i < scale.at(0, kHeight); ++i)
        EXPECT_EQ(scale.edges[i], kNoEdge);
}

} // namespace
