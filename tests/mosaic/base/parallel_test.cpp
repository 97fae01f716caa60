// SPDX-License-Identifier: MIT
#include "mosaic/base/parallel.h"

#include "tests/support/failing_heap.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace panoval::mosaic::test
{

namespace
{

// Counts, and lets threads wait for a number. (GCC 12's std::atomic for Windows loses notices, so its wait may not
// end.)
class AwaitedCount
{
public:
    void add_one()
    {
        const std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }

    void wait_for(int count)
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return count_ >= count; });
    }

    int value()
    {
        const std::lock_guard lock(mutex_);
        return count_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

TEST(MosaicParallel, DoesEveryPieceOnceForAnyNumberOfThreads)
{
    for (const std::size_t threads : {0u, 1u, 2u, 5u, 40u}) {
        std::vector<std::atomic<int>> done(17);
        run_in_parallel(done.size(), threads, [&](std::size_t i) { ++done[i]; });
        for (std::size_t i = 0; i < done.size(); ++i)
            EXPECT_EQ(done[i], 1) << "piece " << i << ", " << threads << " threads";
    }
}

TEST(MosaicParallel, GoesBackwardsFromTheLastPieceToTheFirst)
{
    std::vector<std::size_t> order;
    run_backwards(5, 1, [&](std::size_t i) { order.push_back(i); });
    EXPECT_EQ(order, (std::vector<std::size_t>{4, 3, 2, 1, 0}));
    run_backwards(0, 3, [&](std::size_t i) { order.push_back(i); });
    EXPECT_EQ(order.size(), 5u);
    std::vector<std::atomic<int>> done(17);
    run_backwards(done.size(), 4, [&](std::size_t i) { ++done[i]; });
    for (std::size_t i = 0; i < done.size(); ++i)
        EXPECT_EQ(done[i], 1) << "piece " << i;
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

TEST(MosaicParallel, ACrewDoesWorkInsideWorkAndBesideIt)
{
    for (const std::size_t threads : {1u, 2u, 3u, 8u}) {
        std::vector<std::atomic<int>> done(60);
        std::atomic<std::size_t> at_work{0};
        std::atomic<std::size_t> most{0};
        const auto piece = [&](std::size_t i) {
            const std::size_t now = ++at_work;
            std::size_t known = most;
            while (known < now && !most.compare_exchange_weak(known, now)) {
            }
            ++done[i];
            --at_work;
        };
        Crew crew(threads);
        crew.begin_beside(
            3, [&](std::size_t i) { run_in_parallel(10, threads, [&](std::size_t k) { piece(10 * i + k); }); });
        for (std::size_t i = 3; i < 6; ++i)
            run_in_parallel(10, threads, [&](std::size_t k) { piece(10 * i + k); });
        crew.finish_beside();
        for (std::size_t i = 0; i < done.size(); ++i)
            EXPECT_EQ(done[i], 1) << "piece " << i << ", " << threads << " threads";
        EXPECT_LE(most, threads);
    }
}

TEST(MosaicParallel, WorkBesideGivesWayToWhatSomebodyWaitsFor)
{
    AwaitedCount begun_beside;
    AwaitedCount begun_runs;
    AwaitedCount of_helper; // pieces of the run
    std::atomic<int> of_helper_at_second{-1};
    Crew crew(2);
    crew.begin_beside(2, [&](std::size_t i) {
        if (i > 0) {
            of_helper_at_second = of_helper.value();
            return;
        }
        begun_beside.add_one();
        begun_runs.wait_for(1);
    });
    begun_beside.wait_for(1); // the helper is at its first piece
    run_in_parallel(3, 2, [&](std::size_t i) {
        if (i > 0)
            return of_helper.add_one();
        begun_runs.add_one();
        of_helper.wait_for(2); // keeps the caller, so that the others are the helper's
    });
    crew.finish_beside();
    EXPECT_EQ(of_helper.value(), 2);
    EXPECT_EQ(of_helper_at_second, 2);
}

TEST(MosaicParallel, FinishingWorkBesideWaitsForAPieceThatAnotherThreadIsAt)
{
    AwaitedCount begun;
    std::atomic<bool> is_done{false};
    Crew crew(2);
    crew.begin_beside(1, [&](std::size_t) {
        begun.add_one();
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // till the other thread waits
        is_done = true;
    });
    begun.wait_for(1);
    crew.finish_beside();
    EXPECT_TRUE(is_done);
}

TEST(MosaicParallel, ACrewForWhichThereIsNoMemoryDoesItsWorkInOneThread)
{
    std::vector<std::size_t> done;
    {
        Crew crew(3);
        crew.begin_beside(0, [](std::size_t) {}); // a lock takes its memory when it is first used, on some systems
        crew.finish_beside();
        done.reserve(10);
        const PieceOfWork work = [&](std::size_t i) { done.push_back(i); };
        const panoval::test::FailingHeap heap(0, false, true); // what the first helper would take
        crew.run(10, 3, work);
        EXPECT_TRUE(heap.has_failed());
    }
    EXPECT_EQ(done, (std::vector<std::size_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST(MosaicParallel, ThrowsWhatWorkBesideHasThrownWhenThatIsFinished)
{
    for (const std::size_t threads : {1u, 3u}) {
        Crew crew(threads);
        crew.begin_beside(100, [](std::size_t i) {
            if (i >= 2)
                throw std::runtime_error("piece " + std::to_string(i));
        });
        std::atomic<int> done{0};
        run_in_parallel(10, threads, [&](std::size_t) { ++done; });
        EXPECT_EQ(done, 10);
        EXPECT_THROW(crew.finish_beside(), std::runtime_error);
        run_in_parallel(10, threads, [&](std::size_t) { ++done; });
        EXPECT_EQ(done, 20);
    }
}

// As a call does that fails while others still look at overlaps.
TEST(MosaicParallel, ACrewThatEndsHiresNobodyForWorkThatGoesOn)
{
    for (int turn = 0; turn < 5; ++turn) {
        std::atomic<bool> has_begun{false};
        std::atomic<int> done{0};
        {
            Crew crew(4);
            crew.begin_beside(1, [&](std::size_t) {
                has_begun = true;
                std::this_thread::sleep_for(std::chrono::milliseconds(20)); // till the crew waits for this one
                run_in_parallel(6, 4, [&](std::size_t) { ++done; });
            });
            while (!has_begun)
                std::this_thread::yield();
        }
        EXPECT_EQ(done, 6);
    }
}

TEST(MosaicParallel, ACrewThatEndsEarlyLeavesOutWhatHasNotBegun)
{
    constexpr std::size_t kNeverDone = std::size_t{1} << 40;
    std::atomic<std::size_t> begun{0};
    {
        Crew crew(1);
        crew.begin_beside(10, [&](std::size_t) { ++begun; });
    }
    EXPECT_EQ(begun, 0u);
    {
        Crew crew(2);
        crew.begin_beside(kNeverDone, [&](std::size_t) { ++begun; });
    }
    EXPECT_LT(begun, kNeverDone);
}

} // namespace

} // namespace panoval::mosaic::test
