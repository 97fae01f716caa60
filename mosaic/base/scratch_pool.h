// SPDX-License-Identifier: MIT
// Scratch that pieces of work on several threads take in turns, so that its memory is asked for once and not once a
// piece. There is never more of it than threads that work at once.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace panoval::mosaic
{

template <class T>
class ScratchPool
{
    struct GiveBack {
        ScratchPool* pool;
        void operator()(T* scratch) const { pool->give_back(scratch); }
    };

public:
    using Lease = std::unique_ptr<T, GiveBack>;

    // As an earlier piece of work has left it, or new. It comes back when the lease ends, which the pool must outlive.
    Lease take()
    {
        const std::lock_guard lock(mutex_);
        if (free_.empty()) {
            free_.reserve(++count_); // so that nothing is allocated when it comes back
            return Lease(new_scratch(), GiveBack{this});
        }
        T* const scratch = free_.back().release();
        free_.pop_back();
        return Lease(scratch, GiveBack{this});
    }

private:
    static T* new_scratch() { return std::make_unique<T>().release(); }

    void give_back(T* scratch)
    {
        const std::lock_guard lock(mutex_);
        free_.emplace_back(scratch);
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<T>> free_;
    std::size_t count_ = 0;
};

} // namespace panoval::mosaic
