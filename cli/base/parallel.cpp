// SPDX-License-Identifier: MIT
#include "cli/base/parallel.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <thread>
#include <vector>

namespace panoval::cli
{

namespace
{

// Beside the caller's, until the system gives no more.
std::vector<std::thread> start_threads(std::size_t count, const std::function<void()>& body)
{
    std::vector<std::thread> threads;
    threads.reserve(count);
    try {
        while (threads.size() < count)
            threads.emplace_back(body);
    } catch (const std::exception&) { // no thread or no memory for one: those that have begun do the work
    }
    return threads;
}

} // namespace

void run_in_parallel(std::size_t count, const std::function<void(std::size_t)>& work)
{
    run_in_parallel(count, std::thread::hardware_concurrency(), work);
}

void run_in_parallel(std::size_t count, std::size_t threads, const std::function<void(std::size_t)>& work)
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
    const std::size_t most = std::max<std::size_t>(1, std::min(count, threads));
    std::vector<std::thread> others = start_threads(most - 1, take_turns);
    take_turns();
    for (std::thread& thread : others)
        thread.join();
    for (const std::exception_ptr& failure : failures)
        if (failure != nullptr)
            std::rethrow_exception(failure);
}

} // namespace panoval::cli
