// SPDX-License-Identifier: MIT
#include "mosaic/verdict/overlap_cells.h"

#include "core/numbers.h"
#include "mosaic/verdict/cell_rows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <type_traits>

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

template <class Sample>
const Sample* row_of(const PixelBlock& block, std::int64_t y)
{
    return reinterpret_cast<const Sample*>(block.row(y)); // rows of 16-bit samples begin at even addresses
}

bool is_covered(const PixelBlock& block, std::int64_t y, std::int64_t rows)
{
    return std::memchr(block.mask_row(y), 0, static_cast<std::size_t>(rows * block.rect.width)) == nullptr;
}

// Sums and maxima of samples down the columns of a few rows.
template <class Sample, class Sum>
class Columns
{
public:
    Columns(const PixelBlock& block, std::int64_t y, std::int64_t rows)
        : sums_(static_cast<std::size_t>(block.rect.width * block.channels)), most_(sums_.size())
    {
        for (std::int64_t i = y; i < y + rows; ++i)
            sum_cell_row(row_of<Sample>(block, i), sums_.size(), sums_.data(), most_.data());
    }

    // One cell after the other; bit: set where the largest sample is among a cell's.
    template <std::size_t kChannels>
    void add_to(std::vector<std::uint64_t>& cells, std::vector<std::uint8_t>& clipped, std::uint8_t bit,
                std::size_t step) const
    {
        const auto add = [&](std::size_t cell, auto columns) {
            const std::size_t first = cell * step * kChannels;
            std::uint64_t* const to = cells.data() + cell * kChannels;
            if (add_cell<kChannels>(sums_.data() + first, most_.data() + first, columns, to))
                clipped[cell] = static_cast<std::uint8_t>(clipped[cell] | bit);
        };
        const std::size_t width = sums_.size() / kChannels;
        const std::size_t whole = width / step;
        const auto add_whole = [&](auto columns) { // known to the compiler, as far as usual
            for (std::size_t cell = 0; cell < whole; ++cell)
                add(cell, columns);
        };
        switch (step) {
        case 2:
            add_whole(std::integral_constant<std::size_t, 2>());
            break;
        case 4:
            add_whole(std::integral_constant<std::size_t, 4>());
            break;
        default:
            add_whole(step);
        }
        if (whole * step < width)
            add(whole, width - whole * step);
    }

private:
    // Adds so many columns to a cell. Whether the largest sample is among them.
    template <std::size_t kChannels, class Count>
    static bool add_cell(const Sum* sum, const Sample* most, Count columns, std::uint64_t* cell)
    {
        std::uint64_t of_channel[kChannels] = {};
        Sample largest = 0;
        for (std::size_t x = 0; x < columns; ++x, sum += kChannels, most += kChannels)
            for (std::size_t c = 0; c < kChannels; ++c) {
                of_channel[c] += sum[c];
                largest = std::max(largest, most[c]);
            }
        for (std::size_t c = 0; c < kChannels; ++c)
            cell[c] += of_channel[c];
        return largest == static_cast<Sample>(~Sample{0});
    }

    std::vector<Sum> sums_;
    std::vector<Sample> most_;
};

template <class Sample, class Sum>
void add_columns(const PixelBlock& block, std::int64_t y, std::int64_t rows, std::size_t step,
                 std::vector<std::uint64_t>& cells, std::vector<std::uint8_t>& clipped, std::uint8_t bit)
{
    const Columns<Sample, Sum> columns(block, y, rows);
    if (block.channels == 1)
        columns.template add_to<1>(cells, clipped, bit, step);
    else if (block.channels == 3)
        columns.template add_to<3>(cells, clipped, bit, step);
    else
        columns.template add_to<4>(cells, clipped, bit, step);
}

void add_any_columns(const PixelBlock& block, std::int64_t y, std::int64_t rows, std::int64_t step,
                     std::vector<std::uint64_t>& cells, std::vector<std::uint8_t>& clipped, std::uint8_t bit)
{
    const auto add =
        block.sample_bytes == 1 ? add_columns<std::uint8_t, std::uint16_t> : add_columns<std::uint16_t, std::uint32_t>;
    add(block, y, rows, static_cast<std::size_t>(step), cells, clipped, bit);
}

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

// Makes pixels that one of the masks leaves out 0 in both pictures. Returns how many of each cell they are.
std::vector<std::uint32_t> leave_out(PixelBlock& first, PixelBlock& second, std::int64_t y, std::int64_t rows,
                                     std::int64_t step, std::size_t cells)
{
    std::vector<std::uint32_t> holes(cells);
    const auto pixel_bytes = static_cast<std::size_t>(first.channels) * static_cast<std::size_t>(first.sample_bytes);
    const std::int64_t width = first.rect.width;
    for (std::int64_t i = y; i < y + rows; ++i) {
        const std::uint8_t* const a = first.mask_row(i);
        const std::uint8_t* const b = second.mask_row(i);
        for (std::int64_t x = next_hole(a, b, 0, width); x < width; x = next_hole(a, b, x + 1, width)) {
            std::memset(first.row(i) + static_cast<std::size_t>(x) * pixel_bytes, 0, pixel_bytes);
            std::memset(second.row(i) + static_cast<std::size_t>(x) * pixel_bytes, 0, pixel_bytes);
            ++holes[static_cast<std::size_t>(x / step)];
        }
    }
    return holes;
}

// Rows that both pictures cover throughout.
void add_covered_rows(const PixelBlock& first, const PixelBlock& second, std::int64_t y, std::int64_t rows,
                      std::int64_t step, CellSums& sums)
{
    for (std::int64_t done = 0; done < rows; done += kMostCellRows) {
        const std::int64_t count = std::min(kMostCellRows, rows - done);
        add_any_columns(first, y + done, count, step, sums.first, sums.clipped, 1);
        add_any_columns(second, y + done, count, step, sums.second, sums.clipped, 2);
    }
    for (std::size_t cell = 0; cell < sums.count.size(); ++cell) {
        const std::int64_t columns = std::min(step, first.rect.width - static_cast<std::int64_t>(cell) * step);
        sums.count[cell] = static_cast<std::uint32_t>(rows * columns);
    }
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
        : source_(source), overlap_(overlap), cells_(cells), in_first_(overlap.in_first(source.layout)),
          in_second_(overlap.in_second(source.layout))
    {
        const std::int64_t rows = std::max<std::int64_t>(1, kMostCounted / overlap.region.width);
        row_step_ = std::max<std::int64_t>(1, (overlap.region.height + rows - 1) / rows);
    }

    void read()
    {
        const std::int64_t at_once = std::max<std::int64_t>(cells_.step, kRowsAtOnce / cells_.step * cells_.step);
        for (std::int64_t top = 0; top < overlap_.region.height; top += at_once) {
            const std::int64_t rows = std::min(at_once, overlap_.region.height - top);
            source_.reader.read(overlap_.first, {in_first_.x, in_first_.y + top, in_first_.width, rows}, first_);
            source_.reader.read(overlap_.second, {in_second_.x, in_second_.y + top, in_second_.width, rows}, second_);
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

    void add_cells(std::int64_t y, std::int64_t rows, std::int64_t cell_row)
    {
        sums_.clear(cells_.width, cells_.channels);
        std::vector<std::uint32_t> holes;
        if (!is_covered(first_, y, rows) || !is_covered(second_, y, rows))
            holes = leave_out(first_, second_, y, rows, cells_.step, cells_.width);
        add_covered_rows(first_, second_, y, rows, cells_.step, sums_);
        for (std::size_t x = 0; x < holes.size(); ++x)
            sums_.count[x] -= holes[x];
        for (std::size_t x = 0; x < cells_.width; ++x) {
            cells_.shared_pixels += sums_.count[x];
            put_cell(x, static_cast<std::size_t>(cell_row), rows);
        }
    }

    void put_cell(std::size_t x, std::size_t y, std::int64_t rows)
    {
        const std::size_t cell = y * cells_.width + x;
        const std::uint32_t count = sums_.count[x];
        const std::int64_t left = static_cast<std::int64_t>(x) * cells_.step;
        const std::int64_t columns = std::min(cells_.step, overlap_.region.width - left);
        if (count == 0 || 2 * std::int64_t{count} < rows * columns)
            return;
        cells_.known[cell] = 1;
        cells_.clipped[cell] = sums_.clipped[x];
        const double middle_x = static_cast<double>(left) + 0.5 * static_cast<double>(columns - 1);
        const double middle_y =
            static_cast<double>(static_cast<std::int64_t>(y) * cells_.step) + 0.5 * static_cast<double>(rows - 1);
        put_side(cells_.first, sums_.first, overlap_.first, in_first_, middle_x, middle_y, cell, x);
        put_side(cells_.second, sums_.second, overlap_.second, in_second_, middle_x, middle_y, cell, x);
    }

    void put_side(std::vector<float>& side, const std::vector<std::uint64_t>& sums, std::size_t picture, const Rect& in,
                  double middle_x, double middle_y, std::size_t cell, std::size_t x)
    {
        const double factor =
            source_.levels_per_sample() / static_cast<double>(sums_.count[x]) *
            (source_.corrections.falloff.is_flat() ? 1.0
                                                   : factor_at(source_, picture, static_cast<double>(in.x) + middle_x,
                                                               static_cast<double>(in.y) + middle_y));
        for (std::size_t c = 0; c < cells_.channels; ++c)
            side[cell * cells_.channels + c] = static_cast<float>(static_cast<double>(sums[x * cells_.channels + c]) *
                                                                  factor * source_.corrections.gains[picture][c]);
    }

    void count_differences(std::int64_t y)
    {
        if (first_.sample_bytes == 1 && source_.corrections.falloff.is_flat())
            count_by_tables(y);
        else
            count_corrected(y);
    }

    void count_by_tables(std::int64_t y)
    {
        if (tables_.empty())
            fill_tables();
        const std::uint8_t* a = first_.row(y);
        const std::uint8_t* b = second_.row(y);
        for (std::int64_t x = 0; x < first_.rect.width; ++x, a += cells_.channels, b += cells_.channels) {
            if (first_.mask_row(y)[x] == 0 || second_.mask_row(y)[x] == 0)
                continue;
            for (std::size_t c = 0; c < cells_.channels; ++c)
                count(b[c] - a[c], tables_[2 * c + 1][b[c]] - tables_[2 * c][a[c]]);
        }
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
        const auto samples = static_cast<std::size_t>(first_.rect.width) * cells_.channels;
        corrected_first_.resize(samples);
        corrected_second_.resize(samples);
        correct_row(source_.corrections, overlap_.first, source_.size(overlap_.first), first_, y,
                    corrected_first_.data());
        correct_row(source_.corrections, overlap_.second, source_.size(overlap_.second), second_, y,
                    corrected_second_.data());
        for (std::int64_t x = 0; x < first_.rect.width; ++x) {
            if (first_.mask_row(y)[x] == 0 || second_.mask_row(y)[x] == 0)
                continue;
            for (std::size_t c = 0; c < cells_.channels; ++c) {
                const std::size_t i = static_cast<std::size_t>(x) * cells_.channels + c;
                const int before = level(static_cast<double>(second_.sample(x, y, static_cast<int>(c)))) -
                                   level(static_cast<double>(first_.sample(x, y, static_cast<int>(c))));
                const int after =
                    level(static_cast<double>(corrected_second_[i])) - level(static_cast<double>(corrected_first_[i]));
                count(before, after);
            }
        }
    }

    void count(int before, int after)
    {
        ++counts_before_[static_cast<std::size_t>(std::abs(before))];
        ++counts_after_[static_cast<std::size_t>(std::abs(after))];
        signed_before_ += before;
        signed_after_ += after;
    }

    int level(double sample) const
    {
        return truncate_to_int(std::clamp(std::floor(sample * source_.levels_per_sample() + 0.5), 0.0, 255.0));
    }

    static void finish(SharedDifferences& result, const std::array<std::uint64_t, 256>& counts, std::int64_t sum)
    {
        std::uint64_t total = 0;
        for (const std::uint64_t count : counts)
            total += count;
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
    Rect in_first_;
    Rect in_second_;
    std::int64_t row_step_ = 1;
    PixelBlock first_;
    PixelBlock second_;
    CellSums sums_;
    std::vector<LevelTable> tables_;
    std::vector<float> corrected_first_;
    std::vector<float> corrected_second_;
    std::array<std::uint64_t, 256> counts_before_{};
    std::array<std::uint64_t, 256> counts_after_{};
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
