// SPDX-License-Identifier: MIT
// The overlap is divided into sectors about as large as a block; sums of texture over rectangles that begin at its
// corner tell that of any block by four of them.
#include "mosaic/verdict/block_choice.h"

#include "mosaic/verdict/displacement_patch.h"

#include <algorithm>
#include <cstdint>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kBlock = 128; // pixels a side
constexpr std::int64_t kMostBlocks = 8;

// Changes of brightness from cell to cell, summed over rectangles that begin at the corner.
class Texture
{
public:
    explicit Texture(const OverlapCells& cells) : width_(cells.width + 1), sums_(width_ * (cells.height + 1))
    {
        const Patch first = brightness_of_cells(cells, false);
        const Patch second = brightness_of_cells(cells, true);
        for (std::size_t y = 0; y < cells.height; ++y)
            for (std::size_t x = 0; x < cells.width; ++x) {
                const double here = energy(first, x, y) + energy(second, x, y);
                sums_[(y + 1) * width_ + x + 1] =
                    here + sums_[y * width_ + x + 1] + sums_[(y + 1) * width_ + x] - sums_[y * width_ + x];
            }
    }

    double in(std::size_t left, std::size_t top, std::size_t right, std::size_t bottom) const
    {
        return sums_[bottom * width_ + right] - sums_[top * width_ + right] - sums_[bottom * width_ + left] +
               sums_[top * width_ + left];
    }

private:
    static double energy(const Patch& patch, std::size_t x, std::size_t y)
    {
        const std::size_t i = y * patch.width() + x;
        if (x + 1 >= patch.width() || y + 1 >= patch.height() || patch.known[i] == 0 || patch.known[i + 1] == 0 ||
            patch.known[i + patch.width()] == 0)
            return 0;
        const double right = static_cast<double>(patch.value[i + 1] - patch.value[i]);
        const double down = static_cast<double>(patch.value[i + patch.width()] - patch.value[i]);
        // Large steps count less: one lamp in the night must not outweigh everything.
        const double both = right * right + down * down;
        return both / (1 + 0.02 * both);
    }

    std::size_t width_;
    std::vector<double> sums_;
};

struct Sectors {
    std::int64_t across;
    std::int64_t down;
};

Sectors divide(const Rect& region)
{
    Sectors sectors = {std::clamp<std::int64_t>((region.width + kBlock / 2) / kBlock, 1, kMostBlocks),
                       std::clamp<std::int64_t>((region.height + kBlock / 2) / kBlock, 1, kMostBlocks)};
    while (sectors.across * sectors.down > kMostBlocks) // narrow ones go first
        --(region.width * sectors.down < region.height * sectors.across ? sectors.across : sectors.down);
    return sectors;
}

// The most textured block inside a rectangle of cells; positions are half a block apart.
Rect best_block(const OverlapCells& cells, const Texture& texture, const Rect& sector)
{
    const std::int64_t step = cells.step;
    const std::int64_t width = std::min(kBlock / step, sector.width);
    const std::int64_t height = std::min(kBlock / step, sector.height);
    Rect best{sector.x, sector.y, width, height};
    double most = -1;
    for (std::int64_t y = sector.y; y + height <= sector.bottom(); y += std::max<std::int64_t>(1, height / 2))
        for (std::int64_t x = sector.x; x + width <= sector.right(); x += std::max<std::int64_t>(1, width / 2)) {
            const double found = texture.in(static_cast<std::size_t>(x), static_cast<std::size_t>(y),
                                            static_cast<std::size_t>(x + width), static_cast<std::size_t>(y + height));
            if (found > most) {
                most = found;
                best = {x, y, width, height};
            }
        }
    return best;
}

} // namespace

Blocks choose_blocks(const OverlapCells& cells)
{
    const Rect& region = cells.overlap.region;
    const Texture texture(cells);
    const Sectors sectors = divide(region);
    const auto width = static_cast<std::int64_t>(cells.width);
    const auto height = static_cast<std::int64_t>(cells.height);
    const auto block_in = [&](std::int64_t i, std::int64_t j) {
        Rect sector{i * width / sectors.across, j * height / sectors.down, 0, 0};
        sector.width = (i + 1) * width / sectors.across - sector.x;
        sector.height = (j + 1) * height / sectors.down - sector.y;
        const Rect block = best_block(cells, texture, sector);
        return intersect({region.x + block.x * cells.step, region.y + block.y * cells.step, block.width * cells.step,
                          block.height * cells.step},
                         region);
    };
    Blocks blocks;
    for (std::int64_t colour = 0; colour < 2; ++colour) {
        for (std::int64_t j = 0; j < sectors.down; ++j)
            for (std::int64_t i = (j + colour) % 2; i < sectors.across; i += 2)
                blocks.rects.push_back(block_in(i, j));
        if (colour == 0)
            blocks.first_half = blocks.rects.size();
    }
    return blocks;
}

} // namespace panoval::mosaic
