// SPDX-License-Identifier: MIT
#include "cli/base/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <vector>

namespace panoval::cli::test
{

namespace
{

TEST(Parallel, WorkIsDoneOnceEach)
{
    for (const std::size_t count : {0u, 1u, 2u, 3u, 100u}) {
        std::vector<std::atomic<int>> done(count);
        run_in_parallel(count, [&](std::size_t i) { ++done[i]; });
        for (const auto& times : done)
            EXPECT_EQ(times, 1);
    }
}

TEST(Parallel, TheFirstFailureIsThrownWhenAllHaveEnded)
{
    std::atomic<int> ended{0};
    const auto work = [&](std::size_t i) {
        ++ended;
        if (i == 3 || i == 7)
            throw std::runtime_error(std::to_string(i));
    };
    try {
        run_in_parallel(10, work);
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "3");
    }
    EXPECT_EQ(ended, 10);
}

} // namespace

} // namespace panoval::cli::test
