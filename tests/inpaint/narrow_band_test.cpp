// SPDX-License-Identifier: MIT
#include "inpaint/narrow_band.h"
#include "tests/reference/inpaint.h"
#include "tests/support/failing_heap.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace
{

using namespace panoval;
using namespace panoval::test;

using Cells = std::vector<std::pair<std::int32_t, std::int32_t>>;

Cells popped_all(NarrowBand& band)
{
    Cells cells;
    std::int32_t row = 0;
    std::int32_t col = 0;
    while (narrow_band_pop(band, row, col))
        cells.emplace_back(row, col);
    return cells;
}

TEST(NarrowBand, GivesTheNearestCellFirstAndEqualDistancesInOrderOfArrival)
{
    NarrowBand band;
    ASSERT_TRUE(narrow_band_init(band, 7));
    const std::vector<float> distances = {2.0f, 0.0f, 1.5f, 0.0f, 2.0f, 1.5f, 0.0f};
    for (std::int32_t i = 0; i < 7; ++i)
        EXPECT_TRUE(narrow_band_push(band, i, 10 * i, distances[static_cast<std::size_t>(i)]));
    EXPECT_EQ(popped_all(band), (Cells{{1, 10}, {3, 30}, {6, 60}, {2, 20}, {5, 50}, {0, 0}, {4, 40}}));
}

TEST(NarrowBand, TakesBothZerosForEqual)
{
    NarrowBand band;
    ASSERT_TRUE(narrow_band_init(band, 3));
    narrow_band_push(band, 1, 0, 0.0f);
    narrow_band_push(band, 2, 0, -0.0f);
    narrow_band_push(band, 3, 0, 0.0f);
    EXPECT_EQ(popped_all(band), (Cells{{1, 0}, {2, 0}, {3, 0}}));
}

TEST(NarrowBand, TellsWhenItIsEmptyAndThenWritesNothing)
{
    NarrowBand band;
    ASSERT_TRUE(narrow_band_init(band, 1));
    std::int32_t row = 5;
    std::int32_t col = 6;
    EXPECT_FALSE(narrow_band_pop(band, row, col));
    EXPECT_EQ(row, 5);
    EXPECT_EQ(col, 6);
}

TEST(NarrowBand, TakesNothingBeyondItsCapacityUntilACellHasLeft)
{
    NarrowBand band;
    ASSERT_TRUE(narrow_band_init(band, 2));
    EXPECT_TRUE(narrow_band_push(band, 1, 1, 3.0f));
    EXPECT_TRUE(narrow_band_push(band, 2, 2, 2.0f));
    EXPECT_FALSE(narrow_band_push(band, 3, 3, 1.0f));
    std::int32_t row = 0;
    std::int32_t col = 0;
    EXPECT_TRUE(narrow_band_pop(band, row, col));
    EXPECT_EQ(row, 2);
    EXPECT_TRUE(narrow_band_push(band, 4, 4, 1.0f));
    EXPECT_EQ(popped_all(band), (Cells{{4, 4}, {1, 1}}));
}

TEST(NarrowBand, IsNotMadeWithoutRoomOrWithoutMemory)
{
    NarrowBand band;
    EXPECT_FALSE(narrow_band_init(band, 0));
    for_each_failing_allocation([](FailingHeap& heap) {
        {
            NarrowBand made;
            const bool is_made = narrow_band_init(made, 10);
            EXPECT_EQ(is_made, !heap.has_failed());
        }
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

TEST(NarrowBand, KeepsTheOrderOfASortedList)
{
    for (std::uint64_t seed = 0; seed < 10; ++seed) {
        constexpr std::int32_t kCapacity = 60;
        NarrowBand band;
        ASSERT_TRUE(narrow_band_init(band, kCapacity));
        reference::InpaintList list;
        ASSERT_TRUE(list.init(reference::InpaintBytes(kCapacity, 1, 1)));
        Random random(seed);
        for (std::int32_t step = 0; step < 3000; ++step)
            if (random.integer(0, 99) < 55) {
                // few levels, for equal distances, and sometimes any
                const auto distance = static_cast<float>(
                    random.integer(0, 3) != 0 ? static_cast<double>(random.integer(0, 9)) * 0.5 : random.real(0, 5));
                EXPECT_EQ(narrow_band_push(band, step, -step, distance), list.push(step, -step, distance));
            } else {
                std::int32_t row = -1;
                std::int32_t col = -1;
                std::int32_t list_row = -1;
                std::int32_t list_col = -1;
                EXPECT_EQ(narrow_band_pop(band, row, col), list.pop(list_row, list_col));
                ASSERT_EQ(row, list_row) << "seed " << seed << ", step " << step;
                ASSERT_EQ(col, list_col);
            }
    }
}

} // namespace
