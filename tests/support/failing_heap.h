// SPDX-License-Identifier: MIT
// A C heap that fails on demand. The linker routes every malloc, calloc, realloc and free of the code under test
// through here (--wrap), so each allocation of a routine can be made the one that fails, and leaks are counted. Those
// of operator new are the tests' own unless they are asked for.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>

namespace panoval::test
{

// While an object lives, allocations are numbered from 0 and the one with the given number fails.
class FailingHeap
{
public:
    static constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

    // all_from: every allocation from fail_at on fails, not that one alone; with_new: those of operator new, too
    explicit FailingHeap(std::size_t fail_at = kNever, bool all_from = false, bool with_new = false);
    FailingHeap(const FailingHeap&) = delete;
    FailingHeap& operator=(const FailingHeap&) = delete;
    ~FailingHeap();

    bool has_failed() const;            // whether the allocation to fail was reached
    std::size_t allocations() const;    // asked for so far
    std::ptrdiff_t live_blocks() const; // allocated minus freed since construction
    std::size_t largest() const;        // bytes of the largest request
    std::size_t peak_bytes() const;     // most bytes alive at once, of blocks allocated since construction
};

// Calls body(heap) once for each allocation that it makes, with that one failing, and a last time with none failing.
template <class Body>
void for_each_failing_allocation(const Body& body)
{
    for (std::size_t fail_at = 0;; ++fail_at) {
        SCOPED_TRACE(testing::Message() << "allocation " << fail_at << " fails");
        FailingHeap heap(fail_at);
        body(heap);
        if (!heap.has_failed())
            return;
        ASSERT_LT(fail_at, 100000u) << "the body never stops allocating";
    }
}

// body(heap) for each allocation that it makes, with that one failing, then with all from that one on failing.
template <class Body>
void for_each_exhaustion(const Body& body, bool with_new = false)
{
    for (const bool all_from : {false, true})
        for (std::size_t fail_at = 0;; ++fail_at) {
            SCOPED_TRACE(testing::Message() << "allocation " << fail_at << (all_from ? " and all after it" : ""));
            FailingHeap heap(fail_at, all_from, with_new);
            body(heap);
            EXPECT_EQ(heap.live_blocks(), 0);
            if (!heap.has_failed()) {
                EXPECT_GT(heap.allocations(), 0u) << "nothing that could fail";
                break;
            }
            ASSERT_LT(fail_at, 100000u);
        }
}

} // namespace panoval::test
