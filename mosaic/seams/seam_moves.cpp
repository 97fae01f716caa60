// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_moves.h"

#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_map.h"
#include "mosaic/seams/seam_strip.h"

#include <algorithm>
#include <span>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kBlock = 4;     // pixels along a side
constexpr std::int64_t kSmallCell = 8; // the largest one whose seams move by pixels at once
constexpr std::int64_t kBeyond = 2;    // how far from its place a seam may go, besides the side of what placed it
constexpr int kMostRounds = 2;

// Pixels that are near a seam, and the smallest rectangle around them.
class Band
{
public:
    Band(const SwapWindow& tile, std::int64_t reach, std::vector<std::uint8_t>& band)
        : all_{0, 0, tile.width(), tile.height()}, reach_(reach), band_(band)
    {
        band.assign(static_cast<std::size_t>(all_.pixels()), 0);
    }

    // Pixels beside a seam; those outside the tile do not count.
    void mark(const Rect& pixels)
    {
        const Rect inside = intersect(pixels, all_);
        if (inside.is_empty())
            return;
        const Rect beside = intersect(inside.grown(reach_), all_);
        for (std::int64_t row = beside.y; row < beside.bottom(); ++row)
            std::fill_n(band_.begin() + row * all_.width + beside.x, beside.width, std::uint8_t{1});
        around_ = bounding(around_, beside);
    }

    const Rect& around() const { return around_; }

private:
    const Rect all_;
    const std::int64_t reach_;
    std::vector<std::uint8_t>& band_;
    Rect around_;
};

void mark_seams_within(const SwapWindow& tile, std::int64_t y, Band& band)
{
    const std::span<const std::int32_t> row = tile.row(y);
    for (std::size_t x = end_of_run(row, 0); x < row.size(); x = end_of_run(row, x))
        if (is_seam(row[x - 1], row[x]))
            band.mark({static_cast<std::int64_t>(x) - 2, y, 2, 1});
}

void mark_seams_above(const SwapWindow& tile, std::int64_t y, Band& band)
{
    const std::span<const std::int32_t> inner = tile.row(y).subspan(1, static_cast<std::size_t>(tile.width()));
    const std::span<const std::int32_t> above = tile.row(y - 1).subspan(1, inner.size());
    if (std::equal(inner.begin(), inner.end(), above.begin()))
        return;
    for (std::size_t x = 0; x < inner.size(); ++x) {
        const std::size_t first = x;
        while (x < inner.size() && is_seam(inner[x], above[x]))
            ++x;
        if (x > first)
            band.mark({static_cast<std::int64_t>(first), y - 1, static_cast<std::int64_t>(x - first), 2});
    }
}

// Marks pixels near a seam. Returns the smallest rectangle around them.
Rect find_band(const SwapWindow& tile, std::int64_t reach, std::vector<std::uint8_t>& marks)
{
    Band band(tile, reach, marks);
    for (std::int64_t y = 0; y < tile.height(); ++y) {
        mark_seams_above(tile, y, band);
        mark_seams_within(tile, y, band);
    }
    mark_seams_above(tile, tile.height(), band);
    return band.around();
}

// Costs of blocks: what a border of a block's length through its pixels costs.
class BlockCosts : public SwapCosts
{
public:
    // part: what the pixels' costs are of, counted from the tile's corner
    BlockCosts(SwapCosts& pixels, const Rect& part, const Rect& blocks) : pixels_(pixels), part_(part), blocks_(blocks)
    {
    }

    void fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out) override
    {
        of_pixels_.resize(static_cast<std::size_t>(part_.pixels()));
        pixels_.fill(first, second, of_pixels_);
        for (std::int64_t y = 0; y < blocks_.height; ++y)
            for (std::int64_t x = 0; x < blocks_.width; ++x)
                out[static_cast<std::size_t>(y * blocks_.width + x)] = cost_of(blocks_.x + x, blocks_.y + y);
    }

private:
    std::int32_t cost_of(std::int64_t column, std::int64_t row) const
    {
        const Rect block{column * kBlock - part_.x, row * kBlock - part_.y, kBlock, kBlock};
        const Rect inside = intersect(block, {0, 0, part_.width, part_.height});
        if (inside.pixels() != block.pixels())
            return kNotShared;
        std::int32_t sum = 0;
        for (std::int64_t y = block.y; y < block.bottom(); ++y)
            for (std::int64_t x = block.x; x < block.right(); ++x) {
                const std::int32_t cost = of_pixels_[static_cast<std::size_t>(y * part_.width + x)];
                if (cost == kNotShared)
                    return kNotShared;
                sum += cost;
            }
        return sum / static_cast<std::int32_t>(kBlock);
    }

    SwapCosts& pixels_;
    const Rect part_;
    const Rect blocks_;
    std::vector<std::int32_t> of_pixels_;
};

// Of the block's middle, or what lies around the tile.
std::int32_t block_label(const SwapWindow& tile, std::int64_t column, std::int64_t row)
{
    const auto middle = [](std::int64_t number, std::int64_t size) {
        return std::clamp<std::int64_t>(number * kBlock + kBlock / 2, -1, size);
    };
    return tile.label(middle(column, tile.width()), middle(row, tile.height()));
}

// Whether all pixels of a block may move, and have its label.
bool is_one(const SwapWindow& tile, const std::vector<std::uint8_t>& band, std::int64_t column, std::int64_t row)
{
    const Rect block{column * kBlock, row * kBlock, kBlock, kBlock};
    if (block.right() > tile.width() || block.bottom() > tile.height())
        return false;
    const std::int32_t label = block_label(tile, column, row);
    for (std::int64_t y = block.y; y < block.bottom(); ++y)
        for (std::int64_t x = block.x; x < block.right(); ++x)
            if (tile.label(x, y) != label || !tile.is_movable(x, y) || band[tile.index(x, y)] == 0)
                return false;
    return true;
}

void move_blocks(SwapWindow& tile, const Rect& part, SeamMoveScratch& scratch)
{
    Rect blocks{part.x / kBlock, part.y / kBlock, 0, 0};
    blocks.width = (part.right() + kBlock - 1) / kBlock - blocks.x;
    blocks.height = (part.bottom() + kBlock - 1) / kBlock - blocks.y;
    SwapWindow& window = scratch.blocks;
    window.reset(blocks.width, blocks.height);
    for (std::int64_t y = -1; y <= blocks.height; ++y)
        for (std::int64_t x = -1; x <= blocks.width; ++x)
            window.label(x, y) = block_label(tile, blocks.x + x, blocks.y + y);
    for (std::int64_t y = 0; y < blocks.height; ++y)
        for (std::int64_t x = 0; x < blocks.width; ++x)
            window.set_movable(x, y, is_one(tile, scratch.wide_band, blocks.x + x, blocks.y + y));
    BlockCosts costs(scratch.known, part, blocks);
    scratch.swapper.begin(window, costs);
    scratch.swapper.swap_all(kMostRounds);
    for (std::int64_t y = 0; y < blocks.height; ++y)
        for (std::int64_t x = 0; x < blocks.width; ++x)
            for (std::int64_t i = 0; window.is_movable(x, y) && i < kBlock * kBlock; ++i)
                tile.label((blocks.x + x) * kBlock + i % kBlock, (blocks.y + y) * kBlock + i / kBlock) =
                    window.label(x, y);
}

// band: of the tile's pixels, those that may move
void move_pixels(SwapWindow& tile, const Rect& part, const std::vector<std::uint8_t>& band, SeamMoveScratch& scratch)
{
    SwapWindow& window = scratch.window;
    window.reset(part.width, part.height);
    for (std::int64_t y = -1; y <= part.height; ++y)
        for (std::int64_t x = -1; x <= part.width; ++x)
            window.label(x, y) = tile.label(part.x + x, part.y + y);
    for (std::int64_t y = 0; y < part.height; ++y)
        for (std::int64_t x = 0; x < part.width; ++x)
            window.set_movable(
                x, y, tile.is_movable(part.x + x, part.y + y) && band[tile.index(part.x + x, part.y + y)] != 0);
    scratch.swapper.begin(window, scratch.known);
    scratch.swapper.swap_all(kMostRounds);
    for (std::int64_t y = 0; y < part.height; ++y)
        for (std::int64_t x = 0; x < part.width; ++x)
            tile.label(part.x + x, part.y + y) = window.label(x, y);
}

} // namespace

void KnownCosts::begin(SwapCosts& costs)
{
    costs_ = &costs;
    count_ = 0;
}

void KnownCosts::fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out)
{
    const std::pair<std::size_t, std::size_t> numbers{first, second};
    for (std::size_t i = 0; i < count_; ++i)
        if (pairs_[i].numbers == numbers) {
            std::copy(pairs_[i].costs.begin(), pairs_[i].costs.end(), out.begin());
            return;
        }
    if (count_ == pairs_.size())
        pairs_.emplace_back();
    Pair& next = pairs_[count_++];
    costs_->fill(first, second, out);
    next.numbers = numbers;
    next.costs = out;
}

Rect move_seams(SwapWindow& tile, std::int64_t cell, const MakeCosts& make_costs, SeamMoveScratch& scratch)
{
    const Rect part = find_band(tile, cell + kBeyond, scratch.wide_band);
    if (part.is_empty())
        return part;
    const std::unique_ptr<SwapCosts> costs = make_costs(part);
    scratch.known.begin(*costs);
    if (cell <= kSmallCell) {
        move_pixels(tile, part, scratch.wide_band, scratch);
        return part;
    }
    move_blocks(tile, part, scratch);
    find_band(tile, kBlock + kBeyond, scratch.band);
    std::transform(scratch.band.begin(), scratch.band.end(), scratch.wide_band.begin(), scratch.band.begin(),
                   [](std::uint8_t a, std::uint8_t b) { return static_cast<std::uint8_t>(a & b); });
    move_pixels(tile, part, scratch.band, scratch);
    return part;
}

} // namespace panoval::mosaic
