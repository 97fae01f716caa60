// SPDX-License-Identifier: MIT
#include "tests/support/failing_heap.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <unordered_map>

namespace
{

struct State {
    bool active = false;
    bool all_from = false;
    bool failed = false;
    std::size_t fail_at = 0;
    std::size_t count = 0;
    std::size_t largest = 0;
    std::ptrdiff_t live = 0;
    std::size_t bytes = 0;
    std::size_t peak = 0;
    std::unordered_map<void*, std::size_t> blocks;
};

State& state()
{
    static State instance;
    return instance;
}

bool fails(std::size_t bytes)
{
    State& s = state();
    if (!s.active)
        return false;
    s.largest = std::max(s.largest, bytes);
    const std::size_t number = s.count++;
    const bool now = s.all_from ? number >= s.fail_at : number == s.fail_at;
    s.failed = s.failed || now;
    return now;
}

void* born(void* block, std::size_t bytes)
{
    State& s = state();
    if (s.active && block != nullptr) {
        ++s.live;
        s.blocks[block] = bytes;
        s.bytes += bytes;
        s.peak = std::max(s.peak, s.bytes);
    }
    return block;
}

void gone(void* block)
{
    State& s = state();
    if (!s.active || block == nullptr)
        return;
    --s.live;
    const auto found = s.blocks.find(block);
    if (found != s.blocks.end()) {
        s.bytes -= found->second;
        s.blocks.erase(found);
    }
}

} // namespace

extern "C" {

void* __real_malloc(std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);
void* __real_realloc(void* block, std::size_t bytes);
void __real_free(void* block);

void* __wrap_malloc(std::size_t bytes)
{
    return fails(bytes) ? nullptr : born(__real_malloc(bytes), bytes);
}

void* __wrap_calloc(std::size_t count, std::size_t bytes)
{
    return fails(count * bytes) ? nullptr : born(__real_calloc(count, bytes), count * bytes);
}

void* __wrap_realloc(void* block, std::size_t bytes)
{
    if (fails(bytes))
        return nullptr;
    gone(block);
    return born(__real_realloc(block, bytes), bytes);
}

void __wrap_free(void* block)
{
    gone(block);
    __real_free(block);
}

} // extern "C"

namespace panoval::test
{

FailingHeap::FailingHeap(std::size_t fail_at, bool all_from)
{
    state() = State{};
    state().fail_at = fail_at;
    state().all_from = all_from;
    state().active = true;
}

FailingHeap::~FailingHeap()
{
    state().active = false;
}

bool FailingHeap::has_failed() const
{
    return state().failed;
}
std::size_t FailingHeap::allocations() const
{
    return state().count;
}
std::ptrdiff_t FailingHeap::live_blocks() const
{
    return state().live;
}
std::size_t FailingHeap::largest() const
{
    return state().largest;
}
std::size_t FailingHeap::peak_bytes() const
{
    return state().peak;
}

} // namespace panoval::test
