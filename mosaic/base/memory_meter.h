// SPDX-License-Identifier: MIT
// How much memory the engine holds for pixels, and the most that it ever did.
#pragma once

#include <atomic>
#include <cstddef>

namespace panoval::mosaic
{

class MemoryMeter
{
public:
    void add(std::size_t bytes)
    {
        const std::size_t now = now_.fetch_add(bytes) + bytes;
        std::size_t most = most_.load();
        while (now > most && !most_.compare_exchange_weak(most, now)) { // COUNT_EXCL_BRANCH: as below
        } // COUNT_EXCL: comes here where two threads meet alone
    }
    void remove(std::size_t bytes) { now_.fetch_sub(bytes); }

    std::size_t now() const { return now_; }
    std::size_t most() const { return most_; }

private:
    std::atomic<std::size_t> now_{0};
    std::atomic<std::size_t> most_{0};
};

// What a stretch of work takes, for as long as the object lives.
class MeteredMemory
{
public:
    MeteredMemory(MemoryMeter& meter, std::size_t bytes) : meter_(meter), bytes_(bytes) { meter_.add(bytes_); }
    MeteredMemory(const MeteredMemory&) = delete;
    MeteredMemory& operator=(const MeteredMemory&) = delete;
    ~MeteredMemory() { meter_.remove(bytes_); }

private:
    MemoryMeter& meter_;
    const std::size_t bytes_;
};

} // namespace panoval::mosaic
