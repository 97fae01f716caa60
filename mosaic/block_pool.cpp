// SPDX-License-Identifier: MIT
#include "mosaic/block_pool.h"

#include <new>
#include <utility>

namespace panoval::mosaic
{

BlockPool::~BlockPool()
{
    meter_.remove(blocks_ * block_bytes_);
}

std::size_t BlockPool::blocks() const
{
    const std::lock_guard lock(mutex_);
    return blocks_;
}

bool BlockPool::has_free_block() const
{
    const std::lock_guard lock(mutex_);
    return !free_.empty();
}

std::shared_ptr<std::uint8_t> BlockPool::take()
{
    HeapArray<std::uint8_t> block;
    {
        const std::lock_guard lock(mutex_);
        if (!free_.empty()) {
            block = std::move(free_.back());
            free_.pop_back();
        }
    }
    if (block == nullptr) {
        block = allocate<std::uint8_t>(block_bytes_);
        if (block == nullptr)
            throw std::bad_alloc();
        const std::lock_guard lock(mutex_);
        free_.reserve(blocks_ + 1); // giving back must not fail
        ++blocks_;
        meter_.add(block_bytes_);
    }
    // A shared pointer that cannot be made calls the deleter itself.
    return {block.release(), [this](std::uint8_t* back) { give_back(back); }};
}

void BlockPool::give_back(std::uint8_t* block)
{
    HeapArray<std::uint8_t> owned(block);
    const std::lock_guard lock(mutex_);
    free_.push_back(std::move(owned));
}

void BlockPool::shrink(std::size_t most_blocks)
{
    const std::lock_guard lock(mutex_);
    while (blocks_ > most_blocks && !free_.empty()) {
        free_.pop_back();
        --blocks_;
        meter_.remove(block_bytes_);
    }
}

} // namespace panoval::mosaic
