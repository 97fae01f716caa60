// SPDX-License-Identifier: MIT
#include "mosaic/displacement_patch.h"

#include <algorithm>
#include <cmath>

namespace panoval::mosaic
{

namespace
{

// Only where all nine pixels are known.
void smooth(Patch& patch)
{
    const std::size_t width = patch.width();
    const std::size_t height = patch.height();
    std::vector<float> across(patch.value.size());
    std::vector<std::uint8_t> known_across(patch.value.size());
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t i = y * width + 1; i + 1 < (y + 1) * width; ++i) {
            across[i] = 0.25f * (patch.value[i - 1] + patch.value[i + 1]) + 0.5f * patch.value[i];
            known_across[i] = patch.known[i - 1] & patch.known[i] & patch.known[i + 1];
        }
    std::fill(patch.value.begin(), patch.value.end(), 0.0f);
    std::fill(patch.known.begin(), patch.known.end(), std::uint8_t{0});
    for (std::size_t i = width; i + width < across.size(); ++i) {
        patch.known[i] = known_across[i - width] & known_across[i] & known_across[i + width];
        if (patch.known[i] != 0)
            patch.value[i] = 0.25f * (across[i - width] + across[i + width]) + 0.5f * across[i];
    }
}

// Sums over windows of 2 reach + 1 rows, cut off at the edges.
void sum_windows_down(std::vector<double>& values, std::size_t width, std::size_t height, std::size_t reach)
{
    std::vector<double> sum(width);
    std::vector<double> result(values.size());
    const auto add = [&](std::size_t row, double sign) {
        for (std::size_t x = 0; x < width; ++x)
            sum[x] += sign * values[row * width + x];
    };
    for (std::size_t row = 0; row < std::min(reach, height); ++row)
        add(row, 1);
    for (std::size_t y = 0; y < height; ++y) {
        if (y + reach < height)
            add(y + reach, 1);
        if (y > reach)
            add(y - reach - 1, -1);
        std::copy(sum.begin(), sum.end(), result.begin() + static_cast<std::ptrdiff_t>(y * width));
    }
    values = std::move(result);
}

void sum_windows_across(std::vector<double>& values, std::size_t width, std::size_t height, std::size_t reach)
{
    std::vector<double> row(width);
    for (std::size_t y = 0; y < height; ++y) {
        double* const line = values.data() + y * width;
        double sum = 0;
        for (std::size_t x = 0; x < std::min(reach, width); ++x)
            sum += line[x];
        for (std::size_t x = 0; x < width; ++x) {
            sum += x + reach < width ? line[x + reach] : 0.0;
            sum -= x > reach ? line[x - reach - 1] : 0.0;
            row[x] = sum;
        }
        std::copy(row.begin(), row.end(), line);
    }
}

void subtract_slow_changes(Patch& patch, std::size_t reach, const Rect& area)
{
    std::vector<double> sums(patch.value.size());
    std::vector<double> counts(patch.value.size());
    const Rect inside = intersect(area, patch.rect).moved(-patch.rect.x, -patch.rect.y);
    for (std::int64_t y = inside.y; y < inside.bottom(); ++y)
        for (std::int64_t x = inside.x; x < inside.right(); ++x) {
            const std::size_t i = static_cast<std::size_t>(y) * patch.width() + static_cast<std::size_t>(x);
            sums[i] = static_cast<double>(patch.value[i]);
            counts[i] = patch.known[i];
        }
    for (std::vector<double>* values : {&sums, &counts}) {
        sum_windows_down(*values, patch.width(), patch.height(), reach);
        sum_windows_across(*values, patch.width(), patch.height(), reach);
    }
    for (std::size_t i = 0; i < patch.value.size(); ++i) {
        patch.known[i] = patch.known[i] != 0 && counts[i] > 0.5 ? 1 : 0;
        patch.value[i] =
            patch.known[i] != 0 ? static_cast<float>(static_cast<double>(patch.value[i]) - sums[i] / counts[i]) : 0.0f;
    }
}

// Second differences both ways of one pixel and its neighbours, squared: 36 times the variance of white noise, and
// nothing of an edge that runs along or across.
double roughness(const Patch& patch, std::size_t i)
{
    const std::size_t w = patch.width();
    const auto row = [&](std::size_t at) {
        return static_cast<double>(patch.value[at - 1]) - 2 * static_cast<double>(patch.value[at]) +
               static_cast<double>(patch.value[at + 1]);
    };
    const double value = row(i - w) - 2 * row(i) + row(i + w);
    return value * value / 36;
}

// The mean roughness of the calmer windows of 8 x 8: where a picture shows something, it is rougher than its noise.
double measure_noise(const Patch& patch)
{
    constexpr std::size_t kWindow = 8;
    constexpr std::size_t kCalm = 5;    // one window in so many
    constexpr double kCalmBelow = 1.25; // mean of a window's noise relative to that share's limit, for pure noise
    std::vector<double> windows;
    for (std::size_t top = 1; top + kWindow < patch.height(); top += kWindow)
        for (std::size_t left = 1; left + kWindow < patch.width(); left += kWindow) {
            double sum = 0;
            bool is_known = true;
            for (std::size_t y = top; y < top + kWindow; ++y)
                for (std::size_t x = left; x < left + kWindow; ++x) {
                    sum += roughness(patch, y * patch.width() + x);
                    is_known = is_known && patch.known[y * patch.width() + x] != 0;
                }
            if (is_known)
                windows.push_back(sum / (kWindow * kWindow));
        }
    if (windows.empty())
        return 0;
    const auto calm = windows.begin() + static_cast<std::ptrdiff_t>(windows.size() / kCalm);
    std::nth_element(windows.begin(), calm, windows.end());
    return *calm * kCalmBelow;
}

void read_row(const PixelBlock& block, std::int64_t y, const std::vector<float>& samples, double levels, Patch& patch)
{
    const std::size_t width = patch.width();
    const auto channels = static_cast<std::size_t>(block.channels);
    const std::uint8_t* const mask = block.mask_row(y);
    for (std::size_t x = 0; x < width; ++x) {
        const std::size_t i = static_cast<std::size_t>(y) * width + x;
        const float* const pixel = samples.data() + x * channels;
        const float brightness = channels < 3 ? pixel[0] : 0.25f * (pixel[0] + pixel[2]) + 0.5f * pixel[1];
        patch.known[i] = mask[x] != 0 ? 1 : 0;
        patch.value[i] = mask[x] != 0 ? static_cast<float>(static_cast<double>(brightness) * levels) : 0.0f;
    }
}

} // namespace

void prepare_patch(Patch& patch, std::int64_t reach, const Rect& area)
{
    smooth(patch);
    subtract_slow_changes(patch, static_cast<std::size_t>(reach), area);
}

double seen_beyond_noise(const Patch& patch)
{
    constexpr std::size_t kApart = 3; // pixels: each is smoothed with its neighbours only
    const std::size_t width = patch.width();
    double sum = 0;
    double count = 0;
    for (std::size_t y = 0; y + kApart < patch.height(); ++y)
        for (std::size_t i = y * width; i + kApart < (y + 1) * width; ++i) {
            const std::size_t right = i + kApart;
            const std::size_t below = i + kApart * width;
            if ((patch.known[i] & patch.known[right] & patch.known[below]) == 0)
                continue;
            sum += static_cast<double>(patch.value[i]) *
                   (static_cast<double>(patch.value[right]) + static_cast<double>(patch.value[below]));
            count += 2;
        }
    return count > 0 ? std::max(0.0, sum / count) : 0;
}

Patch read_brightness(const PictureSource& source, std::size_t picture, const Rect& rect)
{
    Patch patch;
    patch.rect = rect;
    patch.value.resize(static_cast<std::size_t>(rect.pixels()));
    patch.known.resize(patch.value.size());
    PixelBlock block;
    source.reader.read(picture, rect, block);
    std::vector<float> samples(patch.width() * static_cast<std::size_t>(block.channels));
    for (std::int64_t y = 0; y < rect.height; ++y) {
        correct_row(source.corrections, picture, source.size(picture), block, y, samples.data());
        read_row(block, y, samples, source.levels_per_sample(), patch);
    }
    patch.noise = measure_noise(patch);
    return patch;
}

} // namespace panoval::mosaic
