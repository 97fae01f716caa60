// SPDX-License-Identifier: MIT
#include "mosaic/verdict/overlap_cells.h"

#include "core/numbers.h"
#include "mosaic/pictures/picture_view.h"
#include "mosaic/verdict/cell_sums.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <span>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kMostCells = std::int64_t{1} << 16;
constexpr std::int64_t kMostCounted = std::int64_t{1} << 14; // pixels whose differences are counted
constexpr std::int64_t kSmallest = 160;                      // a side up to which an overlap is kept as it is

std::int64_t step_for(const Rect& region)
{
    std::int64_t step = region.width <= kSmallest && region.height <= kSmallest ? 1 : 2;
    while ((region.width / step + 1) * (region.height / step + 1) > kMostCells)
        step *= 2;
    return step;
}

// Sums of one row of cells.
struct CellSums {
    std::vector<std::uint64_t> first; // cells x channels
    std::vector<std::uint64_t> second;
    std::vector<std::uint32_t> count;
    std::vector<std::uint8_t> clipped;

    void clear(std::size_t width, std::size_t channels)
    {
        first.assign(width * channels, 0);
        second.assign(width * channels, 0);
        count.assign(width, 0);
        clipped.assign(width, 0);
    }
};

// The next column from x on that one of the masks leaves out, or the width.
std::int64_t next_hole(const std::uint8_t* first, const std::uint8_t* second, std::int64_t x, std::int64_t width)
{
    for (; x < width; ++x) {
        std::uint64_t both = 0;
        for (std::uint64_t next; x + 8 <= width; x += 8) {
            std::memcpy(&both, first + x, sizeof both);
            std::memcpy(&next, second + x, sizeof next);
            if ((both & next) != ~std::uint64_t{0}) // most masks are 255 or 0
                break;
        }
        if (x == width || first[x] == 0 || second[x] == 0)
            return x;
    }
    return width;
}

// One of the two pictures, some rows at a time.
struct Side {
    std::size_t picture = 0;
    Rect in_picture; // the overlap
    PictureView view;
    std::vector<const std::uint8_t*> rows;
    std::vector<std::uint8_t> patched; // copies of rows with holes
    std::vector<int> before;           // levels of a row's samples
    std::vector<int> after;            // the same, corrected
    CellSummer summer;

    void load(const PictureSource& source, std::int64_t top, std::int64_t count)
    {
        view.read(source.reader, picture, {in_picture.x, in_picture.y + top, in_picture.width, count},
                  source.layout.channels, source.layout.sample_bytes());
        rows.clear();
        for (std::int64_t y = 0; y < count; ++y)
            rows.push_back(view.row(y));
    }

    std::size_t pixel_bytes() const
    {
        return static_cast<std::size_t>(view.channels()) * static_cast<std::size_t>(view.sample_bytes());
    }

    // Has row y copied, so that it can be changed.
    std::uint8_t* patch(std::int64_t y)
    {
        const std::size_t row_bytes = static_cast<std::size_t>(view.rect().width) * pixel_bytes();
        patched.resize(std::max(patched.size(), rows.size() * row_bytes));
        const auto row = static_cast<std::size_t>(y);
        std::uint8_t* const copy = patched.data() + row * row_bytes;
        std::memcpy(copy, rows[row], row_bytes);
        rows[row] = copy;
        return copy;
    }
};

// Makes pixels that one of the masks leaves out 0 in both pictures. Returns how many of each cell they are.
std::vector<std::uint32_t> leave_out(Side& first, Side& second, std::int64_t y, std::int64_t rows, std::int64_t step,
                                     std::size_t cells)
{
    std::vector<std::uint32_t> holes(cells);
    const std::size_t pixel_bytes = first.pixel_bytes();
    const std::int64_t width = first.view.rect().width;
    for (std::int64_t i = y; i < y + rows; ++i) {
        const std::uint8_t* const a = first.view.mask_row(i);
        const std::uint8_t* const b = second.view.mask_row(i);
        std::int64_t x = next_hole(a, b, 0, width);
        if (x == width)
            continue;
        std::uint8_t* const of_first = first.patch(i);
        std::uint8_t* const of_second = second.patch(i);
        for (; x < width; x = next_hole(a, b, x + 1, width)) {
            std::memset(of_first + static_cast<std::size_t>(x) * pixel_bytes, 0, pixel_bytes);
            std::memset(of_second + static_cast<std::size_t>(x) * pixel_bytes, 0, pixel_bytes);
            ++holes[static_cast<std::size_t>(x / step)];
        }
    }
    return holes;
}

// The level of every 8-bit sample after its gain.
using LevelTable = std::array<std::uint8_t, 256>;

// What a sample in the middle of a cell is multiplied with, without the channel's gain.
double factor_at(const PictureSource& source, std::size_t picture, double x, double y)
{
    const Rect size = source.size(picture);
    const double middle_x = 0.5 * static_cast<double>(size.width - 1);
    const double middle_y = 0.5 * static_cast<double>(size.height - 1);
    const double corner = middle_x * middle_x + middle_y * middle_y;
    const double dx = x - middle_x;
    const double dy = y - middle_y;
    return corner > 0 ? 1 / source.corrections.falloff.at((dx * dx + dy * dy) / corner) : 1;
}

class CellReader
{
public:
    CellReader(const PictureSource& source, const Overlap& overlap, OverlapCells& cells)
        : source_(source), overlap_(overlap), cells_(cells), uncorrected_(Corrections::none(source.layout))
    {
        first_.picture = overlap.first;
        first_.in_picture = overlap.in_first(source.layout);
        second_.picture = overlap.second;
        second_.in_picture = overlap.in_second(source.layout);
        const std::int64_t rows = std::max<std::int64_t>(1, kMostCounted / overlap.region.width);
        row_step_ = std::max<std::int64_t>(1, (overlap.region.height + rows - 1) / rows);
    }

    void read()
    {
        const std::int64_t at_once = std::max<std::int64_t>(cells_.step, kRowsAtOnce / cells_.step * cells_.step);
        for (std::int64_t top = 0; top < overlap_.region.height; top += at_once) {
            const std::int64_t rows = std::min(at_once, overlap_.region.height - top);
            first_.load(source_, top, rows);
            second_.load(source_, top, rows);
            for (std::int64_t y = 0; y < rows; y += cells_.step)
                add_cells(y, std::min(cells_.step, rows - y), (top + y) / cells_.step);
            for (std::int64_t y = 0; y < rows; ++y)
                if ((top + y) % row_step_ == 0)
                    count_differences(y);
        }
        finish(cells_.before, counts_before_, signed_before_);
        finish(cells_.after, counts_after_, signed_after_);
    }

private:
    static constexpr std::int64_t kRowsAtOnce = 32;
    using ChannelCounts = std::array<std::array<std::uint64_t, 256>, 4>; // of absolute differences, of each channel

    void add_cells(std::int64_t y, std::int64_t rows, std::int64_t cell_row)
    {
        sums_.clear(cells_.width, cells_.channels);
        std::vector<std::uint32_t> holes;
        if (!first_.view.is_covered(y, rows) || !second_.view.is_covered(y, rows))
            holes = leave_out(first_, second_, y, rows, cells_.step, cells_.width);
        sum_side(first_, y, rows, sums_.first, 1);
        sum_side(second_, y, rows, sums_.second, 2);
        for (std::size_t x = 0; x < cells_.width; ++x) {
            sums_.count[x] = static_cast<std::uint32_t>(rows * columns_of(x)) - (holes.empty() ? 0 : holes[x]);
            cells_.shared_pixels += sums_.count[x];
            put_cell(x, static_cast<std::size_t>(cell_row), rows);
        }
    }

    void sum_side(Side& side, std::int64_t y, std::int64_t rows, std::vector<std::uint64_t>& sums, std::uint8_t bit)
    {
        const std::span<const std::uint8_t* const> all = side.rows;
        const CellStrip strip{all.subspan(static_cast<std::size_t>(y), static_cast<std::size_t>(rows)),
                              static_cast<std::size_t>(overlap_.region.width), cells_.channels,
                              static_cast<std::size_t>(side.view.sample_bytes()),
                              static_cast<std::size_t>(cells_.step)};
        side.summer.add(strip, sums.data(), sums_.clipped.data(), bit);
    }

    // Pixels that a cell is wide.
    std::int64_t columns_of(std::size_t x) const
    {
        return std::min(cells_.step, overlap_.region.width - static_cast<std::int64_t>(x) * cells_.step);
    }

    void put_cell(std::size_t x, std::size_t y, std::int64_t rows)
    {
        const std::size_t cell = y * cells_.width + x;
        const std::uint32_t count = sums_.count[x];
        const std::int64_t left = static_cast<std::int64_t>(x) * cells_.step;
        const std::int64_t columns = columns_of(x);
        if (count == 0 || 2 * std::int64_t{count} < rows * columns)
            return;
        cells_.known[cell] = 1;
        cells_.clipped[cell] = sums_.clipped[x];
        const double middle_x = static_cast<double>(left) + 0.5 * static_cast<double>(columns - 1);
        const double middle_y =
            static_cast<double>(static_cast<std::int64_t>(y) * cells_.step) + 0.5 * static_cast<double>(rows - 1);
        put_side(cells_.first, sums_.first, first_, middle_x, middle_y, cell, x);
        put_side(cells_.second, sums_.second, second_, middle_x, middle_y, cell, x);
    }

    void put_side(std::vector<float>& means, const std::vector<std::uint64_t>& sums, const Side& side, double middle_x,
                  double middle_y, std::size_t cell, std::size_t x)
    {
        const Rect& in = side.in_picture;
        const double factor = source_.levels_per_sample() / static_cast<double>(sums_.count[x]) *
                              (source_.corrections.falloff.is_flat()
                                   ? 1.0
                                   : factor_at(source_, side.picture, static_cast<double>(in.x) + middle_x,
                                               static_cast<double>(in.y) + middle_y));
        for (std::size_t c = 0; c < cells_.channels; ++c)
            means[cell * cells_.channels + c] = static_cast<float>(static_cast<double>(sums[x * cells_.channels + c]) *
                                                                   factor * source_.corrections.gains[side.picture][c]);
    }

    void count_differences(std::int64_t y)
    {
        if (first_.view.sample_bytes() == 1 && source_.corrections.falloff.is_flat())
            count_by_tables(y);
        else
            count_corrected(y);
    }

    bool is_shared(std::int64_t x, std::int64_t y) const
    {
        return first_.view.mask_row(y)[x] != 0 && second_.view.mask_row(y)[x] != 0;
    }

    void count_by_tables(std::int64_t y)
    {
        if (tables_.empty())
            fill_tables();
        const std::uint8_t* a = first_.view.row(y);
        const std::uint8_t* b = second_.view.row(y);
        for (std::int64_t x = 0; x < overlap_.region.width; ++x, a += cells_.channels, b += cells_.channels)
            for (std::size_t c = 0; c < cells_.channels && is_shared(x, y); ++c)
                count(c, b[c] - a[c], tables_[2 * c + 1][b[c]] - tables_[2 * c][a[c]]);
    }

    // Of each channel the first picture's and the second one's.
    void fill_tables()
    {
        for (std::size_t c = 0; c < cells_.channels; ++c)
            for (const std::size_t picture : {overlap_.first, overlap_.second}) {
                const auto gain = static_cast<float>(source_.corrections.gains[picture][c]);
                tables_.emplace_back();
                for (int sample = 0; sample < 256; ++sample)
                    tables_.back()[static_cast<std::size_t>(sample)] =
                        static_cast<std::uint8_t>(level(static_cast<double>(static_cast<float>(sample) * gain)));
            }
    }

    void count_corrected(std::int64_t y)
    {
        correct(first_, y);
        correct(second_, y);
        for (std::int64_t x = 0; x < overlap_.region.width; ++x)
            for (std::size_t c = 0; c < cells_.channels && is_shared(x, y); ++c) {
                const std::size_t i = static_cast<std::size_t>(x) * cells_.channels + c;
                count(c, second_.before[i] - first_.before[i], second_.after[i] - first_.after[i]);
            }
    }

    // Levels of a row's samples before correction and after it.
    void correct(Side& side, std::int64_t y)
    {
        level_row(uncorrected_, side, y, side.before);
        level_row(source_.corrections, side, y, side.after);
    }

    void level_row(const Corrections& corrections, const Side& side, std::int64_t y, std::vector<int>& levels)
    {
        samples_.resize(static_cast<std::size_t>(overlap_.region.width) * cells_.channels);
        correct_row(corrections, side.picture, source_.size(side.picture), side.view, y, samples_.data());
        levels.clear();
        for (const float sample : samples_)
            levels.push_back(level(static_cast<double>(sample)));
    }

    // Neighbouring samples are of different channels: each has its own counts, so that none waits for the one before.
    void count(std::size_t c, int before, int after)
    {
        ++counts_before_[c][static_cast<std::size_t>(std::abs(before))];
        ++counts_after_[c][static_cast<std::size_t>(std::abs(after))];
        signed_before_ += before;
        signed_after_ += after;
    }

    int level(double sample) const
    {
        return truncate_to_int(std::clamp(std::floor(sample * source_.levels_per_sample() + 0.5), 0.0, 255.0));
    }

    static void finish(SharedDifferences& result, const ChannelCounts& of_channels, std::int64_t sum)
    {
        std::array<std::uint64_t, 256> counts{};
        std::uint64_t total = 0;
        for (std::size_t d = 0; d < counts.size(); ++d) {
            for (const auto& of_channel : of_channels)
                counts[d] += of_channel[d];
            total += counts[d];
        }
        if (total == 0)
            return;
        std::uint64_t below = 0;
        result.median = result.percentile_95 = 256;
        for (std::size_t d = 0; d < counts.size(); ++d) {
            result.distribution[d] = static_cast<double>(counts[d]) / static_cast<double>(total);
            result.mean += static_cast<double>(d) * result.distribution[d];
            below += counts[d];
            if (result.median > 255 && 2 * below >= total)
                result.median = static_cast<int>(d);
            if (result.percentile_95 > 255 && 20 * below >= 19 * total)
                result.percentile_95 = static_cast<int>(d);
        }
        result.signed_mean = static_cast<double>(sum) / static_cast<double>(total);
    }

    const PictureSource& source_;
    const Overlap& overlap_;
    OverlapCells& cells_;
    std::int64_t row_step_ = 1;
    Side first_;
    Side second_;
    CellSums sums_;
    std::vector<LevelTable> tables_;
    const Corrections uncorrected_;
    std::vector<float> samples_;
    ChannelCounts counts_before_{};
    ChannelCounts counts_after_{};
    std::int64_t signed_before_ = 0;
    std::int64_t signed_after_ = 0;
};

} // namespace

OverlapCells read_cells(const PictureSource& source, const Overlap& overlap)
{
    OverlapCells cells;
    cells.overlap = overlap;
    cells.step = step_for(overlap.region);
    cells.width = static_cast<std::size_t>((overlap.region.width + cells.step - 1) / cells.step);
    cells.height = static_cast<std::size_t>((overlap.region.height + cells.step - 1) / cells.step);
    cells.channels = static_cast<std::size_t>(source.layout.channels);
    cells.first.resize(cells.cells() * cells.channels);
    cells.second.resize(cells.first.size());
    cells.known.resize(cells.cells());
    cells.clipped.resize(cells.cells());
    CellReader(source, overlap, cells).read();
    return cells;
}

Patch brightness_of_cells(const OverlapCells& cells, bool is_second)
{
    Patch patch;
    patch.rect = {0, 0, static_cast<std::int64_t>(cells.width), static_cast<std::int64_t>(cells.height)};
    patch.known = cells.known;
    patch.value.resize(cells.cells());
    const std::vector<float>& side = is_second ? cells.second : cells.first;
    for (std::size_t i = 0; i < cells.cells(); ++i) {
        const float* const pixel = side.data() + i * cells.channels;
        patch.value[i] = cells.channels < 3 ? pixel[0] : 0.25f * (pixel[0] + pixel[2]) + 0.5f * pixel[1];
    }
    return patch;
}

} // namespace panoval::mosaic
