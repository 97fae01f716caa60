// SPDX-License-Identifier: MIT
// Measurements with a heap that gives out at any one allocation, and for good from any one on: the documented code,
// nothing leaked, nothing half written, and the whole result as soon as there is enough.
#include "panoval_measure.h"
#include "tests/scenes/target_scene.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace panoval::test
{

namespace
{

constexpr std::int32_t kSide = 72;

std::vector<std::uint8_t> picture_of_a_board(double inside = 60)
{
    TargetScene scene{.width = kSide, .height = kSide, .shapes = {}, .targets = {}, .noise = 1};
    for (int n = 0; n < 9; ++n)
        add_target(scene, 15.0 + 21 * (n % 3), 15.3 + 21 * (n / 3), 5, 4.5, 0.4, inside, 200);
    return render_8_bit(scene);
}

// body() is the code of a call.
template <class Body>
void for_each_exhaustion(const Body& body)
{
    for (const bool all_from : {false, true}) {
        bool is_refused = false;
        for (std::size_t fail_at = 0;; ++fail_at) {
            SCOPED_TRACE(testing::Message() << "allocation " << fail_at << (all_from ? " and all after it" : ""));
            FailingHeap heap(fail_at, all_from, true);
            const std::int32_t code = body();
            EXPECT_EQ(heap.live_blocks(), 0);
            if (code != PANOVAL_MEASURE_OK) { // sorting gets by without its buffer
                EXPECT_EQ(code, PANOVAL_MEASURE_NO_MEMORY);
                EXPECT_TRUE(heap.has_failed());
                is_refused = true;
            }
            if (!heap.has_failed())
                break;
        }
        EXPECT_TRUE(is_refused);
    }
}

TEST(MeasureHeap, DetectsEveryTargetOrSaysThatMemoryIsShort)
{
    for (const double inside : {60.0, 192.0}) { // plain, and faint: what surrounds it is looked at without it
        const std::vector<std::uint8_t> pixels = picture_of_a_board(inside);
        const PanovalMeasureImage image = {pixels.data(), kSide, kSide, kSide, PANOVAL_MEASURE_U8, 0};
        for_each_exhaustion([&image] {
            PanovalMeasureDetection detection = {};
            const std::int32_t code = panoval_measure_detect(&image, nullptr, &detection);
            EXPECT_EQ(detection.count, code == PANOVAL_MEASURE_OK ? 9 : 0);
            panoval_measure_free(&detection);
            return code;
        });
    }
}

// Each of the edges of a narrow ring is found without the other one.
TEST(MeasureHeap, DetectsBothEdgesOfARingOrSaysThatMemoryIsShort)
{
    TargetScene scene{.width = 40, .height = 40, .shapes = {}, .targets = {}, .blur = 0.9, .noise = 1};
    add_target(scene, 20.3, 19.8, 9, 8, 0.4, 60, 200);
    add_target(scene, 20.3, 19.8, 6, 5.2, 0.4, 200, 60);
    const std::vector<std::uint8_t> pixels = render_8_bit(scene);
    const PanovalMeasureImage image = {pixels.data(), 40, 40, 40, PANOVAL_MEASURE_U8, 0};
    for_each_exhaustion([&image] {
        PanovalMeasureDetection detection = {};
        const std::int32_t code = panoval_measure_detect(&image, nullptr, &detection);
        EXPECT_EQ(detection.count, code == PANOVAL_MEASURE_OK ? 2 : 0);
        panoval_measure_free(&detection);
        return code;
    });
}

// What is blurred is looked at again, farther around.
TEST(MeasureHeap, RefinesABlurredTargetOrSaysSoInTheRecord)
{
    TargetScene scene{.width = kSide, .height = kSide, .shapes = {}, .targets = {}, .blur = 3.5, .noise = 1};
    add_target(scene, 36.3, 35.8, 12, 11, 0.4, 60, 200);
    const std::vector<std::uint8_t> pixels = render_8_bit(scene);
    const PanovalMeasureImage image = {pixels.data(), kSide, kSide, kSide, PANOVAL_MEASURE_U8, 0};
    const PanovalMeasureEllipse start = {36, 36, 11, 11, 0};
    for_each_exhaustion([&] {
        PanovalMeasureTarget target = {};
        const std::int32_t code = panoval_measure_refine(&image, &start, 1, &target);
        EXPECT_EQ(target.code, code);
        return code;
    });
}

TEST(MeasureHeap, RefinesOrSaysSoInTheRecord)
{
    const std::vector<std::uint8_t> pixels = picture_of_a_board();
    const PanovalMeasureImage image = {pixels.data(), kSide, kSide, kSide, PANOVAL_MEASURE_U8, 0};
    const PanovalMeasureEllipse start = {15, 15, 5, 5, 0};
    for_each_exhaustion([&] {
        PanovalMeasureTarget target = {};
        const std::int32_t code = panoval_measure_refine(&image, &start, 1, &target);
        EXPECT_EQ(target.code, code);
        EXPECT_EQ(target.sigma_x > 0, code == PANOVAL_MEASURE_OK);
        return code;
    });
}

TEST(MeasureHeap, OrdersABoardOrWritesNothing)
{
    std::vector<PanovalMeasureTarget> targets(12);
    for (int n = 0; n < 12; ++n)
        targets[static_cast<std::size_t>(n)].ellipse = {20.0 * (n % 4), 20.0 * static_cast<int>(n / 4), 5, 5, 0};
    for_each_exhaustion([&targets] {
        PanovalMeasureGrid grid = {};
        PanovalMeasureGridCell cells[12] = {};
        const std::int32_t code = panoval_measure_grid(targets.data(), 12, 3, 4, &grid, cells);
        EXPECT_EQ(grid.found, code == PANOVAL_MEASURE_OK ? 12 : 0);
        return code;
    });
}

} // namespace

} // namespace panoval::test
