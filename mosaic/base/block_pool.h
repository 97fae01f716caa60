// SPDX-License-Identifier: MIT
// Blocks of memory of one size, used again and again, so that pictures that come and go do not tear the heap apart.
#pragma once

#include "mosaic/base/memory_meter.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace panoval::mosaic
{

class BlockPool
{
public:
    BlockPool(std::size_t block_bytes, MemoryMeter& meter) : block_bytes_(block_bytes), meter_(meter) {}
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;
    ~BlockPool();

    std::size_t block_bytes() const { return block_bytes_; }
    std::size_t blocks() const; // that there are, in use or not
    bool has_free_block() const;

    // So many blocks are going to be needed, and may come from the heap with others, in slabs of so many bytes.
    void expect(std::size_t blocks, std::size_t slab_bytes);

    // A block that comes back to the pool when nobody holds it any more; the pool must outlive it. Throws
    // std::bad_alloc.
    std::shared_ptr<std::uint8_t> take();

    // Where the slabs begin, in ascending order.
    std::vector<const std::uint8_t*> slab_starts() const;

    // Gives unused blocks back to the heap until there are no more than so many, as far as all of those that came with
    // them are unused, too.
    void shrink(std::size_t most_blocks);

private:
    // Blocks that came from the heap together and go back together.
    struct Slab {
        std::unique_ptr<std::uint8_t[]> memory;
        std::size_t blocks;
        std::size_t unused;
    };

    void add_slab();
    bool holds(const Slab& slab, const std::uint8_t* block) const;
    Slab& slab_of(const std::uint8_t* block);
    void give_back(std::uint8_t* block);

    const std::size_t block_bytes_;
    MemoryMeter& meter_;
    mutable std::mutex mutex_;
    std::vector<Slab> slabs_;
    std::vector<std::uint8_t*> free_;
    std::size_t blocks_ = 0;
    std::size_t expected_ = 0;
    std::size_t slab_bytes_ = 0;
};

} // namespace panoval::mosaic
