// SPDX-License-Identifier: MIT
// A picture of the panorama by rows, as the engine takes it: with the panorama's depth, its masks put together, and its
// frame.
#pragma once

#include "cli/stitch/panorama_plan.h"
#include "image/metadata.h"
#include "image/row_reader.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace panoval::cli
{

// A mask file of a layer's, by rows of one byte a pixel.
class MaskRows
{
public:
    MaskRows(const std::string& file, const PlacedLayer& layer);

    void read(std::int32_t first, std::int32_t count, std::uint8_t* mask, std::size_t stride);

private:
    std::unique_ptr<image::RowReader> reader_;
    std::vector<std::uint8_t> wide_; // a row of 16-bit samples
};

class LayerRows
{
public:
    // bits: of the panorama's samples, no fewer than the picture's
    LayerRows(const PlacedLayer& layer, int bits);

    const image::Metadata& metadata() const { return reader_->metadata(); }

    // Rows of the picture with its frame. The mask, which may be left out, is its alpha and its mask file, the smaller
    // of the two where it has both, and nothing where its exclude mask is not 0; covered everywhere where it has none
    // of them. Cheap for rows that follow the last ones.
    void read(std::int32_t first, std::int32_t count, const image::Rows& to);

    // The keep mask, of a picture without a frame.
    void read_keep(std::int32_t first, std::int32_t count, std::uint8_t* keep, std::size_t stride);

private:
    void read_inside(std::int32_t first, std::int32_t count, const image::Rows& to);
    void merge_masks(std::int32_t first, std::int32_t count, const image::Rows& to);

    const PlacedLayer& layer_;
    const int bits_;
    std::unique_ptr<image::RowReader> reader_;
    std::unique_ptr<MaskRows> mask_;
    std::unique_ptr<MaskRows> exclude_;
    std::unique_ptr<MaskRows> keep_;
    std::vector<std::uint8_t> mask_rows_;
};

// What it takes to read a layer and its masks.
struct ReadingCost {
    std::uint64_t held_bytes = 0; // in memory meanwhile, about
    bool is_stored = true;        // all its files hold their rows as they are: reading them again decodes nothing
};
ReadingCost cost_of_reading(const PlacedLayer& layer);

} // namespace panoval::cli
