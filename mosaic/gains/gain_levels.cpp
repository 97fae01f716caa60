// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_levels.h"

namespace panoval::mosaic
{

namespace
{

constexpr double kPartlySaturated = 0.05; // weight of blocks in which some samples are; the selection may bias them

// Sums of the channels asked for become means.
BlockLevel mean_level(const GainBlock& block, std::size_t begin, std::size_t end, double scale)
{
    BlockLevel level;
    double used = 0;
    for (std::size_t c = begin; c < end; ++c) {
        level.first += static_cast<double>(block.first[c]);
        level.second += static_cast<double>(block.second[c]);
        used += block.used[c];
    }
    if (used <= 0)
        return {};
    level.first *= scale / used;
    level.second *= scale / used;
    const double share = used / (static_cast<double>(block.shared) * static_cast<double>(end - begin));
    level.weight = used * (share < 1 ? kPartlySaturated * share * share : 1.0);
    return level;
}

// Both pictures with the same say, so that their ratio does not matter.
std::vector<double> common_levels(const BlockLevels& levels)
{
    double first = 0;
    double second = 0;
    for (const BlockLevel& block : levels.blocks) {
        first += block.weight * block.first;
        second += block.weight * block.second;
    }
    std::vector<double> common;
    for (const BlockLevel& block : levels.blocks)
        common.push_back(block.weight > 0 && first > 0 && second > 0 ? block.first / first + block.second / second
                                                                     : 0.0);
    return common;
}

// Relative slope at an element of a line: between its neighbours, or to the one that there is.
double slope_at(const double* line, std::size_t count, std::size_t stride, std::size_t i, double step)
{
    const auto at = [&](std::size_t k) { return line[k * stride]; };
    if (at(i) <= 0)
        return 0;
    const bool has_before = i > 0 && at(i - 1) > 0;
    const bool has_after = i + 1 < count && at(i + 1) > 0;
    const std::size_t before = has_before ? i - 1 : i;
    const std::size_t after = has_after ? i + 1 : i;
    if (before == after)
        return 0;
    return 2 * (at(after) - at(before)) / (at(after) + at(before)) / (step * static_cast<double>(after - before));
}

void measure_slopes(BlockLevels& levels)
{
    const std::vector<double> common = common_levels(levels);
    for (std::size_t j = 0; j < levels.rows; ++j)
        for (std::size_t i = 0; i < levels.columns; ++i) {
            BlockLevel& block = levels.blocks[j * levels.columns + i];
            block.slope_x = slope_at(common.data() + j * levels.columns, levels.columns, 1, i, levels.step_x);
            block.slope_y = slope_at(common.data() + i, levels.rows, levels.columns, j, levels.step_y);
        }
}

// The mean of (r / R)^2 over a block whose centre and size are given.
double mean_q(const Rect& size, double x, double y, double width, double height)
{
    const double middle_x = 0.5 * static_cast<double>(size.width - 1);
    const double middle_y = 0.5 * static_cast<double>(size.height - 1);
    const double corner = middle_x * middle_x + middle_y * middle_y;
    if (corner <= 0)
        return 0;
    const double dx = x - middle_x;
    const double dy = y - middle_y;
    const double inside = (width * width - 1 + height * height - 1) / 12;
    return (dx * dx + dy * dy + inside) / corner;
}

} // namespace

BlockLevels block_levels(const GainBlocks& blocks, int channel, int channels, int bits)
{
    const std::size_t begin = channel == kAllChannels ? 0 : static_cast<std::size_t>(channel);
    const std::size_t end = channel == kAllChannels ? static_cast<std::size_t>(channels) : begin + 1;
    BlockLevels levels;
    levels.unit = bits == 8 ? 1.0 : 255.0 / 65535.0;
    levels.darkest = bits == 8 ? 1.0 : 0.25;
    levels.columns = blocks.columns;
    levels.rows = blocks.rows;
    levels.step_x = blocks.width / static_cast<double>(blocks.columns);
    levels.step_y = blocks.height / static_cast<double>(blocks.rows);
    for (std::size_t k = 0; k < blocks.blocks.size(); ++k) {
        BlockLevel level = mean_level(blocks.blocks[k], begin, end, levels.unit);
        const std::size_t column = k % blocks.columns;
        const std::size_t row = k / blocks.columns;
        level.x = (2 * static_cast<double>(column) + 1) / static_cast<double>(blocks.columns) - 1;
        level.y = (2 * static_cast<double>(row) + 1) / static_cast<double>(blocks.rows) - 1;
        levels.blocks.push_back(level);
    }
    measure_slopes(levels);
    return levels;
}

BlockRadii block_radii(const Layout& layout, const Overlap& overlap, const GainBlocks& blocks)
{
    const Rect in_first = overlap.in_first(layout);
    const Rect in_second = overlap.in_second(layout);
    BlockRadii radii;
    for (const GainBlock& block : blocks.blocks) {
        const double x = static_cast<double>(block.x);
        const double y = static_cast<double>(block.y);
        const double width = static_cast<double>(block.width);
        const double height = static_cast<double>(block.height);
        radii.first.push_back(mean_q(layout.pictures[overlap.first].rect, static_cast<double>(in_first.x) + x,
                                     static_cast<double>(in_first.y) + y, width, height));
        radii.second.push_back(mean_q(layout.pictures[overlap.second].rect, static_cast<double>(in_second.x) + x,
                                      static_cast<double>(in_second.y) + y, width, height));
    }
    return radii;
}

BlockLevels flatten(const BlockLevels& levels, const BlockRadii& radii, const Falloff& falloff)
{
    BlockLevels flat = levels;
    if (falloff.is_flat())
        return flat;
    for (std::size_t k = 0; k < flat.blocks.size(); ++k) {
        flat.blocks[k].first /= falloff.at(radii.first[k]);
        flat.blocks[k].second /= falloff.at(radii.second[k]);
    }
    measure_slopes(flat);
    return flat;
}

} // namespace panoval::mosaic
