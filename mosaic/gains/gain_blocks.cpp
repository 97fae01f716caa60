// SPDX-License-Identifier: MIT
#include "mosaic/gains/gain_blocks.h"

#include "core/numbers.h"
#include "mosaic/gains/gain_sums.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace panoval::mosaic
{

namespace
{

constexpr std::size_t kBlocksInAll = 400000;
constexpr std::size_t kFewestBlocks = 64;
constexpr std::size_t kMostBlocks = 640;
constexpr std::int64_t kShortestSide = 4;
constexpr std::int64_t kStripPixels = 1 << 16; // what is read at once, unless a single row is longer
constexpr std::int64_t kRangePixels = 1 << 14; // about, of an overlap, that narrow the range of ratios

// Part k of `count` nearly equal parts of a length starts there.
std::int64_t part_begin(std::int64_t length, std::size_t count, std::size_t k)
{
    return length * static_cast<std::int64_t>(k) / static_cast<std::int64_t>(count);
}

// In which part that is: the last one that begins at it or before.
std::size_t part_at(double length, std::size_t count, std::int64_t at)
{
    return ((static_cast<std::size_t>(at) + 1) * count - 1) / static_cast<std::size_t>(length);
}

std::size_t part_count(std::int64_t length, std::int64_t side)
{
    return static_cast<std::size_t>(std::max<std::int64_t>(1, length / side));
}

} // namespace

std::size_t GainBlocks::column_of(std::int64_t x) const
{
    return part_at(width, columns, x);
}

std::size_t GainBlocks::row_of(std::int64_t y) const
{
    return part_at(height, rows, y);
}

GainBlocks lay_out_blocks(const Rect& region, std::size_t most)
{
    GainBlocks result;
    const double area = static_cast<double>(region.pixels());
    const auto side =
        std::max(kShortestSide, std::int64_t{truncate_to_int(std::sqrt(area / static_cast<double>(most)))});
    result.columns = std::min(part_count(region.width, side), most);
    // A long narrow overlap is one column of blocks.
    const std::int64_t rows_fit = static_cast<std::int64_t>(std::max<std::size_t>(1, most / result.columns));
    result.rows = part_count(region.height, std::max(side, (region.height + rows_fit - 1) / rows_fit));
    result.width = static_cast<double>(region.width);
    result.height = static_cast<double>(region.height);
    result.blocks.resize(result.columns * result.rows);
    for (std::size_t j = 0; j < result.rows; ++j)
        for (std::size_t i = 0; i < result.columns; ++i) {
            GainBlock& block = result.blocks[j * result.columns + i];
            const std::int64_t x0 = part_begin(region.width, result.columns, i);
            const std::int64_t x1 = part_begin(region.width, result.columns, i + 1);
            const std::int64_t y0 = part_begin(region.height, result.rows, j);
            const std::int64_t y1 = part_begin(region.height, result.rows, j + 1);
            block.x = 0.5f * static_cast<float>(x0 + x1 - 1);
            block.y = 0.5f * static_cast<float>(y0 + y1 - 1);
            block.width = static_cast<float>(x1 - x0);
            block.height = static_cast<float>(y1 - y0);
        }
    return result;
}

namespace
{

// Sums the rows of an overlap that come from above, from those of a row of blocks on, into its blocks.
template <class Sample, class Sums>
class BlockSummer
{
public:
    BlockSummer(const Layout& layout, const Rect& region, bool has_masks, std::size_t first_row, GainBlocks& blocks)
        : width_(region.width), height_(region.height), channels_(static_cast<std::size_t>(layout.channels)),
          has_masks_(has_masks), bound_(static_cast<Sample>(saturation_bound(layout.bits))), blocks_(blocks),
          block_row_(first_row), y_(part_begin(height_, blocks.rows, first_row)),
          row_end_(part_begin(height_, blocks.rows, first_row + 1))
    {
        const std::size_t count = static_cast<std::size_t>(width_) * channels_;
        sums_.clear(count);
        mask_.assign(count, Sample{1});
        shared_.assign(static_cast<std::size_t>(width_), 0);
    }

    void add_strip(const PictureView& first, const PictureView& second)
    {
        for (std::int64_t y = 0; y < first.rect().height; ++y)
            add_row(first, second, y);
    }

    const GainTotals& totals() const { return totals_; }

private:
    void add_row(const PictureView& first, const PictureView& second, std::int64_t y)
    {
        if (!has_masks_ || (is_whole(first.mask_row(y)) && is_whole(second.mask_row(y))))
            share_all();
        else
            combine_masks(first.mask_row(y), second.mask_row(y));
        // Rows begin at multiples of the sample's size in memory that the heap has aligned.
        const GainRow<Sample> row{reinterpret_cast<const Sample*>(first.row(y)),
                                  reinterpret_cast<const Sample*>(second.row(y)), mask_.data(), mask_.size(), bound_};
        add_gain_row(row, sums_);
        ++y_;
        if (++rows_held_ == Sums::kRows || y_ == row_end_)
            empty_sums();
        if (y_ == row_end_ && ++block_row_ < blocks_.rows)
            row_end_ = part_begin(height_, blocks_.rows, block_row_ + 1);
    }

    bool is_whole(const std::uint8_t* mask) const { return std::memchr(mask, 0, shared_.size()) == nullptr; }

    void share_all()
    {
        ++whole_rows_;
        if (!shares_all_)
            mask_.assign(mask_.size(), Sample{1});
        shares_all_ = true;
    }

    void combine_masks(const std::uint8_t* first, const std::uint8_t* second)
    {
        shares_all_ = false;
        Sample* out = mask_.data();
        for (std::size_t x = 0; x < shared_.size(); ++x) {
            const bool is_shared = first[x] != 0 && second[x] != 0;
            shared_[x] += is_shared ? 1 : 0;
            for (std::size_t c = 0; c < channels_; ++c)
                *out++ = is_shared ? Sample{1} : Sample{0};
        }
    }

    void empty_sums()
    {
        for (std::size_t i = 0; i < blocks_.columns; ++i) {
            GainBlock& block = blocks_.blocks[block_row_ * blocks_.columns + i];
            const auto begin = static_cast<std::size_t>(part_begin(width_, blocks_.columns, i));
            const auto end = static_cast<std::size_t>(part_begin(width_, blocks_.columns, i + 1));
            add_columns(begin, end, block);
            const std::uint32_t shared = count_shared(begin, end);
            block.shared += shared;
            totals_.shared += shared;
        }
        totals_.first_saturated += sums_.bright.first;
        totals_.second_saturated += sums_.bright.second;
        sums_.clear(mask_.size());
        shared_.assign(shared_.size(), 0);
        whole_rows_ = 0;
        rows_held_ = 0;
    }

    void add_columns(std::size_t begin, std::size_t end, GainBlock& block) const
    {
        for (std::size_t c = 0; c < channels_; ++c)
            for (std::size_t i = begin * channels_ + c; i < end * channels_; i += channels_) {
                block.first[c] += sums_.first[i];
                block.second[c] += sums_.second[i];
                block.used[c] += sums_.used[i];
            }
    }

    std::uint32_t count_shared(std::size_t begin, std::size_t end) const
    {
        auto count = static_cast<std::uint32_t>((end - begin) * whole_rows_);
        for (std::size_t x = begin; x < end; ++x)
            count += shared_[x];
        return count;
    }

    const std::int64_t width_;
    const std::int64_t height_;
    const std::size_t channels_;
    const bool has_masks_;
    const Sample bound_;
    GainBlocks& blocks_;
    Sums sums_;
    std::vector<Sample> mask_;
    bool shares_all_ = true; // the mask covers all
    // Since the sums were emptied: rows that both pictures cover wholly, and of each column those of the other ones.
    std::size_t whole_rows_ = 0;
    std::vector<std::uint32_t> shared_;
    std::size_t rows_held_ = 0;
    std::size_t block_row_;
    std::int64_t y_;
    std::int64_t row_end_; // of the current row of blocks
    GainTotals totals_;
};

// y: of the strip's first row in the overlap, whose every `step`-th row counts
void narrow_by_strip(const GainStrips& strips, std::int64_t y, std::int64_t step, RatioRanges& ranges)
{
    const Rect& rect = strips.first.rect();
    const auto channels = static_cast<std::size_t>(strips.first.channels());
    for (std::int64_t row = (step - y % step) % step; row < rect.height; row += step)
        narrow_by_row({strips.first.row(row), strips.second.row(row), strips.first.mask_row(row),
                       strips.second.mask_row(row), rect.width, channels},
                      ranges);
}

template <class Sample, class Sums>
GainTotals sum_strips(const Layout& layout, const Overlap& overlap, std::size_t first_row, std::size_t end_row,
                      PictureReader& reader, GainStrips& strips, GainBlocks& blocks)
{
    const Rect in_first = overlap.in_first(layout);
    const Rect in_second = overlap.in_second(layout);
    const bool has_masks = layout.pictures[overlap.first].has_mask || layout.pictures[overlap.second].has_mask;
    BlockSummer<Sample, Sums> summer(layout, overlap.region, has_masks, first_row, blocks);
    const std::int64_t strip_rows = std::max<std::int64_t>(1, kStripPixels / in_first.width);
    const std::int64_t row_step = in_first.pixels() / kRangePixels + 1;
    RatioRanges ranges;
    const std::int64_t end = part_begin(in_first.height, blocks.rows, end_row);
    for (std::int64_t y = part_begin(in_first.height, blocks.rows, first_row); y < end; y += strip_rows) {
        const std::int64_t rows = std::min(strip_rows, end - y);
        strips.first.read(reader, overlap.first, {in_first.x, in_first.y + y, in_first.width, rows}, layout.channels,
                          layout.sample_bytes());
        strips.second.read(reader, overlap.second, {in_second.x, in_second.y + y, in_second.width, rows},
                           layout.channels, layout.sample_bytes());
        summer.add_strip(strips.first, strips.second);
        if constexpr (sizeof(Sample) == 1)
            narrow_by_strip(strips, y, row_step, ranges);
    }
    strips.first.close();
    strips.second.close();
    GainTotals totals = summer.totals();
    totals.ranges = ranges;
    return totals;
}

} // namespace

std::uint16_t saturation_bound(int bits)
{
    return bits == 8 ? 250 : 64250;
}

std::size_t most_blocks(std::size_t overlaps)
{
    return std::clamp(kBlocksInAll / std::max<std::size_t>(overlaps, 1), kFewestBlocks, kMostBlocks);
}

GainTotals sum_blocks(const Layout& layout, const Overlap& overlap, std::size_t first, std::size_t end,
                      PictureReader& reader, GainStrips& strips, GainBlocks& blocks)
{
    if (layout.bits == 8)
        return sum_strips<std::uint8_t, ColumnSums8>(layout, overlap, first, end, reader, strips, blocks);
    return sum_strips<std::uint16_t, ColumnSums16>(layout, overlap, first, end, reader, strips, blocks);
}

void add_totals(const GainTotals& totals, GainBlocks& blocks)
{
    blocks.shared += totals.shared;
    blocks.first_saturated += totals.first_saturated;
    blocks.second_saturated += totals.second_saturated;
    for (std::size_t c = 0; c < blocks.ranges.size(); ++c)
        blocks.ranges[c] = common_range(blocks.ranges[c], totals.ranges[c]);
}

} // namespace panoval::mosaic
