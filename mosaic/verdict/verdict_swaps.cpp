// SPDX-License-Identifier: MIT
// Every pair of suspicious pictures is exchanged and compared with what lies around. That costs a reduced copy of some
// overlaps for each pair, and nothing at all where overlaps fit.
#include "mosaic/verdict/verdict_swaps.h"

#include "mosaic/verdict/displacement_fit.h"
#include "mosaic/verdict/overlap_cells.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <utility>

namespace panoval::mosaic
{

namespace
{

using Pair = std::array<std::size_t, 2>;

constexpr std::size_t kMostSuspects = 16; // more are no matter of two names

// The same pictures with two of them at each other's places.
class SwappedReader : public PictureReader
{
public:
    SwappedReader(PictureReader& reader, Pair pair) : reader_(reader), pair_(pair) {}

    void read(std::size_t picture, const Rect& rect, PixelBlock& block) override
    {
        reader_.read(picture == pair_[0] ? pair_[1] : picture == pair_[1] ? pair_[0] : picture, rect, block);
    }

private:
    PictureReader& reader_;
    Pair pair_;
};

bool touches(const Overlap& overlap, std::size_t picture)
{
    return overlap.first == picture || overlap.second == picture;
}

enum class Match { Fits, Differs, ShowsNothing };

// Whether both pictures show the same, as far as a reduced copy of the overlap tells.
Match compare(const PictureSource& source, const Overlap& overlap)
{
    constexpr std::int64_t kReach = 16;
    constexpr double kVisible = 0.25; // levels squared
    constexpr double kSame = 0.6;     // correlation
    constexpr double kNear = 2.5;     // pixels
    const OverlapCells cells = read_cells(source, overlap);
    Patch first = brightness_of_cells(cells, false);
    Patch second = brightness_of_cells(cells, true);
    prepare_patch(first, kReach, first.rect);
    prepare_patch(second, kReach, second.rect);
    const ShiftFit fit = fit_shift(first, second, 0, 0);
    if (!fit.is_valid || std::min(fit.variance_first, fit.variance_second) < kVisible)
        return Match::ShowsNothing;
    const double far = std::max(std::fabs(fit.x), std::fabs(fit.y)) * static_cast<double>(cells.step);
    return fit.correlation > kSame && far < kNear ? Match::Fits : Match::Differs;
}

// Nothing may differ, and either of the two must fit somewhere: a picture that shows nothing fits nowhere.
bool fit_exchanged(const PictureSource& source, const std::vector<Overlap>& overlaps, Pair pair)
{
    const auto [i, j] = pair;
    Layout layout = source.layout;
    Corrections corrections = source.corrections;
    std::swap(layout.pictures[i].has_mask, layout.pictures[j].has_mask);
    std::swap(corrections.gains[i], corrections.gains[j]);
    SwappedReader reader(source.reader, pair);
    bool fits_first = false;
    bool fits_second = false;
    for (const Overlap& overlap : overlaps) {
        if (!touches(overlap, i) && !touches(overlap, j))
            continue;
        const Match match = compare({layout, corrections, reader}, overlap);
        if (match == Match::Differs)
            return false;
        fits_first = fits_first || (match == Match::Fits && touches(overlap, i));
        fits_second = fits_second || (match == Match::Fits && touches(overlap, j));
    }
    return fits_first && fits_second;
}

// Pictures of which no overlap fits, and one at least is wrong.
std::vector<std::size_t> find_suspects(std::size_t pictures, const Verdict& verdict)
{
    constexpr double kFits = 0.7;    // pixels
    constexpr double kFarAway = 8;   // likewise: nearer, a picture that is surely displaced has not been exchanged
    constexpr double kSure = 0.9;    // confidence
    constexpr double kUnlike = 0.03; // mean difference, of the whole range
    std::vector<char> is_wrong(pictures);
    std::vector<char> is_right(pictures);
    for (const OverlapVerdict& overlap : verdict.overlaps) {
        const bool is_other =
            overlap.is_mismatch || overlap.displaced_by > kFarAway || overlap.after.mean > kUnlike * 255;
        for (const std::size_t picture : {overlap.first, overlap.second}) {
            if (is_other)
                is_wrong[picture] = 1;
            const bool is_sure = overlap.displacement && overlap.displacement->confidence > kSure;
            if (overlap.displacement && overlap.displaced_by < (is_sure ? kFarAway : kFits))
                is_right[picture] = 1;
        }
    }
    std::vector<std::size_t> suspects;
    for (std::size_t picture = 0; picture < pictures; ++picture)
        if (is_wrong[picture] != 0 && is_right[picture] == 0)
            suspects.push_back(picture);
    return suspects;
}

} // namespace

std::vector<std::array<std::size_t, 2>> find_swaps(const PictureSource& source, const std::vector<Overlap>& overlaps,
                                                   const Verdict& verdict)
{
    std::vector<std::size_t> suspects = find_suspects(source.layout.pictures.size(), verdict);
    std::vector<Pair> pairs;
    if (suspects.size() > kMostSuspects)
        return pairs;
    std::vector<char> is_paired(source.layout.pictures.size());
    for (const std::size_t i : suspects)
        for (const std::size_t j : suspects) {
            const Rect& a = source.layout.pictures[i].rect;
            const Rect& b = source.layout.pictures[j].rect;
            if (j <= i || is_paired[i] != 0 || is_paired[j] != 0 || a.width != b.width || a.height != b.height)
                continue;
            if (!fit_exchanged(source, overlaps, {i, j}))
                continue;
            pairs.push_back({i, j});
            is_paired[i] = 1;
            is_paired[j] = 1;
        }
    return pairs;
}

} // namespace panoval::mosaic
