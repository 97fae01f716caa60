// SPDX-License-Identifier: MIT
#include "mosaic/base/parallel.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

namespace panoval::mosaic
{

namespace
{

class Pieces
{
public:
    Pieces(std::size_t count, const std::function<void(std::size_t)>& work) : count_(count), work_(work) {}

    void take_turns()
    {
        for (std::size_t i = next_++; i < count_ && !has_failed_; i = next_++) {
            try {
                work_(i);
            } catch (...) {
                keep_failure(i);
            }
        }
    }

    void rethrow() const
    {
        if (failure_ != nullptr)
            std::rethrow_exception(failure_);
    }

private:
    void keep_failure(std::size_t i)
    {
        const std::lock_guard lock(mutex_);
        if (failure_ == nullptr || i < failed_) {
            failure_ = std::current_exception();
            failed_ = i;
        }
        has_failed_ = true;
    }

    const std::size_t count_;
    const std::function<void(std::size_t)>& work_;
    std::atomic<std::size_t> next_{0};
    std::atomic<bool> has_failed_{false};
    std::mutex mutex_;
    std::exception_ptr failure_;
    std::size_t failed_ = 0;
};

} // namespace

void run_in_parallel(std::size_t count, std::size_t threads, const std::function<void(std::size_t)>& work)
{
    Pieces pieces(count, work);
    std::vector<std::thread> helpers;
    const std::size_t wanted = std::min(std::max<std::size_t>(threads, 1), count);
    try {
        for (std::size_t i = 1; i < wanted; ++i)
            helpers.emplace_back([&pieces] { pieces.take_turns(); });
    } catch (const std::system_error&) {
        // The system gives no more threads: those that there are do all of it.
    } catch (const std::bad_alloc&) {
        // So when there is no memory for one.
    }
    pieces.take_turns();
    for (std::thread& helper : helpers)
        helper.join();
    pieces.rethrow();
}

} // namespace panoval::mosaic
