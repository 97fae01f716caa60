// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_reduced.h"

#include "mosaic/base/parallel.h"
#include "mosaic/base/scratch_pool.h"
#include "mosaic/seams/seam_outside.h"
#include "mosaic/seams/seam_swap.h"
#include "mosaic/seams/seam_things.h"

#include <algorithm>
#include <limits>

namespace panoval::mosaic
{

namespace
{

constexpr int kMostSweeps = 3;
constexpr std::int64_t kWindow = 64; // cells along a side of the windows that seams are drawn finely in

// One overlap of two pictures on the large cells.
struct Region {
    const PicturePair* pair;
    Rect cells; // columns may reach beyond the grid's last one
    std::vector<std::int32_t> costs;
    std::vector<SwapTie> ties;
    std::vector<SwapPull> pulls;
    std::int32_t wave = 0;     // regions of one wave do not touch
    std::int32_t last_run = 0; // number of the last swap of it
};

struct WindowScratch {
    SwapWindow window;
    LabelSwapper swapper;
};

class CoarseSearch
{
public:
    CoarseSearch(const CellCosts& costs, std::int64_t factor, const CellGrid& grid,
                 const std::vector<std::int32_t>& kept, const ReduceParts& reduce_parts, std::size_t threads,
                 ScratchPool<WindowScratch>& scratch)
        : costs_(costs), factor_(factor), grid_(grid), threads_(threads), labels_(grid),
          is_fixed_(static_cast<std::size_t>(grid.count())), changed_(static_cast<std::size_t>(grid.count())),
          scratch_(scratch)
    {
        label_nearest();
        fix_kept(kept);
        make_regions();
        find_things(reduce_parts);
        lay_out_waves();
    }

    CellLabels run()
    {
        for (int sweep = 0; sweep < kMostSweeps; ++sweep) {
            bool has_changed = false;
            for (const std::vector<std::size_t>& wave : waves_) {
                std::vector<std::uint8_t> changes(wave.size());
                run_in_parallel(wave.size(), threads_,
                                [&](std::size_t i) { changes[i] = improve(wave[i], sweep) ? 1 : 0; });
                has_changed = has_changed || std::find(changes.begin(), changes.end(), 1) != changes.end();
            }
            if (!has_changed)
                break;
        }
        return std::move(labels_);
    }

private:
    std::size_t cell_index(std::int64_t column, std::int64_t row) const
    {
        return static_cast<std::size_t>(row * grid_.columns() + column);
    }

    // Distances at the large cells are those of the farthest of their cells.
    void label_nearest()
    {
        std::vector<std::int32_t> farthest(static_cast<std::size_t>(grid_.count()), 0);
        const CellGrid& fine = costs_.grid();
        std::vector<std::int64_t> columns;
        for (std::size_t i = 0; i < costs_.pictures().size(); ++i) {
            const ReducedPicture& picture = costs_.pictures()[i];
            const Rect& cells = picture.cells();
            columns.clear();
            for (std::int64_t x = cells.x; x < cells.right(); ++x)
                columns.push_back(fine.column_inside(x) / factor_);
            for (std::int64_t y = 0; y < cells.height; ++y) {
                const std::int64_t row = (cells.y + y) / factor_;
                for (std::int64_t x = 0; x < cells.width; ++x) {
                    const std::int64_t column = columns[static_cast<std::size_t>(x)];
                    const std::int32_t distance = picture.distance_at(x, y);
                    const std::size_t cell = cell_index(column, row);
                    if (distance > farthest[cell]) {
                        farthest[cell] = distance;
                        labels_.at(column, row) = static_cast<std::int32_t>(i);
                    }
                }
            }
        }
    }

    void fix_kept(const std::vector<std::int32_t>& kept)
    {
        const std::int64_t columns = costs_.grid().columns();
        for (std::size_t i = 0; i < kept.size(); ++i) {
            if (kept[i] == kNobody)
                continue;
            const std::int64_t column = static_cast<std::int64_t>(i) % columns / factor_;
            const std::int64_t row = static_cast<std::int64_t>(i) / columns / factor_;
            std::uint8_t& is_fixed = is_fixed_[cell_index(column, row)];
            std::int32_t& label = labels_.at(column, row);
            label = is_fixed != 0 ? std::min(label, kept[i]) : kept[i];
            is_fixed = 1;
        }
    }

    // Calls work(cell) for the cells of a region grown by one.
    template <class Work>
    void for_each_near(const Region& region, const Work& work) const
    {
        const Rect grown = region.cells.grown(1);
        for (std::int64_t row = std::max<std::int64_t>(0, grown.y); row < std::min(grown.bottom(), grid_.rows()); ++row)
            for (std::int64_t x = grown.x; x < grown.right(); ++x)
                if (const std::int64_t column = grid_.column_inside(x); column >= 0)
                    work(cell_index(column, row));
    }

    void make_regions()
    {
        for (const PicturePair& pair : costs_.pairs())
            for (const Rect& fine : pair.regions) {
                const std::int64_t first = fine.x / factor_;
                const std::int64_t top = fine.y / factor_;
                const std::int64_t fine_columns = costs_.grid().columns();
                // Beyond the last column the large cells begin anew, as the cells do.
                const std::int64_t end = fine.right() <= fine_columns
                                             ? (fine.right() - 1) / factor_ + 1
                                             : grid_.columns() + (fine.right() - fine_columns - 1) / factor_ + 1;
                const Rect cells{first, top, std::min(end - first, grid_.columns()),
                                 (fine.bottom() - 1) / factor_ + 1 - top};
                regions_.push_back({&pair, cells, {}, {}, {}, 0, 0});
            }
        run_in_parallel(regions_.size(), threads_, [&](std::size_t i) {
            Region& region = regions_[i];
            region.costs.resize(static_cast<std::size_t>(region.cells.pixels()));
            costs_.fill_coarse(*region.pair, grid_, factor_, region.cells, region.costs.data());
        });
    }

    void find_things(const ReduceParts& reduce_parts)
    {
        std::vector<std::vector<ThingPlace>> places(regions_.size());
        run_in_parallel(regions_.size(), threads_, [&](std::size_t i) {
            Region& region = regions_[i];
            places[i] = find_thing_places(costs_, *region.pair, grid_, factor_, region.cells, region.costs);
            region.ties = tie_moved_things(costs_, *region.pair, places[i]);
        });
        std::vector<PicturePart> parts;
        for (std::size_t i = 0; i < regions_.size(); ++i)
            for (const PicturePart& part : parts_around(costs_, *regions_[i].pair, places[i]))
                parts.push_back(part);
        if (parts.empty())
            return;
        reduce_parts(parts);
        run_in_parallel(regions_.size(), threads_, [&](std::size_t i) {
            regions_[i].pulls = pull_from_things_outside(costs_, *regions_[i].pair, places[i]);
        });
    }

    // A region waits for all earlier ones that it touches, so that the result is that of one after the other.
    void lay_out_waves()
    {
        std::vector<std::int32_t> next_wave(static_cast<std::size_t>(grid_.count()), 0);
        for (std::size_t i = 0; i < regions_.size(); ++i) {
            Region& region = regions_[i];
            for_each_near(region, [&](std::size_t cell) { region.wave = std::max(region.wave, next_wave[cell]); });
            for_each_near(region, [&](std::size_t cell) { next_wave[cell] = region.wave + 1; });
            if (waves_.size() <= static_cast<std::size_t>(region.wave))
                waves_.resize(static_cast<std::size_t>(region.wave) + 1);
            waves_[static_cast<std::size_t>(region.wave)].push_back(i);
        }
    }

    // Copies what is known of two pictures' costs into a rectangle of cells.
    class StoredCosts : public SwapCosts
    {
    public:
        StoredCosts(const CoarseSearch& search, const Rect& cells) : search_(search), cells_(cells) {}

        void fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out) override
        {
            std::fill(out.begin(), out.end(), kNotShared);
            const auto [begin, end] =
                std::equal_range(search_.regions_.begin(), search_.regions_.end(), std::pair(first, second), Before());
            for (auto region = begin; region != end; ++region)
                copy(*region, out);
        }

    private:
        using Key = std::pair<std::size_t, std::size_t>;
        struct Before {
            static Key key(const Region& region) { return {region.pair->first, region.pair->second}; }
            bool operator()(const Region& a, const Key& b) const { return key(a) < b; }
            bool operator()(const Key& a, const Region& b) const { return a < key(b); }
        };

        void copy(const Region& region, std::vector<std::int32_t>& out) const
        {
            const CellGrid& grid = search_.grid_;
            for (std::int64_t y = 0; y < cells_.height; ++y) {
                const std::int64_t row = cells_.y + y - region.cells.y;
                if (row < 0 || row >= region.cells.height)
                    continue;
                for (std::int64_t x = 0; x < cells_.width; ++x) {
                    std::int64_t column = cells_.x + x - region.cells.x;
                    if (grid.wraps)
                        column = (column % grid.columns() + grid.columns()) % grid.columns();
                    if (column < 0 || column >= region.cells.width)
                        continue;
                    std::int32_t& cost = out[static_cast<std::size_t>(y * cells_.width + x)];
                    cost = std::max(cost, region.costs[static_cast<std::size_t>(row * region.cells.width + column)]);
                }
            }
        }

        const CoarseSearch& search_;
        const Rect cells_;
    };

    bool improve(std::size_t number, int sweep)
    {
        Region& region = regions_[number];
        bool is_due = sweep == 0;
        for_each_near(region, [&](std::size_t cell) { is_due = is_due || changed_[cell] > region.last_run; });
        if (!is_due)
            return false;
        region.last_run = sweep * static_cast<std::int32_t>(regions_.size()) + static_cast<std::int32_t>(number) + 1;

        const ScratchPool<WindowScratch>::Lease scratch = scratch_.take();
        SwapWindow& window = scratch->window;
        window.reset(region.cells.width, region.cells.height);
        for (std::int64_t y = -1; y <= region.cells.height; ++y)
            for (std::int64_t x = -1; x <= region.cells.width; ++x)
                window.label(x, y) = labels_.around(region.cells.x + x, region.cells.y + y);
        for (std::int64_t y = 0; y < region.cells.height; ++y)
            for (std::int64_t x = 0; x < region.cells.width; ++x) {
                const std::int64_t column = grid_.column_inside(region.cells.x + x);
                window.set_movable(x, y, is_fixed_[cell_index(column, region.cells.y + y)] == 0);
            }
        StoredCosts stored(*this, region.cells);
        scratch->swapper.begin(window, stored);
        if (!scratch->swapper.swap(region.pair->first, region.pair->second, region.ties, region.pulls))
            return false;
        take_over(region, window);
        return true;
    }

    void take_over(const Region& region, const SwapWindow& window)
    {
        for (std::int64_t y = 0; y < region.cells.height; ++y)
            for (std::int64_t x = 0; x < region.cells.width; ++x) {
                const std::int64_t column = grid_.column_inside(region.cells.x + x);
                std::int32_t& label = labels_.at(column, region.cells.y + y);
                if (label == window.label(x, y))
                    continue;
                label = window.label(x, y);
                changed_[cell_index(column, region.cells.y + y)] = region.last_run;
            }
    }

    const CellCosts& costs_;
    const std::int64_t factor_;
    const CellGrid& grid_;
    const std::size_t threads_;
    CellLabels labels_;
    std::vector<std::uint8_t> is_fixed_;
    std::vector<std::int32_t> changed_; // number of the last swap that changed the cell
    std::vector<Region> regions_;       // in the order of their pairs
    std::vector<std::vector<std::size_t>> waves_;
    ScratchPool<WindowScratch>& scratch_;
};

// Draws the seams of large cells on cells, inside windows one after the other; those that do not touch, at once.
class FineSearch
{
public:
    FineSearch(const CellCosts& costs, std::int64_t factor, const std::vector<std::int32_t>& kept, std::size_t threads,
               ScratchPool<WindowScratch>& scratch)
        : costs_(costs), factor_(factor), kept_(kept), threads_(threads), grid_(costs.grid()), labels_(grid_),
          scratch_(scratch), in_rows_(static_cast<std::size_t>((grid_.rows() + kWindow - 1) / kWindow))
    {
        for (std::size_t i = 0; i < costs.pictures().size(); ++i) {
            const Rect& cells = costs.pictures()[i].cells();
            for (std::int64_t rows = cells.y / kWindow; rows <= (cells.bottom() - 1) / kWindow; ++rows)
                in_rows_[static_cast<std::size_t>(rows)].push_back(i);
        }
    }

    CellLabels run(const CellLabels& coarse)
    {
        run_in_parallel(static_cast<std::size_t>(grid_.rows()), threads_,
                        [&](std::size_t row) { label_row(coarse, static_cast<std::int64_t>(row)); });
        if (factor_ > 1)
            for (int colour = 0; colour < 6; ++colour)
                refine(colour);
        return std::move(labels_);
    }

private:
    // The large cell's label where that picture covers the cell, otherwise that of the picture whose edge is farthest.
    void label_row(const CellLabels& coarse, std::int64_t row)
    {
        const std::int32_t* const large = coarse.row(row / factor_);
        for (std::int64_t first = 0, cell = 0; first < grid_.columns();) {
            const std::int32_t label = large[cell];
            std::int64_t end = first;
            for (; end < grid_.columns() && large[cell] == label; ++cell)
                end = std::min(end + factor_, grid_.columns());
            if (label != kNobody)
                label_run(label, first, end, row);
            first = end;
        }
        for (std::int64_t column = 0; column < grid_.columns() && !kept_.empty(); ++column)
            if (const std::int32_t kept = kept_label(column, row); kept != kNobody)
                labels_.at(column, row) = kept;
    }

    void label_run(std::int32_t label, std::int64_t first, std::int64_t end, std::int64_t row)
    {
        const ReducedPicture& picture = costs_.pictures()[static_cast<std::size_t>(label)];
        std::int32_t* const labels = labels_.row(row);
        for (std::int64_t column = first; column < end; ++column) {
            const std::int64_t index = picture.index(column, row);
            labels[column] = index >= 0 && picture.is_covered(index) ? label : nearest(column, row);
        }
    }

    std::int32_t kept_label(std::int64_t column, std::int64_t row) const
    {
        return kept_.empty() ? kNobody : kept_[static_cast<std::size_t>(row * grid_.columns() + column)];
    }

    std::int32_t nearest(std::int64_t column, std::int64_t row) const
    {
        std::int32_t best = kNobody;
        std::int32_t farthest = 0;
        for (const std::size_t i : in_rows_[static_cast<std::size_t>(row / kWindow)]) {
            const std::int64_t index = costs_.pictures()[i].index(column, row);
            const std::int32_t distance = index >= 0 ? costs_.pictures()[i].distance_of(column, row) : 0;
            if (distance > farthest) {
                farthest = distance;
                best = static_cast<std::int32_t>(i);
            }
        }
        return best;
    }

    // Windows of one colour are not neighbours: two by two in either direction, and where the canvas goes round, the
    // last column of windows by itself, because it meets the first one.
    void refine(int colour)
    {
        const std::int64_t across = (grid_.columns() + kWindow - 1) / kWindow;
        const std::int64_t down = (grid_.rows() + kWindow - 1) / kWindow;
        std::vector<Rect> windows;
        for (std::int64_t j = colour % 2; j < down; j += 2)
            for (std::int64_t i = 0; i < across; ++i) {
                const bool is_last = grid_.wraps && i + 1 == across && i % 2 == 0 && i > 0;
                const std::int64_t column_colour = is_last ? 2 : i % 2;
                if (column_colour == colour / 2)
                    windows.push_back(intersect({i * kWindow, j * kWindow, kWindow, kWindow}, grid_.all()));
            }
        run_in_parallel(windows.size(), threads_, [&](std::size_t i) { refine(windows[i]); });
    }

    // Cells near a seam may change; `reach` is how near.
    bool mark_movable(const Rect& cells, SwapWindow& window) const
    {
        const std::int64_t reach = factor_ + factor_ / 2 + 1;
        bool has_any = false;
        for (std::int64_t y = 0; y < cells.height; ++y)
            for (std::int64_t x = 0; x < cells.width; ++x) {
                const std::int32_t label = window.label(x, y);
                if (!(is_seam(label, window.label(x - 1, y)) || is_seam(label, window.label(x + 1, y)) ||
                      is_seam(label, window.label(x, y - 1)) || is_seam(label, window.label(x, y + 1))))
                    continue;
                has_any = true;
                const Rect near =
                    intersect({x - reach, y - reach, 2 * reach + 1, 2 * reach + 1}, {0, 0, cells.width, cells.height});
                for (std::int64_t ny = near.y; ny < near.bottom(); ++ny)
                    for (std::int64_t nx = near.x; nx < near.right(); ++nx)
                        window.set_movable(nx, ny, kept_label(cells.x + nx, cells.y + ny) == kNobody);
            }
        return has_any;
    }

    static bool is_seam(std::int32_t a, std::int32_t b) { return a != b && a != kNobody && b != kNobody; }

    class WindowCosts : public SwapCosts
    {
    public:
        WindowCosts(const CellCosts& costs, const Rect& cells) : costs_(costs), cells_(cells) {}
        void fill(std::size_t first, std::size_t second, std::vector<std::int32_t>& out) override
        {
            if (const PicturePair* const pair = costs_.find_pair(first, second); pair != nullptr)
                costs_.fill(*pair, cells_, out.data());
            else
                std::fill(out.begin(), out.end(), kNotShared);
        }

    private:
        const CellCosts& costs_;
        const Rect cells_;
    };

    void refine(const Rect& cells)
    {
        if (!has_seam(cells))
            return;
        const ScratchPool<WindowScratch>::Lease scratch = scratch_.take();
        SwapWindow& window = scratch->window;
        window.reset(cells.width, cells.height);
        for (std::int64_t y = -1; y <= cells.height; ++y)
            for (std::int64_t x = -1; x <= cells.width; ++x)
                window.label(x, y) = labels_.around(cells.x + x, cells.y + y);
        if (!mark_movable(cells, window))
            return;
        WindowCosts provider(costs_, cells);
        scratch->swapper.begin(window, provider);
        scratch->swapper.swap_all(2);
        for (std::int64_t y = 0; y < cells.height; ++y)
            for (std::int64_t x = 0; x < cells.width; ++x)
                labels_.at(cells.x + x, cells.y + y) = window.label(x, y);
    }

    bool has_seam(const Rect& cells) const
    {
        const std::int32_t label = labels_.at(cells.x, cells.y);
        const auto differs = [label](std::int32_t other) { return is_seam(label, other); };
        if (label == kNobody)
            return true;
        for (std::int64_t y = std::max<std::int64_t>(0, cells.y - 1); y < std::min(cells.bottom() + 1, grid_.rows());
             ++y) {
            const std::int32_t* const row = labels_.row(y);
            if (std::any_of(row + cells.x, row + cells.right(), differs) || differs(labels_.around(cells.x - 1, y)) ||
                differs(labels_.around(cells.right(), y)))
                return true;
        }
        return false;
    }

    const CellCosts& costs_;
    const std::int64_t factor_;
    const std::vector<std::int32_t>& kept_;
    const std::size_t threads_;
    const CellGrid& grid_;
    CellLabels labels_;
    ScratchPool<WindowScratch>& scratch_;
    std::vector<std::vector<std::size_t>> in_rows_; // pictures that reach each row of windows
};

} // namespace

CellLabels find_cell_labels(const CellCosts& costs, std::int64_t factor, const std::vector<std::int32_t>& kept,
                            const ReduceParts& reduce_parts, std::size_t threads)
{
    const CellGrid grid = costs.grid().coarser(factor);
    ScratchPool<WindowScratch> scratch;
    CoarseSearch coarse(costs, factor, grid, kept, reduce_parts, threads, scratch);
    return FineSearch(costs, factor, kept, threads, scratch).run(coarse.run());
}

} // namespace panoval::mosaic
