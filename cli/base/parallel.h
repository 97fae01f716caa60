// SPDX-License-Identifier: MIT
// Work on parts of a picture that do not depend on each other. The library itself has one thread; what it does for one
// part is never divided.
#pragma once

#include <cstddef>
#include <functional>

namespace panoval::cli
{

// Calls work(0) to work(count - 1), each once, in any order, as many at a time as the machine has processors. Returns
// when all have ended; then throws what the first of them in this order has thrown, if any has.
void run_in_parallel(std::size_t count, const std::function<void(std::size_t)>& work);

// The same, `threads` at a time at most; fewer where the system gives no more.
void run_in_parallel(std::size_t count, std::size_t threads, const std::function<void(std::size_t)>& work);

} // namespace panoval::cli
