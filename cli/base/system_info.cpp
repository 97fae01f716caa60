// SPDX-License-Identifier: MIT
#include "cli/base/system_info.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>

#include <fcntl.h>
#ifdef _WIN32
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
// after windows.h
#include <io.h>
#include <psapi.h>
#else
#include <unistd.h>
#endif
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace panoval::cli
{

#ifdef _WIN32

std::uint64_t peak_memory_bytes()
{
    PROCESS_MEMORY_COUNTERS counters{};
    return GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters) != 0 ? counters.PeakWorkingSetSize : 0;
}

#else

// From the process's status rather than from getrusage, which counts what the parent used before the program started.
std::uint64_t peak_memory_bytes()
{
    std::FILE* const status = std::fopen("/proc/self/status", "r");
    if (status == nullptr)
        return 0;
    unsigned long long kilobytes = 0;
    char line[256];
    while (std::fgets(line, sizeof line, status) != nullptr)
        if (std::sscanf(line, "VmHWM: %20llu kB", &kilobytes) == 1)
            break;
    std::fclose(status);
    return kilobytes * 1024;
}

#endif

#ifdef __GLIBC__

void prepare_heap()
{
    constexpr int kMegabyte = 1 << 20;
    constexpr int kKept = 32 * kMegabyte;
    mallopt(M_ARENA_MAX, 1); // what one thread has freed serves the other
    mallopt(M_TRIM_THRESHOLD, kKept);
    mallopt(M_MMAP_THRESHOLD, 4 * kMegabyte);
}

#else

void prepare_heap() {}

#endif

namespace
{

#ifdef _WIN32
const char* const kNowhere = "NUL";
#else
const char* const kNowhere = "/dev/null";
#endif

std::mutex silence_lock;
int silences = 0;
int saved_stdout = -1;

} // namespace

SilentStdout::SilentStdout()
{
    const std::lock_guard<std::mutex> lock(silence_lock);
    if (silences++ > 0)
        return;
    std::fflush(stdout);
    const int nowhere = open(kNowhere, O_WRONLY);
    if (nowhere < 0)
        return;
    saved_stdout = dup(fileno(stdout));
    if (saved_stdout >= 0)
        dup2(nowhere, fileno(stdout));
    close(nowhere);
}

SilentStdout::~SilentStdout()
{
    const std::lock_guard<std::mutex> lock(silence_lock);
    if (--silences > 0 || saved_stdout < 0)
        return;
    std::fflush(stdout);
    dup2(saved_stdout, fileno(stdout));
    close(saved_stdout);
    saved_stdout = -1;
}

} // namespace panoval::cli
