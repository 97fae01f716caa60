// SPDX-License-Identifier: MIT
// Moves the seams of a tile of pixels to where the pictures differ least.
#pragma once

#include "mosaic/base/rect.h"
#include "mosaic/seams/seam_swap.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace panoval::mosaic
{

// Costs that are asked for more than once: of each pair of pictures they are worked out at the first time.
class KnownCosts : public SwapCosts
{
public:
    // Begins another window; the costs must outlive what is asked.
    void begin(SwapCosts& costs);

    void fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out) override;

private:
    struct Pair {
        std::pair<std::size_t, std::size_t> numbers;
        std::vector<std::int32_t> costs;
    };

    SwapCosts* costs_ = nullptr;
    std::vector<Pair> pairs_;
    std::size_t count_ = 0;
};

// Memory for one tile after the other.
struct SeamMoveScratch {
    SwapWindow window;
    SwapWindow blocks;
    std::vector<std::uint8_t> wide_band;
    std::vector<std::uint8_t> band;
    KnownCosts known;
    LabelSwapper swapper;
};

// Tells what the pixels of a part of the tile cost; the part is counted from the tile's corner.
using MakeCosts = std::function<std::unique_ptr<SwapCosts>(const Rect& part)>;

// Only labels of pixels that the tile calls movable change, and of them those near seams. Where cells are large, whole
// blocks of pixels move first: a band as wide as two cells takes long to cut pixel by pixel.
//
// cell     side in pixels of the cells that gave the seams their places
// returns  the part of the tile outside of which nothing has changed
Rect move_seams(SwapWindow& tile, std::int64_t cell, const MakeCosts& make_costs, SeamMoveScratch& scratch);

} // namespace panoval::mosaic
