// SPDX-License-Identifier: MIT
// Independent pieces of work on several threads. What a piece does never depends on which thread does it or when, so
// that results are the same for any number of threads.
#pragma once

#include <cstddef>
#include <functional>

namespace panoval::mosaic
{

// Calls work(0) to work(count - 1), each once, on up to `threads` threads, the caller's among them; pieces begin in
// ascending order. Returns when all that have begun have ended; after a piece has thrown no further one begins, and the
// exception of the first piece, in their order, that threw is thrown on.
void run_in_parallel(std::size_t count, std::size_t threads, const std::function<void(std::size_t)>& work);

} // namespace panoval::mosaic
