// SPDX-License-Identifier: MIT
// The canvas is worked through in strips of square tiles. A strip is first resolved: each pixel gets the label of its
// cell, or, where that picture does not cover it, of the one that does and whose edge is farthest. Once the strip below
// is resolved, too, its seams are moved tile by tile; tiles that do not touch, at once. So three rows of tiles are all
// that is ever held.
#include "mosaic/seams/seam_pixels.h"

#include "mosaic/base/parallel.h"
#include "mosaic/base/scratch_pool.h"
#include "mosaic/seams/picture_window.h"
#include "mosaic/seams/seam_moves.h"
#include "mosaic/seams/seam_pixel_costs.h"
#include "mosaic/seams/seam_strip.h"
#include "mosaic/seams/seam_swap.h"

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kTile = 128;              // pixels along a side, unless the canvas is very wide
constexpr std::int64_t kSmallestTile = 16;       //
constexpr std::int64_t kPixelsOfStrip = 8 << 20; // that two rows of tiles should not exceed
constexpr std::int64_t kTilesOfPiece = 32;       // that one thread resolves at a time: most of them take a moment only

// By the layout alone, so that the seams do not depend on anything else. A tile has whole cells.
std::int64_t choose_tile(const Layout& layout, const CellGrid& grid)
{
    std::int64_t tile = kTile;
    while (tile > kSmallestTile && 2 * tile * layout.width > kPixelsOfStrip)
        tile /= 2;
    return std::max(tile, grid.cell);
}

struct TileScratch {
    SwapWindow labels;
    CostScratch costs;
    SeamMoveScratch moves;
};

class PixelSearch
{
public:
    PixelSearch(const Layout& layout, const Corrections& corrections, const CellCosts& costs, const CellLabels& labels,
                const std::vector<bool>& keepers, PictureReader& reader, std::size_t threads)
        : layout_(layout), corrections_(corrections), costs_(costs), labels_(labels), keepers_(keepers),
          reader_(reader), threads_(threads), grid_(labels.grid()), tile_(choose_tile(layout, grid_)),
          has_keepers_(std::find(keepers.begin(), keepers.end(), true) != keepers.end())
    {
        in_strip_.resize(strip_count());
        for (std::size_t i = 0; i < layout.pictures.size(); ++i) {
            const Rect& rect = layout.pictures[i].rect;
            for (std::int64_t strip = rect.y / tile_; strip <= (rect.bottom() - 1) / tile_; ++strip)
                in_strip_[static_cast<std::size_t>(strip)].push_back(i);
        }
    }

    SeamMap run(Progress& progress, double progress_before)
    {
        SeamMap map(layout_.width);
        std::vector<std::int32_t> above(static_cast<std::size_t>(layout_.width), kNobody);
        const std::int64_t rows = std::min(tile_, layout_.height);
        SeamStrip strip(layout_.width, tile_, rows);
        SeamStrip below(layout_.width, tile_, rows);
        resolve(0, strip);
        for (std::size_t i = 0; i < strip_count(); ++i) {
            if (i + 1 < strip_count())
                resolve(i + 1, below);
            else
                below.begin(layout_.height, 0);
            refine(above, strip, below);
            std::vector<SeamMap::Run> runs;
            for (std::int64_t y = 0; y < strip.height(); ++y) {
                strip.list_runs(y, runs);
                map.add_row(runs);
            }
            strip.copy_row(strip.height() - 1, above.data());
            std::swap(strip, below);
            const double done = static_cast<double>(i + 1) / static_cast<double>(strip_count());
            progress.report(Phase::Seams, progress_before + (1 - progress_before) * done);
        }
        return map;
    }

private:
    std::size_t strip_count() const { return static_cast<std::size_t>((layout_.height + tile_ - 1) / tile_); }
    std::int64_t tile_count() const { return (layout_.width + tile_ - 1) / tile_; }

    void resolve(std::size_t number, SeamStrip& strip) const
    {
        const std::int64_t y = static_cast<std::int64_t>(number) * tile_;
        strip.begin(y, std::min(tile_, layout_.height - y));
        if (has_keepers_)
            strip.begin_pins();
        const std::int64_t pieces = (tile_count() + kTilesOfPiece - 1) / kTilesOfPiece;
        run_in_parallel(static_cast<std::size_t>(pieces), threads_, [&](std::size_t piece) {
            const std::int64_t first = static_cast<std::int64_t>(piece) * kTilesOfPiece;
            for (std::int64_t i = first; i < std::min(first + kTilesOfPiece, tile_count()); ++i)
                resolve_tile(strip, i);
        });
    }

    // The pixels of a cell that lies inside the canvas.
    Rect pixels_of(std::int64_t column, std::int64_t row) const
    {
        return {column * grid_.cell, row * grid_.cell, grid_.column_width(column), grid_.row_height(row)};
    }

    void resolve_tile(SeamStrip& strip, std::int64_t number) const
    {
        const Rect tile = strip.tile(number);
        const Rect cells = grid_.cells_of(tile);
        if (!has_keepers_ && is_uniform(cells))
            return strip.set_uniform(number, labels_.at(cells.x, cells.y));
        std::vector<std::pair<std::int64_t, std::int64_t>> open; // cells that the label's picture covers in part
        for (std::int64_t row = cells.y; row < cells.bottom(); ++row) {
            for (std::int64_t column = cells.x; column < cells.right(); ++column) {
                const std::int32_t label = labels_.at(column, row);
                if (label != kNobody && cover_of(static_cast<std::size_t>(label), column, row) != Cover::Wholly)
                    open.emplace_back(column, row);
            }
            fill_rows(strip, tile, row);
        }
        if (!open.empty())
            resolve_cells(strip, tile, open);
        if (has_keepers_)
            keep(strip, tile);
    }

    // Whether one label stands for all pixels of these cells: its picture covers them, or nobody does.
    bool is_uniform(const Rect& cells) const
    {
        const std::int32_t label = labels_.at(cells.x, cells.y);
        for (std::int64_t row = cells.y; row < cells.bottom(); ++row) {
            const std::int32_t* const first = labels_.row(row) + cells.x;
            if (std::any_of(first, first + cells.width, [label](std::int32_t other) { return other != label; }))
                return false;
        }
        if (label == kNobody)
            return true;
        const ReducedPicture& picture = costs_.pictures()[static_cast<std::size_t>(label)];
        for (std::int64_t row = cells.y; row < cells.bottom(); ++row) {
            const std::int64_t first = picture.index(cells.x, row);
            const std::int64_t last = picture.index(cells.right() - 1, row);
            // Where the canvas goes round, the cells may lie at both ends of the copy's row.
            if (first < 0 || last - first + 1 != cells.width || !picture.covers_wholly(first, cells.width))
                return false;
        }
        return true;
    }

    // The pixels of a row of cells get their cells' labels.
    void fill_rows(SeamStrip& strip, const Rect& tile, std::int64_t row) const
    {
        const Rect cells = grid_.cells_of(tile);
        const Rect rows = pixels_of(cells.x, row);
        std::int32_t* const first = strip.row(rows.y - strip.y()) + tile.x;
        std::int32_t* to = first;
        for (std::int64_t column = cells.x; column < cells.right(); ++column)
            to = std::fill_n(to, grid_.column_width(column), labels_.at(column, row));
        for (std::int64_t y = 1; y < rows.height; ++y)
            std::copy_n(first, tile.width, first + y * layout_.width);
    }

    Cover cover_of(std::size_t picture, std::int64_t column, std::int64_t row) const
    {
        const std::int64_t index = costs_.pictures()[picture].index(column, row);
        return index < 0 ? Cover::None : costs_.pictures()[picture].cover(index);
    }

    void resolve_cells(SeamStrip& strip, const Rect& tile,
                       const std::vector<std::pair<std::int64_t, std::int64_t>>& open) const
    {
        std::map<std::size_t, std::vector<std::uint8_t>> covers;
        const auto cover_in_tile = [&](std::size_t picture) -> const std::vector<std::uint8_t>& {
            std::vector<std::uint8_t>& cover = covers[picture];
            if (cover.empty()) {
                cover.resize(static_cast<std::size_t>(tile.pixels()));
                PictureWindow(layout_, picture, tile).read_cover(reader_, cover.data());
            }
            return cover;
        };
        for (const auto& [column, row] : open) {
            const std::vector<std::size_t> candidates = candidates_of(strip, column, row);
            const Rect pixels = pixels_of(column, row);
            for (std::int64_t y = pixels.y; y < pixels.bottom(); ++y)
                for (std::int64_t x = pixels.x; x < pixels.right(); ++x) {
                    const auto at = static_cast<std::size_t>((y - tile.y) * tile.width + x - tile.x);
                    std::int32_t& label = strip.row(y - strip.y())[x];
                    label = kNobody;
                    for (std::size_t i = 0; i < candidates.size() && label == kNobody; ++i)
                        if (cover_in_tile(candidates[i])[at] != 0)
                            label = static_cast<std::int32_t>(candidates[i]);
                }
        }
    }

    // Who may own a pixel of a cell: its label's picture, then those whose edge is farther before those whose is near.
    std::vector<std::size_t> candidates_of(const SeamStrip& strip, std::int64_t column, std::int64_t row) const
    {
        const auto preferred = static_cast<std::size_t>(labels_.at(column, row));
        std::vector<std::pair<std::int32_t, std::size_t>> others;
        for (const std::size_t picture : in_strip_[static_cast<std::size_t>(strip.y() / tile_)]) {
            const std::int64_t index = costs_.pictures()[picture].index(column, row);
            if (picture != preferred && index >= 0 && costs_.pictures()[picture].cover(index) != Cover::None)
                others.emplace_back(-costs_.pictures()[picture].distance_of(column, row), picture);
        }
        std::sort(others.begin(), others.end());
        std::vector<std::size_t> candidates{preferred};
        for (const auto& [distance, picture] : others)
            candidates.push_back(picture);
        return candidates;
    }

    // Gives pixels to those who must keep them; the last word is the lowest number's.
    void keep(SeamStrip& strip, const Rect& tile) const
    {
        const std::vector<std::size_t>& pictures = in_strip_[static_cast<std::size_t>(strip.y() / tile_)];
        std::vector<std::uint8_t> kept(static_cast<std::size_t>(tile.pixels()));
        std::vector<std::uint8_t> covered(kept.size());
        for (auto picture = pictures.rbegin(); picture != pictures.rend(); ++picture) {
            const PictureWindow window(layout_, *picture, tile);
            if (!keepers_[*picture] || window.is_empty())
                continue;
            window.read_keep(reader_, kept.data());
            window.read_cover(reader_, covered.data());
            for (std::int64_t y = 0; y < tile.height; ++y)
                for (std::int64_t x = 0; x < tile.width; ++x) {
                    const auto from = static_cast<std::size_t>(y * tile.width + x);
                    if (kept[from] == 0 || covered[from] == 0)
                        continue;
                    strip.pin(tile.x + x, y, static_cast<std::int32_t>(*picture));
                }
        }
    }

    void refine(const std::vector<std::int32_t>& above, SeamStrip& strip, const SeamStrip& below) const
    {
        const std::int64_t count = tile_count();
        for (std::int64_t colour = 0; colour < 3; ++colour) {
            std::vector<std::int64_t> tiles;
            for (std::int64_t i = 0; i < count; ++i) {
                // Where the canvas goes round, the last tile may meet the first one.
                const bool is_last = layout_.wraps && i + 1 == count && i % 2 == 0 && i > 0;
                if ((is_last ? 2 : i % 2) == colour && may_have_seam(i, above, strip, below))
                    tiles.push_back(i);
            }
            run_in_parallel(tiles.size(), threads_, [&](std::size_t i) { refine(tiles[i], above, strip, below); });
        }
    }

    std::int32_t label_at(std::int64_t x, std::int64_t y, const std::vector<std::int32_t>& above,
                          const SeamStrip& strip, const SeamStrip& below) const
    {
        if (layout_.wraps)
            x = (x + layout_.width) % layout_.width;
        if (x < 0 || x >= layout_.width)
            return kNobody;
        const std::int64_t row = y - strip.y();
        if (row < 0)
            return above[static_cast<std::size_t>(x)];
        if (row < strip.height())
            return strip.label(x, row);
        return below.height() > 0 ? below.label(x, 0) : kNobody;
    }

    // Whether there may be a seam in the tile or around it.
    bool may_have_seam(std::int64_t number, const std::vector<std::int32_t>& above, const SeamStrip& strip,
                       const SeamStrip& below) const
    {
        if (!strip.is_uniform(number))
            return true;
        const Rect tile = strip.tile(number);
        const std::int32_t label = strip.label(tile.x, 0);
        const std::int32_t* const over = above.data() + tile.x;
        const auto differs = [label](std::int32_t other) { return is_seam(label, other); };
        return std::any_of(over, over + tile.width, differs) ||
               (below.height() > 0 && below.has_other(label, number, {tile.x, below.y(), tile.width, 1})) ||
               meets_other(label, strip, number - 1, tile_ - 1) || meets_other(label, strip, number + 1, 0);
    }

    // A column of a tile, which may lie beyond the canvas.
    bool meets_other(std::int32_t label, const SeamStrip& strip, std::int64_t number, std::int64_t column) const
    {
        if (layout_.wraps)
            number = (number + tile_count()) % tile_count();
        if (number < 0 || number >= tile_count())
            return false;
        const Rect tile = strip.tile(number);
        return strip.has_other(label, number, {tile.x + std::min(column, tile.width - 1), tile.y, 1, tile.height});
    }

    // With a frame of what lies around it.
    void take_labels(const Rect& tile, const std::vector<std::int32_t>& above, const SeamStrip& strip,
                     const SeamStrip& below, SwapWindow& to) const
    {
        to.reset(tile.width, tile.height);
        const auto take = [&](std::int64_t x, std::int64_t y) {
            to.label(x, y) = label_at(tile.x + x, tile.y + y, above, strip, below);
        };
        for (std::int64_t x = -1; x <= tile.width; ++x) {
            take(x, -1);
            take(x, tile.height);
        }
        for (std::int64_t y = 0; y < tile.height; ++y) {
            take(-1, y);
            std::copy_n(strip.row(y) + tile.x, tile.width, &to.label(0, y));
            take(tile.width, y);
        }
    }

    void refine(std::int64_t number, const std::vector<std::int32_t>& above, SeamStrip& strip,
                const SeamStrip& below) const
    {
        const Rect tile = strip.tile(number);
        strip.spell_out(number);
        const ScratchPool<TileScratch>::Lease scratch = scratch_.take();
        SwapWindow& labels = scratch->labels;
        take_labels(tile, above, strip, below, labels);
        for (std::int64_t y = 0; y < tile.height; ++y)
            for (std::int64_t x = 0; x < tile.width; ++x)
                labels.set_movable(x, y, !strip.is_pinned(tile.x + x, y));
        const auto make_costs = [&](const Rect& part) {
            return std::make_unique<PixelCosts>(layout_, corrections_, costs_, reader_, part.moved(tile.x, tile.y),
                                                scratch->costs);
        };
        const Rect part = move_seams(labels, grid_.cell, make_costs, scratch->moves);
        for (std::int64_t y = part.y; y < part.bottom(); ++y)
            for (std::int64_t x = part.x; x < part.right(); ++x)
                strip.row(y)[tile.x + x] = labels.label(x, y);
    }

    const Layout& layout_;
    const Corrections& corrections_;
    const CellCosts& costs_;
    const CellLabels& labels_;
    const std::vector<bool>& keepers_;
    PictureReader& reader_;
    const std::size_t threads_;
    const CellGrid& grid_;
    const std::int64_t tile_;
    const bool has_keepers_;
    std::vector<std::vector<std::size_t>> in_strip_; // pictures that reach each strip
    mutable ScratchPool<TileScratch> scratch_;
};

} // namespace

std::vector<bool> find_keepers(const Layout& layout, PictureReader& reader)
{
    std::vector<bool> keepers(layout.pictures.size());
    std::uint8_t unused = 0;
    for (std::size_t i = 0; i < keepers.size(); ++i)
        keepers[i] = reader.read_keep(i, {0, 0, 1, 1}, &unused);
    return keepers;
}

std::size_t pixel_search_bytes(const Layout& layout, const CellGrid& grid, std::size_t threads)
{
    const std::int64_t side = choose_tile(layout, grid);
    const auto height = static_cast<std::size_t>(std::min(side, layout.height));
    const std::size_t tile = height * static_cast<std::size_t>(std::min(side, layout.width));
    const std::size_t strips = 2 * height * static_cast<std::size_t>(layout.width) * (sizeof(std::int32_t) + 1);
    // A tile's samples of three or four pictures, their differences, costs of several pairs, and a cut.
    const auto channels = static_cast<std::size_t>(layout.channels);
    const std::size_t of_pixel = 6 * (channels * sizeof(float) + sizeof(std::int32_t)) + kBytesOfNode;
    return strips + threads * tile * of_pixel;
}

SeamMap find_pixel_seams(const Layout& layout, const Corrections& corrections, const CellCosts& costs,
                         const CellLabels& labels, const std::vector<bool>& keepers, PictureReader& reader,
                         std::size_t threads, Progress& progress, double progress_before)
{
    return PixelSearch(layout, corrections, costs, labels, keepers, reader, threads).run(progress, progress_before);
}

} // namespace panoval::mosaic
