// SPDX-License-Identifier: MIT
#include "core/containers.h"

#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace
{

using panoval::reset_uncleared;
using panoval::test::FailingHeap;
using panoval::test::for_each_failing_allocation;

TEST(ResetUncleared, ShapesAnImageAsMatResetDoes)
{
    Mat cleared = {};
    Mat uncleared = {};
    for (const std::int32_t width : {0, 4, 9, 3, -2, 65536, 9}) {
        const std::int32_t height = width == 65536 ? 65536 : 5;
        MatReset(&cleared, width, height, 3, 2);
        ASSERT_TRUE(reset_uncleared(uncleared, width, height, 3, 2));
        EXPECT_EQ(std::memcmp(&cleared, &uncleared, offsetof(Mat, data)), 0) << width;
        EXPECT_EQ(cleared.data == nullptr, uncleared.data == nullptr) << width;
    }
    MatDestroy(&cleared);
    MatDestroy(&uncleared);
}

TEST(ResetUncleared, KeepsAnImageThatFitsAndItsContents)
{
    Mat m = {};
    ASSERT_TRUE(reset_uncleared(m, 10, 10, 1, 1));
    std::memset(m.data, 9, 100);
    const std::uint8_t* const block = m.data;
    ASSERT_TRUE(reset_uncleared(m, 10, 4, 1, 1));
    EXPECT_EQ(m.data, block);
    EXPECT_EQ(m.capacity, 100);
    EXPECT_EQ(m.data[0], 9);
    MatDestroy(&m);
}

TEST(ResetUncleared, ShapesATypedContainerAsItsResetDoes)
{
    Matd cleared = {};
    Matd uncleared = {};
    for (const std::int32_t width : {0, 4, 9, 3, -2, 65536, 9}) {
        const std::int32_t height = width == 65536 ? 65536 : 5;
        MatdReset(&cleared, width, height, 3);
        ASSERT_TRUE(reset_uncleared(uncleared, width, height, 3));
        EXPECT_EQ(uncleared.width, cleared.width);
        EXPECT_EQ(uncleared.height, cleared.height);
        EXPECT_EQ(uncleared.channels, cleared.channels);
        EXPECT_EQ(cleared.data == nullptr, uncleared.data == nullptr) << width;
    }
    std::free(cleared.data);
    std::free(uncleared.data);
}

TEST(ResetUncleared, WithoutMemoryLeavesTheRecordEmptyAndFreesTheOldBlock)
{
    for_each_failing_allocation([](FailingHeap& heap) {
        Mat m = {};
        Matf f = {};
        for (const std::int32_t width : {2, 200}) {
            if (!reset_uncleared(m, width, 2, 1, 1)) {
                const Mat empty = {};
                EXPECT_EQ(std::memcmp(&m, &empty, sizeof m), 0);
            }
            if (!reset_uncleared(f, width, 2, 1)) {
                EXPECT_EQ(f.width, 0);
                EXPECT_EQ(f.channels, 0);
                EXPECT_EQ(f.data, nullptr);
            }
        }
        MatDestroy(&m);
        std::free(f.data);
        EXPECT_EQ(heap.live_blocks(), 0);
    });
}

} // namespace
