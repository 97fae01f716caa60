// SPDX-License-Identifier: MIT
#include "mosaic/tiles/band_choice.h"

#include <algorithm>
#include <utility>

namespace panoval::mosaic
{

namespace
{

// Points of an overlap that are looked at, along each side.
constexpr std::int64_t kSamples = 24;

// Distance of a pixel from the nearest one outside the rectangle; 0 outside.
std::int64_t depth_in(const Rect& rect, std::int64_t x, std::int64_t y)
{
    if (!rect.contains(x, y))
        return 0;
    return std::min(std::min(x - rect.x + 1, rect.right() - x), std::min(y - rect.y + 1, rect.bottom() - y));
}

// Placements of other pictures that reach the region, in the frame of the overlap.
std::vector<Rect> others_over(const Layout& layout, const std::vector<Placement>& placements, const Overlap& overlap)
{
    std::vector<Rect> others;
    for (const Placement& placement : placements) {
        if (placement.picture == overlap.first || placement.picture == overlap.second)
            continue;
        for (const std::int64_t shift : {std::int64_t{0}, layout.width, -layout.width})
            if ((shift == 0 || layout.wraps) && !intersect(placement.rect.moved(shift, 0), overlap.region).is_empty())
                others.push_back(placement.rect.moved(shift, 0));
    }
    return others;
}

// For each picture the placements of those that it shares pixels with, each once: what reaches an overlap is among
// them.
std::vector<std::vector<Placement>> neighbours_of(const Layout& layout, const std::vector<Overlap>& overlaps)
{
    std::vector<std::vector<std::size_t>> near(layout.pictures.size());
    for (const Overlap& overlap : overlaps) {
        near[overlap.first].push_back(overlap.second);
        near[overlap.second].push_back(overlap.first);
    }
    std::vector<std::vector<Placement>> placements(near.size());
    for (const Placement& placement : find_placements(layout))
        placements[placement.picture].push_back(placement);
    std::vector<std::vector<Placement>> neighbours(near.size());
    for (std::size_t i = 0; i < near.size(); ++i) {
        std::sort(near[i].begin(), near[i].end());
        near[i].erase(std::unique(near[i].begin(), near[i].end()), near[i].end());
        for (const std::size_t other : near[i])
            neighbours[i].insert(neighbours[i].end(), placements[other].begin(), placements[other].end());
    }
    return neighbours;
}

} // namespace

std::int64_t seam_length(const Layout& layout, const std::vector<Placement>& placements, const Overlap& overlap)
{
    const Rect& region = overlap.region;
    const Rect first = layout.pictures[overlap.first].rect;
    const Rect second = layout.pictures[overlap.second].rect.moved(overlap.second_shift_x, 0);
    const std::vector<Rect> others = others_over(layout, placements, overlap);
    std::int64_t meeting = 0;
    for (std::int64_t j = 0; j < kSamples; ++j)
        for (std::int64_t i = 0; i < kSamples; ++i) {
            const std::int64_t x = region.x + region.width * (2 * i + 1) / (2 * kSamples);
            const std::int64_t y = region.y + region.height * (2 * j + 1) / (2 * kSamples);
            const std::int64_t lesser = std::min(depth_in(first, x, y), depth_in(second, x, y));
            const bool is_theirs = std::none_of(others.begin(), others.end(),
                                                [&](const Rect& other) { return depth_in(other, x, y) > lesser; });
            meeting += is_theirs ? 1 : 0;
        }
    // A sliver at an overlap's end is no seam.
    if (meeting * 10 < kSamples * kSamples)
        return 0;
    return std::max(region.width, region.height) * meeting / (kSamples * kSamples);
}

int choose_bands(const Layout& layout, const std::vector<Overlap>& overlaps, int most)
{
    const std::vector<std::vector<Placement>> neighbours = neighbours_of(layout, overlaps);
    std::vector<std::pair<std::int64_t, std::int64_t>> widths; // of overlaps, and their seams' lengths
    std::int64_t whole = 0;
    for (const Overlap& overlap : overlaps) {
        const std::int64_t length = seam_length(layout, neighbours[overlap.first], overlap);
        widths.emplace_back(std::min(overlap.region.width, overlap.region.height), length);
        whole += length;
    }
    std::sort(widths.begin(), widths.end());
    std::int64_t narrowest = 0;
    std::int64_t passed = 0;
    for (const auto& [width, length] : widths) {
        passed += length;
        narrowest = width;
        if (length > 0 && passed * 10 >= whole)
            break;
    }
    int bands = 1;
    while (!overlaps.empty() && bands < most && (kStructuresPerOverlap << (bands + 1)) <= narrowest)
        ++bands;
    return bands;
}

} // namespace panoval::mosaic
