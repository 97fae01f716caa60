// SPDX-License-Identifier: MIT
#include "mosaic/verdict/verdict_faults.h"

#include "core/median.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <vector>

namespace panoval::mosaic
{

namespace
{

// Limits of the words. Displacements in pixels, steps and tones in levels of 255.
constexpr double kDisplacedBad = 1.5;
constexpr double kSure = 0.4; // evidence on which a word is built
constexpr double kStepLook = 4;
constexpr double kStepBad = 16;
constexpr double kToneLook = 3; // where the overlaps agree on nothing better
constexpr double kToneLeast = 1.2;

// To a tenth.
std::string rounded(double value)
{
    std::ostringstream text;
    text.setf(std::ios::fixed);
    text.precision(1);
    text << std::floor(value * 10 + 0.5) / 10;
    return text.str();
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
             "the pictures are displaced by " + rounded(overlap.displaced_by) + " pixels"}};
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

std::vector<Fault> faults_of(const Layout& layout, const OverlapVerdict& overlap, const ToneLimits& limits)
{
    std::vector<Fault> faults = place_faults(layout, overlap);
    if (overlap.step > kStepLook) // what a lens leaves changes slowly, and blending hides that
        faults.push_back(
            {overlap.step > kStepBad && overlap.unevenness >= limits.unevenness.value_or(0) ? Word::Bad : Word::Look,
             "a step of " + rounded(overlap.step) + " levels is left along the seam"});
    else if (overlap.tone > limits.curve)
        faults.push_back({Word::Look, "their curves of brightness differ by " + rounded(overlap.tone) + " levels"});
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

// text: begins with a small letter, or with the quote before a name
std::string sentence(std::string text)
{
    if (text[0] != '\'')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text + ".";
}

} // namespace

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

double certainty(const OverlapVerdict& overlap)
{
    const double of_size = 0.8 * overlap.evidence;
    return overlap.displacement ? std::max(overlap.displacement->confidence, of_size) : of_size;
}

bool is_displaced(const OverlapVerdict& overlap, double by)
{
    // Standard deviations that are taken off before it is believed: more where little is shared beyond noise, of which
    // the best of many places is that by chance more often than its deviation tells.
    constexpr double kCertain = 2.5;
    constexpr double kCertainInNoise = 4;
    constexpr double kInNoise = 0.1; // pixels, a standard deviation
    constexpr double kOfLimit = 0.6;
    const double taken_off = overlap.uncertainty * (overlap.uncertainty > kInNoise ? kCertainInNoise : kCertain);
    return certainty(overlap) > kSure && overlap.displaced_by >= by &&
           overlap.displaced_by - taken_off >= kOfLimit * by;
}

ToneLimits tone_limits(const Verdict& verdict)
{
    return {curve_limit(verdict), unevenness_limit(verdict), verdict.misfits.empty()};
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

} // namespace panoval::mosaic
