// SPDX-License-Identifier: MIT
// Both patches are transformed at once as the real and imaginary part of one. The cross spectrum is whitened (each
// frequency divided by its magnitude), but for frequencies that hardly occur, whose phase is noise.
#include "mosaic/verdict/phase_correlation.h"

#include "mosaic/verdict/butterfly_rows.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

namespace panoval::mosaic
{

namespace
{

// exp(-2 pi i k / size) for k below size / 2. Half angles by square roots, the odd ones of each size by one product.
std::vector<Turn> make_turns(std::size_t size)
{
    std::vector<Turn> turns = {{1, 0}};
    Turn step = {-1, 0}; // of half a circle
    for (std::size_t count = 2; 2 * count <= size; count *= 2) {
        const Turn half = {std::sqrt(0.5 * (1 + step.cosine)), -std::sqrt(0.5 * (1 - step.cosine))};
        std::vector<Turn> finer(count);
        for (std::size_t k = 0; k < turns.size(); ++k) {
            finer[2 * k] = turns[k];
            finer[2 * k + 1] = {turns[k].cosine * half.cosine - turns[k].sine * half.sine,
                                turns[k].cosine * half.sine + turns[k].sine * half.cosine};
        }
        turns = std::move(finer);
        step = half;
    }
    return turns;
}

void swap_rows(std::vector<double>& values, std::size_t width, std::size_t a, std::size_t b)
{
    const auto at = [&](std::size_t row) { return values.begin() + static_cast<std::ptrdiff_t>(row * width); };
    std::swap_ranges(at(a), at(a + 1), at(b));
}

void reverse_rows(std::vector<double>& real, std::vector<double>& imaginary, std::size_t width, std::size_t height)
{
    for (std::size_t i = 0, reversed = 0; i < height; ++i) {
        if (i < reversed) {
            swap_rows(real, width, i, reversed);
            swap_rows(imaginary, width, i, reversed);
        }
        std::size_t bit = height / 2;
        for (; bit != 0 && (reversed & bit) != 0; bit /= 2)
            reversed ^= bit;
        reversed |= bit;
    }
}

void transform_columns(std::vector<double>& real, std::vector<double>& imaginary, std::size_t width, std::size_t height)
{
    reverse_rows(real, imaginary, width, height);
    const std::vector<Turn> turns = make_turns(height);
    for (std::size_t half = 1; half < height; half *= 2)
        for (std::size_t start = 0; start < height; start += 2 * half)
            for (std::size_t k = 0; k < half; ++k) {
                const std::size_t a = (start + k) * width;
                const std::size_t b = (start + k + half) * width;
                combine_rows({&real[a], &imaginary[a]}, {&real[b], &imaginary[b]}, turns[k * (height / (2 * half))],
                             width);
            }
}

void transpose(std::vector<double>& values, std::size_t width, std::size_t height, std::vector<double>& turned)
{
    constexpr std::size_t kTile = 8; // rows and columns that stay in the cache together
    turned.resize(values.size());
    for (std::size_t top = 0; top < height; top += kTile)
        for (std::size_t left = 0; left < width; left += kTile)
            for (std::size_t y = top; y < std::min(top + kTile, height); ++y)
                for (std::size_t x = left; x < std::min(left + kTile, width); ++x)
                    turned[x * height + y] = values[y * width + x];
    values.swap(turned);
}

struct Spectrum {
    std::size_t width;
    std::size_t height;
    std::vector<double>& real;
    std::vector<double>& imaginary;

    std::size_t mirrored(std::size_t x, std::size_t y) const
    {
        return ((height - y) % height) * width + (width - x) % width;
    }
};

// A window that falls to 0 at the edges, but without sines: 1 - u^2, squared.
std::vector<double> make_window(std::size_t size)
{
    std::vector<double> window(size);
    for (std::size_t i = 0; i < size; ++i) {
        const double u = (2 * static_cast<double>(i) + 1) / static_cast<double>(size) - 1;
        window[i] = (1 - u * u) * (1 - u * u);
    }
    return window;
}

std::size_t next_power_of_two(std::size_t size)
{
    std::size_t power = 1;
    while (power < size)
        power *= 2;
    return power;
}

Spectrum transform_both(const std::vector<float>& first, const std::vector<float>& second, std::size_t width,
                        std::size_t height, PhaseScratch& scratch)
{
    Spectrum spectrum{next_power_of_two(width), next_power_of_two(height), scratch.real, scratch.imaginary};
    spectrum.real.assign(spectrum.width * spectrum.height, 0.0);
    spectrum.imaginary.assign(spectrum.real.size(), 0.0);
    const std::vector<double> across = make_window(width);
    const std::vector<double> down = make_window(height);
    for (std::size_t y = 0; y < height; ++y)
        for (std::size_t x = 0; x < width; ++x) {
            const double weight = across[x] * down[y];
            spectrum.real[y * spectrum.width + x] = weight * static_cast<double>(first[y * width + x]);
            spectrum.imaginary[y * spectrum.width + x] = weight * static_cast<double>(second[y * width + x]);
        }
    fourier_transform(spectrum.real, spectrum.imaginary, spectrum.width, spectrum.height, scratch.turned);
    return spectrum;
}

struct CrossSpectrum {
    Spectrum cross;
    double chance = 1;
};

// The product of the second spectrum and the first one's conjugate, both taken out of the common one.
CrossSpectrum multiply(const Spectrum& both, PhaseScratch& scratch)
{
    CrossSpectrum result{{both.width, both.height, scratch.cross_real, scratch.cross_imaginary}, 1};
    result.cross.real.resize(both.real.size());
    result.cross.imaginary.resize(both.real.size());
    double sum_first = 0;
    double sum_second = 0;
    double sum_both = 0;
    for (std::size_t y = 0; y < both.height; ++y)
        for (std::size_t x = 0; x < both.width; ++x) {
            const std::size_t i = y * both.width + x;
            const std::size_t j = both.mirrored(x, y);
            const double first_real = 0.5 * (both.real[i] + both.real[j]);
            const double first_imaginary = 0.5 * (both.imaginary[i] - both.imaginary[j]);
            const double second_real = 0.5 * (both.imaginary[i] + both.imaginary[j]);
            const double second_imaginary = 0.5 * (both.real[j] - both.real[i]);
            result.cross.real[i] = first_real * second_real + first_imaginary * second_imaginary;
            result.cross.imaginary[i] = first_real * second_imaginary - first_imaginary * second_real;
            const double first_power = first_real * first_real + first_imaginary * first_imaginary;
            const double second_power = second_real * second_real + second_imaginary * second_imaginary;
            sum_first += first_power;
            sum_second += second_power;
            sum_both += first_power * second_power;
        }
    if (sum_first > 0 && sum_second > 0)
        result.chance = std::sqrt(sum_both / sum_first / sum_second);
    return result;
}

void whiten(const Spectrum& cross)
{
    constexpr double kRare = 0.3; // of the mean magnitude: frequencies below it count less and less
    double mean = 0;
    for (std::size_t i = 0; i < cross.real.size(); ++i)
        mean += std::sqrt(cross.real[i] * cross.real[i] + cross.imaginary[i] * cross.imaginary[i]);
    mean /= static_cast<double>(cross.real.size());
    for (std::size_t i = 0; i < cross.real.size(); ++i) {
        const double size = std::sqrt(cross.real[i] * cross.real[i] + cross.imaginary[i] * cross.imaginary[i]);
        const double factor = size > 0 ? 1 / (size + kRare * mean) : 0;
        cross.real[i] *= factor;
        cross.imaginary[i] *= -factor; // conjugate: the next transform is the inverse one
    }
}

int signed_shift(std::size_t index, std::size_t size)
{
    return static_cast<int>(index) - (2 * index > size ? static_cast<int>(size) : 0);
}

// The highest places that are not beside each other.
std::vector<ShiftCandidate> find_peaks(const Spectrum& surface, int reach_x, int reach_y)
{
    constexpr std::size_t kPeaks = 3;
    constexpr int kApart = 3;
    const double scale = 1 / static_cast<double>(surface.real.size());
    std::vector<ShiftCandidate> peaks;
    while (peaks.size() < kPeaks) {
        ShiftCandidate best{0, 0, 0};
        for (std::size_t i = 0; i < surface.real.size(); ++i) {
            if (surface.real[i] * scale <= best.height)
                continue;
            const int x = signed_shift(i % surface.width, surface.width);
            const int y = signed_shift(i / surface.width, surface.height);
            const auto is_beside = [&](const ShiftCandidate& peak) {
                return std::abs(x - peak.x) < kApart && std::abs(y - peak.y) < kApart;
            };
            if (std::abs(x) > reach_x || std::abs(y) > reach_y || std::any_of(peaks.begin(), peaks.end(), is_beside))
                continue;
            best = {x, y, surface.real[i] * scale};
        }
        if (best.height <= 0)
            break;
        peaks.push_back(best);
    }
    return peaks;
}

} // namespace

void fourier_transform(std::vector<double>& real, std::vector<double>& imaginary, std::size_t width, std::size_t height,
                       std::vector<double>& turned)
{
    transform_columns(real, imaginary, width, height);
    transpose(real, width, height, turned);
    transpose(imaginary, width, height, turned);
    transform_columns(real, imaginary, height, width);
    transpose(real, height, width, turned);
    transpose(imaginary, height, width, turned);
}

PhaseCorrelation correlate_phases(const std::vector<float>& first, const std::vector<float>& second, std::size_t width,
                                  std::size_t height, PhaseScratch& scratch)
{
    if (width == 0 || height == 0)
        return {};
    const CrossSpectrum product = multiply(transform_both(first, second, width, height, scratch), scratch);
    whiten(product.cross);
    fourier_transform(product.cross.real, product.cross.imaginary, product.cross.width, product.cross.height,
                      scratch.turned);
    PhaseCorrelation result;
    result.peaks = find_peaks(product.cross, static_cast<int>(width / 3), static_cast<int>(height / 3));
    // Spectra of patches that were filled up with zeros have frequencies between the independent ones.
    result.chance = product.chance *
                    std::sqrt(static_cast<double>(product.cross.real.size()) / static_cast<double>(width * height));
    return result;
}

} // namespace panoval::mosaic
