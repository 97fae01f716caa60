// SPDX-License-Identifier: MIT
#include "mosaic/tiles/tile_blender.h"

#include "mosaic/base/band_window.h"
#include "mosaic/tiles/composite_blend.h"
#include "mosaic/tiles/library_blend.h"

#include <algorithm>

namespace panoval::mosaic
{

TileBlender::TileBlender(const Layout& layout, const Corrections& corrections, const SeamMap* seams,
                         const BlendOptions& options, PictureReader& reader)
    : layout_(layout), corrections_(corrections), seams_(seams), options_(options),
      bands_(library_bands(layout, options.bands)), scratch_needs_(layout, bands_), reader_(reader)
{
}

void TileBlender::blend(const Rect& tile, std::uint8_t* samples, std::size_t row_bytes, std::uint8_t* coverage,
                        std::size_t coverage_row_bytes) const
{
    if (seams_ != nullptr) {
        const auto scratch = scratch_.take();
        blend_composite({layout_, corrections_, *seams_, reader_, bands_, options_.output_bits, tile, samples,
                         row_bytes, coverage, coverage_row_bytes},
                        *scratch);
        return;
    }
    const LibraryJob job{layout_, corrections_, reader_,   bands_,   options_.output_bits,
                         tile,    samples,      row_bytes, coverage, coverage_row_bytes};
    if (options_.mode == BlendMode::Feather)
        blend_feather(job);
    else
        blend_bands(job, *library_scratch_.take());
}

Rect TileBlender::reach(const Rect& tile) const
{
    if (seams_ != nullptr)
        return composite_reach(tile, bands_);
    if (options_.mode == BlendMode::Feather)
        return feather_reach(tile);
    return bands_reach(tile, bands_);
}

std::size_t TileBlender::scratch_bytes(std::int64_t width, std::int64_t height) const
{
    if (seams_ != nullptr)
        return scratch_needs_.composite_bytes(width, height);
    return options_.mode == BlendMode::Feather ? scratch_needs_.feather_bytes(width, height)
                                               : scratch_needs_.bands_bytes(width, height);
}

} // namespace panoval::mosaic
