// SPDX-License-Identifier: MIT
#include "mosaic/pictures/store_blocks.h"

#include <algorithm>

namespace panoval::mosaic
{

namespace
{

// Large enough that the host is not asked too often, small enough that a tile does not drag much along.
constexpr std::size_t kLargestBlock = std::size_t{1} << 20;
constexpr std::size_t kSmallestBlock = std::size_t{1} << 14;
constexpr std::size_t kBlocksInBudget = 64;

// Blocks are whole ones: they lie one behind the other, and samples of 16 bit in them at even addresses.
constexpr std::size_t kLine = 64;

// Each thread holds a block while it copies from it and fills another one meanwhile.
constexpr std::size_t kBlocksPerThread = 2;

std::size_t whole_lines(std::size_t bytes)
{
    return (bytes + kLine - 1) / kLine * kLine;
}

// In whole lines.
std::size_t longest_row(const Layout& layout, const std::vector<PictureTraits>& traits)
{
    std::size_t longest = 1;
    for (std::size_t i = 0; i < layout.pictures.size(); ++i)
        longest = std::max(longest, row_sizes(layout, i, traits[i]).all());
    return whole_lines(longest);
}

std::size_t largest_picture(const Layout& layout, const std::vector<PictureTraits>& traits)
{
    std::size_t largest = 1;
    for (std::size_t i = 0; i < layout.pictures.size(); ++i)
        largest = std::max(largest, row_sizes(layout, i, traits[i]).all() *
                                        static_cast<std::size_t>(layout.pictures[i].rect.height));
    return largest;
}

} // namespace

RowSizes row_sizes(const Layout& layout, std::size_t picture, const PictureTraits& traits)
{
    const PlacedPicture& placed = layout.pictures[picture];
    const auto width = static_cast<std::size_t>(placed.rect.width);
    return {width * static_cast<std::size_t>(layout.pixel_bytes()), placed.has_mask ? width : 0,
            traits.has_keep ? width : 0};
}

std::size_t choose_block(const Layout& layout, const std::vector<PictureTraits>& traits, std::size_t budget)
{
    const std::size_t part = budget / kBlocksInBudget / kLine * kLine;
    const std::size_t of_budget = std::clamp(part, kSmallestBlock, kLargestBlock);
    // A block holds rows of one picture, so that one larger than all of them would never be full.
    const std::size_t largest = whole_lines(largest_picture(layout, traits));
    const std::size_t wanted = std::min(of_budget, std::max(largest, kSmallestBlock));
    return std::max(wanted, longest_row(layout, traits));
}

std::size_t count_mask_blocks(const Layout& layout, std::size_t threads)
{
    const bool has_mask = std::any_of(layout.pictures.begin(), layout.pictures.end(),
                                      [](const PlacedPicture& picture) { return picture.has_mask; });
    return has_mask ? threads : 0;
}

std::size_t count_working_blocks(const Layout& layout, std::size_t threads)
{
    return kBlocksPerThread * threads + count_mask_blocks(layout, threads);
}

std::size_t least_store_bytes(const Layout& layout, const std::vector<PictureTraits>& traits, std::size_t threads)
{
    return count_working_blocks(layout, threads) * std::max(kSmallestBlock, longest_row(layout, traits));
}

std::uint64_t bytes_of_all_pictures(const Layout& layout, const std::vector<PictureTraits>& traits)
{
    std::uint64_t bytes = 0;
    for (std::size_t i = 0; i < layout.pictures.size(); ++i)
        bytes += static_cast<std::uint64_t>(row_sizes(layout, i, traits[i]).all()) *
                 static_cast<std::uint64_t>(layout.pictures[i].rect.height);
    return bytes;
}

} // namespace panoval::mosaic
