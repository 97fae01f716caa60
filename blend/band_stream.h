// SPDX-License-Identifier: MIT
// One image on its way through its pyramids onto the canvas, row by row: every level keeps only the few rows that the
// filters reach, and adds a row of its band as soon as the coarser level has come far enough.
#pragma once

#include "blend/band_region.h"
#include "blend/band_rows.h"
#include "blend/pyramid_rows.h"
#include "core/heap.h"
#include "panoval.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

class BandStream
{
public:
    // blender  prepared, with at least one channel
    // img      elemSize 1 or 2; it and the mask must live as long as the stream
    // region   the image's place on the blender's canvas, with area
    BandStream(const MultiBandBlender& blender, const Mat& img, const Matb& mask, const BandRegion& region) noexcept;

    bool has_memory() const noexcept { return block_ != nullptr; }

    // Adds the whole image to the canvas; once.
    void run() noexcept;

private:
    static constexpr std::int32_t kMostLevels = 32;

    // The latest rows of a level's samples or of its weights. Row y lies in slot y mod kReducedRows.
    struct Rows {
        std::int32_t channels;
        std::size_t length;         // floats of a row
        std::size_t reduced_length; // floats of a row of half the width
        float* full;                // of level 0 only the latest row: it is made of image samples again when needed
        float* reduced;             // filtered across to half the width
    };
    struct Level {
        std::int32_t width;
        std::int32_t height;
        std::int32_t next; // row to come
        Rows samples;
        Rows weights;
        float* expanded; // rows of the coarser level, filtered across to this level's width
    };

    std::size_t lay_out(float* block) noexcept;
    void produce_row(std::int32_t i) noexcept;
    void load_row(std::int32_t y) noexcept;
    void reduce_from_finer(std::int32_t i, std::int32_t y) noexcept;
    void reduce_for_coarser(std::int32_t i, std::int32_t y) noexcept;
    void expand_to_finer(std::int32_t i, std::int32_t y) noexcept;
    CoarseRows coarse_rows(std::int32_t i, std::int32_t y, std::size_t first) const noexcept;
    BandRow canvas_row(std::int32_t i, std::int32_t y, std::int32_t first, std::int32_t pixels) const noexcept;
    void add_image_row(std::int32_t y) noexcept;
    void add_row(std::int32_t i, std::int32_t y) noexcept;
    const std::uint8_t* visible_samples(std::int32_t y) noexcept;
    const std::uint8_t* visible_mask(std::int32_t y) const noexcept;

    const MultiBandBlender& blender_;
    const Mat& img_;
    const Matb& mask_;
    const BandRegion region_;
    const std::int32_t channels_; // of the canvas
    Level levels_[kMostLevels] = {};
    std::uint8_t* matched_ = nullptr; // an image row with the canvas's channels, where the image has others
    HeapArray<float> block_;
};

} // namespace panoval
