// SPDX-License-Identifier: MIT
#include "mosaic/base/layout.h"

#include <algorithm>
#include <tuple>

namespace panoval::mosaic
{

namespace
{

// Placements ordered by their top row, so that a sweep down the canvas meets each pair once.
std::vector<std::size_t> by_top_row(const std::vector<Placement>& placements)
{
    std::vector<std::size_t> order(placements.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return std::tuple(placements[a].rect.y, a) < std::tuple(placements[b].rect.y, b);
    });
    return order;
}

Overlap make_overlap(const Layout& layout, const Placement& a, const Placement& b)
{
    const Placement& first = a.picture < b.picture ? a : b;
    const Placement& second = a.picture < b.picture ? b : a;
    // Into the frame of the first picture's own rect.
    const std::int64_t into_frame = layout.pictures[first.picture].rect.x - first.rect.x;
    Overlap overlap;
    overlap.first = first.picture;
    overlap.second = second.picture;
    overlap.region = intersect(first.rect, second.rect).moved(into_frame, 0);
    overlap.second_shift_x = second.rect.x + into_frame - layout.pictures[second.picture].rect.x;
    return overlap;
}

} // namespace

std::vector<Placement> find_placements(const Layout& layout)
{
    std::vector<Placement> placements;
    for (std::size_t i = 0; i < layout.pictures.size(); ++i) {
        const Rect& rect = layout.pictures[i].rect;
        if (layout.wraps && rect.right() > layout.width)
            placements.push_back({i, rect.moved(-layout.width, 0)});
        placements.push_back({i, rect});
    }
    return placements;
}

Rect Overlap::in_first(const Layout& layout) const
{
    const Rect& rect = layout.pictures[first].rect;
    return region.moved(-rect.x, -rect.y);
}

Rect Overlap::in_second(const Layout& layout) const
{
    const Rect& rect = layout.pictures[second].rect;
    return region.moved(-rect.x - second_shift_x, -rect.y);
}

std::vector<Overlap> find_overlaps(const Layout& layout)
{
    const std::vector<Placement> placements = find_placements(layout);
    std::vector<std::size_t> open; // placements that the sweep line crosses
    std::vector<Overlap> overlaps;
    for (const std::size_t i : by_top_row(placements)) {
        const Rect& rect = placements[i].rect;
        std::erase_if(open, [&](std::size_t j) { return placements[j].rect.bottom() <= rect.y; });
        for (const std::size_t j : open)
            if (placements[i].picture != placements[j].picture &&
                !intersect(placements[i].rect, placements[j].rect).is_empty())
                overlaps.push_back(make_overlap(layout, placements[i], placements[j]));
        open.push_back(i);
    }
    // Two placements each of two pictures meet twice in the same way.
    const auto key = [](const Overlap& o) {
        return std::tuple(o.first, o.second, o.second_shift_x, o.region.x, o.region.y);
    };
    std::sort(overlaps.begin(), overlaps.end(), [&](const auto& a, const auto& b) { return key(a) < key(b); });
    overlaps.erase(std::unique(overlaps.begin(), overlaps.end()), overlaps.end());
    return overlaps;
}

} // namespace panoval::mosaic
