// SPDX-License-Identifier: MIT
// Large pages for large blocks. Most of the cost of a fresh block is the system's, which hands it out a page at a time,
// in answer to a fault each; with pages of 2 MiB there are 512 times fewer.
#pragma once

#include <cstddef>

#ifdef __linux__
#include <cerrno>
#include <cstdint>

#include <sys/mman.h>
#endif

namespace panoval
{

// Advice to the system about a block of the C heap, which stays an ordinary one. Does nothing for blocks of a few
// pages, for null, and where the system has no such pages. Only whole large pages inside the block are named, so that
// nothing beside it changes. errno is the host's.
inline void prefer_large_pages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t bytes) noexcept
{
#ifdef __linux__
    constexpr std::uintptr_t kPage = std::uintptr_t{2} << 20;
    constexpr std::size_t kLeast = 2 * kPage;
    if (block == nullptr || bytes < kLeast)
        return;
    const auto start = reinterpret_cast<std::uintptr_t>(block);
    // Twice as many bytes as a page has hold one wholly, wherever they begin.
    const std::uintptr_t first = (start + kPage - 1) / kPage * kPage;
    const std::uintptr_t end = (start + bytes) / kPage * kPage;
    const int saved = errno;
    (void)madvise(static_cast<char*>(block) + (first - start), end - first, MADV_HUGEPAGE);
    errno = saved;
#endif
}

} // namespace panoval
