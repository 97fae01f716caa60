// SPDX-License-Identifier: MIT
// What the single samples of a dark overlap say beyond sums: which pairs occur, and whether neighbouring pixels
// differ between the two pictures in the same way.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/gains/gain_blocks.h"
#include "mosaic/pictures/pixel_block.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::mosaic
{

// How often each pair of samples below kSide occurs.
struct SamplePairs {
    static constexpr std::size_t kSide = 64;
    std::vector<std::uint32_t> count = std::vector<std::uint32_t>(kSide * kSide); // [first * kSide + second]
};

// Sums of products of the samples of pixels at a distance of 0, 1 and 2 in a row.
struct NeighbourSums {
    static constexpr std::size_t kFar = 2;
    struct Products {
        std::uint64_t first = 0;        // of the first picture at both pixels
        std::uint64_t second = 0;       //
        std::uint64_t first_second = 0; // of the first picture at the left pixel, of the second one at the right
        std::uint64_t second_first = 0; //
        std::uint64_t count = 0;
    };
    std::array<Products, kFar + 1> at{};
    std::uint64_t first = 0; // sums of samples
    std::uint64_t second = 0;
};

struct OverlapSamples {
    std::vector<SamplePairs> pairs;        // of each channel, and of all together as the last one
    std::vector<NeighbourSums> neighbours; // of each channel
};

// Of 8-bit samples; at most some 2^16 pixels are looked at, in rows at equal distances.
// is_left_out  of each block; empty for none
OverlapSamples count_samples(const Layout& layout, const Overlap& overlap, const GainBlocks& blocks,
                             const std::vector<char>& is_left_out, PictureReader& reader);

// Whether the differences between the pictures, exposures apart, are independent from pixel to pixel, as noise and
// rounding are. A shift, blur, or another thing make neighbours differ alike.
bool is_white(const std::vector<NeighbourSums>& neighbours);

} // namespace panoval::mosaic
