// SPDX-License-Identifier: MIT
// What the program tells about its own run, and what it does to the process: silencing the library, and how it
// takes memory from the system.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace panoval::cli
{

// The most memory that this process has had in use so far, in bytes; 0 where the system does not tell.
std::uint64_t peak_memory_bytes();

// At the program's start, where the C library can be told: blocks of 4 MB and more go back to the system as soon as
// they are freed, so that the most in use at any time is about what is needed then. Smaller ones come from a heap that
// keeps up to 32 MB for the next step's.
void prepare_heap();

class Stopwatch
{
public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// While an object lives, standard output goes nowhere: some routines of the library print lines of their own, which
// have no place among a command's results. Lines printed before are not lost. Several may live at a time.
class SilentStdout
{
public:
    SilentStdout();
    SilentStdout(const SilentStdout&) = delete;
    SilentStdout& operator=(const SilentStdout&) = delete;
    ~SilentStdout();
};

} // namespace panoval::cli
