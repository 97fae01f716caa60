// SPDX-License-Identifier: MIT
#include "mosaic/base/unset_vector.h"

#include "mosaic/base/plane.h"
#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

namespace panoval::mosaic::test
{

namespace
{

TEST(UnsetVector, UsesItsMemoryAgainAndLeavesItAsItIs)
{
    UnsetVector<std::int32_t> values;
    resize_unset(values, 100);
    std::fill(values.begin(), values.end(), 7);
    const std::int32_t* const block = values.data();
    resize_unset(values, 60);
    EXPECT_EQ(values.size(), 60u);
    EXPECT_EQ(values.data(), block);
    EXPECT_EQ(std::count(values.begin(), values.end(), 7), 60);
    resize_unset(values, 1000);
    EXPECT_EQ(values.size(), 1000u);
}

TEST(UnsetVector, TakesAValueWhereOneIsGiven)
{
    const UnsetVector<float> values(50, 2.5f);
    EXPECT_EQ(std::count(values.begin(), values.end(), 2.5f), 50);
    const Plane<float> plane({0, 0, 6, 7}, 3);
    EXPECT_EQ(std::count(plane.data.begin(), plane.data.end(), 0.0f), 6 * 7 * 3);
}

TEST(UnsetVector, TakesBlocksOfAnyOther)
{
    EXPECT_TRUE(UnsetAllocator<float>() == UnsetAllocator<float>());
}

TEST(UnsetVector, SaysThatTheHeapIsExhausted)
{
    UnsetVector<double> values;
    const panoval::test::FailingHeap heap(0);
    EXPECT_THROW(resize_unset(values, 1000), std::bad_alloc);
    EXPECT_TRUE(heap.has_failed());
    EXPECT_TRUE(values.empty());
}

} // namespace

} // namespace panoval::mosaic::test
