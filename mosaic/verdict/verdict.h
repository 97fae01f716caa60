// SPDX-License-Identifier: MIT
// Whether a panorama can be published, judged from what its pictures share: whether they show the same things at the
// same places, in the same brightness and equally sharp, and whether they hang together. Everything is measured
// relative to the noise and the texture that the pictures have themselves.
#pragma once

#include "mosaic/base/layout.h"
#include "mosaic/base/progress.h"
#include "mosaic/pictures/corrections.h"
#include "mosaic/pictures/pixel_block.h"
#include "mosaic/seams/seam_map.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace panoval::mosaic
{

// Good: publish it. Look: see the places that the verdict names. Bad: something is wrong that blending cannot hide.
enum class Word { Good, Look, Bad };

const char* name_of(Word word);

// How far what the second picture shows lies from where the first one shows it, in pixels: what the first picture has
// at (X, Y) the second one has at (X + x, Y + y) of the canvas.
struct Displacement {
    double x = 0;
    double y = 0;
    double confidence = 0; // 0 to 1: the share of what can be measured that agrees with it, less its uncertainty
};

// A place where two pictures show different things.
struct Ghost {
    Rect box;            // on the canvas
    double levels = 0;   // by how much they differ beyond noise, of 255
    bool is_cut = false; // a seam between the two pictures runs through it
};

// Absolute differences of the samples that both pictures cover, in levels of 255.
struct SharedDifferences {
    double mean = 0;
    double signed_mean = 0; // second minus first
    int median = 0;         // half of the samples differ by no more
    int percentile_95 = 0;
    std::array<double, 256> distribution{}; // share of the samples at each difference
};

struct OverlapVerdict {
    std::size_t first = 0;
    std::size_t second = 0;
    Rect region; // on the canvas; may cross the right edge of one that wraps
    std::uint64_t shared_pixels = 0;
    SharedDifferences before; // as the pictures came; of at most 2^14 pixels, in rows at equal distances
    SharedDifferences after;  // corrected
    std::optional<Displacement> displacement; // none: the overlap shows too little to tell
    double displaced_by = 0;                  // pixels; the typical one where it is not the same everywhere
    double uncertainty = 0;                   // of displaced_by, pixels, a standard deviation
    double evidence = 0;                      // 0 to 1: how much the overlap shows by which places can be told
    bool is_mismatch = false;                 // what they show is not the same, wherever one of them is moved
    std::optional<std::size_t> empty;         // the picture that shows nothing where the other one does
    bool is_blank = false;                    // it has one value everywhere; otherwise it may show a plain place
    double step = 0;                          // brightness or colour left along the seam, levels of 255
    double tone = 0;                          // difference in the curves of brightness, levels of 255
    double offset = 0;                        // mean difference over all of the overlap, levels of 255
    double unevenness = 0;                    // part of the difference that depends on the place, levels of 255
    double sharpness = 1;                     // detail of the second picture relative to the first
    bool is_sharpness_known = false;          // enough detail to compare
    double noise = 0;                         // of one pixel, levels of 255
    std::vector<Ghost> ghosts;                // the worst first
    bool has_seam = false;                    // the two pictures meet along a seam
    Word word = Word::Good;
    std::string explanation; // a sentence
};

// An uncovered place that pictures surround.
struct Hole {
    Rect box; // on the canvas
    std::int64_t pixels = 0;
};

struct Verdict {
    Word word = Word::Good;
    std::vector<std::string> reasons;                // sentences, the worst first; empty where all is good
    std::vector<std::size_t> misfits;                // numbers of the pictures to blame, ascending
    std::vector<std::array<std::size_t, 2>> swapped; // pictures that lie at each other's places
    std::vector<std::vector<std::size_t>> groups;    // of connected pictures; each and all ascending by first picture;
                                                     // one that covers nothing is in none
    std::int64_t uncovered_pixels = 0;               // of the canvas
    std::vector<Hole> holes;                         // the largest first
    std::vector<OverlapVerdict> overlaps;            // of those that share pixels, as the layout's overlaps are ordered
};

struct VerdictOptions {
    std::size_t threads = 1; // results do not depend on it
};

// What overlaps say by themselves, before seams are known: most of the work on a verdict. Pieces of it may be done at
// the same time; what they refer to must outlive them.
class OverlapLooks
{
public:
    OverlapLooks(const Layout& layout, const std::vector<Overlap>& overlaps, const Corrections& corrections,
                 PictureReader& reader, const VerdictOptions& options);
    OverlapLooks(const OverlapLooks&) = delete;
    OverlapLooks& operator=(const OverlapLooks&) = delete;
    ~OverlapLooks();

    void look_at(std::size_t overlap);

private:
    friend Verdict judge(OverlapLooks& looks, const SeamMap& seams, Progress& progress);
    struct Work;
    std::unique_ptr<Work> work_;
};

// Looks at the overlaps that have not been looked at.
// seams  of the layout's canvas; an empty one (height 0) is taken as if pictures met in the middle of what they share
Verdict judge(OverlapLooks& looks, const SeamMap& seams, Progress& progress);

// The members of a JSON object, in the host's frame (the layout's origin added), as text: verdict, reasons, misfits,
// groups, uncovered_pixels, holes, overlaps.
std::string verdict_json(const Verdict& verdict, const Layout& layout, bool has_distributions);

} // namespace panoval::mosaic
