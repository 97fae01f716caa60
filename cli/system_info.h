// SPDX-License-Identifier: MIT
// What the program tells about its own run, and the one thing that it does to the process: silencing the library.
#pragma once

#include <chrono>
#include <cstdint>

namespace panoval::cli
{

// The most memory that this process has had in use so far, in bytes; 0 where the system does not tell.
std::uint64_t peak_memory_bytes();

class Stopwatch
{
public:
    double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// While an object lives, standard output goes nowhere: some routines of the library print lines of their own, which
// have no place among a command's results. Lines printed before are not lost.
class SilentStdout
{
public:
    SilentStdout();
    SilentStdout(const SilentStdout&) = delete;
    SilentStdout& operator=(const SilentStdout&) = delete;
    ~SilentStdout();

private:
    int saved_ = -1;
};

} // namespace panoval::cli
