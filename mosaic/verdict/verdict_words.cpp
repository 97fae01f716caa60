// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict_words.h"

#include "core/median.h"
#include "mosaic/verdict/verdict_blame.h"

#include <algorithm>
#include <cmath>
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

bool is_displaced(const OverlapVerdict& overlap, double by)
{
    const double sure = overlap.displacement ? overlap.displacement->confidence : 0.8 * overlap.evidence;
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

// What a difference in the curves of brightness must reach to be remarkable among these overlaps. Of few, one picture's
// fault may be in all; there only uneven light counts.
double tone_limit(const Verdict& verdict)
{
    constexpr double kRemarkable = 8; // times the usual
    constexpr double kOfUnevenness = 0.3;
    constexpr std::size_t kFew = 4;
    std::vector<double> tones;
    double unevenness = 0;
    for (const OverlapVerdict& overlap : verdict.overlaps) {
        tones.push_back(overlap.tone);
        unevenness = std::max(unevenness, overlap.unevenness);
    }
    if (tones.empty())
        return kToneLook;
    if (tones.size() < kFew)
        return std::min(kToneLeast + kOfUnevenness * unevenness, kToneLook);
    const auto usual = tones.begin() + static_cast<std::ptrdiff_t>(tones.size() / 4); // half may be one picture's
    std::nth_element(tones.begin(), usual, tones.end());
    return std::clamp(kRemarkable * *usual, kToneLeast, kToneLook);
}

std::vector<Fault> faults_of(const Layout& layout, const OverlapVerdict& overlap, double tone_look)
{
    std::vector<Fault> faults = place_faults(layout, overlap);
    if (overlap.step > kStepLook)
        faults.push_back({overlap.step > kStepBad ? Word::Bad : Word::Look,
                          "a step of " + fixed(overlap.step, 1) + " levels is left along the seam"});
    else if (overlap.tone > tone_look)
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

std::string sentence(std::string text)
{
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text + ".";
}

void describe(const Layout& layout, double tone_look, OverlapVerdict& overlap)
{
    const std::vector<Fault> faults = faults_of(layout, overlap, tone_look);
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

Evidence about_place(const OverlapVerdict& overlap, double)
{
    Evidence evidence{overlap.first, overlap.second, 0, 0, overlap.empty};
    if (overlap.empty || overlap.is_mismatch) {
        evidence.against = std::max(overlap.evidence, overlap.empty ? 0.9 : 0.0);
        return evidence;
    }
    const double sure = overlap.displacement ? overlap.displacement->confidence : 0.8 * overlap.evidence;
    evidence.against = is_displaced(overlap, kDisplacedLook)
                           ? sure * ramp(overlap.displaced_by, kDisplacedLook - 0.1, kDisplacedLook + 0.2)
                           : 0;
    if (overlap.displacement)
        evidence.in_favour = sure * (1 - ramp(overlap.displaced_by, 0.5 * kFits, kFits + 0.1));
    if (evidence.against <= 0)
        evidence.against = (1 - evidence.in_favour) * hint(overlap);
    return evidence;
}

// Not the step: vignetting leaves one at every seam, though of no one's fault. It may look like a curve, too.
double tone_levels(const OverlapVerdict& overlap)
{
    constexpr double kOfUnevenness = 0.5;
    return std::max(overlap.tone - kOfUnevenness * overlap.unevenness, 0.75 * overlap.offset);
}

Evidence about_tone(const OverlapVerdict& overlap, double tone_look)
{
    Evidence evidence{overlap.first, overlap.second, 0, 0, std::nullopt};
    if (overlap.empty || overlap.is_mismatch || is_displaced(overlap, kDisplacedLook))
        return evidence;
    const double levels = tone_levels(overlap);
    evidence.against = ramp(levels, 0.7 * tone_look, 1.2 * tone_look);
    evidence.in_favour = 1 - ramp(levels, 0.3 * tone_look, 0.7 * tone_look);
    return evidence;
}

Evidence about_sharpness(const OverlapVerdict& overlap, double)
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
    std::vector<double> own;
    std::vector<double> others;
    for (const OverlapVerdict& overlap : verdict.overlaps)
        if (touches(overlap, misfits))
            own.push_back(tone_levels(overlap));
        else if (!touches(overlap, verdict.misfits))
            others.push_back(std::max(tone_levels(overlap), overlap.unevenness));
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

using About = Evidence (*)(const OverlapVerdict&, double);

// What pictures that were named before explain is no matter of others.
std::vector<std::size_t> find_misfits(const Layout& layout, About about, const Verdict& verdict)
{
    std::vector<Evidence> evidence;
    const double tone_look = tone_limit(verdict);
    for (const OverlapVerdict& overlap : verdict.overlaps)
        if (!touches(overlap, verdict.misfits))
            evidence.push_back(about(overlap, tone_look));
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

std::string counted(std::size_t count, const char* one, const char* many)
{
    return std::to_string(count) + (count == 1 ? one : many);
}

void judge_cover(Verdict& verdict)
{
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
    const double tone_look = tone_limit(verdict);
    for (OverlapVerdict& overlap : verdict.overlaps) {
        describe(layout, tone_look, overlap);
        verdict.word = std::max(verdict.word, overlap.word);
    }
    judge_cover(verdict);
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
