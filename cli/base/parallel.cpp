// SPDX-License-Identifier: MIT
#include "cli/base/parallel.h"

#include <atomic>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace panoval::cli
{

namespace
{

// A second thread, unless the machine has no use for it or the system gives none.
std::thread start_beside(const std::function<void()>& body)
{
    if (parallel_calls() < 2)
        return {};
    try {
        return std::thread(body);
    } catch (const std::system_error&) {
        return {};
    }
}

} // namespace

std::size_t parallel_calls()
{
    return std::thread::hardware_concurrency() < 2 ? 1 : 2;
}

void run_in_parallel(std::size_t count, const std::function<void(std::size_t)>& work)
{
    std::atomic<std::size_t> next{0};
    std::vector<std::exception_ptr> failures(count);
    const auto take_turns = [&] {
        for (std::size_t i = next++; i < count; i = next++) {
            try {
                work(i);
            } catch (...) {
                failures[i] = std::current_exception();
            }
        }
    };
    std::thread second = count > 1 ? start_beside(take_turns) : std::thread();
    take_turns();
    if (second.joinable())
        second.join();
    for (const std::exception_ptr& failure : failures)
        if (failure != nullptr)
            std::rethrow_exception(failure);
}

} // namespace panoval::cli
