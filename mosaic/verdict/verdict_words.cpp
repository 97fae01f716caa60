// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict_words.h"

#include "core/median.h"
#include "mosaic/verdict/verdict_blame.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <sstream>

namespace panoval::mosaic
{

namespace
{

// Limits of the words. Displacements in pixels, steps and tones in levels of 255.
constexpr double kDisplacedLook = 0.7; // edges begin to look doubled or broken
constexpr double kDisplacedBad = 1.5;
constexpr double kFits = 0.5;
constexpr double kSure = 0.4; // evidence on which a word is built
constexpr double kStepLook = 4;
constexpr double kStepBad = 16;
constexpr double kToneLook = 3; // where the overlaps agree on nothing better
constexpr double kToneLeast = 1.2;
constexpr double kSoft = 0.6; // sharpness of one picture relative to the other
constexpr double kSharpEnough = 0.75;
constexpr std::int64_t kHoleLook = 12; // pixels; less is left where ragged edges meet

double ramp(double value, double from, double to)
{
    return std::clamp((value - from) / (to - from), 0.0, 1.0);
}

std::string fixed(double value, int digits)
{
    const double scale = digits == 0 ? 1 : digits == 1 ? 10 : 100;
    std::ostringstream text;
    text.setf(std::ios::fixed);
    text.precision(digits);
    text << std::floor(value * scale + 0.5) / scale;
    return text.str();
}

std::string name_of(const Layout& layout, std::size_t picture)
{
    const std::string& name = layout.pictures[picture].name;
    return name.empty() ? "picture " + std::to_string(picture) : "'" + name + "'";
}

double softness(const OverlapVerdict& overlap)
{
    return std::min(overlap.sharpness, 1 / overlap.sharpness);
}

std::size_t softer_one(const OverlapVerdict& overlap)
{
    return overlap.sharpness < 1 ? overlap.second : overlap.first;
}

// How sure it is by how far the pictures are displaced, though not in which direction, or not everywhere the same.
double certainty(const OverlapVerdict& overlap)
{
    const double of_size = 0.8 * overlap.evidence;
    return overlap.displacement ? std::max(overlap.displacement->confidence, of_size) : of_size;
}

bool is_displaced(const OverlapVerdict& overlap, double by)
{
    const double sure = certainty(overlap);
    constexpr double kCertain = 2.5; // standard deviations that are taken off before it is believed
    constexpr double kOfLimit = 0.6;
    return sure > kSure && overlap.displaced_by >= by &&
           overlap.displaced_by - kCertain * overlap.uncertainty >= kOfLimit * by;
}

// One thing that can be wrong with an overlap.
struct Fault {
    Word word;
    std::string text;
};

std::vector<Fault> place_faults(const Layout& layout, const OverlapVerdict& overlap)
{
    if (overlap.empty)
        return {{Word::Bad, name_of(layout, *overlap.empty) + " shows nothing where the other picture does"}};
    if (overlap.is_mismatch)
        return {{Word::Bad, "the pictures show different things"}};
    if (!is_displaced(overlap, kDisplacedLook))
        return {};
    return {{is_displaced(overlap, kDisplacedBad) ? Word::Bad : Word::Look,
             "the pictures are displaced by " + fixed(overlap.displaced_by, 1) + " pixels"}};
}

// What most of the overlaps do not fall below; none of few, where one picture's fault may be in all.
std::optional<double> usual_of(const Verdict& verdict, double OverlapVerdict::*value)
{
    constexpr std::size_t kFew = 4;
    if (verdict.overlaps.size() < kFew)
        return std::nullopt;
    std::vector<double> values;
    for (const OverlapVerdict& overlap : verdict.overlaps)
        values.push_back(overlap.*value);
    const auto usual = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 4); // half may be one picture's
    std::nth_element(values.begin(), usual, values.end());
    return *usual;
}

// What a difference in the curves of brightness must reach to be remarkable among these overlaps. Of few, one picture's
// fault may be in all; there only uneven light counts.
double curve_limit(const Verdict& verdict)
{
    constexpr double kRemarkable = 8; // times the usual
    constexpr double kOfUnevenness = 0.3;
    if (verdict.overlaps.empty())
        return kToneLook;
    if (const std::optional<double> usual = usual_of(verdict, &OverlapVerdict::tone))
        return std::clamp(kRemarkable * *usual, kToneLeast, kToneLook);
    double unevenness = 0;
    for (const OverlapVerdict& overlap : verdict.overlaps)
        unevenness = std::max(unevenness, overlap.unevenness);
    return std::min(kToneLeast + kOfUnevenness * unevenness, kToneLook);
}

// Beyond which light is more uneven between two pictures than a lens explains, which is the same for all of them.
std::optional<double> unevenness_limit(const Verdict& verdict)
{
    constexpr double kRemarkable = 4; // times the usual
    const std::optional<double> usual = usual_of(verdict, &OverlapVerdict::unevenness);
    return usual ? std::optional(std::max(kRemarkable * *usual, kStepLook)) : std::nullopt;
}

// What is remarkable among these overlaps, in levels of 255.
struct ToneLimits {
    double curve = kToneLook;
    std::optional<double> unevenness;
    bool has_gains = true; // that nothing misled
};

std::vector<Fault> faults_of(const Layout& layout, const OverlapVerdict& overlap, const ToneLimits& limits)
{
    std::vector<Fault> faults = place_faults(layout, overlap);
    if (overlap.step > kStepLook) // what a lens leaves changes slowly, and blending hides that
        faults.push_back(
            {overlap.step > kStepBad && overlap.unevenness >= limits.unevenness.value_or(0) ? Word::Bad : Word::Look,
             "a step of " + fixed(overlap.step, 1) + " levels is left along the seam"});
    else if (overlap.tone > limits.curve)
        faults.push_back({Word::Look, "their curves of brightness differ by " + fixed(overlap.tone, 1) + " levels"});
    if (!overlap.ghosts.empty())
        faults.push_back(
            {Word::Look, overlap.ghosts.size() == 1
                             ? std::string("something differs at one place")
                             : "something differs at " + std::to_string(overlap.ghosts.size()) + " places"});
    if (softness(overlap) < kSoft)
        faults.push_back({Word::Look, name_of(layout, softer_one(overlap)) + " is less sharp"});
    std::stable_sort(faults.begin(), faults.end(), [](const Fault& a, const Fault& b) {
        return static_cast<int>(a.word) > static_cast<int>(b.word);
    });
    return faults;
}

ToneLimits tone_limits(const Verdict& verdict)
{
    return {curve_limit(verdict), unevenness_limit(verdict), verdict.misfits.empty()};
}

std::string sentence(std::string text)
{
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text + ".";
}

void describe(const Layout& layout, const ToneLimits& limits, OverlapVerdict& overlap)
{
    const std::vector<Fault> faults = faults_of(layout, overlap, limits);
    std::string text;
    for (const Fault& fault : faults) {
        text += (text.empty() ? "" : "; ") + fault.text;
        overlap.word = static_cast<int>(fault.word) > static_cast<int>(overlap.word) ? fault.word : overlap.word;
    }
    if (!faults.empty())
        overlap.explanation = sentence(text);
    else if (overlap.displacement)
        overlap.explanation = "The pictures fit.";
    else
        overlap.explanation = "Nothing differs; there is too little to see to tell whether the places are right.";
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
    blame(layout, find_misfits(layout, about_sharpness, verdict), " is less sharp than its neighbours.", verdict);
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
