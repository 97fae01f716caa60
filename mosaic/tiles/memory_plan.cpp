// SPDX-License-Identifier: MIT
#include "mosaic/tiles/memory_plan.h"

#include "mosaic/pictures/store_blocks.h"
#include "mosaic/seams/seam_map.h"

#include <algorithm>
#include <limits>
#include <set>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kSmallestTile = 16;
constexpr std::int64_t kLargestTile = 4096;

// Tiles that the engine chooses are whole numbers of these where they can be: stores are cut into chunks that divide
// tiles.
constexpr std::int64_t kTileUnit = 256;

// A tile costs as much as so many pixels besides its own.
constexpr std::uint64_t kTileOverhead = 20000;

// Zones of seams reach into neighbouring tiles, and are worked on in both.
constexpr std::uint64_t kSeenPart = 5;

// The wider a tile, the more columns lie between the outermost ones that a seam touches, and are worked on with them.
constexpr std::uint64_t kWide = 16384;

constexpr std::uint64_t kFewTiles = 16; // for each thread

// So many bytes of fresh memory cost as much as a pixel.
constexpr double kFreshBytes = 32;

constexpr double kLittleLonger = 1.08;

// What a further thread takes besides its tile: a stack, a heap of its own with gaps, rows of a decoder.
constexpr std::uint64_t kFurtherThread = std::uint64_t{6} << 20;

// Pictures get at least this part of the budget where they need it: read too often they cost more than smaller tiles.
constexpr std::uint64_t kStorePart = 3;

std::uint64_t output_bytes(const MemoryNeeds& needs, const TileGrid& grid, Delivery delivery, std::size_t threads)
{
    const Rect piece = delivery == Delivery::Rows ? grid.strip(0) : grid.tile(0);
    return static_cast<std::uint64_t>(piece.pixels()) * needs.panorama_pixel_bytes *
           output_slots(grid, delivery, threads);
}

MemoryShares shares_without_store(const MemoryNeeds& needs, const TileGrid& grid, Delivery delivery,
                                  std::size_t threads)
{
    MemoryShares shares;
    shares.threads = threads;
    shares.tile_bytes = threads * needs.scratch(grid.tile_width, grid.tile_height) + (threads - 1) * kFurtherThread;
    shares.output_bytes = output_bytes(needs, grid, delivery, threads);
    shares.seam_bytes = needs.seam_bytes;
    return shares;
}

std::optional<MemoryShares> shares_for(const MemoryNeeds& needs, const TileGrid& grid, Delivery delivery,
                                       std::uint64_t budget, std::size_t threads, std::uint64_t least_store)
{
    MemoryShares shares = shares_without_store(needs, grid, delivery, threads);
    if (shares.all() > budget || budget - shares.all() < least_store)
        return std::nullopt;
    shares.store_bytes = budget - shares.all();
    return shares;
}

// Sides that are tried: powers of two, and equal parts of the canvas.
std::set<std::int64_t> sides(std::int64_t whole)
{
    std::set<std::int64_t> found;
    for (std::int64_t side = kSmallestTile; side <= kLargestTile; side *= 2)
        found.insert(std::min(side, whole));
    for (std::int64_t parts = 1; parts <= 16; ++parts) {
        const std::int64_t side = (whole + parts - 1) / parts;
        if (side <= 4 * kLargestTile)
            found.insert(std::min((side + kTileUnit - 1) / kTileUnit * kTileUnit, whole));
    }
    return found;
}

// What a tile costs, in pixels. What is seen beyond it costs a part of what is blended.
double cost_of(const MemoryNeeds& needs, const TileGrid& grid)
{
    const auto own = static_cast<std::uint64_t>(grid.tile(0).pixels());
    const std::uint64_t seen = std::max(needs.seen(grid.tile_width, grid.tile_height), own);
    const std::uint64_t between = own * static_cast<std::uint64_t>(grid.tile_width) / kWide;
    const std::uint64_t cost = own + (seen - own) / kSeenPart + between + kTileOverhead;
    return static_cast<double>(cost);
}

// What the thread that has most to do works on. Of many tiles those at the right and the bottom count as what they are.
double time_of(const MemoryNeeds& needs, const TileGrid& grid, std::size_t threads)
{
    const auto count = static_cast<std::uint64_t>(grid.count());
    const double cost = cost_of(needs, grid);
    if (count <= kFewTiles * threads) {
        const std::uint64_t most = (count - 1) / threads + 1;
        return cost * static_cast<double>(most);
    }
    const double tiles =
        static_cast<double>(grid.width) * static_cast<double>(grid.height) / static_cast<double>(grid.tile(0).pixels());
    return cost * tiles / static_cast<double>(threads);
}

std::vector<TileGrid> grids_to_try(const Layout& layout, std::int64_t tile_size)
{
    std::vector<TileGrid> grids;
    if (tile_size > 0) {
        grids.push_back(
            {layout.width, layout.height, std::min(tile_size, layout.width), std::min(tile_size, layout.height)});
        return grids;
    }
    for (const std::int64_t width : sides(layout.width))
        for (const std::int64_t height : sides(layout.height))
            grids.push_back({layout.width, layout.height, width, height});
    return grids;
}

// Of the grids that take little longer than the fastest one, that which takes the least memory.
std::optional<TileGrid> best_grid(const MemoryNeeds& needs, const std::vector<TileGrid>& grids, Delivery delivery,
                                  std::uint64_t budget, std::size_t threads, std::uint64_t least_store)
{
    struct Candidate {
        const TileGrid* grid;
        double time;
        std::uint64_t memory;
    };
    std::vector<Candidate> candidates;
    double least_time = std::numeric_limits<double>::max();
    for (const TileGrid& grid : grids) {
        const auto shares = shares_for(needs, grid, delivery, budget, threads, least_store);
        if (!shares)
            continue;
        const std::uint64_t memory = shares->tile_bytes + shares->output_bytes;
        const double fresh = static_cast<double>(memory) / kFreshBytes / static_cast<double>(threads);
        candidates.push_back({&grid, time_of(needs, grid, threads) + fresh, memory});
        least_time = std::min(least_time, candidates.back().time);
    }
    const Candidate* best = nullptr;
    for (const Candidate& candidate : candidates)
        if (candidate.time <= kLittleLonger * least_time && (best == nullptr || candidate.memory < best->memory))
            best = &candidate;
    return best == nullptr ? std::nullopt : std::optional<TileGrid>(*best->grid);
}

} // namespace

std::size_t output_slots(const TileGrid& grid, Delivery delivery, std::size_t threads)
{
    const std::int64_t pieces = delivery == Delivery::Rows ? grid.rows() : grid.count();
    const std::size_t wanted = delivery == Delivery::Rows ? 2 : threads + 1;
    return static_cast<std::size_t>(std::min(pieces, static_cast<std::int64_t>(wanted)));
}

std::uint64_t least_memory(const MemoryNeeds& needs, const TileGrid& grid, Delivery delivery)
{
    return shares_without_store(needs, grid, delivery, 1).all() + least_store_bytes(needs.layout, needs.traits, 1);
}

std::optional<MemoryShares> share_memory(const MemoryNeeds& needs, const TileGrid& grid, Delivery delivery,
                                         std::uint64_t budget, std::size_t threads)
{
    threads = std::min(threads, static_cast<std::size_t>(grid.count()));
    for (std::size_t t = std::max<std::size_t>(threads, 1); t > 0; --t)
        if (const auto shares =
                shares_for(needs, grid, delivery, budget, t, least_store_bytes(needs.layout, needs.traits, t)))
            return shares;
    return std::nullopt;
}

std::optional<TileGrid> choose_grid(const MemoryNeeds& needs, Delivery delivery, std::uint64_t budget,
                                    std::size_t threads, std::int64_t tile_size)
{
    const std::vector<TileGrid> grids = grids_to_try(needs.layout, tile_size);
    const std::uint64_t wanted_store = std::min(bytes_of_all_pictures(needs.layout, needs.traits), budget / kStorePart);
    for (std::size_t t = std::max<std::size_t>(threads, 1); t > 0; --t) {
        const std::uint64_t least_store = least_store_bytes(needs.layout, needs.traits, t);
        for (const std::uint64_t store : {std::max(wanted_store, least_store), least_store})
            if (const auto grid = best_grid(needs, grids, delivery, budget, t, store))
                return grid;
    }
    return std::nullopt;
}

std::uint64_t least_memory(const MemoryNeeds& needs, Delivery delivery, std::int64_t tile_size)
{
    std::uint64_t least = std::numeric_limits<std::uint64_t>::max();
    for (const TileGrid& grid : grids_to_try(needs.layout, tile_size))
        least = std::min(least, least_memory(needs, grid, delivery));
    return least;
}

std::uint64_t guess_seam_bytes(const Layout& layout)
{
    // A picture has two ends in each of its rows, and seams wind. Rows without a picture are alike.
    std::uint64_t with_picture = 0;
    for (const PlacedPicture& picture : layout.pictures)
        with_picture += static_cast<std::uint64_t>(picture.rect.height);
    const std::uint64_t gaps = layout.pictures.size() + 1;
    const std::uint64_t groups = std::min(static_cast<std::uint64_t>(layout.height), with_picture + gaps);
    return SeamMap::bytes(groups, groups + 4 * with_picture);
}

} // namespace panoval::mosaic
