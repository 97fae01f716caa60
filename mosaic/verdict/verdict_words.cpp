// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict_words.h"

#include "core/median.h"
#include "mosaic/verdict/verdict_blame.h"
#include "mosaic/verdict/verdict_faults.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace panoval::mosaic
{

namespace
{

constexpr double kFits = 0.5;          // pixels of displacement that nobody sees
constexpr double kSharpEnough = 0.75;  // sharpness of one picture relative to the other
constexpr std::int64_t kHoleLook = 12; // pixels; less is left where ragged edges meet

double ramp(double value, double from, double to)
{
    return std::clamp((value - from) / (to - from), 0.0, 1.0);
}

// How clearly the pictures differ beyond their noise, though nothing tells whether by their places: too little to blame
// anybody, and enough to tell which of two is wrong.
double hint(const OverlapVerdict& overlap)
{
    constexpr double kHint = 0.03; // that is said to be against an overlap
    return kHint * ramp(overlap.after.mean, 0.3 + 1.3 * overlap.noise, 1 + 2 * overlap.noise);
}

Evidence about_place(const OverlapVerdict& overlap, const ToneLimits&)
{
    Evidence evidence{overlap.first, overlap.second, 0, 0, overlap.is_blank ? overlap.empty : std::nullopt};
    if (overlap.empty || overlap.is_mismatch) {
        evidence.against = std::max(overlap.evidence, overlap.empty ? 0.9 : 0.0);
        return evidence;
    }
    const double sure = certainty(overlap);
    evidence.against = is_displaced(overlap, kDisplacedLook)
                           ? sure * ramp(overlap.displaced_by, kDisplacedLook - 0.1, kDisplacedLook + 0.2)
                           : 0;
    if (overlap.displacement)
        evidence.in_favour =
            overlap.displacement->confidence * (1 - ramp(overlap.displaced_by, 0.5 * kFits, kFits + 0.1));
    if (evidence.against <= 0)
        evidence.against = (1 - evidence.in_favour) * hint(overlap);
    return evidence;
}

// Not the step: vignetting leaves one at every seam, though of no one's fault. It may look like a curve, too.
double tone_levels(const OverlapVerdict& overlap, const ToneLimits& limits)
{
    constexpr double kOfUnevenness = 0.5;
    return std::max(overlap.tone - kOfUnevenness * overlap.unevenness, limits.has_gains ? 0.75 * overlap.offset : 0);
}

// And light that is more uneven than a lens explains; some of it is what the robust fit makes of a scene that moved.
double remarkable_levels(const OverlapVerdict& overlap, const ToneLimits& limits)
{
    constexpr double kOfUnevenness = 0.5;
    const double beyond = limits.unevenness ? overlap.unevenness - *limits.unevenness : 0;
    return std::max(tone_levels(overlap, limits), kOfUnevenness * beyond);
}

Evidence about_tone(const OverlapVerdict& overlap, const ToneLimits& limits)
{
    Evidence evidence{overlap.first, overlap.second, 0, 0, std::nullopt};
    if (overlap.empty || overlap.is_mismatch || is_displaced(overlap, kDisplacedLook))
        return evidence;
    const double levels = remarkable_levels(overlap, limits);
    evidence.against = ramp(levels, 0.7 * limits.curve, 1.2 * limits.curve);
    evidence.in_favour = 1 - ramp(levels, 0.3 * limits.curve, 0.7 * limits.curve);
    return evidence;
}

Evidence about_sharpness(const OverlapVerdict& overlap, const ToneLimits&)
{
    Evidence evidence{overlap.first, overlap.second, 0, 0, std::nullopt};
    if (overlap.empty || overlap.is_mismatch || !overlap.is_sharpness_known)
        return evidence;
    const double soft = softness(overlap);
    evidence.against = 1 - ramp(soft, kSoft, kSharpEnough);
    evidence.in_favour = 0.5 * ramp(soft, kSharpEnough, 0.9);
    if (evidence.against > 0)
        evidence.suspect = softer_one(overlap);
    return evidence;
}

bool touches(const OverlapVerdict& overlap, const std::vector<std::size_t>& pictures)
{
    return std::any_of(pictures.begin(), pictures.end(),
                       [&](std::size_t picture) { return picture == overlap.first || picture == overlap.second; });
}

// Whether overlaps of others are about as uneven in brightness: then the lens is to blame, or the light.
bool is_common(const Verdict& verdict, const std::vector<std::size_t>& misfits)
{
    constexpr double kStandsOut = 2;
    const ToneLimits limits = tone_limits(verdict);
    std::vector<double> own;
    std::vector<double> others;
    for (const OverlapVerdict& overlap : verdict.overlaps)
        if (touches(overlap, misfits))
            own.push_back(remarkable_levels(overlap, limits));
        else if (!touches(overlap, verdict.misfits))
            others.push_back(std::max(tone_levels(overlap, limits), overlap.unevenness));
    return !own.empty() && !others.empty() && kStandsOut * median_of(std::span(others)) > median_of(std::span(own));
}

void name_swapped(const Layout& layout, Verdict& verdict)
{
    for (const auto& [first, second] : verdict.swapped) {
        verdict.word = Word::Bad;
        verdict.misfits.push_back(first);
        verdict.misfits.push_back(second);
        verdict.reasons.push_back(name_of(layout, first) + " and " + name_of(layout, second) +
                                  " lie at each other's places.");
    }
}

using About = Evidence (*)(const OverlapVerdict&, const ToneLimits&);

// What pictures that were named before explain is no matter of others.
std::vector<std::size_t> find_misfits(const Layout& layout, About about, const Verdict& verdict)
{
    std::vector<Evidence> evidence;
    const ToneLimits limits = tone_limits(verdict);
    for (const OverlapVerdict& overlap : verdict.overlaps)
        if (!touches(overlap, verdict.misfits))
            evidence.push_back(about(overlap, limits));
    return find_misfits(layout.pictures.size(), evidence);
}

// One overlap at least must show it clearly: noise of which too much or too little is assumed makes a picture look a
// little soft everywhere.
std::vector<std::size_t> find_soft(const Layout& layout, const Verdict& verdict)
{
    const auto is_clear = [&](std::size_t picture) {
        return std::any_of(verdict.overlaps.begin(), verdict.overlaps.end(), [picture](const OverlapVerdict& overlap) {
            return touches(overlap, {picture}) && softer_one(overlap) == picture && softness(overlap) < kSoft;
        });
    };
    std::vector<std::size_t> soft = find_misfits(layout, about_sharpness, verdict);
    soft.erase(std::remove_if(soft.begin(), soft.end(), [&](std::size_t picture) { return !is_clear(picture); }),
               soft.end());
    return soft;
}

void blame(const Layout& layout, const std::vector<std::size_t>& misfits, const char* what, Verdict& verdict)
{
    for (const std::size_t misfit : misfits) {
        verdict.misfits.push_back(misfit);
        verdict.word = std::max(verdict.word, Word::Look); // little here and there may be enough to tell
        verdict.reasons.push_back(name_of(layout, misfit) + what);
    }
}

bool have_common_place(const std::vector<Ghost>& a, const std::vector<Ghost>& b)
{
    return std::any_of(a.begin(), a.end(), [&](const Ghost& one) {
        return std::any_of(b.begin(), b.end(),
                           [&](const Ghost& other) { return !intersect(one.box, other.box).is_empty(); });
    });
}

// Things stand in one overlap or where several cross. Where something differs in every overlap of a picture, at
// different places, and nothing says that it fits anywhere, it shows something else.
bool differs_everywhere(const Verdict& verdict, std::size_t picture)
{
    std::vector<const OverlapVerdict*> own;
    for (const OverlapVerdict& overlap : verdict.overlaps)
        if (touches(overlap, {picture})) {
            if (overlap.ghosts.empty() || overlap.displacement)
                return false;
            own.push_back(&overlap);
        }
    return own.size() > 1 && std::any_of(own.begin(), own.end(), [&](const OverlapVerdict* overlap) {
               return !have_common_place(overlap->ghosts, own.front()->ghosts);
           });
}

void judge_ghosts(std::size_t pictures, Verdict& verdict)
{
    constexpr double kLikely = 0.8;
    std::vector<std::size_t> strangers;
    for (std::size_t picture = 0; picture < pictures; ++picture)
        if (differs_everywhere(verdict, picture))
            strangers.push_back(picture);
    for (OverlapVerdict& overlap : verdict.overlaps)
        if (touches(overlap, strangers)) {
            overlap.is_mismatch = true;
            overlap.evidence = std::max(overlap.evidence, kLikely);
        }
}

std::string counted(std::size_t count, const char* one, const char* many)
{
    return std::to_string(count) + (count == 1 ? one : many);
}

void judge_cover(std::size_t pictures, Verdict& verdict)
{
    std::size_t covering = 0;
    for (const std::vector<std::size_t>& group : verdict.groups)
        covering += group.size();
    if (covering < pictures) {
        verdict.word = covering == 0 ? Word::Bad : std::max(verdict.word, Word::Look);
        verdict.reasons.push_back(counted(pictures - covering, " picture covers", " pictures cover") + " nothing.");
    }
    if (verdict.groups.size() > 1) {
        verdict.word = Word::Bad;
        verdict.reasons.push_back("The pictures form " + std::to_string(verdict.groups.size()) +
                                  " groups that share no pixels.");
    }
    const auto is_visible = [](const Hole& hole) { return hole.pixels >= kHoleLook; };
    const auto holes = static_cast<std::size_t>(std::count_if(verdict.holes.begin(), verdict.holes.end(), is_visible));
    if (holes > 0) {
        verdict.word = std::max(verdict.word, Word::Look);
        verdict.reasons.push_back(counted(holes, " hole is", " holes are") + " left between the pictures.");
    }
}

} // namespace

const char* name_of(Word word)
{
    return word == Word::Good ? "good" : word == Word::Look ? "look" : "bad";
}

void put_into_words(const Layout& layout, Verdict& verdict)
{
    judge_ghosts(layout.pictures.size(), verdict);
    const ToneLimits limits = tone_limits(verdict);
    for (OverlapVerdict& overlap : verdict.overlaps) {
        describe(layout, limits, overlap);
        verdict.word = std::max(verdict.word, overlap.word);
    }
    judge_cover(layout.pictures.size(), verdict);
    name_swapped(layout, verdict);
    blame(layout, find_misfits(layout, about_place, verdict), " does not fit its neighbours.", verdict);
    blame(layout, find_soft(layout, verdict), " is less sharp than its neighbours.", verdict);
    const std::vector<std::size_t> uneven = find_misfits(layout, about_tone, verdict);
    if (!is_common(verdict, uneven))
        blame(layout, uneven, " differs from its neighbours in brightness or colour.", verdict);
    std::sort(verdict.misfits.begin(), verdict.misfits.end());
    verdict.misfits.erase(std::unique(verdict.misfits.begin(), verdict.misfits.end()), verdict.misfits.end());
    for (const Word word : {Word::Bad, Word::Look}) {
        const auto has_word = [&](const OverlapVerdict& overlap) { return overlap.word == word; };
        const auto count =
            static_cast<std::size_t>(std::count_if(verdict.overlaps.begin(), verdict.overlaps.end(), has_word));
        if (count > 0)
            verdict.reasons.push_back(counted(count, " overlap", " overlaps") +
                                      (word == Word::Bad ? (count == 1 ? " is bad." : " are bad.")
                                                         : (count == 1 ? " wants a look." : " want a look.")));
    }
}

} // namespace panoval::mosaic
