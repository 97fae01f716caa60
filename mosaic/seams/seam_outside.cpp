// SPDX-License-Identifier: MIT
// A thing is known again by its cells alone, moved by any offset. Sky is like sky and a window like the next one, so an
// offset is believed only where no other one does as well.
#include "mosaic/seams/seam_outside.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <optional>

namespace panoval::mosaic
{

namespace
{

constexpr std::int64_t kReachInCells = 96;   // how far a thing is looked for
constexpr std::size_t kMostCompared = 48;    // cells of a thing
constexpr std::int64_t kSharpness = 3;       // cells, or a third of the thing: offsets as near as that are one
constexpr float kRivalRatio = 4;             // of the best offset's ratio, up to which another one does as well
constexpr float kNoiseRatio = 16;            // up to which that is the noise in any case
constexpr std::size_t kLeastPartOutside = 8; // the eighth part of a thing

// The same cell of the canvas in the copies of two pictures.
struct CopiedCell {
    std::int64_t here;
    std::int64_t there;
};

// One of a pair's pictures, in which a thing stands at a place, and the other one, in which it may stand elsewhere.
class OutsideSearch
{
public:
    OutsideSearch(const CellCosts& costs, const PicturePair& pair, const ThingPlace& place, bool is_in_first)
        : costs_(costs), pair_(pair), place_(place), is_in_first_(is_in_first),
          picture_(costs.pictures()[is_in_first ? pair.first : pair.second]),
          other_(is_in_first ? pair.second : pair.first), moved_(costs.pictures()[other_])
    {
        const std::size_t step = (place.samples.size() + kMostCompared - 1) / kMostCompared;
        for (std::size_t i = 0; i < place.samples.size(); i += step)
            compared_.push_back(copied(place.samples[i].at));
    }

    std::size_t other() const { return other_; }

    // Cells of the other picture around the place. Empty where the thing cannot be left out, as it reaches to where no
    // other picture is, and where this picture covers all of them.
    Rect window() const
    {
        const Rect grown = box_in_copy().grown(kReachInCells);
        const Rect& cells = moved_.cells();
        const Rect inside = intersect(grown, {0, 0, cells.width, cells.height});
        const Rect around{cells.x + inside.x, cells.y + inside.y, inside.width, inside.height};
        return is_covered(around) || reaches_outside() ? Rect() : around;
    }

    // Where the thing stands in the other picture; nothing where that is not known, or inside the overlap.
    std::optional<ThingCell> offset_outside() const
    {
        if (!may_be_outside())
            return std::nullopt;
        const std::optional<ThingCell> offset = find_offset();
        if (!offset)
            return std::nullopt;
        const auto outside =
            std::count_if(place_.samples.begin(), place_.samples.end(), [&](const ThingSample& sample) {
                return is_other_alone(sample.at.x + offset->x, sample.at.y + offset->y);
            });
        return static_cast<std::size_t>(outside) * kLeastPartOutside >= place_.samples.size() ? offset : std::nullopt;
    }

    // The cells of the place that the other picture shows at the offset: a place may have other parts, too.
    void pull(const ThingCell& offset, std::vector<SwapPull>& pulls) const
    {
        const std::int64_t step = offset.y * moved_.cells().width + offset.x;
        for (const ThingSample& sample : place_.samples) {
            const auto [here, there] = copied(sample.at);
            if (ratio_of(here, there + step) <= kAlike * ratio_of(here, there))
                pulls.push_back({sample.large, static_cast<std::int32_t>(other_), kCostApart});
        }
    }

private:
    // The place in cells of the other picture's copy.
    Rect box_in_copy() const
    {
        Rect box = place_.box;
        const std::int64_t columns = costs_.grid().columns();
        box.x -= moved_.cells().x;
        if (costs_.grid().wraps)
            box.x = (box.x % columns + columns) % columns;
        box.y -= moved_.cells().y;
        return box;
    }

    bool covers(const ReducedPicture& picture, std::int64_t x, std::int64_t y) const
    {
        const std::int64_t column = costs_.grid().column_inside(x);
        const std::int64_t index = column < 0 ? -1 : picture.index(column, y);
        return index >= 0 && picture.cover(index) != Cover::None;
    }

    // Whether the picture is known to cover all of these cells of the canvas.
    bool is_covered(const Rect& cells) const
    {
        return !costs_.grid().wraps && !picture_.has_mask() && picture_.cells().contains(cells);
    }

    bool reaches_outside() const
    {
        const auto is_outside = [&](std::int64_t x, std::int64_t y) {
            return covers(picture_, x, y) && !covers(moved_, x, y);
        };
        return std::any_of(place_.samples.begin(), place_.samples.end(), [&](const ThingSample& sample) {
            const ThingCell& at = sample.at;
            return is_outside(at.x - 1, at.y) || is_outside(at.x + 1, at.y) || is_outside(at.x, at.y - 1) ||
                   is_outside(at.x, at.y + 1);
        });
    }

    bool is_other_alone(std::int64_t x, std::int64_t y) const
    {
        return std::all_of(costs_.pictures().begin(), costs_.pictures().end(), [&](const ReducedPicture& picture) {
            return covers(picture, x, y) == (&picture == &moved_);
        });
    }

    // Calls work(offset) for those that move the place to somewhere inside the window, until it is false.
    template <class Work>
    void for_each_offset(const Work& work) const
    {
        const Rect inside = window();
        const Rect box = box_in_copy();
        const std::int64_t left = inside.x - moved_.cells().x - box.x;
        const std::int64_t top = inside.y - moved_.cells().y - box.y;
        for (std::int64_t y = top; y <= top + inside.height - box.height; ++y)
            for (std::int64_t x = left; x <= left + inside.width - box.width; ++x)
                if (!work(ThingCell{x, y}))
                    return;
    }

    // Whether the other picture shows something like it at a place that this picture does not cover throughout.
    bool may_be_outside() const
    {
        const float most = kAlike * place_.difference;
        bool may_be = false;
        for_each_offset([&](const ThingCell& offset) {
            may_be = !is_covered(place_.box.moved(offset.x, offset.y)) && ratio_at(offset, most) < most;
            return !may_be;
        });
        return may_be;
    }

    // Where the other picture shows what is at the place; nothing where that is nowhere, or at several places.
    std::optional<ThingCell> find_offset() const
    {
        std::optional<ThingCell> best;
        float least = kAlike * place_.difference;
        for_each_offset([&](const ThingCell& offset) {
            if (const float ratio = ratio_at(offset, least); ratio < least) {
                least = ratio;
                best = offset;
            }
            return true;
        });
        return best && has_rival(*best, least) ? std::nullopt : best;
    }

    bool has_rival(const ThingCell& best, float least) const
    {
        const float most = std::max(kRivalRatio * least, kNoiseRatio);
        const std::int64_t near = std::max(kSharpness, std::max(place_.box.width, place_.box.height) / 3);
        bool has_any = false;
        for_each_offset([&](const ThingCell& offset) {
            const bool is_far = std::abs(offset.x - best.x) > near || std::abs(offset.y - best.y) > near;
            has_any = is_far && ratio_at(offset, most) <= most;
            return !has_any;
        });
        return has_any;
    }

    // Mean over the cells that are compared; more than `most` where it would be larger.
    float ratio_at(const ThingCell& offset, float most) const
    {
        const auto count = static_cast<float>(compared_.size());
        const std::int64_t step = offset.y * moved_.cells().width + offset.x;
        float sum = 0;
        for (auto at = compared_.begin(); at != compared_.end() && sum <= most * count; ++at)
            sum += ratio_of(at->here, at->there + step);
        return sum / count;
    }

    // Of a cell of the picture and one of the other picture, by where they lie in the copies.
    float ratio_of(std::int64_t here, std::int64_t there) const
    {
        const float ratio = is_in_first_ ? costs_.ratio_at(pair_, here, there) : costs_.ratio_at(pair_, there, here);
        return ratio < 0 ? std::numeric_limits<float>::max() : ratio;
    }

    CopiedCell copied(const ThingCell& at) const
    {
        const std::int64_t column = costs_.grid().column_inside(at.x);
        return {picture_.index(column, at.y), moved_.index(column, at.y)};
    }

    const CellCosts& costs_;
    const PicturePair& pair_;
    const ThingPlace& place_;
    const bool is_in_first_;
    const ReducedPicture& picture_;
    const std::size_t other_;
    const ReducedPicture& moved_;
    std::vector<CopiedCell> compared_;
};

} // namespace

std::vector<PicturePart> parts_around(const CellCosts& costs, const PicturePair& pair,
                                      const std::vector<ThingPlace>& places)
{
    std::vector<PicturePart> parts;
    for (const ThingPlace& place : places)
        for (const bool is_in_first : {true, false}) {
            const OutsideSearch search(costs, pair, place, is_in_first);
            if (const Rect window = search.window(); !window.is_empty())
                parts.push_back({search.other(), window});
        }
    return parts;
}

std::vector<SwapPull> pull_from_things_outside(const CellCosts& costs, const PicturePair& pair,
                                               const std::vector<ThingPlace>& places)
{
    std::vector<SwapPull> pulls;
    for (const ThingPlace& place : places) {
        const OutsideSearch in_first(costs, pair, place, true);
        const OutsideSearch in_second(costs, pair, place, false);
        const std::optional<ThingCell> of_first = in_first.offset_outside();
        const std::optional<ThingCell> of_second = in_second.offset_outside();
        if (of_first && !of_second)
            in_first.pull(*of_first, pulls);
        else if (of_second && !of_first)
            in_second.pull(*of_second, pulls);
    }
    return pulls;
}

} // namespace panoval::mosaic
