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
      bands_(library_bands(layout, options.bands)), filled_row_(longest_filled_row(layout)), reader_(reader)
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
    if (seams_ == nullptr && options_.mode == BlendMode::MultiBand)
        return bands_scratch_bytes(layout_, bands_, filled_row_, width, height);
    const Rect tile{0, 0, width, height};
    const auto pixels = static_cast<std::size_t>(tile.pixels());
    const auto seen = static_cast<std::size_t>(reach(tile).pixels());
    const auto channels = static_cast<std::size_t>(layout_.channels);
    const auto block = seen * static_cast<std::size_t>(layout_.pixel_bytes() + 1);
    if (seams_ == nullptr)
        return pixels * (channels + 1) * sizeof(float) + block + seen * sizeof(float);
    // Levels, and labels and the composite around the tile.
    const std::size_t levels = pixels / 3 * 4 * (channels + 1) * sizeof(float);
    return levels + seen * (1 + channels) * sizeof(float) + block;
}

} // namespace panoval::mosaic
