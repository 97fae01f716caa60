// SPDX-License-Identifier: MIT
#include "cli/stitch/plan_cost.h"

#include "image/files.h"
#include "panoval_mosaic.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace panoval::cli
{

namespace
{

// A core of today, in a second, where tasks make tiles by themselves; the engine's own estimate is of a whole run, with
// what it measures. docs/scaling.md has the figures.
constexpr double kBlendedPixels = 25e6;
constexpr double kDecodedBytes = 90e6;
constexpr double kWrittenBytes = 45e6;
constexpr double kSecondsAnHour = 3600;

// Tiles first to last - 1 along one direction.
struct Span {
    std::int64_t first;
    std::int64_t end;
};

// Those of the tiles from `begin` on, each `side` long and `count` of them, that [from, to) touches.
Span touched(std::int64_t from, std::int64_t to, std::int64_t begin, std::int64_t whole, std::int64_t side)
{
    from = std::max(from - begin, std::int64_t{0});
    to = std::min(to - begin, whole);
    if (from >= to)
        return {0, 0};
    return {from / side, (to - 1) / side + 1};
}

std::uint64_t count_tiles(const OutputTiles& tiles, Span columns, Span rows, const std::vector<std::int64_t>& numbers)
{
    if (columns.first >= columns.end || rows.first >= rows.end)
        return 0;
    if (numbers.empty())
        return static_cast<std::uint64_t>(columns.end - columns.first) *
               static_cast<std::uint64_t>(rows.end - rows.first);
    std::uint64_t count = 0;
    for (std::int64_t row = rows.first; row < rows.end; ++row) {
        const std::int64_t begin = row * tiles.columns();
        const auto first = std::lower_bound(numbers.begin(), numbers.end(), begin + columns.first);
        count += static_cast<std::uint64_t>(std::lower_bound(first, numbers.end(), begin + columns.end) - first);
    }
    return count;
}

// How many tiles need the picture at least once. Beyond the edges of a canvas that goes round it appears again.
std::uint64_t tiles_with(const PanoramaJob& job, const OutputTiles& tiles, const PlacedLayer& layer,
                         const std::vector<std::int64_t>& numbers)
{
    const std::int64_t reach = panoval_mosaic_reach(job.layout.bands);
    const std::int64_t x = layer.position.x - job.layout.origin_x;
    const std::int64_t y = layer.position.y - job.layout.origin_y;
    const Span rows =
        touched(y - reach, y + layer.info.height + reach, tiles.region.y, tiles.region.height, tiles.tile_height);
    const auto count = [&](std::int64_t left) {
        return count_tiles(tiles,
                           touched(left - reach, left + layer.info.width + reach, tiles.region.x, tiles.region.width,
                                   tiles.tile_width),
                           rows, numbers);
    };
    if (job.layout.wraps == 0)
        return count(x);
    return count(x - job.layout.width) + count(x) + count(x + job.layout.width);
}

std::uint64_t bytes_of_files(const PlacedLayer& layer, std::uint64_t otherwise)
{
    std::error_code error;
    const auto bytes = std::filesystem::file_size(path_from_utf8(layer.file), error);
    return error || layer.is_one_of_several ? otherwise : bytes;
}

std::uint64_t pixels_of(const OutputTiles& tiles, const std::vector<std::int64_t>& numbers)
{
    if (numbers.empty())
        return static_cast<std::uint64_t>(tiles.region.width) * static_cast<std::uint64_t>(tiles.region.height);
    std::uint64_t pixels = 0;
    for (const std::int64_t number : numbers) {
        const PanovalMosaicRect rect = tiles.rect(number);
        pixels += static_cast<std::uint64_t>(rect.width) * static_cast<std::uint64_t>(rect.height);
    }
    return pixels;
}

} // namespace

PlanCost cost_of(const PanoramaJob& job, const OutputTiles& tiles, const std::vector<std::int64_t>& numbers)
{
    PlanCost cost;
    cost.tiles = numbers.empty() ? tiles.count() : static_cast<std::int64_t>(numbers.size());
    const auto sample = static_cast<std::uint64_t>(job.plan.bits / 8);
    for (const PlacedLayer& layer : job.plan.layers) {
        const std::uint64_t count = tiles_with(job, tiles, layer, numbers);
        if (count == 0)
            continue;
        const bool has_mask = layer.info.has_alpha || !layer.mask.empty() || !layer.exclude.empty();
        const std::uint64_t decoded = layer.info.samples() * sample + (has_mask ? layer.info.pixels() : 0);
        cost.picture_reads += count;
        cost.decoded_bytes += count * decoded;
        cost.read_bytes += count * bytes_of_files(layer, decoded);
    }
    const std::uint64_t pixels = pixels_of(tiles, numbers);
    const std::uint64_t channels = static_cast<std::uint64_t>(job.layout.channels) + (job.options.wants_alpha ? 1 : 0);
    cost.written_bytes = pixels * channels * static_cast<std::uint64_t>(job.output_bits() / 8);
    cost.blending_hours = static_cast<double>(pixels) / kBlendedPixels / kSecondsAnHour;
    cost.reading_hours = static_cast<double>(cost.decoded_bytes) / kDecodedBytes / kSecondsAnHour;
    cost.writing_hours = static_cast<double>(cost.written_bytes) / kWrittenBytes / kSecondsAnHour;
    return cost;
}

} // namespace panoval::cli
