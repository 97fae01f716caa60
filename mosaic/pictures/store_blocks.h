// SPDX-License-Identifier: MIT
// How the picture store cuts pictures into blocks of one size, and how many of them it needs.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/pictures/row_source.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// What a row of a picture takes, in bytes.
struct RowSizes {
    std::size_t samples;
    std::size_t mask; // 0 where there is none
    std::size_t keep; // 0 where there is none
    std::size_t all() const { return samples + mask + keep; }
};

RowSizes row_sizes(const Layout& layout, std::size_t picture, const PictureTraits& traits);

// Bytes of a block for a store of so many bytes: whole cache lines, and at least the longest row.
std::size_t choose_block(const Layout& layout, const std::vector<PictureTraits>& traits, std::size_t budget);

// Each thread reads a mask into one, where any picture has a mask.
std::size_t count_mask_blocks(const Layout& layout, std::size_t threads);

// Blocks that so many threads work with: two each, and those for masks.
std::size_t count_working_blocks(const Layout& layout, std::size_t threads);

// The least that a store for so many threads can do with.
std::size_t least_store_bytes(const Layout& layout, const std::vector<PictureTraits>& traits, std::size_t threads);

// With their masks.
std::uint64_t bytes_of_all_pictures(const Layout& layout, const std::vector<PictureTraits>& traits);

} // namespace panoval::mosaic
