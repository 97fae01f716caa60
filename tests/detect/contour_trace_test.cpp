// SPDX-License-Identifier: MIT
#include "detect/contour_trace.h"
#include "tests/reference/contour_trace.h"
#include "tests/support/buffers.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace
{

using namespace panoval;
using namespace panoval::test;

struct Map {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels; // 0 or 1
};

// '#' is foreground, anything else background.
Map drawn(const std::vector<std::string>& rows)
{
    Map map{static_cast<int>(rows[0].size()), static_cast<int>(rows.size()), {}};
    for (const std::string& row : rows)
        for (const char c : row)
            map.pixels.push_back(c == '#' ? 1 : 0);
    return map;
}

Map empty_map(int width, int height)
{
    return {width, height,
            std::vector<std::uint8_t>(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))};
}

// Each pixel is foreground with the given probability.
Map speckled(int width, int height, double density, std::uint64_t seed)
{
    Map map = empty_map(width, height);
    Random random(seed);
    for (std::uint8_t& pixel : map.pixels)
        pixel = random.unit() < density ? 1 : 0;
    return map;
}

OutlineList trace(const Map& map)
{
    const Guarded<std::uint8_t> foreground(map.pixels);
    OutlineList list;
    EXPECT_TRUE(trace_contours(map.width, map.height, foreground.data(), list));
    return list;
}

std::vector<std::int32_t> points_of(const OutlineList& list, int index)
{
    const Outline& outline = list.outlines[static_cast<std::size_t>(index)];
    return {list.pixels.get() + outline.begin, list.pixels.get() + outline.end};
}

std::vector<std::vector<std::int32_t>> all_points_of(const OutlineList& list)
{
    std::vector<std::vector<std::int32_t>> all;
    for (int i = 0; i < list.count; ++i)
        all.push_back(points_of(list, i));
    return all;
}

// The label map that the list stands for. Pixels after the last outline carry the label that it would have had.
std::vector<std::uint32_t> labels_of(const OutlineList& list, const Map& map)
{
    std::vector<std::uint32_t> labels(map.pixels.size(), 0);
    std::int32_t i = 0;
    for (int r = 0; r <= list.count; ++r) {
        const std::int32_t end = r < list.count ? list.outlines[static_cast<std::size_t>(r)].end : list.pixel_count;
        if (r < list.count) {
            EXPECT_EQ(list.outlines[static_cast<std::size_t>(r)].labelled_begin, i);
        }
        for (; i < end; ++i)
            labels[static_cast<std::size_t>(list.pixels[static_cast<std::size_t>(i)])] =
                static_cast<std::uint32_t>(r) + 2;
    }
    return labels;
}

testing::AssertionResult equals_twin(const Map& map)
{
    const OutlineList list = trace(map);
    const auto twin = reference::trace_contours(map.width, map.height, {map.pixels.begin(), map.pixels.end()});
    if (all_points_of(list) != twin.outlines)
        return testing::AssertionFailure() << list.count << " outlines, " << twin.outlines.size() << " in the twin";
    if ((list.pixel_count > 0) != twin.any_opened)
        return testing::AssertionFailure() << "only one of the two opened an outline";
    return same_bits(labels_of(list, map), twin.labels);
}

// Every pattern of the inner width x height pixels, between frames of the given value.
void try_all_patterns(int inner_width, int inner_height, std::uint8_t frame)
{
    const int cells = inner_width * inner_height;
    Map map = empty_map(inner_width + 2, inner_height + 2);
    map.pixels.assign(map.pixels.size(), frame);
    for (std::uint32_t pattern = 0; pattern < 1u << cells; ++pattern) {
        for (int i = 0; i < cells; ++i) {
            const int index = (i / inner_width + 1) * map.width + i % inner_width + 1;
            map.pixels[static_cast<std::size_t>(index)] = (pattern >> i) & 1u;
        }
        ASSERT_TRUE(equals_twin(map)) << "pattern " << pattern << " of " << inner_width << " x " << inner_height;
    }
}

TEST(ContourTrace, RunsOnceClockwiseAroundAFilledRectangle)
{
    const OutlineList list = trace(drawn({
        "......", //
        ".####.", //
        ".####.", //
        ".####.", //
        "......", //
    }));
    ASSERT_EQ(list.count, 1);
    EXPECT_EQ(points_of(list, 0), (std::vector<std::int32_t>{7, 8, 9, 10, 16, 22, 21, 20, 19, 13}));
}

TEST(ContourTrace, AbandonsAnIsolatedPixelButKeepsItsLabel)
{
    const Map map = drawn({"...", ".#.", "..."});
    const OutlineList list = trace(map);
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.pixel_count, 1);
    EXPECT_EQ(labels_of(list, map)[4], 2u);
}

TEST(ContourTrace, GivesTheLabelsOfAbandonedPixelsToTheNextOutline)
{
    const OutlineList list = trace(drawn({
        ".........", //
        ".#.......", //
        ".......#.", //
        ".........", //
        "..###....", //
        "..###..#.", //
        "..###....", //
        ".........", //
    }));
    ASSERT_EQ(list.count, 1);
    const Outline& outline = list.outlines[0];
    EXPECT_EQ(outline.end - outline.begin, 8);
    EXPECT_EQ(outline.begin - outline.labelled_begin, 2);
    EXPECT_EQ(list.pixels[0], 10);
    EXPECT_EQ(list.pixels[1], 25);
    EXPECT_EQ(list.pixel_count, 11); // the last isolated pixel has the label of an outline that never came
}

TEST(ContourTrace, NumbersBlobsInRasterOrderOfTheirFirstPixels)
{
    const Map map = drawn({
        "..........", //
        "......###.", //
        ".###..###.", //
        ".###..###.", //
        ".###......", //
        "..........", //
    });
    const OutlineList list = trace(map);
    ASSERT_EQ(list.count, 2);
    EXPECT_EQ(points_of(list, 0)[0], 16);
    EXPECT_EQ(points_of(list, 1)[0], 21);
    EXPECT_EQ(labels_of(list, map)[16], 2u);
    EXPECT_EQ(labels_of(list, map)[21], 3u);
}

TEST(ContourTrace, ClosesAPairOfPixels)
{
    const OutlineList list = trace(drawn({"....", ".##.", "...."}));
    ASSERT_EQ(list.count, 1);
    EXPECT_EQ(points_of(list, 0), (std::vector<std::int32_t>{5, 6}));
}

TEST(ContourTrace, ClosesAStraightLineOnlyThroughItsFirstTwoPixels)
{
    // At the end of the line only the pixel just left is found, which is not the first one: back to the start.
    const OutlineList list = trace(drawn({".....", ".###.", "....."}));
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.pixel_count, 1);
}

TEST(ContourTrace, ClearsTheDeadEndThatItBacksOutOf)
{
    const Map map = drawn({
        ".........", //
        ".#####...", //
        ".#####...", //
        ".########", //
        ".#####...", //
        ".........", //
    });
    EXPECT_TRUE(equals_twin(map));
    const OutlineList list = trace(map);
    ASSERT_EQ(list.count, 1);
    for (const std::int32_t pixel : points_of(list, 0))
        EXPECT_NE(pixel % map.width, 7) << "the tip of the spike";
    EXPECT_EQ(labels_of(list, map)[3 * 9 + 7], 0u);
}

TEST(ContourTrace, FindsNothingInAnImageWithoutInterior)
{
    for (const auto& [width, height] : {std::pair{0, 0}, {1, 9}, {2, 9}, {9, 1}, {9, 2}, {2, 2}, {-3, 5}, {5, -3}}) {
        const std::vector<std::uint8_t> map(32, 1);
        OutlineList list;
        EXPECT_TRUE(trace_contours(width, height, map.data(), list));
        EXPECT_EQ(list.count, 0);
        EXPECT_EQ(list.pixel_count, 0);
    }
}

TEST(ContourTrace, NeverMarksThePixelsOfTheImagesFrame)
{
    Map map = empty_map(9, 7);
    map.pixels.assign(map.pixels.size(), 1);
    EXPECT_EQ(trace(map).pixel_count, 0);
    map.pixels[0] = 0; // a corner is no 4-neighbour of the interior
    EXPECT_EQ(trace(map).pixel_count, 0);
    map.pixels[1] = 0;
    EXPECT_EQ(trace(map).pixel_count, 1);
}

TEST(ContourTrace, EqualsItsTwinOnEveryPatternOfUpTo16Pixels)
{
    try_all_patterns(3, 3, 0);
    try_all_patterns(3, 3, 1);
    try_all_patterns(4, 4, 0);
    try_all_patterns(5, 3, 0);
    try_all_patterns(5, 3, 1);
    try_all_patterns(2, 7, 0);
    try_all_patterns(14, 1, 0);
}

TEST(ContourTrace, EqualsItsTwinOnSpecklesOfEveryDensity)
{
    for_each_target([] {
        for (int percent = 1; percent < 100; percent += 2) {
            const int width = 3 + percent * 7 % 67;
            const int height = 3 + percent * 5 % 41;
            ASSERT_TRUE(equals_twin(speckled(width, height, percent / 100.0, static_cast<std::uint64_t>(percent))))
                << percent << " percent of " << width << " x " << height;
        }
    });
}

TEST(ContourTrace, EqualsItsTwinOnRings)
{
    for (int outer = 2; outer < 24; ++outer)
        for (int inner = 0; inner < outer; inner += 3) {
            Map map = empty_map(2 * outer + 5, 2 * outer + 4);
            for (int y = 0; y < map.height; ++y)
                for (int x = 0; x < map.width; ++x) {
                    const int d2 = (x - outer - 2) * (x - outer - 2) + (y - outer - 2) * (y - outer - 2);
                    if (d2 <= outer * outer && d2 >= inner * inner)
                        map.pixels[static_cast<std::size_t>(y * map.width + x)] = 1;
                }
            ASSERT_TRUE(equals_twin(map)) << "radii " << inner << " and " << outer;
        }
}

// An arm of the given width in pixels that winds around the middle; neighbouring turns are gap pixels apart.
Map spiral(int size, int arm, int gap)
{
    Map map = empty_map(size, size);
    const double pitch = arm + gap;
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            const double turns = std::atan2(y - size / 2, x - size / 2) / 6.283185307179586 + 0.5;
            const double radius = std::hypot(x - size / 2, y - size / 2);
            const bool on_arm = std::fmod(radius + (1 - turns) * pitch, pitch) < arm;
            map.pixels[static_cast<std::size_t>(y * size + x)] = on_arm && radius < size / 2 - 1 ? 1 : 0;
        }
    return map;
}

TEST(ContourTrace, EqualsItsTwinOnSpirals)
{
    for (int size = 8; size < 60; size += 3)
        for (int arm = 1; arm < 4; ++arm)
            for (int gap = 1; gap < 4; ++gap)
                ASSERT_TRUE(equals_twin(spiral(size, arm, gap))) << size << ", " << arm << ", " << gap;
}

TEST(ContourTrace, EqualsItsTwinOnCombsFullOfDeadEnds)
{
    for (int teeth = 1; teeth < 20; ++teeth)
        for (int pitch = 2; pitch < 5; ++pitch) {
            Map map = empty_map(teeth * pitch + 4, 16);
            for (int x = 2; x < map.width - 2; ++x)
                for (int y = 6; y < 9; ++y)
                    map.pixels[static_cast<std::size_t>(y * map.width + x)] = 1;
            for (int tooth = 0; tooth < teeth; ++tooth)
                for (int y = 2 + tooth % 3; y < 9 + tooth % 6; ++y)
                    map.pixels[static_cast<std::size_t>(y * map.width + 2 + tooth * pitch)] = 1;
            ASSERT_TRUE(equals_twin(map)) << teeth << " teeth, " << pitch << " apart";
        }
}

TEST(ContourTrace, EqualsItsTwinOnThresholdedPictures)
{
    for (const Content content : kAllContents)
        for (int seed = 0; seed < 4; ++seed) {
            const int width = 150 + seed;
            const int height = 90 - seed;
            Map map{width, height, picture(content, width, height, static_cast<std::uint64_t>(seed))};
            for (std::uint8_t& pixel : map.pixels)
                pixel = pixel <= 100 ? 1 : 0;
            ASSERT_TRUE(equals_twin(map)) << name_of(content);
        }
}

TEST(ContourTrace, MarksEqualTheirDefinitionForEveryTailAndAlignment)
{
    for_each_target([] {
        for (int width = 0; width <= 140; ++width)
            for (int percent : {50, 90}) {
                const Map map = speckled(width, 3, percent / 100.0, static_cast<std::uint64_t>(width));
                const Guarded<std::uint8_t> rows(map.pixels);
                Guarded<std::uint8_t> marks(static_cast<std::size_t>(width));
                std::vector<std::uint8_t> expected = marks.values();
                std::size_t expected_count = 0;
                for (int x = 1; x < width - 1; ++x) {
                    const auto i = static_cast<std::size_t>(x);
                    const auto w = static_cast<std::size_t>(width);
                    const bool inner =
                        rows.data()[i] && rows.data()[2 * w + i] && rows.data()[w + i - 1] && rows.data()[w + i + 1];
                    expected[i] = rows.data()[w + i] != 0 && !inner ? 1 : 0;
                    expected_count += expected[i];
                }
                const std::uint8_t* const up = rows.data();
                EXPECT_EQ(mark_boundary_row(up, up + width, up + 2 * width, width, marks.data()), expected_count);
                ASSERT_TRUE(same_bits(marks.values(), expected)) << "width " << width;
                ASSERT_TRUE(marks.intact());
            }
    });
}

TEST(ContourTrace, AllocatesNothingForAbandonedOutlines)
{
    Map map = empty_map(401, 401);
    for (int y = 1; y < 400; y += 2)
        for (int x = 1; x < 400; x += 2)
            map.pixels[static_cast<std::size_t>(y * 401 + x)] = 1;
    const FailingHeap heap;
    OutlineList list;
    ASSERT_TRUE(trace_contours(map.width, map.height, map.pixels.data(), list));
    EXPECT_EQ(list.count, 0);
    EXPECT_EQ(list.pixel_count, 200 * 200);
    EXPECT_EQ(heap.allocations(), 2u); // the marks and the list of pixels
}

TEST(ContourTrace, LeavesAnEmptyListAndNoBlockWithoutMemory)
{
    const Map map = speckled(200, 200, 0.4, 7); // enough outlines that their table grows
    for_each_failing_allocation([&](const FailingHeap& heap) {
        {
            OutlineList list;
            const bool done = trace_contours(map.width, map.height, map.pixels.data(), list);
            EXPECT_EQ(done, !heap.has_failed());
            EXPECT_EQ(list.count > 0, done);
            EXPECT_EQ(list.pixel_count > 0, done);
            EXPECT_EQ(list.pixels != nullptr, done);
        }
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
