// SPDX-License-Identifier: MIT
#include "cli/base/system_info.h"

#include <atomic>
#include <cstdio>
#include <ctime>
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
#ifdef __linux__
#include <sys/mman.h>
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

#ifdef __linux__

namespace
{

constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20;

// A virtual machine may have given its free large pages back, and then gets them at a tenth of the usual speed, slower
// than small ones that were in use a moment ago. Found out when it happens.
std::atomic<bool> large_pages_are_slow{false};
constexpr double kSlowSeconds = 1.2e-3; // for a large page; a third of that is usual

struct Span {
    std::uintptr_t first;
    std::uintptr_t end;

    // The whole pages inside a block.
    Span(const void* block, std::size_t bytes, std::uintptr_t page)
        : first((reinterpret_cast<std::uintptr_t>(block) + page - 1) / page * page),
          end((reinterpret_cast<std::uintptr_t>(block) + bytes) / page * page)
    {
    }
    bool advise(int advice) const
    {
        return first >= end || madvise(reinterpret_cast<void*>(first), end - first, advice) == 0;
    }
};

// Of this thread, the system's part included.
double processor_seconds()
{
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

#ifdef MADV_POPULATE_WRITE
// Has the system provide the span's large pages as long as they are fast, and small ones from there on.
void try_large_pages(Span span)
{
    for (; span.first < span.end && !large_pages_are_slow; span.first += kLargePage) {
        Span page = span;
        page.end = page.first + kLargePage;
        const double start = processor_seconds();
        if (!page.advise(MADV_POPULATE_WRITE))
            return;
        if (processor_seconds() - start > kSlowSeconds)
            large_pages_are_slow = true;
    }
    if (large_pages_are_slow)
        (void)span.advise(MADV_NOHUGEPAGE);
}
#endif

} // namespace

bool provide_pages(void* block, std::size_t bytes)
{
#ifdef MADV_POPULATE_WRITE
    try_large_pages(Span(block, bytes, kLargePage));
    return Span(block, bytes, static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE))).advise(MADV_POPULATE_WRITE);
#else
    (void)block;
    (void)bytes;
    return false;
#endif
}

#else

bool provide_pages(void*, std::size_t)
{
    return false;
}

#endif

#ifdef __GLIBC__

void return_freed_blocks()
{
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
    mallopt(M_ARENA_MAX, 1); // what one thread has freed serves the other
}

void keep_freed_blocks()
{
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
}

#else

void return_freed_blocks() {}
void keep_freed_blocks() {}

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
