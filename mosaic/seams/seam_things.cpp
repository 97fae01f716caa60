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
constexpr float kAlike = 0.25f;             // of the squared difference of the pictures at the places
constexpr std::int64_t kSearch = 1;         // cells that two places' offset is tried around
constexpr std::int64_t kBoxSlack = 3;       // cells that two views of a thing may differ in width or height
constexpr float kClearPart = 0.125f;        // of the mean ratio of a place, what belongs to the thing

struct Cell {
    std::int64_t x; // columns may lie beyond the grid's last one
    std::int64_t y;
};

struct Place {
    std::size_t center = 0; // its dearest large cell
    std::int32_t cost = 0;  // of that
    Rect box;               // of the samples
    std::vector<Cell> samples;
    std::size_t size = 0; // how many they were at first
    float difference = 0; // mean ratio of the samples
};

class ThingSearch
{
public:
    ThingSearch(const CellCosts& costs, const PicturePair& pair, const CellGrid& coarse, std::int64_t factor,
                const Rect& cells, const std::vector<std::int32_t>& cell_costs)
        : costs_(costs), pair_(pair), coarse_(coarse), factor_(factor), cells_(cells), cell_costs_(cell_costs),
          is_seen_(cell_costs.size())
    {
    }

    std::vector<SwapTie> run()
    {
        const std::vector<Place> places = find_places();
        std::vector<SwapTie> ties;
        for (std::size_t i = 0; i < places.size(); ++i)
            for (std::size_t j = i + 1; j < places.size(); ++j)
                if (is_same_thing(places[i], places[j]))
                    ties.push_back(
                        {places[i].center, places[j].center, std::min({places[i].cost, places[j].cost, kCostApart})});
        return ties;
    }

private:
    // The largest ones in descending order.
    std::vector<Place> find_places()
    {
        const auto is_larger = [](const Place& a, const Place& b) { return a.size > b.size; };
        std::vector<Place> places;
        for (std::size_t i = 0; i < cell_costs_.size(); ++i) {
            if (is_seen_[i] != 0 || cell_costs_[i] < kDear)
                continue;
            Place place = place_around(i);
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

    // The connected dear cells around one of them.
    Place place_around(std::size_t start)
    {
        Place place;
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
            add_samples(place, {cells_.x + x, cells_.y + y});
            for (const Cell next : {Cell{x - 1, y}, Cell{x + 1, y}, Cell{x, y - 1}, Cell{x, y + 1}}) {
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

    // The cells of a large one in which the pictures clearly differ.
    void add_samples(Place& place, const Cell& large) const
    {
        const CellGrid& fine = costs_.grid();
        const std::int64_t turn = large.x / coarse_.columns();
        const std::int64_t left = large.x % coarse_.columns() * factor_;
        const std::int64_t right = std::min(left + factor_, fine.columns());
        const std::int64_t bottom = std::min((large.y + 1) * factor_, fine.rows());
        for (std::int64_t y = large.y * factor_; y < bottom; ++y)
            for (std::int64_t x = left; x < right; ++x) {
                const Cell cell{x + turn * fine.columns(), y};
                if (place.samples.size() <= kMostCells && compare(cell, cell).value_or(0) >= kClearRatio)
                    place.samples.push_back(cell);
            }
    }

    // Leaves the edges that differ a little because pictures do not lie exactly, and measures what is left.
    void refine(Place& place) const
    {
        const float least = kClearPart * mean_ratio(place, {0, 0}, {0, 0});
        std::erase_if(place.samples, [&](const Cell& at) { return compare(at, at).value_or(0) < least; });
        for (const Cell& at : place.samples)
            place.box = bounding(place.box, {at.x, at.y, 1, 1});
        const std::size_t step = (place.samples.size() + kMostSamples - 1) / kMostSamples;
        for (std::size_t i = 0; i * step < place.samples.size(); ++i)
            place.samples[i] = place.samples[i * step];
        place.samples.resize((place.samples.size() + step - 1) / step);
        place.difference = mean_ratio(place, {0, 0}, {0, 0});
    }

    // Square of the difference between the first picture's cell and the second one's.
    std::optional<float> compare(const Cell& a, const Cell& b) const
    {
        const std::int64_t column_a = costs_.grid().column_inside(a.x);
        const std::int64_t column_b = costs_.grid().column_inside(b.x);
        if (column_a < 0 || column_b < 0)
            return std::nullopt;
        const float ratio = costs_.ratio_between(pair_, column_a, a.y, column_b, b.y);
        return ratio < 0 ? std::nullopt : std::optional(ratio);
    }

    // Over the place's samples, the first picture moved by one offset and the second one by the other.
    float mean_ratio(const Place& place, const Cell& first, const Cell& second) const
    {
        float sum = 0;
        for (const Cell& at : place.samples) {
            const std::optional<float> ratio =
                compare({at.x + first.x, at.y + first.y}, {at.x + second.x, at.y + second.y});
            if (!ratio)
                return std::numeric_limits<float>::max();
            sum += *ratio;
        }
        return sum / static_cast<float>(place.samples.size());
    }

    bool is_same_thing(const Place& a, const Place& b) const
    {
        if (std::abs(a.box.width - b.box.width) > kBoxSlack || std::abs(a.box.height - b.box.height) > kBoxSlack)
            return false;
        const float most = kAlike * std::min(a.difference, b.difference);
        const std::int64_t x = (2 * b.box.x + b.box.width - 2 * a.box.x - a.box.width) / 2;
        const std::int64_t y = (2 * b.box.y + b.box.height - 2 * a.box.y - a.box.height) / 2;
        for (std::int64_t dy = -kSearch; dy <= kSearch; ++dy)
            for (std::int64_t dx = -kSearch; dx <= kSearch; ++dx) {
                const Cell there{x + dx, y + dy};
                if (mean_ratio(a, {0, 0}, there) <= most || mean_ratio(a, there, {0, 0}) <= most)
                    return true;
            }
        return false;
    }

    const CellCosts& costs_;
    const PicturePair& pair_;
    const CellGrid& coarse_;
    const std::int64_t factor_;
    const Rect cells_;
    const std::vector<std::int32_t>& cell_costs_;
    std::vector<std::uint8_t> is_seen_;
};

} // namespace

std::vector<SwapTie> find_moved_things(const CellCosts& costs, const PicturePair& pair, const CellGrid& coarse,
                                       std::int64_t factor, const Rect& cells,
                                       const std::vector<std::int32_t>& cell_costs)
{
    return ThingSearch(costs, pair, coarse, factor, cells, cell_costs).run();
}

} // namespace panoval::mosaic
