// SPDX-License-Identifier: MIT
#include "core/large_pages.h"

#ifdef __linux__
#include <cerrno>
#include <cstdint>

#include <sys/mman.h>
#endif

namespace panoval
{

#ifdef __linux__

// Only whole large pages inside the block are named, so that nothing beside it changes. errno is the host's.
void prefer_large_pages(void* block, std::size_t bytes) noexcept
{
    constexpr std::uintptr_t kPage = std::uintptr_t{2} << 20;
    constexpr std::size_t kLeast = 2 * kPage;
    if (block == nullptr || bytes < kLeast)
        return;
    const auto start = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t first = (start + kPage - 1) / kPage * kPage;
    const std::uintptr_t end = (start + bytes) / kPage * kPage;
    const int saved = errno;
    if (first < end)
        (void)madvise(static_cast<char*>(block) + (first - start), end - first, MADV_HUGEPAGE);
    errno = saved;
}

#else

void prefer_large_pages(void*, std::size_t) noexcept {}

#endif

} // namespace panoval
