// SPDX-License-Identifier: MIT
// The heap is counted by this program's own malloc in the libraries' place, as the GNU C library lets programs have it.
#include "bench/hosts/cost_of.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <malloc.h>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);
}

namespace
{

std::atomic<std::int64_t> in_use{0};
std::atomic<std::int64_t> most{0};

void* counted(void* block)
{
    const std::int64_t now = in_use += block != nullptr ? static_cast<std::int64_t>(malloc_usable_size(block)) : 0;
    std::int64_t before = most;
    while (before < now && !most.compare_exchange_weak(before, now)) {
    }
    return block;
}

void uncounted(void* block)
{
    in_use -= block != nullptr ? static_cast<std::int64_t>(malloc_usable_size(block)) : 0;
}

} // namespace

extern "C" {
void* malloc(std::size_t bytes)
{
    return counted(__libc_malloc(bytes));
}
void* calloc(std::size_t count, std::size_t bytes)
{
    return counted(__libc_calloc(count, bytes));
}
void* realloc(void* block, std::size_t bytes)
{
    uncounted(block);
    return counted(__libc_realloc(block, bytes));
}
void* aligned_alloc(std::size_t alignment, std::size_t bytes)
{
    return counted(__libc_memalign(alignment, bytes));
}
int posix_memalign(void** block, std::size_t alignment, std::size_t bytes)
{
    *block = counted(__libc_memalign(alignment, bytes));
    return *block != nullptr ? 0 : 12;
}
void free(void* block)
{
    uncounted(block);
    __libc_free(block);
}
}

namespace panoval::bench
{

int side = 1000;

namespace
{

double processor_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

} // namespace

Cost cost_of(const std::function<void()>& call, const std::function<void()>& restore)
{
    Cost cost;
    for (int turn = 0; turn < 3; ++turn) {
        restore();
        const std::int64_t before = in_use;
        most = before;
        const double start = processor_seconds();
        call();
        cost.milliseconds = std::min(cost.milliseconds, 1e3 * (processor_seconds() - start));
        cost.bytes = static_cast<double>(most - before);
    }
    return cost;
}

void print_per_megapixel(const char* routine, const Cost& cost)
{
    const double megapixels = 1e-6 * side * side;
    std::printf("| `%s` | %.1f | %.1f |\n", routine, cost.milliseconds / megapixels, cost.bytes / megapixels / 1e6);
}

void print_per_call(const char* routine, const char* of_what, const Cost& cost)
{
    std::printf("| `%s` | %.3f | %.1f | %s |\n", routine, 1e3 * cost.milliseconds, cost.bytes / 1e3, of_what);
}

std::vector<std::uint8_t> scene(int channels)
{
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(side) * static_cast<std::size_t>(side * channels));
    std::uint32_t grain = 1;
    std::size_t i = 0;
    for (int y = 0; y < side; ++y)
        for (int x = 0; x < side; ++x) {
            const double r = std::hypot(x % 100 - 50.3, y % 100 - 49.6);
            const double disc = 1 / (1 + std::exp(2 * (r - 20)));
            for (int c = 0; c < channels; ++c) {
                grain = grain * 1664525u + 1013904223u;
                const double level = 150 + 40 * std::sin(x * 0.01 + c) * std::cos(y * 0.013) - 80 * disc;
                pixels[i++] = static_cast<std::uint8_t>(level + static_cast<double>(grain >> 29));
            }
        }
    return pixels;
}

Mat mat_of(std::vector<std::uint8_t>& pixels, int channels)
{
    return {side,
            side,
            channels,
            1,
            static_cast<std::int32_t>(pixels.size()),
            static_cast<std::int32_t>(pixels.size()),
            pixels.data()};
}

} // namespace panoval::bench
