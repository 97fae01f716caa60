// SPDX-License-Identifier: MIT
#include "mosaic/base/block_pool.h"

#include <algorithm>
#include <cstdint>
#include <functional>
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

void BlockPool::expect(std::size_t blocks, std::size_t slab_bytes)
{
    const std::lock_guard lock(mutex_);
    expected_ = blocks;
    slab_bytes_ = slab_bytes;
}

bool BlockPool::has_free_block() const
{
    const std::lock_guard lock(mutex_);
    return !free_.empty();
}

std::shared_ptr<std::uint8_t> BlockPool::take()
{
    std::uint8_t* block = nullptr;
    {
        const std::lock_guard lock(mutex_);
        if (free_.empty())
            add_slab();
        block = free_.back();
        free_.pop_back();
        --slab_of(block).unused;
    }
    // A shared pointer that cannot be made calls the deleter itself.
    return {block, [this](std::uint8_t* back) { give_back(back); }};
}

void BlockPool::add_slab()
{
    const std::size_t missing = expected_ > blocks_ ? expected_ - blocks_ : 1;
    const std::size_t count = std::clamp<std::size_t>(slab_bytes_ / block_bytes_, 1, missing);
    free_.reserve(blocks_ + count); // giving back must not fail
    slabs_.reserve(slabs_.size() + 1);
    auto memory = std::make_unique_for_overwrite<std::uint8_t[]>(count * block_bytes_);
    for (std::size_t i = count; i-- > 0;)
        free_.push_back(memory.get() + i * block_bytes_);
    slabs_.push_back({std::move(memory), count, count});
    blocks_ += count;
    meter_.add(count * block_bytes_);
}

bool BlockPool::holds(const Slab& slab, const std::uint8_t* block) const
{
    const auto from = reinterpret_cast<std::uintptr_t>(slab.memory.get());
    const auto at = reinterpret_cast<std::uintptr_t>(block);
    return at >= from && at < from + slab.blocks * block_bytes_;
}

BlockPool::Slab& BlockPool::slab_of(const std::uint8_t* block)
{
    return *std::find_if(slabs_.begin(), slabs_.end(), [&](const Slab& slab) { return holds(slab, block); });
}

std::vector<const std::uint8_t*> BlockPool::slab_starts() const
{
    const std::lock_guard lock(mutex_);
    std::vector<const std::uint8_t*> starts;
    starts.reserve(slabs_.size());
    for (const Slab& slab : slabs_)
        starts.push_back(slab.memory.get());
    std::sort(starts.begin(), starts.end(), std::less<>());
    return starts;
}

void BlockPool::give_back(std::uint8_t* block)
{
    const std::lock_guard lock(mutex_);
    ++slab_of(block).unused;
    free_.push_back(block);
}

void BlockPool::shrink(std::size_t most_blocks)
{
    const std::lock_guard lock(mutex_);
    while (blocks_ > most_blocks) {
        const auto slab =
            std::find_if(slabs_.begin(), slabs_.end(), [](const Slab& s) { return s.unused == s.blocks; });
        if (slab == slabs_.end())
            return;
        std::erase_if(free_, [&](const std::uint8_t* block) { return holds(*slab, block); });
        blocks_ -= slab->blocks;
        meter_.remove(slab->blocks * block_bytes_);
        slabs_.erase(slab);
        expected_ = 0;
    }
}

} // namespace panoval::mosaic
