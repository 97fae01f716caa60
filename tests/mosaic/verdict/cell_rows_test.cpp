// SPDX-License-Identifier: MIT
#include "mosaic/verdict/cell_rows.h"

#include "tests/reference/cell_rows.h"
#include "tests/support/noise.h"
#include "tests/support/targets.h"

#include <gtest/gtest.h>

#include <vector>

namespace panoval::mosaic::test
{

namespace
{

using panoval::test::for_each_target;
using panoval::test::Random;

TEST(CellRows, SumsSamplesAndKeepsTheLargest)
{
    for_each_target([] {
        const std::uint8_t row[] = {10, 20, 255};
        std::uint16_t sums[] = {1, 0, 65280};
        std::uint8_t most[] = {11, 0, 7};
        sum_cell_row(row, 3, sums, most);
        EXPECT_EQ(std::vector<int>(sums, sums + 3), (std::vector<int>{11, 20, 65535}));
        EXPECT_EQ(std::vector<int>(most, most + 3), (std::vector<int>{11, 20, 255}));
    });
}

template <class Sample, class Sum>
void compare_with_twin()
{
    Random random(4);
    const int largest = static_cast<Sample>(~Sample{0});
    for (std::size_t offset = 0; offset < 4; ++offset)
        for (std::size_t count = 0; count <= 70; ++count) {
            std::vector<Sample> row(offset + count);
            std::vector<Sum> sums(offset + count);
            std::vector<Sample> most(offset + count);
            for (std::size_t i = 0; i < row.size(); ++i) {
                row[i] = static_cast<Sample>(random.integer(0, 1) * random.integer(0, largest));
                sums[i] = static_cast<Sum>(random.integer(0, largest) * 200);
                most[i] = static_cast<Sample>(random.integer(0, largest));
            }
            std::vector<Sum> expected_sums = sums;
            std::vector<Sample> expected_most = most;
            reference::sum_cell_row(row.data() + offset, count, expected_sums.data() + offset,
                                    expected_most.data() + offset);
            sum_cell_row(row.data() + offset, count, sums.data() + offset, most.data() + offset);
            EXPECT_EQ(sums, expected_sums) << count << " samples from " << offset;
            EXPECT_EQ(most, expected_most) << count << " samples from " << offset;
        }
}

TEST(CellRows, EqualsItsTwinForEveryTailAndOffset)
{
    for_each_target([] {
        compare_with_twin<std::uint8_t, std::uint16_t>();
        compare_with_twin<std::uint16_t, std::uint32_t>();
    });
}

TEST(CellRows, FoldsColumnsThatLieApart)
{
    for_each_target([] {
        std::uint16_t sums[] = {1, 2, 3, 4, 5};
        std::uint8_t most[] = {7, 0, 1, 9, 4};
        fold_cell_columns(5, 2, sums, most);
        EXPECT_EQ(std::vector<int>(sums, sums + 5), (std::vector<int>{4, 6, 8, 4, 5}));
        EXPECT_EQ(std::vector<int>(most, most + 5), (std::vector<int>{7, 9, 4, 9, 4}));
        fold_cell_columns(5, 6, sums, most); // nothing lies so far
        EXPECT_EQ(std::vector<int>(sums, sums + 5), (std::vector<int>{4, 6, 8, 4, 5}));
    });
}

template <class Sample, class Sum>
void compare_folds_with_twin()
{
    Random random(5);
    const int largest = static_cast<Sample>(~Sample{0});
    for (std::size_t distance = 1; distance <= 32; distance += distance < 5 ? 1 : 3)
        for (std::size_t count = 0; count <= 150; count += count < 70 ? 1 : 7) {
            std::vector<Sum> sums(count);
            std::vector<Sample> most(count);
            for (std::size_t i = 0; i < count; ++i) {
                sums[i] = static_cast<Sum>(random.integer(0, largest) * 100);
                most[i] = static_cast<Sample>(random.integer(0, largest));
            }
            std::vector<Sum> expected_sums = sums;
            std::vector<Sample> expected_most = most;
            reference::fold_cell_columns(count, distance, expected_sums.data(), expected_most.data());
            fold_cell_columns(count, distance, sums.data(), most.data());
            EXPECT_EQ(sums, expected_sums) << count << " columns, " << distance << " apart";
            EXPECT_EQ(most, expected_most) << count << " columns, " << distance << " apart";
        }
}

TEST(CellRows, FoldingEqualsItsTwinForEveryTailAndDistance)
{
    for_each_target([] {
        compare_folds_with_twin<std::uint8_t, std::uint16_t>();
        compare_folds_with_twin<std::uint16_t, std::uint32_t>();
    });
}

} // namespace

} // namespace panoval::mosaic::test
