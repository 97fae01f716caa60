// SPDX-License-Identifier: MIT
// The spread is that of the shortest interval that holds a third of the samples: two thirds may be clutter. On dense
// boards more than that are dots and their edges, so what was measured is taken away where it is not plain without.
#include "measure/grains.h"

#include "core/numbers.h"
#include "measure/counters.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace panoval::measure
{

namespace
{

constexpr double kMostAxis = 10;        // semi-minor, pixels: grains are smaller
constexpr double kMargin = 10;          // pixels beside a target: as far as its neighbours are looked for
constexpr double kShare = 0.35;         // of the samples
constexpr double kNormalWidth = 0.9075; // of the interval about the mean that holds so many normal values, deviations
constexpr double kHalfSpread = 4.5;     // contrast by spread at which half of the quality is left
constexpr double kPlain = 2;            // times that: there is no doubt
constexpr double kSlack = 1.3;          // by which the spread may be above the noise beside neighbours

// Rounding makes steps of smooth noise. The places' own fractions, spread evenly, put back what it took.
double fraction_of_place(std::int32_t x, std::int32_t y) noexcept
{
    const double sum = 0.75487766624669276 * x + 0.56984029099805327 * y; // powers of the root of r^3 = r + 1
    return sum - std::floor(sum) - 0.5;
}

class Ground
{
public:
    explicit Ground(const PanovalMeasureImage& image) noexcept
        : image_(image), is_rounded_(image.sample_type != PANOVAL_MEASURE_F32)
    {
    }

    // False: no memory.
    bool copy(const Outline& outline) noexcept { return patch_.copy(image_, box_around(outline, kMargin)); }
    bool take_away(const Neighbour& neighbour) noexcept { return measure::take_away(neighbour, outlines_, patch_); }

    // The standard deviation of normal noise that would be as narrow.
    double spread()
    {
        read_samples();
        std::sort(samples_.begin(), samples_.end());
        const std::size_t step = to_count(truncate_to_int(kShare * static_cast<double>(samples_.size())));
        double least = HUGE_VAL;
        for (std::size_t i = 0; i + step < samples_.size(); ++i)
            least = std::min(least, samples_[i + step] - samples_[i]);
        return least / kNormalWidth;
    }

private:
    void read_samples()
    {
        samples_.clear();
        const Box& box = patch_.box();
        for (std::int32_t y = box.y; y < box.y + box.height; ++y)
            for (std::int32_t x = box.x; x < box.x + box.width; ++x) {
                const auto sample = static_cast<double>(patch_.sample(x, y));
                if (patch_.is_in_picture(x, y) && std::isfinite(sample))
                    samples_.push_back(is_rounded_ ? sample + fraction_of_place(x, y) : sample);
            }
    }

    const PanovalMeasureImage& image_;
    bool is_rounded_;
    Patch patch_;
    OutlineModel outlines_;
    std::vector<double> samples_;
};

// Whether the last of some neighbours is part of a ring, or of a board. Grains are alone, or two by chance.
bool shares_edges(const std::vector<Neighbour>& found) noexcept
{
    const Outline& own = found.back().measured.model.outline;
    return found.size() > 2 || (found.size() == 2 && is_concentric(own, found.front().measured.model.outline));
}

// Of targets beside each other a spread that is the noise's says nothing: where their edges overlap, each may have been
// given some of the other's contrast.
double unexplained(double spread, double noise) noexcept
{
    return std::sqrt(std::max(0.0, spread * spread - kSlack * kSlack * noise * noise));
}

// What is left of the quality: a half at kHalfSpread, nothing soon below, all soon above.
double share_left(double contrast, double spread) noexcept
{
    const double ratio = kHalfSpread * spread / contrast;
    const double fourth = ratio * ratio * ratio * ratio;
    return 1 / (1 + fourth * fourth);
}

} // namespace

bool doubt_grains(const PanovalMeasureImage& image, std::vector<MeasuredTarget>& targets)
{
    Ground ground(image);
    const Vicinity vicinity = vicinity_of(targets);
    for (MeasuredTarget& one : targets) {
        PanovalMeasureTarget& target = one.target;
        if (!one.is_sound || target.ellipse.semi_minor >= kMostAxis)
            continue;
        const Outline& outline = one.measured.model.outline;
        const double contrast = std::fabs(target.level_inside - target.level_outside);
        if (!ground.copy(outline))
            return false;
        if (contrast >= kPlain * kHalfSpread * ground.spread() || has_rings_of_marks(image, one))
            continue;
        std::vector<Neighbour> found = neighbours_beside(outline, targets, vicinity);
        found.push_back({one.measured, false}); // the last one; no outline has itself beside it
        for (const Neighbour& neighbour : found)
            if (!ground.take_away(neighbour))
                return false;
        const double spread = ground.spread();
        target.quality *= share_left(contrast, shares_edges(found) ? unexplained(spread, target.noise) : spread);
    }
    return true;
}

} // namespace panoval::measure
