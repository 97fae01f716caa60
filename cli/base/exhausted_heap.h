// SPDX-License-Identifier: MIT
// What the program does where the heap is exhausted and no exception can say so. Where memory gives out in a function
// that must not throw, unfinished outputs are removed and the program ends with its message and exit code; this holds
// from the program's start on.
#pragma once

namespace panoval::cli
{

inline constexpr const char* kNoMemory = "not enough memory";

// libpanoval leaves its outputs empty where its heap gives out, which may look like a result. This tells the two apart.
class HeapWatch
{
public:
    HeapWatch();
    bool has_failed() const; // whether this thread has asked for a block in vain since
};

// While one lives, the end of the process by a routine of libpanoval means that there was too little memory.
class EndMeansNoMemory
{
public:
    EndMeansNoMemory();
    EndMeansNoMemory(const EndMeansNoMemory&) = delete;
    EndMeansNoMemory& operator=(const EndMeansNoMemory&) = delete;
    ~EndMeansNoMemory();
};

} // namespace panoval::cli
