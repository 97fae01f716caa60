// SPDX-License-Identifier: MIT
// Sums of integers only, so the smoothed pictures are the same however the compiler arranges them. The noise comes from
// the second difference in both directions (Immerkaer, 1996), as the median over tiles of their medians: targets and
// clutter may fill half of the tiles, and half of each tile.
#include "measure/detect_scales.h"

#include "core/median.h"
#include "core/numbers.h"
#include "measure/picture.h"
#include "measure/scale_kernel.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace panoval::measure
{

namespace
{

constexpr double kMostUnits = 65535;
constexpr std::int32_t kSmallestSide = 16; // pixels of the last scale
constexpr std::int32_t kNoiseTile = 32;
constexpr std::int32_t kNoiseTiles = 10;         // across each dimension, at most
constexpr double kMedianToSigma = 1 / 0.6744898; // of absolute normal values
constexpr double kSecondDifferenceSigma = 6;     // root of the squared weights' sum
constexpr double kRoundingSigma = 0.4;           // stairs of slowly changing light, rounded to integers, are no edges

std::uint16_t to_units(double sample, const UnitScale& units) noexcept
{
    const double value = (sample - units.offset) * units.factor;
    if (!(value > 0)) // not-a-number, too
        return 0;
    return static_cast<std::uint16_t>(truncate_to_int(std::min(value, kMostUnits)));
}

// One row of the picture in units.
void read_units(const PanovalMeasureImage& image, const UnitScale& units, std::int32_t y, std::vector<double>& scratch,
                std::uint16_t* row)
{
    const auto width = static_cast<std::size_t>(image.width);
    const auto* const bytes = static_cast<const unsigned char*>(image.data) +
                              static_cast<std::size_t>(y) * static_cast<std::size_t>(image.stride);
    if (image.sample_type == PANOVAL_MEASURE_U8) {
        for (std::size_t x = 0; x < width; ++x)
            row[x] = static_cast<std::uint16_t>(bytes[x] << 8);
        return;
    }
    if (image.sample_type == PANOVAL_MEASURE_U16) {
        const auto factor = static_cast<std::uint32_t>(truncate_to_int(units.factor));
        std::memcpy(row, bytes, 2 * width);
        for (std::size_t x = 0; x < width; ++x)
            row[x] = static_cast<std::uint16_t>(row[x] * factor);
        return;
    }
    scratch.resize(width);
    read_samples(image, 0, y, image.width, scratch.data());
    for (std::size_t x = 0; x < width; ++x)
        row[x] = to_units(scratch[x], units);
}

// Smooths rows that `read` gives one after the other.
template <class Read>
void smooth_rows(Scale& scale, const Read& read)
{
    const auto width = static_cast<std::size_t>(scale.width);
    std::vector<std::uint16_t> row(width);
    std::vector<std::uint32_t> sums[3] = {std::vector<std::uint32_t>(width), std::vector<std::uint32_t>(width),
                                          std::vector<std::uint32_t>(width)};
    read(0, row.data());
    smooth_along(row.data(), width, sums[1].data());
    sums[0] = sums[1];
    for (std::int32_t y = 0; y < scale.height; ++y) {
        if (y + 1 < scale.height) {
            read(y + 1, row.data());
            smooth_along(row.data(), width, sums[2].data());
        } else {
            sums[2] = sums[1];
        }
        smooth_down(sums[0].data(), sums[1].data(), sums[2].data(), width, scale.samples.get() + scale.at(0, y));
        sums[0].swap(sums[1]);
        sums[1].swap(sums[2]);
    }
}

bool make_scale(std::int32_t width, std::int32_t height, std::int32_t index, Scale& scale)
{
    scale.width = width;
    scale.height = height;
    scale.index = index;
    const std::size_t count = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    scale.samples = allocate<std::uint16_t>(count);
    scale.edges = allocate<std::uint8_t>(count);
    return scale.samples != nullptr && scale.edges != nullptr;
}

// The median of the tile's absolute second differences, in units.
double median_of_tile(const PanovalMeasureImage& image, const UnitScale& units, std::int32_t left, std::int32_t top,
                      std::vector<double>& scratch)
{
    constexpr std::size_t kSide = kNoiseTile;
    double rows[kSide][kSide];
    for (std::size_t y = 0; y < kSide; ++y)
        read_samples(image, left, top + static_cast<std::int32_t>(y), kNoiseTile, rows[y]);
    scratch.clear();
    for (std::size_t y = 1; y + 1 < kSide; ++y)
        for (std::size_t x = 1; x + 1 < kSide; ++x) {
            const double corners = rows[y - 1][x - 1] + rows[y - 1][x + 1] + rows[y + 1][x - 1] + rows[y + 1][x + 1];
            const double sides = rows[y - 1][x] + rows[y + 1][x] + rows[y][x - 1] + rows[y][x + 1];
            const double difference = std::fabs(corners - 2 * sides + 4 * rows[y][x]) * units.factor;
            scratch.push_back(difference <= kMostUnits * 16 ? difference : 0); // not-a-number becomes 0
        }
    return median_of(std::span(scratch));
}

} // namespace

UnitScale unit_scale_of(const PanovalMeasureImage& image) noexcept
{
    if (image.sample_type == PANOVAL_MEASURE_U8)
        return {0, 256};
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    double row[256];
    for (std::int32_t y = 0; y < image.height; ++y)
        for (std::int32_t x = 0; x < image.width; x += 256) {
            const std::int32_t count = std::min(256, image.width - x);
            read_samples(image, x, y, count, row);
            for (std::int32_t i = 0; i < count; ++i) {
                if (!(std::fabs(row[i]) <= std::numeric_limits<double>::max()))
                    continue;
                low = std::min(low, row[i]);
                high = std::max(high, row[i]);
            }
        }
    if (image.sample_type == PANOVAL_MEASURE_F32)
        return high > low ? UnitScale{low, kMostUnits / (high - low)} : UnitScale{0, 1};
    double factor = 1;
    while (high > 0 && 2 * factor * high <= kMostUnits)
        factor *= 2;
    return {0, factor};
}

double noise_of(const PanovalMeasureImage& image, const UnitScale& units)
{
    const double least = image.sample_type == PANOVAL_MEASURE_F32 ? 0.5 : kRoundingSigma * units.factor;
    if (image.width < kNoiseTile || image.height < kNoiseTile)
        return least;
    const std::int32_t across = std::clamp(image.width / kNoiseTile, 1, kNoiseTiles);
    const std::int32_t down = std::clamp(image.height / kNoiseTile, 1, kNoiseTiles);
    std::vector<double> medians;
    std::vector<double> scratch;
    for (std::int32_t j = 0; j < down; ++j)
        for (std::int32_t i = 0; i < across; ++i) {
            const auto place = [](std::int32_t k, std::int32_t count, std::int32_t size) {
                return count == 1 ? 0 : static_cast<std::int32_t>(std::int64_t{k} * (size - kNoiseTile) / (count - 1));
            };
            const double median =
                median_of_tile(image, units, place(i, across, image.width), place(j, down, image.height), scratch);
            if (median > 0) // nothing is known of even, saturated ground
                medians.push_back(median);
        }
    if (medians.empty())
        return least;
    return std::max(least, median_of(std::span(medians)) * kMedianToSigma / kSecondDifferenceSigma);
}

std::vector<Scale> scales_of(const PanovalMeasureImage& image, const UnitScale& units)
{
    std::vector<Scale> scales(1);
    if (!make_scale(image.width, image.height, 0, scales[0]))
        return {};
    std::vector<double> scratch;
    smooth_rows(scales[0], [&](std::int32_t y, std::uint16_t* row) { read_units(image, units, y, scratch, row); });
    while (std::min(scales.back().width, scales.back().height) >= 2 * kSmallestSide) {
        Scale next;
        const Scale& finer = scales.back();
        if (!make_scale(finer.width / 2, finer.height / 2, finer.index + 1, next))
            return {};
        smooth_rows(next, [&](std::int32_t y, std::uint16_t* row) {
            const std::uint16_t* const above = finer.samples.get() + finer.at(0, 2 * y);
            halve_rows(above, above + finer.width, static_cast<std::size_t>(next.width), row);
        });
        scales.push_back(std::move(next));
    }
    return scales;
}

} // namespace panoval::measure
