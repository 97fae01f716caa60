// SPDX-License-Identifier: MIT
// Least squares with Tukey's weights, on at most some thousand cells: what moved, and edges that do not fit exactly,
// have no say.
#include "mosaic/verdict/verdict_tone.h"

#include "core/median.h"
#include "core/numbers.h"
#include "mosaic/base/normal_equations.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace panoval::mosaic
{

namespace
{

constexpr std::size_t kMostFitted = 1500; // cells
constexpr int kRounds = 6;                // at most, and at least three
constexpr double kSettled = 0.01;         // change of what remains from round to round, relative
constexpr std::size_t kRare = 10; // one cell in so many is darker than the range of levels of a fit, and one brighter
constexpr double kFinest = 0.15;  // levels: no fit of rounded samples is believed to be more exact

std::vector<std::size_t> sample_of(const OverlapCells& cells)
{
    std::vector<std::size_t> known;
    for (std::size_t i = 0; i < cells.cells(); ++i)
        if (cells.known[i] != 0)
            known.push_back(i);
    const std::size_t stride = std::max<std::size_t>(1, known.size() / kMostFitted) | 1; // odd: no grid is met
    std::vector<std::size_t> sample;
    for (std::size_t i = 0; i < known.size(); i += stride)
        sample.push_back(known[i]);
    return sample;
}

} // namespace

namespace
{

// Where the cells of a row or column lie; the narrow direction of an overlap hardly matters.
double place(double cell, std::size_t count, double half)
{
    return (cell - 0.5 * (static_cast<double>(count) - 1)) / half;
}

double half_of(const OverlapCells& cells)
{
    return 0.5 * static_cast<double>(std::max(cells.width, cells.height));
}

std::vector<double> places(std::size_t count, double half)
{
    std::vector<double> result(count);
    for (std::size_t i = 0; i < count; ++i)
        result[i] = place(static_cast<double>(i), count, half);
    return result;
}

template <std::size_t kTerms>
double product(const std::array<double, kTerms>& factor, const std::array<double, kTerms>& terms)
{
    double sum = 0;
    for (std::size_t i = 0; i < kTerms; ++i)
        sum += factor[i] * terms[i];
    return sum;
}

} // namespace

ToneModel::ToneModel(const OverlapCells& cells)
    : cells_(cells), across_(places(cells.width, half_of(cells))), down_(places(cells.height, half_of(cells)))
{
    const std::vector<std::size_t> sample = sample_of(cells);
    if (sample.empty())
        return;
    for (std::size_t c = 0; c < cells.channels; ++c) {
        Channel& channel = channels_[c];
        scale_levels(sample, c, channel);
        Samples samples = gather(sample, c, channel);
        std::vector<double> differences = samples.differences;
        channel.offset = median_of(std::span(differences));
        fit(samples, channel);
        measure_parts(samples, channel);
    }
}

ToneModel::Terms ToneModel::terms(std::size_t cell, double level, const Channel& channel) const
{
    const double u = across_[cell % cells_.width];
    const double v = down_[cell / cells_.width];
    // Rare levels may be those of a thing that moved, which is no matter of curves.
    const double scaled =
        (std::clamp(level, channel.lowest, channel.highest) - channel.mean_level) / channel.level_scale;
    return {1, u, v, u * u, u * v, v * v, scaled, scaled * scaled - 1};
}

// The mean level of the cells around one: the cell's own has noise that its difference has, too, and where one picture
// has more of it than the other, differences would seem to depend on the level.
double ToneModel::level_around(std::size_t cell, std::size_t c) const
{
    const std::size_t x = cell % cells_.width;
    const std::size_t y = cell / cells_.width;
    double sum = 0;
    double count = 0;
    for (std::size_t v = y - std::min<std::size_t>(y, 1); v <= std::min(y + 1, cells_.height - 1); ++v)
        for (std::size_t u = x - std::min<std::size_t>(x, 1); u <= std::min(x + 1, cells_.width - 1); ++u) {
            const std::size_t i = v * cells_.width + u;
            if (i == cell || cells_.known[i] == 0)
                continue;
            sum += cells_.level(i, c);
            count += 1;
        }
    return count > 0 ? sum / count : cells_.level(cell, c);
}

void ToneModel::surface_row(double x, double y, double step, std::span<double> out) const
{
    const auto brightness = [&](std::size_t i) {
        const double f0 = channels_[0].factor[i];
        return cells_.channels < 3 ? f0 : 0.25 * (f0 + channels_[2].factor[i]) + 0.5 * channels_[1].factor[i];
    };
    const double half = half_of(cells_);
    const double v = place(y, cells_.height, half);
    const double constant = brightness(0) + brightness(2) * v + brightness(5) * v * v;
    const double linear = brightness(1) + brightness(4) * v;
    const double square = brightness(3);
    for (std::size_t i = 0; i < out.size(); ++i) {
        const double u = place(x + static_cast<double>(i) * step, cells_.width, half);
        out[i] = constant + (linear + square * u) * u;
    }
}

// Levels run from about -1 to 1 where most of them are.
void ToneModel::scale_levels(const std::vector<std::size_t>& sample, std::size_t c, Channel& channel) const
{
    std::vector<double> levels;
    levels.reserve(sample.size());
    for (const std::size_t cell : sample)
        levels.push_back(level_around(cell, c));
    std::sort(levels.begin(), levels.end());
    channel.mean_level = levels[levels.size() / 2];
    channel.lowest = levels[levels.size() / kRare];
    channel.highest = levels[levels.size() - 1 - levels.size() / kRare];
    channel.level_scale = std::max(1.0, 0.35 * (channel.highest - channel.lowest));
}

ToneModel::Samples ToneModel::gather(const std::vector<std::size_t>& sample, std::size_t c,
                                     const Channel& channel) const
{
    Samples samples;
    samples.rest.resize(sample.size());
    for (const std::size_t cell : sample) {
        samples.terms.push_back(terms(cell, level_around(cell, c), channel));
        samples.differences.push_back(cells_.difference(cell, c));
    }
    return samples;
}

// The median, and the reach around it beyond which differences are those of things that moved: they would pull a first
// fit so far that it never came back.
double ToneModel::start(Samples& samples, const Channel& channel)
{
    constexpr double kMost = 0.75;  // of the cells; the others may belong to things
    constexpr double kTimes = 4;    // what most of them differ from the median
    constexpr double kSmallest = 4; // levels
    std::vector<double> sizes(samples.rest.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        samples.rest[i] = samples.differences[i] - channel.offset;
        sizes[i] = std::fabs(samples.rest[i]);
    }
    const auto most = sizes.begin() + truncate_to_int(kMost * static_cast<double>(sizes.size() - 1));
    std::nth_element(sizes.begin(), most, sizes.end());
    return std::max(kTimes * *most, kSmallest);
}

void ToneModel::fit(Samples& samples, Channel& channel)
{
    const double around_median = start(samples, channel);
    for (int round = 0; round < kRounds; ++round) {
        // Wide at first: the first fit may lean towards what does not belong.
        const double reach = round == 0 ? around_median : (round == 1 ? 8 : 5) * std::max(channel.spread, kFinest);
        NormalEquations<kTerms> equations;
        for (std::size_t i = 0; i < samples.terms.size(); ++i) {
            const double u = samples.rest[i] / reach;
            const double less = round == 0 ? 1 : (1 - u * u) * (1 - u * u);
            const double weight = std::fabs(u) < 1 ? less : 0;
            if (weight > 0)
                equations.add(samples.terms[i], samples.differences[i], weight);
        }
        equations.hold_back(2e-3 * static_cast<double>(samples.terms.size()));
        channel.factor = equations.solve();
        channel.level_covariance = equations.covariance_of_last_two();
        const double before = channel.spread;
        measure_spread(samples, channel);
        if (round >= 2 && std::fabs(channel.spread - before) <= kSettled * channel.spread)
            break;
    }
}

void ToneModel::measure_spread(Samples& samples, Channel& channel)
{
    std::vector<double> sizes(samples.rest.size());
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        samples.rest[i] = samples.differences[i] - product(channel.factor, samples.terms[i]);
        sizes[i] = std::fabs(samples.rest[i]);
    }
    channel.spread = kMedianToSigma * median_of(std::span(sizes));
}

void ToneModel::measure_parts(const Samples& samples, Channel& channel)
{
    double curve = 0;
    double mean = 0;
    double place = 0;
    double fitting = 0;
    std::array<double, 2> sums{};
    std::array<double, 3> squares{};
    for (std::size_t i = 0; i < samples.terms.size(); ++i) {
        if (std::fabs(samples.rest[i]) > 5 * std::max(channel.spread, kFinest)) // less than half: it is of their median
            continue;
        const Terms& t = samples.terms[i];
        const double part = channel.factor[6] * t[6] + channel.factor[7] * t[7];
        const double rest = product(channel.factor, t) - part;
        curve += part * part;
        mean += part;
        place += rest * rest;
        fitting += 1;
        sums[0] += t[6];
        sums[1] += t[7];
        squares[0] += t[6] * t[6];
        squares[1] += t[6] * t[7];
        squares[2] += t[7] * t[7];
    }
    // Of two terms fitted to noise alone four standard deviations do not count. Where the level follows the place, as
    // in soft scenes, the terms may be large and cancel each other out.
    const std::array<double, 3>& covariance = channel.level_covariance;
    const auto moment = [&](std::size_t i, double a, double b) { return (squares[i] - a * b / fitting) / fitting; };
    const double of_noise = covariance[0] * moment(0, sums[0], sums[0]) +
                            2 * covariance[1] * moment(1, sums[0], sums[1]) +
                            covariance[2] * moment(2, sums[1], sums[1]);
    const double by_chance = 16 * of_noise * channel.spread * channel.spread;
    const double variance = curve / fitting - mean / fitting * (mean / fitting);
    channel.curve = std::sqrt(std::max(0.0, variance - by_chance));
    channel.unevenness = std::sqrt(place / fitting);
}

void ToneModel::at_row(std::size_t y, std::size_t c, std::span<double> out) const
{
    const Channel& channel = channels_[c];
    const Terms& f = channel.factor;
    const double v = down_[y];
    const double constant = f[0] + f[2] * v + f[5] * v * v;
    const double linear = f[1] + f[4] * v;
    const double inverse = 1 / channel.level_scale;
    for (std::size_t x = 0; x < out.size(); ++x) {
        const double u = across_[x];
        const double clamped = std::clamp(cells_.level(y * cells_.width + x, c), channel.lowest, channel.highest);
        const double level = (clamped - channel.mean_level) * inverse;
        out[x] = constant + (linear + f[3] * u) * u + f[6] * level + f[7] * (level * level - 1);
    }
}

double ToneModel::most(double Channel::*value) const
{
    double most = 0;
    for (std::size_t c = 0; c < cells_.channels; ++c)
        most = std::max(most, std::fabs(channels_[c].*value));
    return most;
}

double ToneModel::offset() const
{
    return most(&Channel::offset);
}

double ToneModel::curve() const
{
    return most(&Channel::curve);
}

double ToneModel::unevenness() const
{
    return most(&Channel::unevenness);
}

namespace
{

// Without seams: whoever's edge is farther away.
std::uint8_t nearest_owner(const Layout& layout, const Overlap& overlap, std::int64_t x, std::int64_t y)
{
    const auto inside = [&](std::size_t picture, std::int64_t shift) {
        const Rect rect = layout.pictures[picture].rect.moved(shift, 0);
        return std::min(std::min(x - rect.x, rect.right() - 1 - x), std::min(y - rect.y, rect.bottom() - 1 - y));
    };
    return inside(overlap.first, 0) >= inside(overlap.second, overlap.second_shift_x) ? 1 : 2;
}

} // namespace

std::vector<std::uint8_t> owners_of_cells(const OverlapCells& cells, const Layout& layout, const SeamMap& seams)
{
    const Overlap& overlap = cells.overlap;
    std::vector<std::uint8_t> owners(cells.cells());
    std::vector<std::int32_t> labels(static_cast<std::size_t>(overlap.region.width));
    for (std::size_t row = 0; row < cells.height; ++row) {
        const std::int64_t in_region =
            std::min(static_cast<std::int64_t>(row) * cells.step + cells.step / 2, overlap.region.height - 1);
        const std::int64_t y = overlap.region.y + in_region;
        if (seams.height() > 0)
            seams.read(y, overlap.region.x, overlap.region.width, layout.wraps, labels.data());
        for (std::size_t column = 0; column < cells.width; ++column) {
            const std::int64_t x =
                std::min(static_cast<std::int64_t>(column) * cells.step + cells.step / 2, overlap.region.width - 1);
            std::uint8_t& owner = owners[row * cells.width + column];
            if (seams.height() == 0)
                owner = nearest_owner(layout, overlap, overlap.region.x + x, y);
            else if (labels[static_cast<std::size_t>(x)] == static_cast<std::int32_t>(overlap.first))
                owner = 1;
            else if (labels[static_cast<std::size_t>(x)] == static_cast<std::int32_t>(overlap.second))
                owner = 2;
        }
    }
    return owners;
}

namespace
{

// Differences on both sides of a seam, gathered along pieces of it.
class SeamPieces
{
public:
    explicit SeamPieces(const OverlapCells& cells)
        : cells_(cells), size_(static_cast<std::size_t>(std::max<std::int64_t>(4, kPiece / cells.step))),
          across_(cells.width / size_ + 1), values_(across_ * (cells.height / size_ + 1))
    {
    }

    // Cells on a line across the seam, which runs before cell `middle`; stride: 1 across, the width down.
    void add_line(std::size_t middle, std::size_t position, std::size_t count, std::size_t stride, std::size_t c)
    {
        const auto reach = static_cast<std::size_t>(std::max<std::int64_t>(1, kReach / cells_.step));
        const std::size_t here = std::min({reach, position, count - position}); // the same on both sides
        std::vector<double>& values = piece_of(middle);
        for (std::size_t k = 0; k < 2 * here; ++k)
            add(middle - here * stride + k * stride, c, values);
    }

    void add(std::size_t cell, std::size_t c) { add(cell, c, piece_of(cell)); }

    bool is_empty() const
    {
        return std::all_of(values_.begin(), values_.end(), [](const auto& values) { return values.empty(); });
    }

    // Root mean square of the pieces' medians, each less what noise alone may give.
    double levels(double spread)
    {
        constexpr std::size_t kFewest = 6;
        constexpr double kBeyondNoise = 3;    // standard deviations; the largest of some dozen pieces exceeds two
        constexpr double kMedianCosts = 1.57; // variance of a median relative to that of a mean
        double squares = 0;
        double weight = 0;
        for (std::vector<double>& piece : values_) {
            std::vector<double> values = std::exchange(piece, {});
            if (values.size() < kFewest)
                continue;
            const auto count = static_cast<double>(values.size());
            const double noise = std::sqrt(kMedianCosts / count) * spread;
            const double step = std::max(0.0, std::fabs(median_of(std::span(values))) - kBeyondNoise * noise);
            squares += count * step * step;
            weight += count;
        }
        return weight > 0 ? std::sqrt(squares / weight) : 0;
    }

private:
    static constexpr std::int64_t kReach = 8;  // pixels on both sides
    static constexpr std::int64_t kPiece = 64; // pixels of seam that are judged together

    std::vector<double>& piece_of(std::size_t cell)
    {
        return values_[cell / cells_.width / size_ * across_ + cell % cells_.width / size_];
    }

    void add(std::size_t cell, std::size_t c, std::vector<double>& values)
    {
        if (cells_.known[cell] != 0)
            values.push_back(cells_.difference(cell, c));
    }

    const OverlapCells& cells_;
    std::size_t size_;
    std::size_t across_;
    std::vector<std::vector<double>> values_;
};

bool meet(const std::vector<std::uint8_t>& owners, std::size_t i, std::size_t j)
{
    return owners[i] != owners[j] && owners[i] + owners[j] == 3;
}

} // namespace

SeamStep measure_step(const OverlapCells& cells, const ToneModel& tone, const std::vector<std::uint8_t>& owners)
{
    SeamStep result;
    SeamPieces pieces(cells);
    for (std::size_t c = 0; c < cells.channels; ++c) {
        for (std::size_t y = 0, i = 0; y < cells.height; ++y)
            for (std::size_t x = 0; x < cells.width; ++x, ++i) {
                if (x > 0 && meet(owners, i - 1, i))
                    pieces.add_line(i, x, cells.width, 1, c);
                if (y > 0 && meet(owners, i - cells.width, i))
                    pieces.add_line(i, y, cells.height, cells.width, c);
            }
        result.has_seam = result.has_seam || !pieces.is_empty();
        if (!result.has_seam)
            for (std::size_t i = 0; i < cells.cells(); ++i)
                pieces.add(i, c);
        result.levels = std::max(result.levels, pieces.levels(tone.spread(c)));
    }
    return result;
}

} // namespace panoval::mosaic
