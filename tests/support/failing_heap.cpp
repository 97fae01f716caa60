// SPDX-License-Identifier: MIT
#include "tests/support/failing_heap.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <unordered_map>
#include <utility>

namespace
{

// Constant-initialised: the C run-time library allocates before any constructor has run.
struct State {
    bool active = false;
    bool all_from = false;
    bool with_new = false;
    bool failed = false;
    std::size_t fail_at = 0;
    std::size_t count = 0;
    std::size_t largest = 0;
    std::ptrdiff_t live = 0;
    std::size_t bytes = 0;
    std::size_t peak = 0;
    std::unordered_map<void*, std::size_t>* blocks = nullptr; // bytes of each live block
};

constinit State s; // one letter: it stands in every line below

bool fails(std::size_t bytes)
{
    if (!s.active)
        return false;
    s.largest = std::max(s.largest, bytes);
    const std::size_t number = s.count++;
    const bool now = s.all_from ? number >= s.fail_at : number == s.fail_at;
    s.failed = s.failed || now;
    return now;
}

// While this file's own container changes, which allocates, too.
class OwnUse
{
public:
    OwnUse() : was_active_(std::exchange(s.active, false)) {}
    OwnUse(const OwnUse&) = delete;
    OwnUse& operator=(const OwnUse&) = delete;
    ~OwnUse() { s.active = was_active_; }

private:
    bool was_active_;
};

void* born(void* block, std::size_t bytes)
{
    if (s.active && block != nullptr) {
        const OwnUse own;
        ++s.live;
        (*s.blocks)[block] = bytes;
        s.bytes += bytes;
        s.peak = std::max(s.peak, s.bytes);
    }
    return block;
}

void gone(void* block)
{
    if (!s.active || block == nullptr)
        return;
    const OwnUse own;
    --s.live;
    const auto found = s.blocks->find(block);
    if (found != s.blocks->end()) {
        s.bytes -= found->second;
        s.blocks->erase(found);
    }
}

} // namespace

// Visible, because a shared library that frees counts for the linker as one that calls them.
#pragma GCC visibility push(default)
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
#pragma GCC visibility pop

// The tests' own C++ allocations neither count nor fail unless that is asked for, also where the C++ run-time library
// is linked statically and its operator new would end up in the wrapped malloc.
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    const std::size_t least = bytes == 0 ? 1 : bytes;
    if (!s.with_new)
        return __real_malloc(least);
    return __wrap_malloc(least);
}

void* operator new(std::size_t bytes)
{
    void* const block = operator new(bytes, std::nothrow);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept
{
    if (s.with_new)
        gone(block);
    __real_free(block);
}
void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}

namespace panoval::test
{

FailingHeap::FailingHeap(std::size_t fail_at, bool all_from, bool with_new)
{
    auto* const blocks = new std::unordered_map<void*, std::size_t>;
    s = State{};
    s.blocks = blocks;
    s.with_new = with_new;
    s.fail_at = fail_at;
    s.all_from = all_from;
    s.active = true;
}

FailingHeap::~FailingHeap()
{
    s.active = false;
    delete s.blocks;
}

bool FailingHeap::has_failed() const
{
    return s.failed;
}
std::size_t FailingHeap::allocations() const
{
    return s.count;
}
std::ptrdiff_t FailingHeap::live_blocks() const
{
    return s.live;
}
std::size_t FailingHeap::largest() const
{
    return s.largest;
}
std::size_t FailingHeap::peak_bytes() const
{
    return s.peak;
}

} // namespace panoval::test
