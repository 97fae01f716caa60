// SPDX-License-Identifier: MIT
// Work on pictures and tiles of the canvas that do not depend on each other, on two threads where the machine has two
// processors. The library itself has one thread; what it does for one picture or tile is never divided.
#pragma once

#include <cstddef>
#include <functional>

namespace panoval::cli
{

// Calls work(0) to work(count - 1), each once, in any order and up to two at a time. Returns when all have ended; then
// throws what the first of them in this order has thrown, if any has.
void run_in_parallel(std::size_t count, const std::function<void(std::size_t)>& work);

// How many calls run_in_parallel makes at a time at most.
std::size_t parallel_calls();

} // namespace panoval::cli
