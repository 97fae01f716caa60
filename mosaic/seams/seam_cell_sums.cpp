// SPDX-License-Identifier: MIT
// How reduced copies get their cells: sums over the pixels that a picture covers, piece by piece.
#include "mosaic/seams/seam_cells.h"

#include "core/numbers.h"
#include "mosaic/base/parallel.h"
#include "mosaic/base/scratch_pool.h"
#include "mosaic/pictures/picture_view.h"
#include "mosaic/seams/seam_rows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <type_traits>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kRowsAtATime = 64; // about, that one piece of work reads of a picture
constexpr std::int64_t kShortSpan = 32;   // columns, for which vectors do not pay

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
    std::array<std::int64_t, 4> samples{}; // signed as all of them, because those become doubles at once
    std::int64_t rough = 0;
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
    std::vector<Cover> covers;        // of a whole cell in each column, where the mask leaves nothing out
    std::vector<PictureView> views;
    std::vector<CellSums> cells;
    std::vector<std::uint16_t> sums; // down the columns, of 8-bit samples, and their roughness
    std::vector<std::uint16_t> rough;
    std::vector<std::uint32_t> wide_sums; // the same of 16-bit samples
    std::vector<std::uint32_t> wide_rough;
    std::vector<std::uint8_t> is_wanted; // of each column of cells, whether it gets features
    std::vector<Span> covered_spans;     // columns of a view that are covered in all of the rows
    std::vector<Span> earlier_spans;
    std::vector<std::uint8_t> mask;    // of the piece's whole rows
    std::vector<std::int64_t> covered; // pixels of each cell
};

// Whole cells in the pixels of a picture at that place of the canvas.
Rect pixels_of(const Rect& place, const CellGrid& grid, const Rect& cells)
{
    const auto column_begin = [&](std::int64_t column) {
        return column < grid.columns() ? column * grid.cell : grid.width + (column - grid.columns()) * grid.cell;
    };
    const std::int64_t left = column_begin(cells.x) - place.x;
    const std::int64_t top = cells.y * grid.cell - place.y;
    const Rect all{left, top, column_begin(cells.right()) - place.x - left, cells.height * grid.cell};
    return intersect(all, {0, 0, place.width, place.height});
}

std::uint16_t to_feature(double value)
{
    return static_cast<std::uint16_t>(truncate_to_int(std::clamp(value + 0.5, 0.0, 65535.0)));
}

// Brings cells to the panorama's exposure.
class FeatureCorrector
{
public:
    FeatureCorrector(const Layout& layout, const Corrections& corrections, const CellGrid& grid)
        : layout_(layout), corrections_(corrections), grid_(grid), channels_(static_cast<std::size_t>(layout.channels)),
          is_flat_(corrections.falloff.is_flat())
    {
        for (const ChannelGains& gains : corrections.gains) {
            double sum = 0;
            for (std::size_t c = 0; c < channels_; ++c)
                sum += gains[c] / static_cast<double>(channels_);
            mean_gains_.push_back(sum);
        }
    }

    // Column and row count in the grid, the column perhaps beyond its last one.
    void correct(std::size_t picture, std::int64_t column, std::int64_t row, std::uint16_t* features) const
    {
        const double scale = is_flat_ ? 1 : 1 / falloff_at(picture, column, row);
        for (std::size_t c = 0; c < channels_; ++c)
            features[c] = to_feature(features[c] * corrections_.gains[picture][c] * scale);
        features[channels_] = to_feature(features[channels_] * mean_gains_[picture] * scale);
    }

    void correct(std::size_t picture, ReducedPicture& copy) const
    {
        const Rect& cells = copy.cells();
        for (std::int64_t row = 0; row < cells.height; ++row)
            for (std::int64_t column = 0; column < cells.width; ++column)
                correct(picture, cells.x + column, cells.y + row, copy.features(row * cells.width + column));
    }

private:
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

    const Layout& layout_;
    const Corrections& corrections_;
    const CellGrid& grid_;
    const std::size_t channels_;
    const bool is_flat_;
    std::vector<double> mean_gains_; // of each picture
};

class Reducer
{
public:
    // wanted: of each picture, the rectangles that get features, in its own pixels; corrections: null for none
    Reducer(const Layout& layout, std::vector<std::vector<Rect>> wanted, const Corrections* corrections,
            const CellGrid& grid, PictureReader& reader, std::vector<ReducedPicture>& pictures)
        : layout_(layout), grid_(grid), reader_(reader), pictures_(pictures), wanted_(std::move(wanted)),
          channels_(static_cast<std::size_t>(layout.channels)), scale_(feature_scale(layout))
    {
        if (corrections != nullptr)
            corrector_.emplace(layout, *corrections, grid);
        for (std::size_t i = 0; i < wanted_.size(); ++i)
            if (const Rect& rect = layout.pictures[i].rect; !wanted_[i].empty() && ends_meet(i))
                wanted_[i].assign(1, {0, 0, rect.width, rect.height});
    }

    std::vector<Piece> pieces() const
    {
        std::vector<Piece> all;
        for (std::size_t i = 0; i < pictures_.size(); ++i)
            for (const Piece& piece : pieces_of(i))
                all.push_back(piece);
        return all;
    }

    std::vector<Piece> pieces_of(std::size_t picture) const
    {
        const std::int64_t step = std::max<std::int64_t>(1, kRowsAtATime / grid_.cell);
        const std::int64_t height = pictures_[picture].cells().height;
        std::vector<Piece> pieces;
        for (std::int64_t row = 0; row < height && is_needed(picture); row += step)
            pieces.push_back({picture, row, std::min(row + step, height)});
        return pieces;
    }

    // Those that some wanted rectangle reaches.
    std::vector<Piece> wanted_pieces() const
    {
        std::vector<Piece> some = pieces();
        std::erase_if(some, [&](const Piece& piece) {
            const Span rows = rows_of(piece);
            return spans_to_read(piece.picture, rows.first, rows.end).empty();
        });
        return some;
    }

    void reduce(const Piece& piece)
    {
        const Rect& rect = layout_.pictures[piece.picture].rect;
        const auto [first, end] = rows_of(piece);
        const std::vector<Span> spans = spans_to_read(piece.picture, first, end);
        const ScratchPool<Scratch>::Lease scratch = scratch_.take();
        list_columns(piece.picture, *scratch);
        std::vector<PictureView>& views = scratch->views;
        views.resize(std::max(views.size(), spans.size()));
        for (std::size_t i = 0; i < spans.size(); ++i)
            views[i].read(reader_, piece.picture, {spans[i].first, first, spans[i].end - spans[i].first, end - first},
                          layout_.channels, layout_.sample_bytes());

        const bool has_mask = layout_.pictures[piece.picture].has_mask;
        if (has_mask && first < end)
            read_mask(piece.picture, {0, first, rect.width, end - first}, scratch->mask);

        mark_wanted(piece.picture, first, end, *scratch);
        std::vector<CellSums>& sums = scratch->cells;
        for (std::int64_t row = piece.first_row; row < piece.end_row; ++row) {
            const std::int64_t cell_top = (pictures_[piece.picture].cells().y + row) * grid_.cell - rect.y;
            const Span rows{std::max<std::int64_t>(0, cell_top), std::min(rect.height, cell_top + grid_.cell)};
            sums.assign(static_cast<std::size_t>(pictures_[piece.picture].cells().width), {});
            for (std::size_t i = 0; i < spans.size(); ++i)
                add_view(piece.picture, views[i], {rows.first - first, rows.end - first}, *scratch);
            finish_row(piece.picture, row, *scratch);
            if (has_mask)
                cover_row(piece.picture, row, {rows.first - first, rows.end - first}, *scratch);
        }
    }

private:
    // Of the picture's own pixels.
    Span rows_of(const Piece& piece) const
    {
        const Rect& rect = layout_.pictures[piece.picture].rect;
        const std::int64_t top = (pictures_[piece.picture].cells().y + piece.first_row) * grid_.cell - rect.y;
        return {std::max<std::int64_t>(0, top),
                std::min(rect.height, top + (piece.end_row - piece.first_row) * grid_.cell)};
    }

    bool is_needed(std::size_t picture) const
    {
        return !wanted_[picture].empty() || layout_.pictures[picture].has_mask;
    }

    // Columns of the picture that hold whatever of the rows is wanted, grown to whole cells.
    std::vector<Span> spans_to_read(std::size_t picture, std::int64_t first_row, std::int64_t end_row) const
    {
        const Rect& rect = layout_.pictures[picture].rect;
        std::vector<Span> spans;
        for (const Rect& part : wanted_[picture])
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

    // Whether the canvas goes round and the picture's first and last pixels fall into one column of cells.
    bool ends_meet(std::size_t picture) const
    {
        const Rect& rect = layout_.pictures[picture].rect;
        const std::int64_t last = rect.right() - 1;
        return last >= grid_.width && (last - grid_.width) / grid_.cell >= rect.x / grid_.cell;
    }

    // Cells at the end of what is read are not read as a whole, and must not replace what is known of them.
    void mark_wanted(std::size_t picture, std::int64_t first_row, std::int64_t end_row, Scratch& scratch) const
    {
        scratch.is_wanted.assign(static_cast<std::size_t>(pictures_[picture].cells().width), 0);
        for (const Rect& part : wanted_[picture])
            if (part.y < end_row && part.bottom() > first_row)
                for (const CellColumn& column : scratch.columns)
                    if (column.first < part.right() && column.end > part.x)
                        scratch.is_wanted[column.cell] = 1;
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
        scratch.covers.clear();
        for (std::size_t i = 0; i < scratch.widths.size(); ++i)
            scratch.covers.push_back(scratch.pixels[i] == scratch.widths[i] ? Cover::Wholly : Cover::Partly);
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

    void add_view(std::size_t picture, const PictureView& view, const Span& rows, Scratch& scratch) const
    {
        scratch.covered_spans.assign(1, {0, view.rect().width});
        if (layout_.pictures[picture].has_mask)
            for (std::int64_t y = rows.first; y < rows.end; ++y)
                keep_covered(view.mask_row(y), scratch);
        if (view.sample_bytes() == 1)
            add_samples<std::uint8_t>(view, rows, scratch.sums, scratch.rough, scratch);
        else
            add_samples<std::uint16_t>(view, rows, scratch.wide_sums, scratch.wide_rough, scratch);
    }

    // Leaves of the spans what a row of the mask covers, too.
    static void keep_covered(const std::uint8_t* mask, Scratch& scratch)
    {
        std::swap(scratch.covered_spans, scratch.earlier_spans);
        scratch.covered_spans.clear();
        for (const Span& span : scratch.earlier_spans) {
            const std::uint8_t* const stop = mask + span.end;
            const auto covers = [](std::uint8_t value) { return value != 0; };
            for (const std::uint8_t* at = std::find_if(mask + span.first, stop, covers); at != stop;) {
                const void* const hole = std::memchr(at, 0, static_cast<std::size_t>(stop - at));
                const std::uint8_t* const end = hole != nullptr ? static_cast<const std::uint8_t*>(hole) : stop;
                scratch.covered_spans.push_back({at - mask, end - mask});
                at = std::find_if(end, stop, covers);
            }
        }
    }

    template <class Sample, class Sum>
    void add_samples(const PictureView& view, const Span& rows, std::vector<Sum>& samples, std::vector<Sum>& rough,
                     Scratch& scratch) const
    {
        const auto add = [&](auto channels) {
            constexpr std::size_t kChannels = decltype(channels)::value;
            std::int64_t done = 0;
            for (const Span& span : scratch.covered_spans) {
                const Span part = whole_cells(scratch.columns, view.rect(), span);
                if (part.end - part.first < kShortSpan && part.end - part.first < view.rect().width)
                    continue;
                add_pixels<Sample, kChannels>(view, rows, {done, part.first}, scratch);
                add_rows<Sample, kChannels>(view, rows, part, samples, rough, scratch);
                done = part.end;
            }
            add_pixels<Sample, kChannels>(view, rows, {done, view.rect().width}, scratch);
        };
        if (channels_ == 1)
            add(std::integral_constant<std::size_t, 1>());
        else if (channels_ == 3)
            add(std::integral_constant<std::size_t, 3>());
        else
            add(std::integral_constant<std::size_t, 4>());
    }

    // What a span of a view's columns holds of whole cells, or of all that the view has of them.
    static Span whole_cells(const std::vector<CellColumn>& columns, const Rect& block, const Span& span)
    {
        const auto first_of = [&](const CellColumn& column) {
            return std::max(column.first - block.x, std::int64_t{0});
        };
        const auto end_of = [&](const CellColumn& column) { return std::min(column.end - block.x, block.width); };
        const auto first = std::partition_point(
            columns.begin(), columns.end(), [&](const CellColumn& column) { return first_of(column) < span.first; });
        const auto end = std::partition_point(first, columns.end(),
                                              [&](const CellColumn& column) { return end_of(column) <= span.end; });
        return first == end ? Span{span.first, span.first} : Span{first_of(*first), end_of(*(end - 1))};
    }

    // The columns of the picture that these ones of a view are.
    static Rect part_of(const PictureView& view, const Span& columns)
    {
        return {view.rect().x + columns.first, view.rect().y, columns.end - columns.first, view.rect().height};
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
        std::array<std::int64_t, sizeof...(C)> sum{};
        std::array<std::int64_t, sizeof...(C)> rough_sum{};
        for (std::size_t i = begin; i < stop; i += sizeof...(C))
            ((sum[C] += samples[i + C], rough_sum[C] += rough[i + C]), ...); // no loop, so that sums stay in registers
        ((to.samples[C] += sum[C], to.rough += rough_sum[C]), ...);
    }

    // Whole cells that are covered throughout.
    template <class Sample, std::size_t kChannels, class Sum>
    static void add_rows(const PictureView& view, const Span& rows, const Span& part, std::vector<Sum>& samples,
                         std::vector<Sum>& rough, Scratch& scratch)
    {
        const auto samples_of = [&](std::int64_t y) {
            return reinterpret_cast<const Sample*>(view.row(y)) + static_cast<std::size_t>(part.first) * kChannels;
        };
        const std::int64_t width = part.end - part.first;
        const auto count = static_cast<std::size_t>(width) * kChannels;
        samples.assign(count, 0);
        rough.assign(count, 0);
        for (std::int64_t y = rows.first; y < rows.end; ++y)
            sum_samples(samples_of(y), y + 1 < rows.end ? samples_of(y + 1) : nullptr, count, kChannels, samples.data(),
                        rough.data());
        const std::int64_t height = rows.end - rows.first;
        for_each_cell(
            scratch.columns, part_of(view, part), [&](std::int64_t first, std::int64_t end, std::size_t cell) {
                CellSums& to = scratch.cells[cell];
                add_columns(std::make_index_sequence<kChannels>(), samples.data(), rough.data(),
                            static_cast<std::size_t>(first) * kChannels, static_cast<std::size_t>(end) * kChannels, to);
                to.pixels += (end - first) * height;
                const std::int64_t across = end < width ? end - first : end - first - 1;
                to.differences += across * height + (end - first) * (height - 1);
                if (end == width && part.end < view.rect().width)
                    for (std::int64_t y = rows.first; y < rows.end; ++y)
                        if (const Sample* const beyond = samples_of(y) + count; view.mask_row(y)[part.end] != 0)
                            add_difference<kChannels>(beyond - kChannels, beyond, to);
            });
    }

    // Columns some of whose pixels are not covered.
    template <class Sample, std::size_t kChannels>
    static void add_pixels(const PictureView& view, const Span& rows, const Span& part, Scratch& scratch)
    {
        for (std::int64_t y = rows.first; y < rows.end && part.first < part.end; ++y) {
            const bool has_below = y + 1 < rows.end;
            const std::uint8_t* const mask = view.mask_row(y);
            const std::uint8_t* const mask_below = view.mask_row(has_below ? y + 1 : y);
            const auto* const row = reinterpret_cast<const Sample*>(view.row(y));
            const auto* const below = reinterpret_cast<const Sample*>(view.row(has_below ? y + 1 : y));
            for_each_cell(
                scratch.columns, part_of(view, part), [&](std::int64_t first, std::int64_t end, std::size_t cell) {
                    CellSums& to = scratch.cells[cell];
                    for (std::int64_t x = part.first + first; x < part.first + end; ++x) {
                        if (mask[x] == 0)
                            continue;
                        const Sample* const at = row + static_cast<std::size_t>(x) * kChannels;
                        for (std::size_t c = 0; c < kChannels; ++c)
                            to.samples[c] += at[c];
                        ++to.pixels;
                        if (x + 1 < view.rect().width && mask[x + 1] != 0)
                            add_difference<kChannels>(at, at + kChannels, to);
                        if (has_below && mask_below[x] != 0)
                            add_difference<kChannels>(at, below + static_cast<std::size_t>(x) * kChannels, to);
                    }
                });
        }
    }

    template <std::size_t kChannels, class Sample>
    static void add_difference(const Sample* a, const Sample* b, CellSums& sums)
    {
        for (std::size_t c = 0; c < kChannels; ++c)
            sums.rough += std::abs(std::int32_t{a[c]} - b[c]);
        ++sums.differences;
    }

    void finish_row(std::size_t picture, std::int64_t row, const Scratch& scratch) const
    {
        ReducedPicture& copy = pictures_[picture];
        const std::vector<CellSums>& sums = scratch.cells;
        for (std::size_t x = 0; x < sums.size(); ++x)
            if (const auto column = static_cast<std::int64_t>(x); sums[x].pixels > 0 && scratch.is_wanted[x] != 0)
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
        Cover* const covers = copy.mask_cover_row(row);
        if (height == cell_height && std::memchr(mask, 0, static_cast<std::size_t>(height * width)) == nullptr) {
            std::copy(scratch.covers.begin(), scratch.covers.end(), covers);
            return;
        }
        scratch.covered = scratch.pixels;
        for (std::int64_t& covered : scratch.covered)
            covered *= height;
        scratch.covered_spans.assign(1, {0, width});
        for (std::int64_t y = 0; y < height; ++y)
            keep_covered(mask + y * width, scratch);
        auto span = scratch.covered_spans.begin();
        for (const CellColumn& column : scratch.columns) {
            while (span != scratch.covered_spans.end() && span->end < column.end)
                ++span;
            if (span != scratch.covered_spans.end() && span->first <= column.first)
                continue;
            for (std::int64_t y = 0; y < height; ++y)
                scratch.covered[column.cell] -=
                    std::count(mask + y * width + column.first, mask + y * width + column.end, std::uint8_t{0});
        }
        for (std::size_t x = 0; x < scratch.covered.size(); ++x) {
            const std::int64_t covered = scratch.covered[x];
            const bool is_wholly = covered == cell_height * scratch.widths[x];
            covers[x] = covered == 0 ? Cover::None : is_wholly ? Cover::Wholly : Cover::Partly;
        }
    }

    void finish_cell(std::size_t picture, std::int64_t column, std::int64_t row, const CellSums& cell,
                     std::uint16_t* features) const
    {
        for (std::size_t c = 0; c < channels_; ++c) {
            const double mean = static_cast<double>(cell.samples[c]) / static_cast<double>(cell.pixels);
            features[c] = to_feature(mean * scale_);
        }
        const double differences =
            static_cast<double>(std::max<std::int64_t>(cell.differences, 1)) * static_cast<double>(channels_);
        features[channels_] = to_feature(static_cast<double>(cell.rough) / differences * scale_);
        if (corrector_)
            corrector_->correct(picture, column, row, features);
    }

    const Layout& layout_;
    const CellGrid& grid_;
    PictureReader& reader_;
    std::vector<ReducedPicture>& pictures_;
    std::vector<std::vector<Rect>> wanted_;
    const std::size_t channels_;
    const double scale_;
    std::optional<FeatureCorrector> corrector_;
    ScratchPool<Scratch> scratch_;
};

std::vector<ReducedPicture> unreduced(const Layout& layout, const CellGrid& grid)
{
    std::vector<ReducedPicture> pictures;
    for (std::size_t i = 0; i < layout.pictures.size(); ++i)
        pictures.emplace_back(layout, i, grid);
    return pictures;
}

// Of each picture, in its own pixels.
std::vector<std::vector<Rect>> parts_with_features(const Layout& layout, const std::vector<Overlap>& overlaps,
                                                   Features features)
{
    std::vector<std::vector<Rect>> parts(layout.pictures.size());
    for (const Overlap& overlap : overlaps) {
        parts[overlap.first].push_back(overlap.in_first(layout));
        parts[overlap.second].push_back(overlap.in_second(layout));
    }
    for (std::size_t i = 0; i < parts.size() && features == Features::OfAll; ++i)
        if (const Rect& rect = layout.pictures[i].rect; !parts[i].empty())
            parts[i].assign(1, {0, 0, rect.width, rect.height});
    return parts;
}

} // namespace

struct EarlyReduction::Work {
    Work(const Layout& of, const std::vector<Overlap>& overlaps, const CellGrid& cells, PictureReader& reader)
        : layout(of), grid(cells), pictures(unreduced(of, grid)),
          reducer(of, parts_with_features(of, overlaps, Features::OfAll), nullptr, grid, reader, pictures)
    {
    }

    const Layout& layout;
    const CellGrid grid;
    std::vector<ReducedPicture> pictures;
    Reducer reducer;
};

EarlyReduction::EarlyReduction(const Layout& layout, const std::vector<Overlap>& overlaps, const CellGrid& grid,
                               PictureReader& reader)
    : work_(std::make_unique<Work>(layout, overlaps, grid, reader))
{
}

EarlyReduction::~EarlyReduction() = default;

void EarlyReduction::reduce(std::size_t picture)
{
    for (const Piece& piece : work_->reducer.pieces_of(picture))
        work_->reducer.reduce(piece);
}

std::vector<ReducedPicture> EarlyReduction::take(const Corrections& corrections, std::size_t threads)
{
    const FeatureCorrector corrector(work_->layout, corrections, work_->grid);
    std::vector<ReducedPicture>& pictures = work_->pictures;
    run_in_parallel(pictures.size(), threads, [&](std::size_t i) {
        corrector.correct(i, pictures[i]);
        pictures[i].measure_mask_distances(work_->grid.cell);
    });
    return std::move(pictures);
}

std::vector<ReducedPicture> reduce_pictures(const Layout& layout, const std::vector<Overlap>& overlaps,
                                            const Corrections& corrections, const CellGrid& grid, Features features,
                                            PictureReader& reader, std::size_t threads, Progress& progress,
                                            double part_of_progress)
{
    std::vector<ReducedPicture> pictures = unreduced(layout, grid);
    Reducer reducer(layout, parts_with_features(layout, overlaps, features), &corrections, grid, reader, pictures);
    const std::vector<Piece> pieces = reducer.pieces();
    run_in_parallel(pieces.size(), threads, [&](std::size_t i) {
        reducer.reduce(pieces[i]);
        progress.report(Phase::Seams,
                        part_of_progress * static_cast<double>(i + 1) / static_cast<double>(pieces.size()));
    });
    run_in_parallel(pictures.size(), threads, [&](std::size_t i) { pictures[i].measure_mask_distances(grid.cell); });
    return pictures;
}

void reduce_parts(const Layout& layout, const std::vector<PicturePart>& parts, const Corrections& corrections,
                  const CellGrid& grid, PictureReader& reader, std::size_t threads,
                  std::vector<ReducedPicture>& pictures)
{
    std::vector<std::vector<Rect>> wanted(pictures.size());
    for (const PicturePart& part : parts)
        wanted[part.picture].push_back(pixels_of(layout.pictures[part.picture].rect, grid, part.cells));
    Reducer reducer(layout, std::move(wanted), &corrections, grid, reader, pictures);
    // The last picture first, which may still be in memory; rows ascending, since a host may have no other way.
    std::vector<Piece> pieces = reducer.wanted_pieces();
    std::stable_sort(pieces.begin(), pieces.end(),
                     [](const Piece& a, const Piece& b) { return a.picture > b.picture; });
    run_in_parallel(pieces.size(), threads, [&](std::size_t i) { reducer.reduce(pieces[i]); });
}

} // namespace panoval::mosaic
