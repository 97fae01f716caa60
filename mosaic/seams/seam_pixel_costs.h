// SPDX-License-Identifier: MIT
// Costs of separating two pictures at the pixels of a window: those of their cells, and how much the pixels differ,
// smoothed a little because single pixels are noisy.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_swap.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// What a window shows of a picture.
struct WindowPicture {
    std::size_t number = 0;
    std::vector<std::uint8_t> covered;
    std::vector<float> samples;
};

// Memory for the costs of one window after the other.
struct CostScratch {
    std::vector<WindowPicture> pictures;
    std::vector<float> differences;
    std::vector<float> rows;
    std::vector<std::int32_t> cells;
    PixelBlock block;
};

class PixelCosts : public SwapCosts
{
public:
    // window: of the canvas, inside it
    PixelCosts(const Layout& layout, const Corrections& corrections, const CellCosts& costs, PictureReader& reader,
               const Rect& window, CostScratch& scratch)
        : layout_(layout), corrections_(corrections), costs_(costs), reader_(reader), window_(window),
          grown_(window.grown(1)), scratch_(scratch)
    {
    }

    void fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out) override;

private:
    std::size_t load(std::size_t number);
    void compare(const PicturePair& pair, const WindowPicture& a, const WindowPicture& b);
    std::int32_t pixel_cost(const PicturePair& pair, std::size_t at) const;

    const Layout& layout_;
    const Corrections& corrections_;
    const CellCosts& costs_;
    PictureReader& reader_;
    const Rect window_;
    const Rect grown_;
    CostScratch& scratch_;
    std::size_t loaded_ = 0; // pictures
};

} // namespace panoval::mosaic
