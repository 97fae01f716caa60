// SPDX-License-Identifier: MIT
// How reduced copies get their cells: sums over the pixels that a picture covers, piece by piece.
#include "mosaic/seams/seam_cells.h"

#include "mosaic/base/parallel.h"
#include "mosaic/base/scratch_pool.h"
#include "mosaic/pictures/picture_view.h"
#include "mosaic/seams/seam_cell_features.h"
#include "mosaic/seams/seam_cell_sums.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kRowsAtATime = 64; // about, that one piece of work reads of a picture

// One piece of the work: some rows of cells of one picture.
struct Piece {
    std::size_t picture;
    std::int64_t first_row; // of the copy
    std::int64_t end_row;
};

struct Scratch : CellRow {
    std::vector<std::int64_t> pixels; // of the picture across each column of cells
    std::vector<std::int64_t> widths; // of the columns of cells
    std::vector<Cover> covers;        // of a whole cell in each column, where the mask leaves nothing out
    std::vector<PictureView> views;
    std::vector<std::uint8_t> is_wanted; // of each column of cells, whether it gets features
    std::vector<std::uint8_t> mask;      // of the piece's whole rows
    std::vector<std::int64_t> covered;   // pixels of each cell
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
                add_to_cells(views[i], {rows.first - first, rows.end - first}, has_mask, channels_, *scratch);
            finish_row(piece.picture, row, *scratch);
            if (has_mask)
                cover_row(piece.picture, row, {rows.first - first, rows.end - first}, *scratch);
        }
        for (PictureView& view : views)
            view.close();
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
    const std::unique_ptr<Work> work = std::move(work_); // goes, with the room for sums
    const FeatureCorrector corrector(work->layout, corrections, work->grid);
    std::vector<ReducedPicture> pictures = std::move(work->pictures);
    run_in_parallel(pictures.size(), threads, [&](std::size_t i) {
        corrector.correct(i, pictures[i]);
        pictures[i].measure_mask_distances(work->grid.cell);
    });
    return pictures;
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
