// SPDX-License-Identifier: MIT
#include "mosaic/seams/seam_find.h"

#include "mosaic/base/errors.h"
#include "mosaic/seams/seam_cells.h"
#include "mosaic/seams/seam_cost.h"
#include "mosaic/seams/seam_cut.h"
#include "mosaic/seams/seam_nearest.h"
#include "mosaic/seams/seam_pixels.h"
#include "mosaic/seams/seam_reduced.h"
#include "mosaic/seams/seam_rows.h"

#include <algorithm>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kLargestCell = kMostRowsToSum;
constexpr std::size_t kReducedBytes = std::size_t{96} << 20; // that the reduced pictures should not exceed
constexpr std::int64_t kSmallOverlaps = 1500000;             // pixels of all overlaps that cells of 2 pixels are for
constexpr std::int64_t kMostCoarseCells = 1000000;           // of all overlaps, and
constexpr std::int64_t kMostCoarseCellsOfPair = 50000;       // of one: a cut takes longer than in proportion
constexpr double kPartOfReducing = 0.4;                      // of the time, for the progress
constexpr double kPartBeforePixels = 0.7;

std::int64_t shared_pixels(const std::vector<Overlap>& overlaps)
{
    std::int64_t sum = 0;
    for (const Overlap& overlap : overlaps)
        sum += overlap.region.pixels();
    return sum;
}

// Bytes of the reduced pictures and of the cells' labels.
std::size_t bytes_of(const Layout& layout, const CellGrid& grid)
{
    std::size_t sum = static_cast<std::size_t>(grid.count()) * 2 * sizeof(std::int32_t);
    for (std::size_t i = 0; i < layout.pictures.size(); ++i)
        sum += ReducedPicture::bytes(layout, i, grid);
    return sum;
}

// By what the layout is alone, so that the seams do not depend on the memory.
std::int64_t choose_cell(const Layout& layout, const std::vector<Overlap>& overlaps, const SeamOptions& options)
{
    if (options.cell > 0)
        return options.cell;
    std::int64_t cell = shared_pixels(overlaps) <= kSmallOverlaps ? 2 : 4;
    while (cell < kLargestCell && bytes_of(layout, CellGrid(layout, cell)) > kReducedBytes)
        cell *= 2;
    return cell;
}

std::int64_t largest_shared(const std::vector<Overlap>& overlaps)
{
    std::int64_t largest = 0;
    for (const Overlap& overlap : overlaps)
        largest = std::max(largest, overlap.region.pixels());
    return largest;
}

// How many cells along a side of the large ones.
std::int64_t choose_factor(const std::vector<Overlap>& overlaps, std::int64_t cell)
{
    std::int64_t factor = 1;
    while (shared_pixels(overlaps) / (cell * cell * factor * factor) > kMostCoarseCells ||
           largest_shared(overlaps) / (cell * cell * factor * factor) > kMostCoarseCellsOfPair)
        factor *= 2;
    return factor;
}

bool finds_nearest(const std::vector<Overlap>& overlaps, const SeamOptions& options)
{
    return options.mode == SeamMode::Nearest || overlaps.empty();
}

// Of each cell, the lowest number of a picture that must keep one of its pixels.
std::vector<std::int32_t> find_kept_cells(const Layout& layout, const std::vector<bool>& keepers, const CellGrid& grid,
                                          PictureReader& reader)
{
    std::vector<std::int32_t> kept;
    PixelBlock block;
    std::vector<std::uint8_t> row;
    for (std::size_t i = keepers.size(); i-- > 0;) {
        if (!keepers[i])
            continue;
        kept.resize(static_cast<std::size_t>(grid.count()), kNobody);
        const Rect& rect = layout.pictures[i].rect;
        row.resize(static_cast<std::size_t>(rect.width));
        for (std::int64_t y = 0; y < rect.height; ++y) {
            if (!reader.read_keep(i, {0, y, rect.width, 1}, row.data()) ||
                std::all_of(row.begin(), row.end(), [](std::uint8_t k) { return k == 0; }))
                continue;
            reader.read(i, {0, y, rect.width, 1}, block);
            for (std::int64_t x = 0; x < rect.width; ++x)
                if (row[static_cast<std::size_t>(x)] != 0 && block.mask_row(0)[x] != 0) {
                    const std::int64_t column = (grid.wraps ? (rect.x + x) % grid.width : rect.x + x) / grid.cell;
                    kept[static_cast<std::size_t>((rect.y + y) / grid.cell * grid.columns() + column)] =
                        static_cast<std::int32_t>(i);
                }
        }
    }
    return kept;
}

SeamMap find_optimal_seams(const Layout& layout, const std::vector<Overlap>& overlaps, const Corrections& corrections,
                           PictureReader& reader, const SeamOptions& options, Progress& progress, EarlyReduction* early)
{
    const CellGrid grid = seam_grid(layout, overlaps, options);
    // What lies around things is looked at as well. A picture that would have to be read once more for that is reduced
    // as a whole at once.
    const Features features = early == nullptr && reader.keeps_all() ? Features::OfShared : Features::OfAll;
    std::vector<ReducedPicture> pictures = early != nullptr
                                               ? early->take(corrections, options.threads)
                                               : reduce_pictures(layout, overlaps, corrections, grid, features, reader,
                                                                 options.threads, progress, kPartOfReducing);
    const std::vector<bool> keepers = find_keepers(layout, reader);
    const std::vector<std::int32_t> kept = find_kept_cells(layout, keepers, grid, reader);
    const CellCosts costs(layout, overlaps, grid, pictures, options.threads);
    const auto reduce_more = [&](const std::vector<PicturePart>& parts) {
        if (features == Features::OfShared)
            reduce_parts(layout, parts, corrections, grid, reader, options.threads, pictures);
    };
    const CellLabels labels =
        find_cell_labels(costs, choose_factor(overlaps, grid.cell), kept, reduce_more, options.threads);
    progress.report(Phase::Seams, kPartBeforePixels);
    return find_pixel_seams(layout, corrections, costs, labels, keepers, reader, options.threads, progress,
                            kPartBeforePixels);
}

} // namespace

std::size_t seam_search_bytes(const Layout& layout, const std::vector<Overlap>& overlaps, const SeamOptions& options)
{
    if (finds_nearest(overlaps, options))
        return nearest_search_bytes(layout);
    const CellGrid grid = seam_grid(layout, overlaps, options);
    const std::int64_t coarse = grid.cell * choose_factor(overlaps, grid.cell);
    const auto nodes = static_cast<std::size_t>(largest_shared(overlaps) / (coarse * coarse));
    const std::size_t coarse_bytes = options.threads * nodes * kBytesOfNode;
    return bytes_of(layout, grid) + std::max(coarse_bytes, pixel_search_bytes(layout, grid, options.threads));
}

bool may_reduce_early(const std::vector<Overlap>& overlaps, const SeamOptions& options)
{
    return !finds_nearest(overlaps, options);
}

CellGrid seam_grid(const Layout& layout, const std::vector<Overlap>& overlaps, const SeamOptions& options)
{
    return {layout, choose_cell(layout, overlaps, options)};
}

SeamMap find_seams(const Layout& layout, const std::vector<Overlap>& overlaps, const Corrections& corrections,
                   PictureReader& reader, const SeamOptions& options, Progress& progress, EarlyReduction* early)
{
    const std::size_t bytes = seam_search_bytes(layout, overlaps, options);
    if (bytes > options.memory)
        fail(Failure::Memory, "the search for seams needs ", bytes, " bytes of memory, only ", options.memory,
             " are allowed");
    if (finds_nearest(overlaps, options))
        return find_nearest_seams(layout, reader, options.threads, progress);
    return find_optimal_seams(layout, overlaps, corrections, reader, options, progress, early);
}

} // namespace panoval::mosaic
