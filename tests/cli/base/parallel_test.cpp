// SPDX-License-Identifier: MIT
#include "cli/base/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
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

// Pieces that wait for each other end only if as many run at a time.
TEST(Parallel, AsManyRunAtATimeAsAreAskedFor)
{
    constexpr std::size_t kThreads = 5;
    std::mutex mutex;
    std::condition_variable all_are_here;
    std::size_t here = 0;
    std::size_t together = 0;
    run_in_parallel(kThreads, kThreads, [&](std::size_t) {
        std::unique_lock<std::mutex> lock(mutex);
        ++here;
        all_are_here.notify_all();
        together += all_are_here.wait_for(lock, std::chrono::seconds(60), [&] { return here == kThreads; }) ? 1 : 0;
    });
    EXPECT_EQ(together, kThreads);
}

TEST(Parallel, OneThreadIsTheCallers)
{
    for (const std::size_t threads : {0u, 1u}) {
        const std::thread::id caller = std::this_thread::get_id();
        std::vector<std::size_t> order;
        run_in_parallel(4, threads, [&](std::size_t i) {
            EXPECT_EQ(std::this_thread::get_id(), caller);
            order.push_back(i);
        });
        EXPECT_EQ(order, (std::vector<std::size_t>{0, 1, 2, 3}));
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
