// SPDX-License-Identifier: MIT
// For every direction that a line of text may have, and some of the glyphs that may say where it stands: what follows
// each other there without a gap, beginning at the target, and how many different forms of it end on that line.
#include "measure/text_lines.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace panoval::measure
{

namespace
{

constexpr double kSound = 0.5; // quality
constexpr double kMostDoubt = 0.9;
constexpr std::size_t kBearings = 96;
constexpr double kCosine = 0.99785892323860345; // of 2 pi / 96
constexpr double kSine = 0.06540312923014306;

constexpr double kLargest = 8;     // times the target's size: the largest glyph of which it may be a dot
constexpr double kSmallest = 0.5;  // and the smallest
constexpr double kFarthest = 3.5;  // times a glyph's size from the target
constexpr double kNarrowest = 1.5; // pixels: noise
// Of the target's contrast: how far a glyph's level may be above its own, and below, where blur leaves thin strokes.
constexpr double kMostAbove = 0.15;
constexpr double kMostAboveHole = 0.3; // of what the target is enclosed by
constexpr double kMostBelow = 0.35;

// Of a target's size: what is its own outline.
constexpr double kSamePlace = 0.15;
constexpr double kSameReach = 0.2;
constexpr double kWidestAround = 4; // from it to the middle of what encloses it

constexpr std::size_t kReferences = 4;
// From the target's middle to that of one that may be next to it, by both sizes.
constexpr double kNextOfOwn = 0.6;
constexpr double kNextOfBody = 2.2;
// Above the line and below it, by the height of glyphs: dots stand higher than small letters, and some hang below.
constexpr double kTop = 1.45;
constexpr double kBottom = 0.35;
constexpr double kCovered = 0.5;   // of the narrower of two, along the line: letters are not above each other
constexpr double kSameGlyph = 0.1; // of the height: middles of the same one's lines at several levels
// From the target to the next glyph, at most.
constexpr double kNext = 0.4;       // of the height of a letter
constexpr double kDot = 0.32;       // of the line's height: less is a dot
constexpr double kNextToDot = 1.5;  // of a dot's height
constexpr double kNextOfLine = 0.3; // and of the line's
constexpr double kSpace = 0.5;      // and from one to the next
constexpr double kOnLine = 0.06;    // of the height, that glyphs end from their line
constexpr double kOnLinePixels = 0.6;
constexpr double kTurn = 0.033;  // half of the turn from one direction to the next
constexpr double kLowest = 0.45; // of a glyph's height
constexpr double kHighest = 2.2;
constexpr double kWidest = 3;            // of its height
constexpr double kAlike = 0.12;          // of the height: forms that differ by less
constexpr std::size_t kFewest = 3;       // glyphs beside a letter with a hole, or before it where the line ends there
constexpr std::size_t kFewestAround = 2; // on both sides of what encloses a target, and is a glyph, too
constexpr std::size_t kFewestAtDots = 4; // beside a dot, or before it
constexpr std::size_t kFormsAtDots = 3;
constexpr std::size_t kForms = 2; // different ones

struct Span {
    double low;
    double high;
    double middle() const noexcept { return (low + high) / 2; }
    double length() const noexcept { return high - low; }
};

// How far silhouettes reach along lines of text of every direction.
class Rulers
{
public:
    Rulers() noexcept
    {
        Point unit = {1, 0};
        for (Bearing& bearing : bearings_) {
            bearing = bearing_of(unit);
            unit = {unit.x * kCosine - unit.y * kSine, unit.y * kCosine + unit.x * kSine};
        }
    }

    Span span_of(const Silhouette& one, std::size_t direction) const noexcept
    {
        const Bearing& forth = bearings_[direction];
        const Bearing& back = bearings_[(direction + kBearings / 2) % kBearings];
        const double middle = one.along(forth);
        return {middle - one.reach_towards(back), middle + one.reach_towards(forth)};
    }

private:
    std::array<Bearing, kBearings> bearings_;
};

// What is known of a silhouette.
struct Kind {
    std::uint8_t targets = 0; // of its polarity whose centres it encloses, at most 2
    bool is_target = false;   // the outline of one
};

struct Glyph {
    const Silhouette* form;
    bool tells; // is not the outline of a target, nor of several
};

bool is_outline_of(const Silhouette& one, const Silhouette& target) noexcept
{
    const double size = target.longest();
    const double dx = static_cast<double>(one.x) - static_cast<double>(target.x);
    const double dy = static_cast<double>(one.y) - static_cast<double>(target.y);
    if (std::sqrt(dx * dx + dy * dy) > kSamePlace * size + 0.5)
        return false;
    for (std::size_t i = 0; i < Silhouette::kDirections; ++i)
        if (std::fabs(static_cast<double>(one.reach[i]) - static_cast<double>(target.reach[i])) > kSameReach * size)
            return false;
    return true;
}

bool are_alike(const Silhouette& one, const Silhouette& other, double height) noexcept
{
    for (std::size_t i = 0; i < Silhouette::kDirections; ++i)
        if (std::fabs(static_cast<double>(one.reach[i]) - static_cast<double>(other.reach[i])) > kAlike * height)
            return false;
    return true;
}

double level_of(const PanovalMeasureTarget& target) noexcept
{
    return (target.level_inside + target.level_outside) / 2;
}

Silhouette silhouette_of(const MeasuredTarget& one) noexcept
{
    return measure::silhouette_of(one.measured.model.outline, level_of(one.target),
                                  one.target.polarity == PANOVAL_MEASURE_DARK);
}

class TextLines
{
public:
    TextLines(const SilhouetteMap& map, const std::vector<MeasuredTarget>& targets)
        : map_(map), kinds_(map.all().size())
    {
        for (const MeasuredTarget& target : targets)
            if (target.target.quality >= kSound)
                note(silhouette_of(target));
    }

    bool has(const MeasuredTarget& target)
    {
        const Silhouette own = silhouette_of(target);
        level_ = static_cast<double>(own.level);
        contrast_ = target.target.level_inside - target.target.level_outside;
        most_above_ = kMostAbove;
        has_hole_ = has_hole(own);
        is_around_ = false;
        if (is_in_line(own))
            return true;
        has_hole_ = is_around_ = true;
        contrast_ = -contrast_; // of what encloses it
        most_above_ = kMostAboveHole;
        const Silhouette* const around = smallest_around(own);
        return around != nullptr && is_in_line(*around);
    }

private:
    void note(const Silhouette& target)
    {
        map_.find_near(target.x, target.y, Silhouette::kLongest, near_);
        for (const std::size_t index : near_) {
            const Silhouette& one = map_.all()[index];
            if (one.is_dark != target.is_dark || !one.encloses(target.x, target.y))
                continue;
            Kind& kind = kinds_[index];
            kind.targets = static_cast<std::uint8_t>(std::min(2, kind.targets + 1));
            kind.is_target = kind.is_target || is_outline_of(one, target);
        }
    }

    bool is_of_level(const Silhouette& one) const noexcept
    {
        const double above = (static_cast<double>(one.level) - level_) / contrast_; // contrast below 0 for dark ones
        return above <= most_above_ && above >= -kMostBelow;
    }

    // Of the other polarity.
    const Silhouette* smallest_around(const Silhouette& own)
    {
        const double size = own.longest();
        map_.find_near(own.x, own.y, kWidestAround * size, near_);
        const Silhouette* smallest = nullptr;
        for (const std::size_t index : near_) {
            const Silhouette& one = map_.all()[index];
            if (one.is_dark != own.is_dark && is_of_level(one) && one.longest() > size && one.encloses(own.x, own.y) &&
                (smallest == nullptr || one.longest() < smallest->longest()))
                smallest = &one;
        }
        return smallest;
    }

    // Whether something of the other polarity lies in it, as in all letters that are as round.
    bool has_hole(const Silhouette& own)
    {
        map_.find_near(own.x, own.y, own.longest() / 2, near_);
        return std::any_of(near_.begin(), near_.end(), [&](std::size_t index) {
            const Silhouette& one = map_.all()[index];
            return one.is_dark != own.is_dark && one.longest() < own.longest() && one.shortest() >= kNarrowest &&
                   own.encloses(one.x, one.y);
        });
    }

    bool is_in_line(const Silhouette& body)
    {
        if (!find_glyphs(body))
            return false;
        std::size_t references = 0;
        for (const Glyph& reference : glyphs_) { // the nearest first
            if (!reference.tells)
                continue;
            for (std::size_t direction = 0; direction < kBearings; ++direction)
                if (is_in_line(body, *reference.form, direction))
                    return true;
            if (++references == kReferences)
                return false;
        }
        return false;
    }

    // The nearest first. False: too few, or none is next to it.
    bool find_glyphs(const Silhouette& body)
    {
        const double size = body.longest();
        map_.find_near(body.x, body.y, kFarthest * std::min(kLargest * size, Silhouette::kLongest), near_);
        glyphs_.clear();
        std::size_t telling = 0;
        bool is_any_next = false;
        for (const std::size_t index : near_) {
            const Silhouette& one = map_.all()[index];
            const double own = one.longest();
            if (one.is_dark != body.is_dark || own > kLargest * size || own < kSmallest * size || !is_of_level(one) ||
                one.shortest() < kNarrowest || distance(one, body) > kFarthest * own || &one == &body ||
                is_outline_of(one, body))
                continue;
            const Kind& kind = kinds_[index];
            glyphs_.push_back({&one, !kind.is_target && kind.targets < 2});
            telling += glyphs_.back().tells ? 1 : 0;
            is_any_next = is_any_next || distance(one, body) < kNextOfOwn * own + kNextOfBody * size;
        }
        if (!is_any_next || telling < kFewestAround)
            return false;
        std::stable_sort(glyphs_.begin(), glyphs_.end(), [&](const Glyph& one, const Glyph& other) {
            return distance(*one.form, body) < distance(*other.form, body);
        });
        return true;
    }

    static double distance(const Silhouette& one, const Silhouette& other) noexcept
    {
        const double dx = static_cast<double>(one.x) - static_cast<double>(other.x);
        const double dy = static_cast<double>(one.y) - static_cast<double>(other.y);
        return std::sqrt(dx * dx + dy * dy);
    }

    struct InLine {
        const Glyph* glyph;
        Span along;
        Span across;
    };

    // Where the reference stands on the line, and the line goes into that direction.
    bool is_in_line(const Silhouette& body, const Silhouette& reference, std::size_t direction)
    {
        const std::size_t down = (direction + kBearings / 4) % kBearings;
        const Span upright = rulers_.span_of(reference, down);
        const double height = upright.length();
        const Span own = rulers_.span_of(body, down);
        const Span own_along = rulers_.span_of(body, direction);
        if (own.low < upright.high - kTop * height || own.high > upright.high + kBottom * height ||
            own.middle() > upright.high + kOnLine * height ||
            rulers_.span_of(reference, direction).length() > kWidest * height)
            return false;
        line_.clear();
        for (const Glyph& glyph : glyphs_) {
            const Span across = rulers_.span_of(*glyph.form, down);
            if (across.middle() < upright.high - height || across.middle() > upright.high + kBottom / 2 * height)
                continue;
            line_.push_back({&glyph, rulers_.span_of(*glyph.form, direction), across});
        }
        if (line_.size() < kFewestAround)
            return false;
        std::stable_sort(line_.begin(), line_.end(), [](const InLine& one, const InLine& other) {
            return one.along.middle() < other.along.middle();
        });
        const double next = own.length() < kDot * height ? std::min(kNextToDot * own.length(), kNextOfLine * height)
                                                         : kNext * own.length();
        const Span chain = chain_from(own_along, next, height);
        return tells(own, own_along, chain, upright.high, height);
    }

    // As far as one follows the other. Where a word ends at the target, there may be a space on one side of it.
    Span chain_from(const Span& first, double next, double height) const noexcept
    {
        const double space = kSpace * height;
        Span chain = {end_before(first, next, space), end_behind(first, next, space)};
        if (chain.low == first.low && chain.high == first.high)
            return chain;
        if (chain.low == first.low)
            chain.low = end_before(first, space, space);
        if (chain.high == first.high)
            chain.high = end_behind(first, space, space);
        return chain;
    }

    double end_behind(const Span& first, double next, double space) const noexcept
    {
        double end = first.high;
        double gap = next;
        for (const InLine& one : line_)
            if (one.along.low <= end + gap && one.along.high > end) {
                end = one.along.high;
                gap = space;
            }
        return end;
    }

    double end_before(const Span& first, double next, double space) const noexcept
    {
        double end = first.low;
        double gap = next;
        for (auto one = line_.rbegin(); one != line_.rend(); ++one)
            if (one->along.high >= end - gap && one->along.low < end) {
                end = one->along.low;
                gap = space;
            }
        return end;
    }

    bool tells(const Span& own, const Span& own_along, const Span& chain, double line, double height)
    {
        const auto is_on_line = [&](const Span& across, double along) {
            return std::fabs(across.high - line) <=
                   kOnLinePixels + kOnLine * height + kTurn * std::fabs(along - own_along.middle());
        };
        const InLine* last = nullptr;
        double tallest = 0;
        std::size_t crowded = 0;
        std::size_t count = 0;
        bool is_before = false;
        bool is_behind = false;
        forms_.clear();
        for (const InLine& one : line_) {
            if (!one.glyph->tells || one.along.low < chain.low || one.along.high > chain.high ||
                one.across.length() < kLowest * height || one.across.length() > kHighest * height ||
                one.along.length() > kWidest * height || !is_on_line(one.across, one.along.middle()))
                continue;
            if (last != nullptr &&
                last->along.high - one.along.low > kCovered * std::min(last->along.length(), one.along.length())) {
                crowded += distance(*last->glyph->form, *one.glyph->form) > kSameGlyph * height + 1 ? 1 : 0;
                continue;
            }
            last = &one;
            tallest = std::max(tallest, one.across.length());
            ++count;
            is_before = is_before || one.along.middle() < own_along.low;
            is_behind = is_behind || one.along.middle() > own_along.high;
            if (std::none_of(forms_.begin(), forms_.end(),
                             [&](const Silhouette* form) { return are_alike(*form, *one.glyph->form, height); }))
                forms_.push_back(one.glyph->form);
        }
        const bool is_dot = own.length() < kDot * tallest;
        const bool is_between = is_before && is_behind;
        const std::size_t fewest = is_dot ? kFewestAtDots : is_around_ && is_between ? kFewestAround : kFewest;
        if ((!is_dot && !has_hole_) || count < fewest + crowded || forms_.size() < (is_dot ? kFormsAtDots : kForms) ||
            own.low < line - kTop * tallest || own.high > line + kBottom * tallest)
            return false;
        if (is_on_line(own, own_along.middle()))
            return true;
        return is_between && (!is_dot || is_above_another(own_along));
    }

    // As the dot of an i, or the upper one of a colon, is.
    bool is_above_another(const Span& own_along) const noexcept
    {
        return std::any_of(line_.begin(), line_.end(), [&](const InLine& one) {
            return one.along.low <= own_along.high && one.along.high >= own_along.low;
        });
    }

    const SilhouetteMap& map_;
    Rulers rulers_;
    std::vector<Kind> kinds_;
    std::vector<std::size_t> near_;
    std::vector<Glyph> glyphs_;
    std::vector<InLine> line_;
    std::vector<const Silhouette*> forms_;
    double level_ = 0;
    double contrast_ = 0;
    double most_above_ = 0;
    bool has_hole_ = false;
    bool is_around_ = false; // it is what encloses a target
};

} // namespace

void doubt_letters(const SilhouetteMap& silhouettes, std::vector<MeasuredTarget>& targets)
{
    TextLines lines(silhouettes, targets);
    std::vector<bool> is_letter(targets.size());
    for (std::size_t i = 0; i < targets.size(); ++i)
        is_letter[i] = targets[i].target.quality >= kSound && lines.has(targets[i]);
    for (std::size_t i = 0; i < targets.size(); ++i)
        if (is_letter[i])
            targets[i].target.quality *= 1 - kMostDoubt;
}

} // namespace panoval::measure
