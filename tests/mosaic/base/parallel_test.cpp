// SPDX-License-Identifier: MIT
#include "mosaic/base/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

TEST(MosaicParallel, DoesEveryPieceOnceForAnyNumberOfThreads)
{
    for (const std::size_t threads : {0u, 1u, 2u, 5u, 40u}) {
        std::vector<std::atomic<int>> done(17);
        run_in_parallel(done.size(), threads, [&](std::size_t i) { ++done[i]; });
        for (std::size_t i = 0; i < done.size(); ++i)
            EXPECT_EQ(done[i], 1) << "piece " << i << ", " << threads << " threads";
    }
}

TEST(MosaicParallel, ThrowsTheFirstFailureAndBeginsNoFurtherPiece)
{
    std::atomic<int> begun{0};
    const auto work = [&](std::size_t i) {
        ++begun;
        if (i == 3)
            throw std::runtime_error("piece 3");
    };
    try {
        run_in_parallel(1000, 1, work);
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "piece 3");
    }
    EXPECT_EQ(begun, 4);
}

} // namespace

} // namespace panoval::mosaic::test
