// SPDX-License-Identifier: MIT
#include "cli/stitch/output_tiles.h"

#include "cli/base/errors.h"

#include <algorithm>
#include <charconv>
#include <numeric>
#include <string_view>

namespace panoval::cli
{

namespace
{

// What viewers like to load at once; smaller chunks make too many files.
constexpr std::int64_t kUsualChunks[] = {512, 256};
constexpr std::int64_t kLargestChunk = 1024;
constexpr std::int64_t kSmallestChunk = 64;
constexpr std::int64_t kMostTiles = std::int64_t{1} << 24; // in a list

[[noreturn]] void fail_list(const std::string& list, std::int64_t count)
{
    fail_usage(
        concat("found --tile ", printable(list, 60), "; expected numbers from 0 to ", count - 1, ", as in 0-15,20"));
}

[[noreturn]] void fail_part(const std::string& list, std::int64_t count)
{
    fail_usage(concat("found --tile ", printable(list, 60),
                      "; expected part K of N, K from 0 to N - 1 and N from 1 to ", count, ", as in 0/", count));
}

std::int64_t whole_number(std::string_view text, const std::string& list, std::int64_t count)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0 || value > count)
        fail_part(list, count);
    return value;
}

// "K/N": one of N runs of neighbouring tiles whose lengths differ by one at most. There are never more runs than tiles,
// so that none is empty.
std::vector<std::int64_t> part_of_tiles(const std::string& list, std::size_t slash, std::int64_t count)
{
    const std::string_view text = list;
    const std::int64_t part = whole_number(text.substr(0, slash), list, count);
    const std::int64_t parts = whole_number(text.substr(slash + 1), list, count);
    if (parts == 0 || part >= parts)
        fail_part(list, count);
    const auto begin = [&](std::int64_t k) { return count / parts * k + std::min(k, count % parts); };
    std::vector<std::int64_t> tiles(static_cast<std::size_t>(begin(part + 1) - begin(part)));
    std::iota(tiles.begin(), tiles.end(), begin(part));
    return tiles;
}

// A number at the start of the text, which it is cut off.
std::int64_t take_number(std::string_view& text, const std::string& list, std::int64_t count)
{
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || text.front() == '-' || value < 0 || value >= count)
        fail_list(list, count);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
}

} // namespace

PanovalMosaicRect OutputTiles::rect(std::int64_t tile) const
{
    const std::int64_t x = tile % columns() * tile_width;
    const std::int64_t y = tile / columns() * tile_height;
    return {region.x + x, region.y + y, std::min(tile_width, region.width - x),
            std::min(tile_height, region.height - y)};
}

OutputTiles output_tiles(const PanoramaJob& job)
{
    return {job.region(), job.layout.tile_width, job.layout.tile_height};
}

std::vector<std::int64_t> parse_tiles(const std::string& list, std::int64_t count)
{
    if (const std::size_t slash = list.find('/'); slash != std::string::npos)
        return part_of_tiles(list, slash, count);
    std::vector<std::int64_t> tiles;
    std::string_view text = list;
    do {
        const std::int64_t first = take_number(text, list, count);
        std::int64_t last = first;
        if (!text.empty() && text.front() == '-') {
            text.remove_prefix(1);
            last = take_number(text, list, count);
        }
        if (last < first || (!text.empty() && text.front() != ',') || last - first >= kMostTiles)
            fail_list(list, count);
        for (std::int64_t tile = first; tile <= last; ++tile)
            tiles.push_back(tile);
        if (text == "," || static_cast<std::int64_t>(tiles.size()) > kMostTiles)
            fail_list(list, count);
        text.remove_prefix(std::min<std::size_t>(text.size(), 1));
    } while (!text.empty());
    std::sort(tiles.begin(), tiles.end());
    tiles.erase(std::unique(tiles.begin(), tiles.end()), tiles.end());
    return tiles;
}

std::int32_t chunk_side(std::int64_t tile, std::int64_t whole)
{
    if (tile >= whole) // a single one: nothing has to be divided
        return static_cast<std::int32_t>(std::min(whole, kUsualChunks[0]));
    for (const std::int64_t side : kUsualChunks)
        if (tile % side == 0)
            return static_cast<std::int32_t>(side);
    for (std::int64_t side = std::min(tile, kLargestChunk); side >= kSmallestChunk; --side)
        if (tile % side == 0)
            return static_cast<std::int32_t>(side);
    return static_cast<std::int32_t>(tile);
}

} // namespace panoval::cli
