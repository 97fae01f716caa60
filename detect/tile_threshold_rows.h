// SPDX-License-Identifier: MIT
// A row of marks of dark pixels, by thresholds that are interpolated between those of the tiles around it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace panoval
{

// Columns that are interpolated together, so that their products stay in the nearest cache.
inline constexpr std::size_t kTileStrip = 1024;
inline constexpr std::size_t kTileBlock = 32; // columns that are decided together; divides kTileStrip

// A threshold times a horizontal fraction: the first product of one of the four terms.
struct TileCorner {
    double value[kTileStrip];
    std::uint16_t fixed[kTileStrip]; // 256 * value, truncated; see fixed_index
};

// Of the tiles below and above a row of pixels, to its right and left.
struct TileCorners {
    TileCorner lower_right;
    TileCorner lower_left;
    TileCorner upper_right;
    TileCorner upper_left;

    // Of the tiles around. The four terms add up to a mean of their thresholds and each loses less than 1, so that the
    // sum lies between lowest - 4 and highest. Rounding cannot carry it beyond: it is a whole number.
    std::uint8_t lowest;
    std::uint8_t highest;
};

// The second factor of a term, between 0 and 1.
struct TileFraction {
    double value;
    std::uint16_t fixed; // 65536 * value, truncated, less 1 where that is not negative
};

// value  a threshold times a horizontal fraction
void set_column(TileCorner& corner, std::size_t x, double value);

TileFraction fraction_of(double value);

// Marks the pixels that are at most the threshold of their column.
//
// lower, upper  the vertical fraction and its complement
// width         columns, at most kTileStrip
// map           width marks, out: 1 = dark, 0 = not; bytes may be the pixels themselves
void mark_row(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper,
              const std::uint8_t* pixels, std::size_t width, std::uint8_t* map);
void mark_row(const TileCorners& corners, const TileFraction& lower, const TileFraction& upper,
              const std::uint8_t* pixels, std::size_t width, std::uint32_t* map);

} // namespace panoval
