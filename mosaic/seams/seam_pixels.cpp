// SPDX-License-Identifier: MIT
// The canvas is worked through in strips of square tiles. A strip is first resolved: each pixel gets the label of its
// cell, or, where that picture does not cover it, of the one that does and whose edge is farthest. Once the strip below
// is resolved, too, its seams are moved tile by tile; tiles that do not touch, at once. So three rows of tiles are all
// that is ever held.
#include "mosaic/seams/seam_pixels.h"

#include "core/numbers.h"
#include "mosaic/base/parallel.h"
#include "mosaic/base/scratch_pool.h"
#include "mosaic/seams/seam_swap.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kTile = 128;              // pixels along a side, unless the canvas is very wide
constexpr std::int64_t kSmallestTile = 16;       //
constexpr std::int64_t kPixelsOfStrip = 8 << 20; // that two rows of tiles should not exceed

// By the layout alone, so that the seams do not depend on anything else. A tile has whole cells.
std::int64_t choose_tile(const Layout& layout, const CellGrid& grid)
{
    std::int64_t tile = kTile;
    while (tile > kSmallestTile && 2 * tile * layout.width > kPixelsOfStrip)
        tile /= 2;
    return std::max(tile, grid.cell);
}

// What a picture has inside a window of the canvas, which may reach beyond it where the canvas goes round.
class PictureWindow
{
public:
    PictureWindow(const Layout& layout, std::size_t picture, const Rect& window) : window_(window)
    {
        const Rect& rect = layout.pictures[picture].rect;
        const std::int64_t turns = layout.wraps ? 1 : 0;
        for (std::int64_t turn = -turns; turn <= turns; ++turn) {
            const Rect moved = window.moved(turn * layout.width - rect.x, -rect.y);
            const Rect own = intersect(moved, {0, 0, rect.width, rect.height});
            if (!own.is_empty())
                parts_.push_back({own, own.x - moved.x, own.y - moved.y});
        }
    }

    // covered: window.pixels() bytes
    void read_cover(const Layout& layout, std::size_t picture, PictureReader& reader, std::uint8_t* covered) const
    {
        std::fill_n(covered, window_.pixels(), std::uint8_t{0});
        PixelBlock block;
        for (const Part& part : parts_) {
            const bool has_mask = layout.pictures[picture].has_mask;
            if (has_mask)
                reader.read(picture, part.own, block);
            for (std::int64_t y = 0; y < part.own.height; ++y) {
                std::uint8_t* const to = covered + (part.y + y) * window_.width + part.x;
                if (has_mask)
                    std::copy_n(block.mask_row(y), part.own.width, to);
                else
                    std::fill_n(to, part.own.width, std::uint8_t{255});
            }
        }
    }

    // samples: as well, the corrected samples, channels beside each other; unset where nothing is covered
    void read_samples(const Layout& layout, const Corrections& corrections, std::size_t picture, PictureReader& reader,
                      PixelBlock& block, std::uint8_t* covered, float* samples) const
    {
        std::fill_n(covered, window_.pixels(), std::uint8_t{0});
        for (const Part& part : parts_) {
            reader.read(picture, part.own, block);
            for (std::int64_t y = 0; y < part.own.height; ++y) {
                const std::int64_t at = (part.y + y) * window_.width + part.x;
                std::copy_n(block.mask_row(y), part.own.width, covered + at);
                correct_row(corrections, picture, layout.pictures[picture].rect, block, y,
                            samples + at * layout.channels);
            }
        }
    }

    // keep: 0 where the picture need not keep the pixel
    void read_keep(std::size_t picture, PictureReader& reader, std::uint8_t* keep) const
    {
        std::fill_n(keep, window_.pixels(), std::uint8_t{0});
        std::vector<std::uint8_t> own;
        for (const Part& part : parts_) {
            own.resize(static_cast<std::size_t>(part.own.pixels()));
            if (reader.read_keep(picture, part.own, own.data()))
                for (std::int64_t y = 0; y < part.own.height; ++y)
                    std::copy_n(own.data() + y * part.own.width, part.own.width,
                                keep + (part.y + y) * window_.width + part.x);
        }
    }

    bool is_empty() const { return parts_.empty(); }

private:
    struct Part {
        Rect own;       // in the picture's own pixels
        std::int64_t x; // in the window
        std::int64_t y;
    };
    Rect window_;
    std::vector<Part> parts_;
};

// Some rows of the canvas.
struct Strip {
    std::int64_t y = 0;
    std::int64_t height = 0;
    std::vector<std::int32_t> labels;
    std::vector<std::uint8_t> pinned;  // pixels that must be kept; empty where no picture has such pixels
    std::vector<std::uint8_t> uniform; // of each tile: all of it has one label
};

// What a window shows of a picture.
struct WindowPicture {
    std::size_t number = 0;
    std::vector<std::uint8_t> covered;
    std::vector<float> samples;
};

// Memory for the costs of one window after the other.
struct CostScratch {
    std::vector<WindowPicture> pictures;
    std::vector<float> differences;
    std::vector<float> rows;
    std::vector<std::int32_t> cells;
    PixelBlock block;
};

// Costs of separating two pictures at the pixels of a window: those of their cells, and how much the pixels differ,
// smoothed a little because single pixels are noisy.
class PixelCosts : public SwapCosts
{
public:
    PixelCosts(const Layout& layout, const Corrections& corrections, const CellCosts& costs, PictureReader& reader,
               const Rect& window, CostScratch& scratch)
        : layout_(layout), corrections_(corrections), costs_(costs), reader_(reader), window_(window),
          grown_(window.grown(1)), scratch_(scratch)
    {
    }

    void fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out) override
    {
        std::fill(out.begin(), out.end(), kNotShared);
        const PicturePair* const pair = costs_.find_pair(first, second);
        if (pair == nullptr)
            return;
        const std::size_t index_a = load(first);
        const std::size_t index_b = load(second);
        const WindowPicture& a = scratch_.pictures[index_a];
        const WindowPicture& b = scratch_.pictures[index_b];
        compare(*pair, a, b);
        const Rect cells = cells_of_window();
        std::vector<std::int32_t>& cell_costs = scratch_.cells;
        cell_costs.resize(static_cast<std::size_t>(cells.pixels()));
        costs_.fill(*pair, cells, cell_costs.data());
        for (std::int64_t y = 0; y < window_.height; ++y)
            for (std::int64_t x = 0; x < window_.width; ++x) {
                const auto at = static_cast<std::size_t>((y + 1) * grown_.width + x + 1);
                if (a.covered[at] == 0 || b.covered[at] == 0)
                    continue;
                const std::int64_t column = column_of(window_.x + x) - cells.x;
                const std::int64_t row = (window_.y + y) / costs_.grid().cell - cells.y;
                const std::int32_t cell = cell_costs[static_cast<std::size_t>(row * cells.width + column)];
                out[static_cast<std::size_t>(y * window_.width + x)] = std::max(cell, 0) + pixel_cost(*pair, at);
            }
    }

private:
    // Where a picture is in the scratch.
    std::size_t load(std::size_t number)
    {
        for (std::size_t i = 0; i < loaded_; ++i)
            if (scratch_.pictures[i].number == number)
                return i;
        if (loaded_ == scratch_.pictures.size())
            scratch_.pictures.emplace_back();
        WindowPicture& next = scratch_.pictures[loaded_];
        next.number = number;
        const auto pixels = static_cast<std::size_t>(grown_.pixels());
        next.covered.resize(pixels);
        next.samples.resize(pixels * static_cast<std::size_t>(layout_.channels));
        PictureWindow(layout_, number, grown_)
            .read_samples(layout_, corrections_, number, reader_, scratch_.block, next.covered.data(),
                          next.samples.data());
        return loaded_++;
    }

    // The window lies inside the canvas.
    std::int64_t column_of(std::int64_t x_canvas) const { return x_canvas / costs_.grid().cell; }
    Rect cells_of_window() const { return costs_.grid().cells_of(window_); }

    // The sums over 3 x 3 pixels, weighted 1 2 1 in either direction, of each channel's difference.
    void compare(const PicturePair& pair, const WindowPicture& a, const WindowPicture& b)
    {
        const auto channels = static_cast<std::size_t>(layout_.channels);
        const auto width = static_cast<std::size_t>(grown_.width);
        const auto pixels = static_cast<std::size_t>(grown_.pixels());
        std::vector<float>& differences = scratch_.differences;
        std::vector<float>& rows = scratch_.rows;
        differences.assign(pixels * channels, 0.f);
        for (std::size_t p = 0; p < pixels; ++p)
            if (a.covered[p] != 0 && b.covered[p] != 0)
                for (std::size_t c = 0; c < channels; ++c)
                    differences[p * channels + c] =
                        a.samples[p * channels + c] * pair.ratio[c] - b.samples[p * channels + c];
        rows.assign(pixels * channels, 0.f);
        const std::size_t pitch = width * channels;
        for (std::size_t i = channels; i + channels < differences.size(); ++i)
            rows[i] = differences[i - channels] + 2 * differences[i] + differences[i + channels];
        for (std::size_t i = pitch; i + pitch < rows.size(); ++i)
            differences[i] = rows[i - pitch] + 2 * rows[i] + rows[i + pitch];
    }

    std::int32_t pixel_cost(const PicturePair& pair, std::size_t at) const
    {
        const auto channels = static_cast<std::size_t>(layout_.channels);
        float sum = 0;
        for (std::size_t c = 0; c < channels; ++c) {
            const float d = scratch_.differences[at * channels + c];
            sum += d * d;
        }
        // Cells average more noise away than nine weighted pixels do: 1 / cell^2 of it is left against 0.14.
        const auto cell = static_cast<float>(costs_.grid().cell);
        const float noise = std::max(1.f, 0.14f * cell * cell);
        const auto scale = static_cast<float>(feature_scale(layout_) / 16);
        const float ratio = sum * (scale * scale) / static_cast<float>(channels) * pair.inverse_noise / noise;
        return truncate_to_int(static_cast<double>(difference_cost(ratio) * static_cast<float>(kCostUnit)));
    }

    const Layout& layout_;
    const Corrections& corrections_;
    const CellCosts& costs_;
    PictureReader& reader_;
    const Rect window_;
    const Rect grown_;
    CostScratch& scratch_;
    std::size_t loaded_ = 0; // pictures
};

struct TileScratch {
    SwapWindow whole;
    SwapWindow window;
    std::vector<std::uint8_t> band;
    CostScratch costs;
    LabelSwapper swapper;
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
        Strip strip;
        Strip below;
        resolve(0, strip);
        for (std::size_t i = 0; i < strip_count(); ++i) {
            below.labels.clear();
            if (i + 1 < strip_count())
                resolve(i + 1, below);
            refine(above, strip, below);
            std::vector<SeamMap::Run> runs;
            for (std::int64_t y = 0; y < strip.height; ++y) {
                list_runs(strip, y, runs);
                map.add_row(runs);
            }
            std::copy_n(strip.labels.end() - layout_.width, layout_.width, above.begin());
            std::swap(strip, below);
            const double done = static_cast<double>(i + 1) / static_cast<double>(strip_count());
            progress.report(Phase::Seams, progress_before + (1 - progress_before) * done);
        }
        return map;
    }

private:
    std::size_t strip_count() const { return static_cast<std::size_t>((layout_.height + tile_ - 1) / tile_); }
    std::int64_t tile_count() const { return (layout_.width + tile_ - 1) / tile_; }

    void list_runs(const Strip& strip, std::int64_t y, std::vector<SeamMap::Run>& runs) const
    {
        runs.clear();
        const std::int32_t* const row = strip.labels.data() + y * layout_.width;
        for (std::int64_t i = 0; i < tile_count(); ++i) {
            const std::int64_t end = std::min((i + 1) * tile_, layout_.width);
            if (strip.uniform[static_cast<std::size_t>(i)] == 0)
                for (std::int64_t x = i * tile_ + 1; x < end; ++x)
                    if (row[x] != row[x - 1])
                        runs.push_back({static_cast<std::int32_t>(x), row[x - 1]});
            runs.push_back({static_cast<std::int32_t>(end), row[end - 1]});
        }
    }

    void resolve(std::size_t number, Strip& strip) const
    {
        strip.y = static_cast<std::int64_t>(number) * tile_;
        strip.height = std::min(tile_, layout_.height - strip.y);
        strip.labels.resize(static_cast<std::size_t>(strip.height * layout_.width));
        strip.uniform.resize(static_cast<std::size_t>(tile_count()));
        if (has_keepers_)
            strip.pinned.assign(strip.labels.size(), 0);
        run_in_parallel(static_cast<std::size_t>(tile_count()), threads_, [&](std::size_t i) {
            const std::int64_t x = static_cast<std::int64_t>(i) * tile_;
            resolve_tile(strip, {x, strip.y, std::min(tile_, layout_.width - x), strip.height});
        });
    }

    // The pixels of a cell that lies inside the canvas.
    Rect pixels_of(std::int64_t column, std::int64_t row) const
    {
        return {column * grid_.cell, row * grid_.cell, grid_.column_width(column), grid_.row_height(row)};
    }

    void resolve_tile(Strip& strip, const Rect& tile) const
    {
        const Rect cells = grid_.cells_of(tile);
        const std::int32_t corner = labels_.at(cells.x, cells.y);
        bool is_uniform = !has_keepers_;
        std::vector<std::pair<std::int64_t, std::int64_t>> open; // cells that the label's picture covers in part
        for (std::int64_t row = cells.y; row < cells.bottom(); ++row) {
            for (std::int64_t column = cells.x; column < cells.right(); ++column) {
                const std::int32_t label = labels_.at(column, row);
                is_uniform = is_uniform && label == corner;
                if (label != kNobody && cover_of(static_cast<std::size_t>(label), column, row) != Cover::Wholly)
                    open.emplace_back(column, row);
            }
            fill_rows(strip, tile, row);
        }
        if (!open.empty())
            resolve_cells(strip, tile, open);
        strip.uniform[static_cast<std::size_t>(tile.x / tile_)] = is_uniform && open.empty() ? 1 : 0;
        if (has_keepers_)
            keep(strip, tile);
    }

    // The pixels of a row of cells get their cells' labels.
    void fill_rows(Strip& strip, const Rect& tile, std::int64_t row) const
    {
        const Rect cells = grid_.cells_of(tile);
        const Rect rows = pixels_of(cells.x, row);
        const auto first = strip.labels.begin() + (rows.y - strip.y) * layout_.width + tile.x;
        auto to = first;
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

    void resolve_cells(Strip& strip, const Rect& tile,
                       const std::vector<std::pair<std::int64_t, std::int64_t>>& open) const
    {
        std::map<std::size_t, std::vector<std::uint8_t>> covers;
        const auto cover_in_tile = [&](std::size_t picture) -> const std::vector<std::uint8_t>& {
            std::vector<std::uint8_t>& cover = covers[picture];
            if (cover.empty()) {
                cover.resize(static_cast<std::size_t>(tile.pixels()));
                PictureWindow(layout_, picture, tile).read_cover(layout_, picture, reader_, cover.data());
            }
            return cover;
        };
        for (const auto& [column, row] : open) {
            const std::vector<std::size_t> candidates = candidates_of(strip, column, row);
            const Rect pixels = pixels_of(column, row);
            for (std::int64_t y = pixels.y; y < pixels.bottom(); ++y)
                for (std::int64_t x = pixels.x; x < pixels.right(); ++x) {
                    const auto at = static_cast<std::size_t>((y - tile.y) * tile.width + x - tile.x);
                    std::int32_t& label = strip.labels[static_cast<std::size_t>((y - strip.y) * layout_.width + x)];
                    label = kNobody;
                    for (std::size_t i = 0; i < candidates.size() && label == kNobody; ++i)
                        if (cover_in_tile(candidates[i])[at] != 0)
                            label = static_cast<std::int32_t>(candidates[i]);
                }
        }
    }

    // Who may own a pixel of a cell: its label's picture, then those whose edge is farther before those whose is near.
    std::vector<std::size_t> candidates_of(const Strip& strip, std::int64_t column, std::int64_t row) const
    {
        const auto preferred = static_cast<std::size_t>(labels_.at(column, row));
        std::vector<std::pair<std::int32_t, std::size_t>> others;
        for (const std::size_t picture : in_strip_[static_cast<std::size_t>(strip.y / tile_)]) {
            const std::int64_t index = costs_.pictures()[picture].index(column, row);
            if (picture != preferred && index >= 0 && costs_.pictures()[picture].cover(index) != Cover::None)
                others.emplace_back(-costs_.pictures()[picture].distance(index), picture);
        }
        std::sort(others.begin(), others.end());
        std::vector<std::size_t> candidates{preferred};
        for (const auto& [distance, picture] : others)
            candidates.push_back(picture);
        return candidates;
    }

    // Gives pixels to those who must keep them; the last word is the lowest number's.
    void keep(Strip& strip, const Rect& tile) const
    {
        const std::vector<std::size_t>& pictures = in_strip_[static_cast<std::size_t>(strip.y / tile_)];
        std::vector<std::uint8_t> kept(static_cast<std::size_t>(tile.pixels()));
        std::vector<std::uint8_t> covered(kept.size());
        for (auto picture = pictures.rbegin(); picture != pictures.rend(); ++picture) {
            const PictureWindow window(layout_, *picture, tile);
            if (!keepers_[*picture] || window.is_empty())
                continue;
            window.read_keep(*picture, reader_, kept.data());
            window.read_cover(layout_, *picture, reader_, covered.data());
            for (std::int64_t y = 0; y < tile.height; ++y)
                for (std::int64_t x = 0; x < tile.width; ++x) {
                    const auto from = static_cast<std::size_t>(y * tile.width + x);
                    if (kept[from] == 0 || covered[from] == 0)
                        continue;
                    const auto to = static_cast<std::size_t>(y * layout_.width + tile.x + x);
                    strip.labels[to] = static_cast<std::int32_t>(*picture);
                    strip.pinned[to] = 1;
                }
        }
    }

    void refine(const std::vector<std::int32_t>& above, Strip& strip, const Strip& below) const
    {
        const std::int64_t count = tile_count();
        for (std::int64_t colour = 0; colour < 3; ++colour) {
            std::vector<std::int64_t> tiles;
            for (std::int64_t i = 0; i < count; ++i) {
                // Where the canvas goes round, the last tile may meet the first one.
                const bool is_last = layout_.wraps && i + 1 == count && i % 2 == 0 && i > 0;
                if ((is_last ? 2 : i % 2) == colour)
                    tiles.push_back(i * tile_);
            }
            run_in_parallel(tiles.size(), threads_, [&](std::size_t i) {
                refine({tiles[i], strip.y, std::min(tile_, layout_.width - tiles[i]), strip.height}, above, strip,
                       below);
            });
        }
    }

    std::int32_t label_at(std::int64_t x, std::int64_t y, const std::vector<std::int32_t>& above, const Strip& strip,
                          const Strip& below) const
    {
        if (layout_.wraps)
            x = (x + layout_.width) % layout_.width;
        if (x < 0 || x >= layout_.width)
            return kNobody;
        const std::int64_t row = y - strip.y;
        if (row < 0)
            return above[static_cast<std::size_t>(x)];
        if (row < strip.height)
            return strip.labels[static_cast<std::size_t>(row * layout_.width + x)];
        return below.labels.empty() ? kNobody : below.labels[static_cast<std::size_t>(x)];
    }

    static bool is_seam(std::int32_t a, std::int32_t b) { return a != b && a != kNobody && b != kNobody; }

    // Marks pixels near a seam. Returns the smallest rectangle around them, counted from the tile's corner.
    Rect find_band(const SwapWindow& tile, std::vector<std::uint8_t>& band) const
    {
        const std::int64_t reach = grid_.cell + 2;
        const Rect all{0, 0, tile.width(), tile.height()};
        Rect around;
        band.assign(static_cast<std::size_t>(all.pixels()), 0);
        for (std::int64_t y = 0; y < all.height; ++y)
            for (std::int64_t x = 0; x < all.width; ++x) {
                const std::int32_t label = tile.label(x, y);
                if (!is_seam(label, tile.label(x - 1, y)) && !is_seam(label, tile.label(x + 1, y)) &&
                    !is_seam(label, tile.label(x, y - 1)) && !is_seam(label, tile.label(x, y + 1)))
                    continue;
                const Rect near = intersect({x - reach, y - reach, 2 * reach + 1, 2 * reach + 1}, all);
                for (std::int64_t row = near.y; row < near.bottom(); ++row)
                    std::fill_n(band.begin() + row * all.width + near.x, near.width, std::uint8_t{1});
                around = bounding(around, near);
            }
        return around;
    }

    // Whether the tile of one label has a neighbour of another one.
    bool has_seam_around(const Rect& tile, const std::vector<std::int32_t>& above, const Strip& strip,
                         const Strip& below) const
    {
        const std::int32_t label = label_at(tile.x, tile.y, above, strip, below);
        for (std::int64_t x = tile.x; x < tile.right(); ++x)
            if (is_seam(label, label_at(x, tile.y - 1, above, strip, below)) ||
                is_seam(label, label_at(x, tile.bottom(), above, strip, below)))
                return true;
        for (std::int64_t y = tile.y; y < tile.bottom(); ++y)
            if (is_seam(label, label_at(tile.x - 1, y, above, strip, below)) ||
                is_seam(label, label_at(tile.right(), y, above, strip, below)))
                return true;
        return false;
    }

    void refine(const Rect& tile, const std::vector<std::int32_t>& above, Strip& strip, const Strip& below) const
    {
        if (strip.uniform[static_cast<std::size_t>(tile.x / tile_)] != 0 && !has_seam_around(tile, above, strip, below))
            return;
        const ScratchPool<TileScratch>::Lease scratch = scratch_.take();
        SwapWindow& whole = scratch->whole;
        whole.reset(tile.width, tile.height);
        for (std::int64_t y = -1; y <= tile.height; ++y)
            for (std::int64_t x = -1; x <= tile.width; ++x)
                whole.label(x, y) = label_at(tile.x + x, tile.y + y, above, strip, below);
        std::vector<std::uint8_t>& band = scratch->band;
        const Rect part = find_band(whole, band);
        if (part.is_empty())
            return;

        SwapWindow& window = scratch->window;
        window.reset(part.width, part.height);
        for (std::int64_t y = -1; y <= part.height; ++y)
            for (std::int64_t x = -1; x <= part.width; ++x)
                window.label(x, y) = whole.label(part.x + x, part.y + y);
        for (std::int64_t y = 0; y < part.height; ++y)
            for (std::int64_t x = 0; x < part.width; ++x) {
                const std::int64_t at = (part.y + y) * layout_.width + tile.x + part.x + x;
                const bool is_pinned = has_keepers_ && strip.pinned[static_cast<std::size_t>(at)] != 0;
                window.set_movable(
                    x, y, !is_pinned && band[static_cast<std::size_t>((part.y + y) * tile.width + part.x + x)] != 0);
            }
        PixelCosts provider(layout_, corrections_, costs_, reader_, part.moved(tile.x, tile.y), scratch->costs);
        scratch->swapper.begin(window, provider);
        scratch->swapper.swap_all(2);
        strip.uniform[static_cast<std::size_t>(tile.x / tile_)] = 0;
        for (std::int64_t y = 0; y < part.height; ++y)
            for (std::int64_t x = 0; x < part.width; ++x)
                strip.labels[static_cast<std::size_t>((part.y + y) * layout_.width + tile.x + part.x + x)] =
                    window.label(x, y);
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
