// SPDX-License-Identifier: MIT
// Literal gain compensation: overlaps are cut out, intersected and summed one pixel after the other.
#pragma once

#include "libmath/libmath.h"
#include "panoval.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace panoval::reference
{

struct PairEntries {
    bool overlaps = false;
    std::int32_t count = 0;
    double mean_i = 0;
    double mean_j = 0;
};

// The overlap of an image, as packed samples; `at` reads one as the given width would, and 0 behind the end.
struct Cut {
    std::vector<std::uint8_t> bytes;
    std::int32_t channels = 0;

    std::int32_t at(std::size_t pixel, std::int32_t channel, std::int32_t sample_bytes) const
    {
        const std::size_t index = pixel * static_cast<std::size_t>(channels) + static_cast<std::size_t>(channel);
        const auto byte = [&](std::size_t i) { return i < bytes.size() ? bytes[i] : std::uint8_t{0}; };
        if (sample_bytes == 1)
            return byte(index);
        return byte(2 * index) | (byte(2 * index + 1) << 8);
    }
};

inline Cut cut_image(const Mat& image, const Roi& roi)
{
    Cut cut;
    cut.channels = image.channels;
    const auto pixel_bytes = static_cast<std::size_t>(image.channels) * static_cast<std::size_t>(image.elemSize);
    cut.bytes.assign(static_cast<std::size_t>(roi.width) * static_cast<std::size_t>(roi.height) * pixel_bytes, 0);
    if ((image.elemSize != 1 && image.elemSize != 2) || pixel_bytes == 0)
        return cut;
    for (std::int32_t r = 0; r < roi.height; ++r)
        for (std::int32_t c = 0; c < roi.width; ++c) {
            const std::int32_t x = roi.x + c;
            const std::int32_t y = roi.y + r;
            if (x < 0 || y < 0 || x >= image.width || y >= image.height)
                continue;
            const std::size_t from =
                static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) + static_cast<std::size_t>(x);
            const std::size_t to =
                static_cast<std::size_t>(r) * static_cast<std::size_t>(roi.width) + static_cast<std::size_t>(c);
            std::memcpy(&cut.bytes[to * pixel_bytes], image.data + from * pixel_bytes, pixel_bytes);
        }
    return cut;
}

inline std::vector<std::uint8_t> cut_mask(const Matb& mask, const Roi& roi)
{
    const Mat as_image = {mask.width, mask.height, 1, 1, 0, 0, mask.data};
    return cut_image(as_image, roi).bytes;
}

inline double pixel_norm(const Cut& cut, std::size_t pixel, std::int32_t channels, std::int32_t sample_bytes)
{
    double sum = 0;
    for (std::int32_t k = 0; k < channels; ++k) {
        const auto sample = static_cast<std::uint32_t>(cut.at(pixel, k, sample_bytes));
        sum += static_cast<double>(static_cast<std::int32_t>(sample * sample)); // wraps at 32 bits
    }
    return std::sqrt(sum);
}

inline PairEntries measure_pair(Point corner_i, const Mat& image_i, const Matb& mask_i, Point corner_j,
                                const Mat& image_j, const Matb& mask_j, bool sum_rows_first)
{
    const std::int32_t x = std::max(corner_i.x, corner_j.x);
    const std::int32_t y = std::max(corner_i.y, corner_j.y);
    const std::int32_t x_end = std::min(corner_i.x + image_i.width, corner_j.x + image_j.width);
    const std::int32_t y_end = std::min(corner_i.y + image_i.height, corner_j.y + image_j.height);
    if (x >= x_end || y >= y_end)
        return {};
    const Roi in_i = {x - corner_i.x, y - corner_i.y, x_end - x, y_end - y};
    const Roi in_j = {x - corner_j.x, y - corner_j.y, x_end - x, y_end - y};
    const Cut cut_i = cut_image(image_i, in_i);
    const Cut cut_j = cut_image(image_j, in_j);
    const auto covered_i = cut_mask(mask_i, in_i);
    const auto covered_j = cut_mask(mask_j, in_j);

    std::int32_t count = 0;
    double sum_i = 0;
    double sum_j = 0;
    for (std::size_t r = 0; r < static_cast<std::size_t>(in_i.height); ++r) {
        double row_i = 0;
        double row_j = 0;
        for (std::size_t c = 0; c < static_cast<std::size_t>(in_i.width); ++c) {
            const std::size_t pixel = r * static_cast<std::size_t>(in_i.width) + c;
            if (covered_i[pixel] == 0 || covered_j[pixel] == 0)
                continue;
            ++count;
            if (image_i.elemSize != 1 && image_i.elemSize != 2)
                continue;
            const double norm_i = pixel_norm(cut_i, pixel, image_i.channels, image_i.elemSize);
            const double norm_j = pixel_norm(cut_j, pixel, image_i.channels, image_i.elemSize);
            (sum_rows_first ? row_i : sum_i) += norm_i;
            (sum_rows_first ? row_j : sum_j) += norm_j;
        }
        if (sum_rows_first) {
            sum_i += row_i;
            sum_j += row_j;
        }
    }
    count = std::max(count, 1);
    return {true, count, sum_i / count, sum_j / count};
}

struct GainTables {
    std::vector<std::int32_t> counts;
    std::vector<double> intensities;
};

inline GainTables measure_all_pairs(const std::vector<Point>& corners, const std::vector<Mat>& images,
                                    const std::vector<Matb>& masks, bool sum_rows_first)
{
    const std::size_t n = corners.size();
    GainTables tables{std::vector<std::int32_t>(n * n), std::vector<double>(n * n)};
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = i; j < n; ++j) {
            const auto pair =
                measure_pair(corners[i], images[i], masks[i], corners[j], images[j], masks[j], sum_rows_first);
            if (!pair.overlaps)
                continue;
            tables.counts[i * n + j] = tables.counts[j * n + i] = pair.count;
            tables.intensities[i * n + j] = pair.mean_i;
            tables.intensities[j * n + i] = pair.mean_j;
        }
    return tables;
}

inline std::vector<double> solve_gains(const GainTables& tables, std::size_t n, bool symmetric)
{
    std::vector<double> a(n * n);
    std::vector<double> b(n);
    std::vector<double> gains(n);
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t j = 0; j < n; ++j) {
            const double count = tables.counts[i * n + j];
            const double ij = tables.intensities[i * n + j];
            const double ji = tables.intensities[j * n + i];
            b[i] += 100.0 * count;
            a[i * n + i] += 100.0 * count;
            if (i != j) {
                a[i * n + i] += count * ((ij * 0.02) * ij);
                a[i * n + j] -= ((ij * 0.02) * ji) * count;
            }
        }
    const auto size = static_cast<std::int32_t>(n);
    std::vector<std::int32_t> scratch1(n);
    std::vector<std::int32_t> scratch2(n);
    if (symmetric)
        matrix_symmetric_invert(a.data(), size);
    else
        matrix_invert(a.data(), size, scratch1.data(), scratch2.data());
    matrix_mult(a.data(), b.data(), gains.data(), size, size, 1);
    return gains;
}

inline std::int32_t gained_sample(std::int32_t sample, double gain, std::int32_t largest)
{
    const double value = std::floor(sample * gain + 0.5);
    // Out of the range of 32 bits, and not a number: the most negative integer.
    const bool fits = value >= -2147483648.0 && value < 2147483648.0;
    const std::int32_t whole = fits ? static_cast<std::int32_t>(value) : std::numeric_limits<std::int32_t>::min();
    return std::min(std::max(whole, 0), largest);
}

inline void apply_gain(Mat& image, double gain)
{
    const auto count = static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height) *
                       static_cast<std::size_t>(image.channels);
    if (image.elemSize == 1)
        for (std::size_t i = 0; i < count; ++i)
            image.data[i] = static_cast<std::uint8_t>(gained_sample(image.data[i], gain, 255));
    if (image.elemSize == 2)
        for (std::size_t i = 0; i < count; ++i) {
            const std::int32_t sample = image.data[2 * i] | (image.data[2 * i + 1] << 8);
            const std::int32_t result = gained_sample(sample, gain, 65535);
            image.data[2 * i] = static_cast<std::uint8_t>(result & 0xFF);
            image.data[2 * i + 1] = static_cast<std::uint8_t>(result >> 8);
        }
}

} // namespace panoval::reference
