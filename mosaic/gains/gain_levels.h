// SPDX-License-Identifier: MIT
// The blocks of an overlap as the estimates see them: mean levels of one channel, or of all together.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/gains/gain_blocks.h"
#include "mosaic/pictures/corrections.h"

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

inline constexpr int kAllChannels = -1;

struct BlockLevel {
    double first = 0;   // mean level, 255 is the largest sample whatever the depth
    double second = 0;  //
    double weight = 0;  // samples that count; less where some of the block's are saturated
    double x = 0;       // of the block's centre, from the middle of the overlap: -1 to 1
    double y = 0;       //
    double slope_x = 0; // of the logarithm of the brightness, a pixel
    double slope_y = 0; //
};

struct BlockLevels {
    std::size_t columns = 0;
    std::size_t rows = 0;
    double step_x = 1;              // pixels from block to block
    double step_y = 1;              //
    double unit = 1;                // of samples, in levels
    double darkest = 1;             // mean levels below that tell nothing about a ratio
    std::vector<BlockLevel> blocks; // row by row; those without a sample that counts have weight 0
};

BlockLevels block_levels(const GainBlocks& blocks, int channel, int channels, int bits);

// Where the blocks lie in the two pictures: mean of (r / R)^2 over each, as in Falloff.
struct BlockRadii {
    std::vector<double> first;
    std::vector<double> second;
};

BlockRadii block_radii(const Layout& layout, const Overlap& overlap, const GainBlocks& blocks);

// Levels as they were without the falloff.
BlockLevels flatten(const BlockLevels& levels, const BlockRadii& radii, const Falloff& falloff);

} // namespace panoval::mosaic
