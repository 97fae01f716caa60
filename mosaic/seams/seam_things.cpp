// SPDX-License-Identifier: MIT
// Where the pictures differ much, connected cells are one place. Two places show the same thing if what the one picture
// has at the first place is, compared with how they differ there, about what the other one has at the second place.
// Where only the background is alike, as two things on one sky, the tie is needless but does no harm: no seam that cuts
// a thing becomes cheaper by it.
#include "mosaic/seams/seam_things.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <optional>

namespace panoval::mosaic
{

namespace
{

constexpr std::int32_t kDear = 96 * kCostUnit; // least cost of the cells of a place
constexpr float kClearRatio = 36;              // of the cells that are compared: six times what is usual
constexpr std::size_t kFewestSamples = 6;
constexpr std::size_t kMostSamples = 256;
constexpr std::size_t kMostCells = 1 << 16; // of a place, so that it takes little memory; a larger one is no thing
constexpr std::size_t kMostPlaces = 12;     // of an overlap, the largest ones
constexpr std::int64_t kSearch = 1;         // cells that two places' offset is tried around
constexpr std::int64_t kBoxSlack = 3;       // cells that two views of a thing may differ in width or height
constexpr float kAnyRatio = std::numeric_limits<float>::max();
constexpr float kClearPart = 0.125f; // of the mean ratio of a place, what belongs to the thing

// Square of the difference between the first picture's cell and the second one's, both of which the pictures share:
// whether others have features depends on how the pictures were reduced.
std::optional<float> compare(const CellCosts& costs, const PicturePair& pair, const ThingCell& a, const ThingCell& b)
{
    const std::int64_t column_a = costs.grid().column_inside(a.x);
    const std::int64_t column_b = costs.grid().column_inside(b.x);
    if (column_a < 0 || column_b < 0)
        return std::nullopt;
    const auto is_shared = [&](std::int64_t column, std::int64_t row) {
        return costs.pictures()[pair.first].index(column, row) >= 0 &&
               costs.pictures()[pair.second].index(column, row) >= 0;
    };
    if (!is_shared(column_a, a.y) || !is_shared(column_b, b.y))
        return std::nullopt;
    const float ratio = costs.ratio_between(pair, column_a, a.y, column_b, b.y);
    return ratio < 0 ? std::nullopt : std::optional(ratio);
}

// Over the place's samples, the first picture moved by one offset and the second one by the other; more than `most`
// where it would be larger.
float mean_ratio(const CellCosts& costs, const PicturePair& pair, const ThingPlace& place, const ThingCell& first,
                 const ThingCell& second, float most)
{
    const auto count = static_cast<float>(place.samples.size());
    float sum = 0;
    for (const ThingSample& sample : place.samples) {
        const ThingCell& at = sample.at;
        const std::optional<float> ratio =
            compare(costs, pair, {at.x + first.x, at.y + first.y}, {at.x + second.x, at.y + second.y});
        if (!ratio)
            return kAnyRatio;
        sum += *ratio;
        if (sum > most * count)
            break;
    }
    return sum / count;
}

class ThingSearch
{
public:
    ThingSearch(const CellCosts& costs, const PicturePair& pair, const CellGrid& coarse, std::int64_t factor,
                const Rect& cells, const std::vector<std::int32_t>& cell_costs)
        : costs_(costs), pair_(pair), coarse_(coarse), factor_(factor), cells_(cells), cell_costs_(cell_costs),
          is_seen_(cell_costs.size())
    {
    }

    // The largest ones in descending order.
    std::vector<ThingPlace> run()
    {
        const auto is_larger = [](const ThingPlace& a, const ThingPlace& b) { return a.size > b.size; };
        std::vector<ThingPlace> places;
        for (std::size_t i = 0; i < cell_costs_.size(); ++i) {
            if (is_seen_[i] != 0 || cell_costs_[i] < kDear)
                continue;
            ThingPlace place = place_around(i);
            if (place.size < kFewestSamples || place.size > kMostCells)
                continue;
            const auto at = std::upper_bound(places.begin(), places.end(), place, is_larger);
            if (at - places.begin() == static_cast<std::ptrdiff_t>(kMostPlaces))
                continue;
            refine(place);
            places.insert(at, std::move(place));
            places.resize(std::min(places.size(), kMostPlaces));
        }
        return places;
    }

private:
    // The connected dear cells around one of them.
    ThingPlace place_around(std::size_t start)
    {
        ThingPlace place;
        std::vector<std::size_t> open{start};
        is_seen_[start] = 1;
        while (!open.empty()) {
            const std::size_t at = open.back();
            open.pop_back();
            const std::int32_t cost = cell_costs_[at];
            if (cost > place.cost || (cost == place.cost && at < place.center)) {
                place.cost = cost;
                place.center = at;
            }
            const std::int64_t x = static_cast<std::int64_t>(at) % cells_.width;
            const std::int64_t y = static_cast<std::int64_t>(at) / cells_.width;
            add_samples(place, {cells_.x + x, cells_.y + y}, at);
            for (const ThingCell next :
                 {ThingCell{x - 1, y}, ThingCell{x + 1, y}, ThingCell{x, y - 1}, ThingCell{x, y + 1}}) {
                if (next.x < 0 || next.x >= cells_.width || next.y < 0 || next.y >= cells_.height)
                    continue;
                const auto i = static_cast<std::size_t>(next.y * cells_.width + next.x);
                if (is_seen_[i] == 0 && cell_costs_[i] >= kDear) {
                    is_seen_[i] = 1;
                    open.push_back(i);
                }
            }
        }
        place.size = place.samples.size();
        return place;
    }

    // Of a cell at a picture's edge the two see different pixels.
    bool is_seen_wholly(const ThingCell& cell) const
    {
        const auto covers_wholly = [&](std::size_t number) {
            const ReducedPicture& picture = costs_.pictures()[number];
            const std::int64_t index = picture.index(costs_.grid().column_inside(cell.x), cell.y);
            return index >= 0 && picture.cover(index) == Cover::Wholly;
        };
        return covers_wholly(pair_.first) && covers_wholly(pair_.second);
    }

    // The cells of a large one in which the pictures clearly differ.
    void add_samples(ThingPlace& place, const ThingCell& large, std::size_t number) const
    {
        const CellGrid& fine = costs_.grid();
        const std::int64_t turn = large.x / coarse_.columns();
        const std::int64_t left = large.x % coarse_.columns() * factor_;
        const std::int64_t right = std::min(left + factor_, fine.columns());
        const std::int64_t bottom = std::min((large.y + 1) * factor_, fine.rows());
        for (std::int64_t y = large.y * factor_; y < bottom; ++y)
            for (std::int64_t x = left; x < right; ++x) {
                const ThingCell cell{x + turn * fine.columns(), y};
                if (place.samples.size() <= kMostCells && is_seen_wholly(cell) &&
                    compare(costs_, pair_, cell, cell).value_or(0) >= kClearRatio)
                    place.samples.push_back({cell, number});
            }
    }

    // Leaves the edges that differ a little because pictures do not lie exactly, and measures what is left.
    void refine(ThingPlace& place) const
    {
        const float least = kClearPart * mean_ratio(costs_, pair_, place, {0, 0}, {0, 0}, kAnyRatio);
        std::erase_if(place.samples, [&](const ThingSample& sample) {
            return compare(costs_, pair_, sample.at, sample.at).value_or(0) < least;
        });
        for (const ThingSample& sample : place.samples)
            place.box = bounding(place.box, {sample.at.x, sample.at.y, 1, 1});
        const std::size_t step = (place.samples.size() + kMostSamples - 1) / kMostSamples;
        for (std::size_t i = 0; i * step < place.samples.size(); ++i)
            place.samples[i] = place.samples[i * step];
        place.samples.resize((place.samples.size() + step - 1) / step);
        place.samples.shrink_to_fit(); // the places of all overlaps are kept for a while
        place.difference = mean_ratio(costs_, pair_, place, {0, 0}, {0, 0}, kAnyRatio);
    }

    const CellCosts& costs_;
    const PicturePair& pair_;
    const CellGrid& coarse_;
    const std::int64_t factor_;
    const Rect cells_;
    const std::vector<std::int32_t>& cell_costs_;
    std::vector<std::uint8_t> is_seen_;
};

bool is_same_thing(const CellCosts& costs, const PicturePair& pair, const ThingPlace& a, const ThingPlace& b)
{
    if (std::abs(a.box.width - b.box.width) > kBoxSlack || std::abs(a.box.height - b.box.height) > kBoxSlack)
        return false;
    const float most = kAlike * std::min(a.difference, b.difference);
    const std::int64_t x = (2 * b.box.x + b.box.width - 2 * a.box.x - a.box.width) / 2;
    const std::int64_t y = (2 * b.box.y + b.box.height - 2 * a.box.y - a.box.height) / 2;
    for (std::int64_t dy = -kSearch; dy <= kSearch; ++dy)
        for (std::int64_t dx = -kSearch; dx <= kSearch; ++dx) {
            const ThingCell there{x + dx, y + dy};
            if (mean_ratio(costs, pair, a, {0, 0}, there, most) <= most ||
                mean_ratio(costs, pair, a, there, {0, 0}, most) <= most)
                return true;
        }
    return false;
}

} // namespace

std::vector<ThingPlace> find_thing_places(const CellCosts& costs, const PicturePair& pair, const CellGrid& coarse,
                                          std::int64_t factor, const Rect& cells,
                                          const std::vector<std::int32_t>& cell_costs)
{
    return ThingSearch(costs, pair, coarse, factor, cells, cell_costs).run();
}

std::vector<SwapTie> tie_moved_things(const CellCosts& costs, const PicturePair& pair,
                                      const std::vector<ThingPlace>& places)
{
    std::vector<SwapTie> ties;
    for (std::size_t i = 0; i < places.size(); ++i)
        for (std::size_t j = i + 1; j < places.size(); ++j)
            if (is_same_thing(costs, pair, places[i], places[j]))
                ties.push_back(
                    {places[i].center, places[j].center, std::min({places[i].cost, places[j].cost, kCostApart})});
    return ties;
}

} // namespace panoval::mosaic
