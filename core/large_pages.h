// SPDX-License-Identifier: MIT
// Large pages for large blocks. Most of the cost of a fresh block is the system's, which hands it out a page at a time,
// in answer to a fault each; with pages of 2 MiB there are 512 times fewer.
#pragma once

#include <cstddef>

namespace panoval
{

// Advice to the system about a block of the C heap, which stays an ordinary one. Does nothing for blocks of a few
// pages, for null, and where the system has no such pages.
void prefer_large_pages(void* block, std::size_t bytes) noexcept;

} // namespace panoval
