// SPDX-License-Identifier: MIT
// One tile of the panorama from the pictures that reach it. A tile's pixels are the same, bit for bit, whatever the
// tile's size and place, and whoever blends it.
//
// With seams every pixel comes from its owner alone, the composite, and a smooth correction is added that lets the
// differences between neighbours fade over a distance that fits their scale (Burt and Adelson, A multiresolution spline
// with application to image mosaics, 1983): the sum over all levels of each picture's blurred area times the band of
// its difference from the composite. Pictures that agree need no correction and come out as they are.
//
// Without seams the library's own blenders see the pictures' whole masks; the result is what they give on the whole
// canvas.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/base/scratch_pool.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/seams/seam_map.h"
#include "mosaic/tiles/composite_blend.h"
#include "mosaic/tiles/library_blend.h"
#include "mosaic/tiles/tile_scratch.h"

#include <cstddef>
#include <cstdint>

namespace panoval::mosaic
{

enum class BlendMode : int { MultiBand = 0, Feather = 1 };

struct BlendOptions {
    BlendMode mode = BlendMode::MultiBand;
    int bands = 5;       // at least 1; no more than the logarithm of the canvas's larger side count
    int output_bits = 8; // 8 or 16; samples are scaled where the pictures have others
};

class TileBlender
{
public:
    // seams: null for the library's blenders on the pictures' whole masks; feathering has no seams. Everything that is
    // passed must outlive the blender.
    TileBlender(const Layout& layout, const Corrections& corrections, const SeamMap* seams, const BlendOptions& options,
                PictureReader& reader);

    // Blends the tile, which lies inside the canvas. May be called from several threads at once.
    //
    // samples   tile.height rows of tile.width * channels samples of the output's bits, row_bytes apart; what no
    //           picture covers is 0
    // coverage  tile.height rows of tile.width bytes, coverage_row_bytes apart: the mask of the picture that owns the
    //           pixel, without seams the largest mask of any picture; or null
    void blend(const Rect& tile, std::uint8_t* samples, std::size_t row_bytes, std::uint8_t* coverage,
               std::size_t coverage_row_bytes) const;

    // Of the canvas, where pictures lie that a tile's pixels depend on; may reach beyond the canvas.
    Rect reach(const Rect& tile) const;

    // What blend() takes for itself for a tile of this size, in bytes; rather too much.
    std::size_t scratch_bytes(std::int64_t width, std::int64_t height) const;

private:
    const Layout& layout_;
    const Corrections& corrections_;
    const SeamMap* const seams_;
    const BlendOptions options_;
    const int bands_; // no more than the canvas has room for
    const TileScratch scratch_needs_;
    PictureReader& reader_;
    mutable ScratchPool<CompositeScratch> scratch_;
    mutable ScratchPool<LibraryScratch> library_scratch_;
};

} // namespace panoval::mosaic
