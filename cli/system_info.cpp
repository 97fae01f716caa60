// SPDX-License-Identifier: MIT
#include "cli/system_info.h"

#include <cstdio>

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

// Only whole large pages inside the block are named, so that nothing beside it changes.
void prefer_large_pages(void* block, std::size_t bytes)
{
    constexpr std::uintptr_t kPage = std::uintptr_t{2} << 20;
    const auto start = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t first = (start + kPage - 1) / kPage * kPage;
    const std::uintptr_t end = (start + bytes) / kPage * kPage;
    if (first < end)
        (void)madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
}

bool provide_pages(void* block, std::size_t bytes)
{
#ifdef MADV_POPULATE_WRITE
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto start = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t first = (start + page - 1) / page * page;
    const std::uintptr_t end = (start + bytes) / page * page;
    return first >= end || madvise(reinterpret_cast<void*>(first), end - first, MADV_POPULATE_WRITE) == 0;
#else
    (void)block;
    (void)bytes;
    return false;
#endif
}

#else

void prefer_large_pages(void*, std::size_t) {}
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

} // namespace

SilentStdout::SilentStdout()
{
    std::fflush(stdout);
    const int nowhere = open(kNowhere, O_WRONLY);
    if (nowhere < 0)
        return;
    saved_ = dup(fileno(stdout));
    if (saved_ >= 0)
        dup2(nowhere, fileno(stdout));
    close(nowhere);
}

SilentStdout::~SilentStdout()
{
    if (saved_ < 0)
        return;
    std::fflush(stdout);
    dup2(saved_, fileno(stdout));
    close(saved_);
}

} // namespace panoval::cli
