// SPDX-License-Identifier: MIT
// Work on pictures that do not depend on each other, on two threads where the machine has two processors. The library
// itself has one thread; what it does for one picture is never divided.
#pragma once

#include <cstddef>
#include <functional>
#include <thread>

namespace panoval::cli
{

// Calls work(0) to work(count - 1), each once, in any order and up to two at a time. Returns when all have ended; then
// throws what the first of them in this order has thrown, if any has.
void run_in_parallel(std::size_t count, const std::function<void(std::size_t)>& work);

// A second thread that runs body, which must not throw; none if the machine cannot use one or the system gives none.
std::thread start_beside(const std::function<void()>& body);

} // namespace panoval::cli
