// SPDX-License-Identifier: MIT
// Row kernels of the multi-band blender: what enters the pyramids, what a band adds to the canvas, and what leaves it.
// A band is a level minus the expanded coarser one; the expansion down the columns happens in here, so that no band is
// ever stored.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

// Image samples as floats. sample_bytes: 1 or 2
void load_samples(const std::uint8_t* src, std::size_t sample_bytes, std::size_t count, float* dst);

// Mask bytes as weights: each divided by 255.
void load_weights(const std::uint8_t* mask, std::size_t count, float* dst);

// The rows of the coarser level, filtered across, that one finer row is expanded from.
struct CoarseRows {
    enum Kind : std::int32_t { None, Even, Odd };
    Kind kind;           // None: the coarsest level, whose band is the level itself
    const float* row[3]; // above, at and below an even row; an odd row lies between the last two
};

// One row of one level on its way to the canvas.
struct BandRow {
    const void* fine;         // samples of the level
    std::size_t sample_bytes; // 1, 2: image samples; 4: floats
    CoarseRows coarse;        //
    const float* weight;      // one per pixel
    std::size_t pixels;       //
    std::size_t channels;     //
    float* sums;              // on the canvas: sums += (fine - expanded) * weight
    float* weight_sums;       // on the canvas: weight_sums += weight
};
void add_band(const BandRow& row);

// One row of the canvas on its way out: mean(sums, weights), rounded, plus the expanded coarser level.
struct CanvasRow {
    const float* sums;
    const float* weight_sums;
    CoarseRows coarse;
    std::size_t pixels;
    std::size_t channels;
    void* out;                // pixels * channels samples
    std::size_t sample_bytes; // 1, 2: clamped and floored; 4: floats, out may be sums itself
};
void collapse_row(const CanvasRow& row);

} // namespace panoval
