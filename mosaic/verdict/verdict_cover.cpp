// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict_cover.h"

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace panoval::mosaic
{

namespace
{

class DisjointSets
{
public:
    std::size_t add()
    {
        parent_.push_back(parent_.size());
        return parent_.size() - 1;
    }

    std::size_t find(std::size_t i)
    {
        while (parent_[i] != i)
            i = parent_[i] = parent_[parent_[i]];
        return i;
    }

    void join(std::size_t a, std::size_t b)
    {
        a = find(a);
        b = find(b);
        parent_[std::max(a, b)] = std::min(a, b);
    }

private:
    std::vector<std::size_t> parent_;
};

// An uncovered run of one row.
struct Gap {
    std::int32_t begin;
    std::int32_t end;
    std::size_t set;
};

struct Place {
    Hole hole;
    bool reaches_edge = false;
};

std::vector<Gap> gaps_of(const SeamMap& seams, std::int64_t y, DisjointSets& sets)
{
    std::vector<Gap> gaps;
    std::int32_t begin = 0;
    for (const SeamMap::Run& run : seams.runs(y)) {
        if (run.label == kNobody)
            gaps.push_back({begin, run.end, sets.add()});
        begin = run.end;
    }
    return gaps;
}

void join_rows(const std::vector<Gap>& above, const std::vector<Gap>& below, DisjointSets& sets)
{
    std::size_t i = 0;
    for (const Gap& gap : below) {
        while (i < above.size() && above[i].end <= gap.begin)
            ++i;
        for (std::size_t k = i; k < above.size() && above[k].begin < gap.end; ++k)
            sets.join(above[k].set, gap.set);
    }
}

// Whether the mask leaves a pixel in.
bool has_pixels(const PlacedPicture& picture, std::size_t number, PictureReader& reader)
{
    constexpr std::int64_t kRowsAtOnce = 64;
    std::vector<std::uint8_t> mask;
    for (std::int64_t y = 0; picture.has_mask && y < picture.rect.height; y += kRowsAtOnce) {
        const Rect rows{0, y, picture.rect.width, std::min(kRowsAtOnce, picture.rect.height - y)};
        mask.resize(static_cast<std::size_t>(rows.pixels()));
        reader.read_mask(number, rows, mask.data());
        if (std::any_of(mask.begin(), mask.end(), [](std::uint8_t weight) { return weight != 0; }))
            return true;
    }
    return !picture.has_mask;
}

} // namespace

std::vector<bool> pictures_that_cover(const Layout& layout, PictureReader& reader, const SeamMap& seams,
                                      const std::vector<OverlapVerdict>& overlaps)
{
    std::vector<bool> covers(layout.pictures.size());
    for (const OverlapVerdict& overlap : overlaps)
        covers[overlap.first] = covers[overlap.second] = true;
    for (std::size_t i = 0; i < covers.size() && seams.height() == 0; ++i)
        covers[i] = covers[i] || has_pixels(layout.pictures[i], i, reader);
    for (std::int64_t y = 0; y < seams.height(); ++y)
        for (const SeamMap::Run& run : seams.runs(y))
            if (run.label != kNobody)
                covers[static_cast<std::size_t>(run.label)] = true;
    return covers;
}

std::vector<std::vector<std::size_t>> connected_groups(const std::vector<bool>& covers,
                                                       const std::vector<OverlapVerdict>& overlaps)
{
    DisjointSets sets;
    for (std::size_t i = 0; i < covers.size(); ++i)
        sets.add();
    for (const OverlapVerdict& overlap : overlaps)
        sets.join(overlap.first, overlap.second);
    std::vector<std::vector<std::size_t>> groups;
    std::vector<std::size_t> group_of(covers.size());
    for (std::size_t i = 0; i < covers.size(); ++i) {
        if (!covers[i])
            continue;
        if (sets.find(i) == i) {
            group_of[i] = groups.size();
            groups.emplace_back();
        }
        groups[group_of[sets.find(i)]].push_back(i);
    }
    return groups;
}

Uncovered find_uncovered(const SeamMap& seams, bool wraps)
{
    DisjointSets sets;
    std::vector<std::vector<Gap>> rows;
    for (std::int64_t y = 0; y < seams.height(); ++y) {
        rows.push_back(gaps_of(seams, y, sets));
        if (y > 0)
            join_rows(rows[rows.size() - 2], rows.back(), sets);
        if (wraps && rows.back().size() > 1 && rows.back().front().begin == 0 &&
            rows.back().back().end == seams.width())
            sets.join(rows.back().front().set, rows.back().back().set);
    }
    std::size_t count = 0;
    for (const auto& row : rows)
        count += row.size();
    std::vector<Place> places(count);
    Uncovered result;
    for (std::size_t y = 0; y < rows.size(); ++y)
        for (const Gap& gap : rows[y]) {
            Place& place = places[sets.find(gap.set)];
            const Rect run{gap.begin, static_cast<std::int64_t>(y), gap.end - gap.begin, 1};
            place.hole.box = bounding(place.hole.box, run);
            place.hole.pixels += run.width;
            const bool at_side = !wraps && (gap.begin == 0 || gap.end == seams.width());
            place.reaches_edge = place.reaches_edge || at_side || y == 0 || y + 1 == rows.size();
            result.pixels += run.width;
        }
    for (const Place& place : places)
        if (place.hole.pixels > 0 && !place.reaches_edge)
            result.holes.push_back(place.hole);
    std::stable_sort(result.holes.begin(), result.holes.end(),
                     [](const Hole& a, const Hole& b) { return a.pixels > b.pixels; });
    return result;
}

} // namespace panoval::mosaic
