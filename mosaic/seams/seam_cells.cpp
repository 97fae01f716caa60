// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_cells.h"

#include "core/numbers.h"
#include "filter/chamfer_rows.h"
#include "mosaic/base/parallel.h"
#include "mosaic/base/scratch_pool.h"
#include "mosaic/seams/seam_nearest.h"
#include "mosaic/seams/seam_rows.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kRowsAtATime = 64; // about, that one piece of work reads of a picture

// Columns first to end - 1.
struct Span {
    std::int64_t first;
    std::int64_t end;
};

// Columns of a picture that fall into one column of cells, by its number in the copy.
struct CellColumn {
    std::int64_t first;
    std::int64_t end;
    std::size_t cell;
};

// What a cell is made of.
struct CellSums {
    std::array<std::uint64_t, 4> samples{};
    std::uint64_t rough = 0;
    std::int64_t pixels = 0;
    std::int64_t differences = 0; // pairs of neighbours that are in `rough`
};

// One piece of the work: some rows of cells of one picture.
struct Piece {
    std::size_t picture;
    std::int64_t first_row; // of the copy
    std::int64_t end_row;
};

struct Scratch {
    std::vector<CellColumn> columns;  // of the whole picture
    std::vector<std::int64_t> pixels; // of the picture across each column of cells
    std::vector<std::int64_t> widths; // of the columns of cells
    std::vector<PixelBlock> blocks;
    std::vector<CellSums> cells;
    std::vector<std::uint16_t> sums; // down the columns, of 8-bit samples, and their roughness
    std::vector<std::uint16_t> rough;
    std::vector<std::uint32_t> wide_sums; // the same of 16-bit samples
    std::vector<std::uint32_t> wide_rough;
    std::vector<std::uint8_t> mask;    // of the piece's whole rows
    std::vector<std::int64_t> covered; // pixels of each cell
};

class Reducer
{
public:
    Reducer(const Layout& layout, const std::vector<Overlap>& overlaps, const Corrections& corrections,
            const CellGrid& grid, PictureReader& reader, std::vector<ReducedPicture>& pictures)
        : layout_(layout), corrections_(corrections), grid_(grid), reader_(reader), pictures_(pictures),
          shared_(layout.pictures.size()), channels_(static_cast<std::size_t>(layout.channels)),
          scale_(feature_scale(layout)), is_flat_(corrections.falloff.is_flat())
    {
        for (const ChannelGains& gains : corrections.gains) {
            double sum = 0;
            for (std::size_t c = 0; c < channels_; ++c)
                sum += gains[c] / static_cast<double>(channels_);
            mean_gains_.push_back(sum);
        }
        for (const Overlap& overlap : overlaps) {
            shared_[overlap.first].push_back(overlap.in_first(layout));
            shared_[overlap.second].push_back(overlap.in_second(layout));
        }
    }

    std::vector<Piece> pieces() const
    {
        const std::int64_t step = std::max<std::int64_t>(1, kRowsAtATime / grid_.cell);
        std::vector<Piece> all;
        for (std::size_t i = 0; i < pictures_.size(); ++i)
            for (std::int64_t row = 0; row < pictures_[i].cells().height && is_needed(i); row += step)
                all.push_back({i, row, std::min(row + step, pictures_[i].cells().height)});
        return all;
    }

    void reduce(const Piece& piece)
    {
        const Rect& rect = layout_.pictures[piece.picture].rect;
        const std::int64_t top = (pictures_[piece.picture].cells().y + piece.first_row) * grid_.cell - rect.y;
        const std::int64_t first = std::max<std::int64_t>(0, top);
        const std::int64_t end = std::min(rect.height, top + (piece.end_row - piece.first_row) * grid_.cell);
        const std::vector<Span> spans = spans_to_read(piece.picture, first, end);
        const ScratchPool<Scratch>::Lease scratch = scratch_.take();
        list_columns(piece.picture, *scratch);
        std::vector<PixelBlock>& blocks = scratch->blocks;
        blocks.resize(std::max(blocks.size(), spans.size()));
        for (std::size_t i = 0; i < spans.size(); ++i)
            reader_.read(piece.picture, {spans[i].first, first, spans[i].end - spans[i].first, end - first}, blocks[i]);

        const bool has_mask = layout_.pictures[piece.picture].has_mask;
        if (has_mask && first < end)
            read_mask(piece.picture, {0, first, rect.width, end - first}, scratch->mask);

        std::vector<CellSums>& sums = scratch->cells;
        for (std::int64_t row = piece.first_row; row < piece.end_row; ++row) {
            const std::int64_t cell_top = (pictures_[piece.picture].cells().y + row) * grid_.cell - rect.y;
            const Span rows{std::max<std::int64_t>(0, cell_top), std::min(rect.height, cell_top + grid_.cell)};
            sums.assign(static_cast<std::size_t>(pictures_[piece.picture].cells().width), {});
            for (std::size_t i = 0; i < spans.size(); ++i)
                add_block(piece.picture, blocks[i], {rows.first - first, rows.end - first}, *scratch);
            finish_row(piece.picture, row, sums);
            if (has_mask)
                cover_row(piece.picture, row, {rows.first - first, rows.end - first}, *scratch);
        }
    }

private:
    bool is_needed(std::size_t picture) const
    {
        return !shared_[picture].empty() || layout_.pictures[picture].has_mask;
    }

    // Columns of the picture that hold whatever of the rows others share, grown to whole cells.
    std::vector<Span> spans_to_read(std::size_t picture, std::int64_t first_row, std::int64_t end_row) const
    {
        const Rect& rect = layout_.pictures[picture].rect;
        std::vector<Span> spans;
        for (const Rect& part : shared_[picture])
            if (part.y < end_row && part.bottom() > first_row)
                spans.push_back(
                    {std::max<std::int64_t>(0, part.x - grid_.cell), std::min(rect.width, part.right() + grid_.cell)});
        std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.first < b.first; });
        std::vector<Span> joined;
        for (const Span& span : spans)
            if (joined.empty() || span.first > joined.back().end)
                joined.push_back(span);
            else
                joined.back().end = std::max(joined.back().end, span.end);
        return joined;
    }

    void list_columns(std::size_t picture, Scratch& scratch) const
    {
        const Rect& rect = layout_.pictures[picture].rect;
        const Rect& cells = pictures_[picture].cells();
        scratch.columns.clear();
        scratch.pixels.assign(static_cast<std::size_t>(cells.width), 0);
        for (std::int64_t x = 0; x < rect.width;) {
            const std::int64_t x_canvas = grid_.wraps ? (rect.x + x) % layout_.width : rect.x + x;
            const std::int64_t column = x_canvas / grid_.cell;
            const std::int64_t left = column * grid_.cell + grid_.column_width(column) - x_canvas;
            const std::int64_t end = std::min(rect.width, x + left);
            const auto cell = static_cast<std::size_t>(pictures_[picture].index(column, cells.y));
            scratch.columns.push_back({x, end, cell});
            scratch.pixels[cell] += end - x;
            x = end;
        }
        scratch.widths.clear();
        for (std::int64_t x = cells.x; x < cells.right(); ++x)
            scratch.widths.push_back(grid_.column_width(x >= grid_.columns() ? x - grid_.columns() : x));
    }

    // Calls work(first, end, cell) for the columns of a part of the picture, first and end counted from its own.
    template <class Work>
    static void for_each_cell(const std::vector<CellColumn>& columns, const Rect& part, const Work& work)
    {
        auto at = std::partition_point(columns.begin(), columns.end(),
                                       [&](const CellColumn& column) { return column.end <= part.x; });
        for (; at != columns.end() && at->first < part.right(); ++at)
            work(std::max(at->first - part.x, std::int64_t{0}), std::min(at->end, part.right()) - part.x, at->cell);
    }

    void add_block(std::size_t picture, const PixelBlock& block, const Span& rows, Scratch& scratch) const
    {
        const std::uint8_t* const mask = block.mask_row(rows.first);
        const std::uint8_t* const end = mask + (rows.end - rows.first) * block.rect.width;
        const bool is_covered = !layout_.pictures[picture].has_mask ||
                                std::memchr(mask, 0, static_cast<std::size_t>(end - mask)) == nullptr;
        if (!is_covered)
            add_pixels(block, rows, scratch.columns, scratch.cells);
        else if (block.sample_bytes == 1)
            add_rows<std::uint8_t>(block, rows, scratch.sums, scratch.rough, scratch);
        else
            add_rows<std::uint16_t>(block, rows, scratch.wide_sums, scratch.wide_rough, scratch);
    }

    static void sum_samples(const std::uint8_t* row, const std::uint8_t* below, std::size_t count, std::size_t step,
                            std::uint16_t* sums, std::uint16_t* rough)
    {
        sum_row(row, below, count, step, sums, rough);
    }
    static void sum_samples(const std::uint16_t* row, const std::uint16_t* below, std::size_t count, std::size_t step,
                            std::uint32_t* sums, std::uint32_t* rough)
    {
        const auto distance = [](std::uint32_t a, std::uint32_t b) { return a > b ? a - b : b - a; };
        for (std::size_t i = 0; i < count; ++i)
            sums[i] += row[i];
        for (std::size_t i = 0; i + step < count; ++i)
            rough[i] += distance(row[i], row[i + step]);
        for (std::size_t i = 0; below != nullptr && i < count; ++i)
            rough[i] += distance(row[i], below[i]);
    }

    // Samples begin to stop - 1 of the rows' sums, sizeof...(C) a pixel.
    template <std::size_t... C, class Sum>
    static void add_columns(std::index_sequence<C...>, const Sum* samples, const Sum* rough, std::size_t begin,
                            std::size_t stop, CellSums& to)
    {
        std::array<std::uint64_t, sizeof...(C)> sum{};
        std::array<std::uint64_t, sizeof...(C)> rough_sum{};
        for (std::size_t i = begin; i < stop; i += sizeof...(C))
            ((sum[C] += samples[i + C], rough_sum[C] += rough[i + C]), ...); // no loop, so that sums stay in registers
        ((to.samples[C] += sum[C], to.rough += rough_sum[C]), ...);
    }

    // Rows that are covered throughout.
    template <class Sample, class Sum>
    void add_rows(const PixelBlock& block, const Span& rows, std::vector<Sum>& samples, std::vector<Sum>& rough,
                  Scratch& scratch) const
    {
        const auto count = static_cast<std::size_t>(block.rect.width) * channels_;
        samples.assign(count, 0);
        rough.assign(count, 0);
        for (std::int64_t y = rows.first; y < rows.end; ++y) {
            const auto* const row = reinterpret_cast<const Sample*>(block.row(y));
            const auto* const below = y + 1 < rows.end ? reinterpret_cast<const Sample*>(block.row(y + 1)) : nullptr;
            sum_samples(row, below, count, channels_, samples.data(), rough.data());
        }
        const std::int64_t height = rows.end - rows.first;
        for_each_cell(scratch.columns, block.rect, [&](std::int64_t first, std::int64_t end, std::size_t cell) {
            CellSums& to = scratch.cells[cell];
            const std::size_t begin = static_cast<std::size_t>(first) * channels_;
            const std::size_t stop = static_cast<std::size_t>(end) * channels_;
            if (channels_ == 3)
                add_columns(std::make_index_sequence<3>(), samples.data(), rough.data(), begin, stop, to);
            else if (channels_ == 1)
                add_columns(std::make_index_sequence<1>(), samples.data(), rough.data(), begin, stop, to);
            else
                add_columns(std::make_index_sequence<4>(), samples.data(), rough.data(), begin, stop, to);
            to.pixels += (end - first) * height;
            const std::int64_t across = end < block.rect.width ? end - first : end - first - 1;
            to.differences += across * height + (end - first) * (height - 1);
        });
    }

    // Rows some of whose pixels are not covered.
    void add_pixels(const PixelBlock& block, const Span& rows, const std::vector<CellColumn>& columns,
                    std::vector<CellSums>& sums) const
    {
        for_each_cell(columns, block.rect, [&](std::int64_t first, std::int64_t end, std::size_t cell) {
            for (std::int64_t y = rows.first; y < rows.end; ++y)
                for (std::int64_t x = first; x < end; ++x)
                    if (block.mask_row(y)[x] != 0) {
                        add_pixel(block, x, y, sums[cell]);
                        if (x + 1 < block.rect.width && block.mask_row(y)[x + 1] != 0)
                            add_difference(block, x, y, x + 1, y, sums[cell]);
                        if (y + 1 < rows.end && block.mask_row(y + 1)[x] != 0)
                            add_difference(block, x, y, x, y + 1, sums[cell]);
                    }
        });
    }

    void add_pixel(const PixelBlock& block, std::int64_t x, std::int64_t y, CellSums& sums) const
    {
        for (std::size_t c = 0; c < channels_; ++c)
            sums.samples[c] += block.sample(x, y, static_cast<int>(c));
        ++sums.pixels;
    }
    void add_difference(const PixelBlock& block, std::int64_t x, std::int64_t y, std::int64_t x2, std::int64_t y2,
                        CellSums& sums) const
    {
        for (int c = 0; c < static_cast<int>(channels_); ++c) {
            const std::int64_t difference = std::int64_t{block.sample(x, y, c)} - block.sample(x2, y2, c);
            sums.rough += static_cast<std::uint64_t>(std::abs(difference));
        }
        ++sums.differences;
    }

    void finish_row(std::size_t picture, std::int64_t row, const std::vector<CellSums>& sums) const
    {
        ReducedPicture& copy = pictures_[picture];
        for (std::size_t x = 0; x < sums.size(); ++x)
            if (const auto column = static_cast<std::int64_t>(x); sums[x].pixels > 0)
                finish_cell(picture, copy.cells().x + column, copy.cells().y + row, sums[x],
                            copy.features(row * copy.cells().width + column));
    }

    void read_mask(std::size_t picture, const Rect& rect, std::vector<std::uint8_t>& mask) const
    {
        mask.resize(static_cast<std::size_t>(rect.pixels()));
        reader_.read_mask(picture, rect, mask.data());
    }

    // Of a row of cells, from the mask's rows there.
    void cover_row(std::size_t picture, std::int64_t row, const Span& rows, Scratch& scratch) const
    {
        ReducedPicture& copy = pictures_[picture];
        const std::int64_t width = layout_.pictures[picture].rect.width;
        const std::uint8_t* const mask = scratch.mask.data() + rows.first * width;
        const std::int64_t height = rows.end - rows.first;
        const std::int64_t cell_height = grid_.row_height(copy.cells().y + row);
        const bool is_whole = std::memchr(mask, 0, static_cast<std::size_t>(height * width)) == nullptr;
        scratch.covered = scratch.pixels;
        for (std::int64_t& covered : scratch.covered)
            covered *= height;
        for (std::size_t i = 0; i < scratch.columns.size() && !is_whole; ++i) {
            const CellColumn& column = scratch.columns[i];
            for (std::int64_t y = 0; y < height; ++y)
                scratch.covered[column.cell] -=
                    std::count(mask + y * width + column.first, mask + y * width + column.end, std::uint8_t{0});
        }
        for (std::size_t x = 0; x < scratch.covered.size(); ++x) {
            const std::int64_t covered = scratch.covered[x];
            const bool is_wholly = covered == cell_height * scratch.widths[x];
            copy.set_cover(row * copy.cells().width + static_cast<std::int64_t>(x), covered == 0 ? Cover::None
                                                                                    : is_wholly  ? Cover::Wholly
                                                                                                 : Cover::Partly);
        }
    }

    void finish_cell(std::size_t picture, std::int64_t column, std::int64_t row, const CellSums& cell,
                     std::uint16_t* features) const
    {
        const double scale = is_flat_ ? scale_ : scale_ / falloff_at(picture, column, row);
        const ChannelGains& gains = corrections_.gains[picture];
        for (std::size_t c = 0; c < channels_; ++c) {
            const double mean = static_cast<double>(cell.samples[c]) / static_cast<double>(cell.pixels);
            features[c] = to_feature(mean * gains[c] * scale);
        }
        const double differences =
            static_cast<double>(std::max<std::int64_t>(cell.differences, 1)) * static_cast<double>(channels_);
        features[channels_] = to_feature(static_cast<double>(cell.rough) / differences * mean_gains_[picture] * scale);
    }

    // At the middle of a cell; the same for all pixels of it.
    double falloff_at(std::size_t picture, std::int64_t column, std::int64_t row) const
    {
        const Rect& rect = layout_.pictures[picture].rect;
        const double half_width = 0.5 * static_cast<double>(rect.width - 1);
        const double half_height = 0.5 * static_cast<double>(rect.height - 1);
        const double corner = half_width * half_width + half_height * half_height;
        const auto middle = [&](std::int64_t cell) {
            return (static_cast<double>(cell) + 0.5) * static_cast<double>(grid_.cell) - 0.5;
        };
        const double dx = middle(column) - static_cast<double>(rect.x) - half_width;
        const double dy = middle(row) - static_cast<double>(rect.y) - half_height;
        const double falloff = corrections_.falloff.at(corner > 0 ? (dx * dx + dy * dy) / corner : 0.0);
        return falloff > 0 ? falloff : 1;
    }

    static std::uint16_t to_feature(double value)
    {
        return static_cast<std::uint16_t>(truncate_to_int(std::clamp(value + 0.5, 0.0, 65535.0)));
    }

    const Layout& layout_;
    const Corrections& corrections_;
    const CellGrid& grid_;
    PictureReader& reader_;
    std::vector<ReducedPicture>& pictures_;
    std::vector<std::vector<Rect>> shared_; // of each picture, in its own pixels
    const std::size_t channels_;
    const double scale_;
    const bool is_flat_;
    std::vector<double> mean_gains_; // of each picture
    ScratchPool<Scratch> scratch_;
};

} // namespace

Rect CellGrid::cells_of(const Rect& rect) const
{
    const std::int64_t x = wraps && rect.x >= width ? rect.x - width : rect.x;
    const std::int64_t right = x + rect.width;
    const std::int64_t first = x / cell;
    const std::int64_t end = right <= width ? (right - 1) / cell + 1 : columns() + (right - width - 1) / cell + 1;
    const std::int64_t top = rect.y / cell;
    return {first, top, std::min(end - first, columns()), (rect.bottom() - 1) / cell + 1 - top};
}

ReducedPicture::ReducedPicture(const Layout& layout, std::size_t picture, const CellGrid& grid)
    : cells_(grid.cells_of(layout.pictures[picture].rect)), grid_columns_(grid.columns()), wraps_(grid.wraps),
      has_mask_(layout.pictures[picture].has_mask), feature_count_(static_cast<std::size_t>(layout.channels) + 1),
      features_(at(cells_.pixels()) * feature_count_)
{
    if (has_mask_) {
        mask_cover_.resize(at(cells_.pixels()));
        mask_distance_.resize(mask_cover_.size());
    } else {
        measure_rectangle(layout.pictures[picture].rect, grid);
    }
}

void ReducedPicture::measure_rectangle(const Rect& rect, const CellGrid& grid)
{
    std::vector<std::int64_t> columns(at(cells_.width));
    std::vector<std::int64_t> rows(at(cells_.height));
    column_distance_.resize(columns.size());
    row_distance_.resize(rows.size());
    for (std::int64_t x = 0; x < rect.width; ++x) {
        const std::int64_t x_canvas = grid.wraps ? (rect.x + x) % grid.width : rect.x + x;
        const std::size_t i = at(index(x_canvas / grid.cell, cells_.y));
        ++columns[i];
        column_distance_[i] = std::max(column_distance_[i], static_cast<std::int32_t>(std::min(x + 1, rect.width - x)));
    }
    for (std::int64_t y = 0; y < rect.height; ++y) {
        const std::size_t i = at((rect.y + y) / grid.cell - cells_.y);
        ++rows[i];
        row_distance_[i] = std::max(row_distance_[i], static_cast<std::int32_t>(std::min(y + 1, rect.height - y)));
    }
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const std::int64_t column = grid.column_inside(cells_.x + static_cast<std::int64_t>(i));
        column_cover_.push_back(columns[i] == grid.column_width(column) ? Cover::Wholly : Cover::Partly);
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::int64_t row = cells_.y + static_cast<std::int64_t>(i);
        row_cover_.push_back(rows[i] == grid.row_height(row) ? Cover::Wholly : Cover::Partly);
    }
}

void ReducedPicture::measure_mask_distances(std::int64_t cell)
{
    if (!has_mask_)
        return;
    constexpr ChamferSteps<std::int32_t> steps{kFarAway, kStraightStep, kDiagonalStep};
    const std::size_t width = at(cells_.width) + 2; // with a column of uncovered cells at either side
    const std::size_t pitch = width + 2;            // and one of frame
    std::vector<std::int32_t> frame(pitch * (at(cells_.height) + 2));
    std::vector<std::uint8_t> mask(width);
    std::vector<float> unused(width);
    for (std::int64_t y = 0; y < cells_.height; ++y) {
        for (std::int64_t x = 0; x < cells_.width; ++x)
            mask[at(x) + 1] = mask_cover_[at(y * cells_.width + x)] != Cover::None ? 1 : 0;
        std::int32_t* const row = frame.data() + (at(y) + 1) * pitch;
        forward_row(mask.data(), row - pitch, row, width, steps, true);
    }
    for (std::int64_t y = cells_.height - 1; y >= 0; --y) {
        std::int32_t* const row = frame.data() + (at(y) + 1) * pitch;
        backward_row(row + pitch, row, width, steps, true, unused.data());
        for (std::int64_t x = 0; x < cells_.width; ++x)
            mask_distance_[at(y * cells_.width + x)] = static_cast<std::int32_t>(row[at(x) + 2] * cell / kStraightStep);
    }
}

std::size_t ReducedPicture::bytes(const Layout& layout, std::size_t picture, const CellGrid& grid)
{
    const auto cells = at(grid.cells_of(layout.pictures[picture].rect).pixels());
    const std::size_t features = (static_cast<std::size_t>(layout.channels) + 1) * sizeof(std::uint16_t);
    return cells * (features + (layout.pictures[picture].has_mask ? sizeof(Cover) + sizeof(std::int32_t) : 0));
}

double feature_scale(const Layout& layout)
{
    return layout.bits == 8 ? 128.0 : 0.5;
}

std::vector<ReducedPicture> reduce_pictures(const Layout& layout, const std::vector<Overlap>& overlaps,
                                            const Corrections& corrections, const CellGrid& grid, PictureReader& reader,
                                            std::size_t threads, Progress& progress, double part_of_progress)
{
    std::vector<ReducedPicture> pictures;
    for (std::size_t i = 0; i < layout.pictures.size(); ++i)
        pictures.emplace_back(layout, i, grid);
    Reducer reducer(layout, overlaps, corrections, grid, reader, pictures);
    const std::vector<Piece> pieces = reducer.pieces();
    run_in_parallel(pieces.size(), threads, [&](std::size_t i) {
        reducer.reduce(pieces[i]);
        progress.report(Phase::Seams,
                        part_of_progress * static_cast<double>(i + 1) / static_cast<double>(pieces.size()));
    });
    run_in_parallel(pictures.size(), threads, [&](std::size_t i) { pictures[i].measure_mask_distances(grid.cell); });
    return pictures;
}

} // namespace panoval::mosaic
