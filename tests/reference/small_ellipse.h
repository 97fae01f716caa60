// SPDX-License-Identifier: MIT
// The small-ellipse finder as it is defined, step by step. Positions outside the image read as 0 and are not painted.
#pragma once

#include "core/elementary.h"
#include "core/numbers.h"
#include "panoval.h"
#include "tests/reference/histogram.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace panoval::reference
{

struct SmallEllipseTrace {
    std::int32_t samples = 0;
    std::int32_t threshold = 0;
    std::int32_t inside_mean = 0;
    std::vector<double> extents; // of every run
};

// Mean of the pixels with trunc(|P - F1| + |P - F2| - sum) < 0
inline std::int32_t mean_inside(const std::uint8_t* image, std::int32_t width, std::int32_t height, std::int32_t f1x,
                                std::int32_t f1y, std::int32_t f2x, std::int32_t f2y, double sum)
{
    std::int64_t grey = 0;
    std::int64_t count = 0;
    for (std::int32_t y = 0; y < height; ++y)
        for (std::int32_t x = 0; x < width; ++x) {
            const double x1 = static_cast<double>(x) - static_cast<double>(f1x);
            const double y1 = static_cast<double>(y) - static_cast<double>(f1y);
            const double x2 = static_cast<double>(x) - static_cast<double>(f2x);
            const double y2 = static_cast<double>(y) - static_cast<double>(f2y);
            const double distances = std::sqrt(x1 * x1 + y1 * y1) + std::sqrt(x2 * x2 + y2 * y2);
            if (truncate_to_int(distances - sum) < 0) {
                grey +=
                    image[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)];
                ++count;
            }
        }
    return count == 0 ? 0 : static_cast<std::int32_t>(grey / count);
}

inline std::uint32_t find_small_ellipse(std::uint8_t* image, std::int32_t width, std::int32_t height,
                                        const double* ellipse, EllipseRegion** regions,
                                        SmallEllipseTrace* trace = nullptr)
{
    struct Sample {
        std::int32_t index;
        std::int32_t value;
        std::int32_t r;
    };
    SmallEllipseTrace ignored;
    SmallEllipseTrace& seen = trace != nullptr ? *trace : ignored;
    *regions = nullptr;

    const double two_pi = 6.283185307179586;
    const double cx = ellipse[0];
    const double cy = ellipse[1];
    const double A = ellipse[2];
    const double B = ellipse[3];
    const double t = ellipse[4];
    const std::int64_t pixels =
        width > 0 && height > 0 ? static_cast<std::int64_t>(width) * static_cast<std::int64_t>(height) : 0;

    const std::int32_t N = truncate_to_int((2 * A - 2 * B) * 4 + 2 * B * two_pi);
    seen.samples = N;
    if (N < 1 || B == 0)
        return 0;

    std::vector<Sample> samples;
    for (std::int32_t i = 0; i < N; ++i) {
        const double phi = static_cast<double>(i) * two_pi / static_cast<double>(N);
        const double c2 = panoval::cos(phi) * panoval::cos(phi);
        const double s2 = panoval::sin(phi) * panoval::sin(phi);
        const std::int32_t r = truncate_to_int(std::sqrt(1 / (c2 / (A * A) + s2 / (B * B))));
        const double dx = static_cast<double>(truncate_to_int(static_cast<double>(r) * panoval::cos(phi)));
        const double dy = static_cast<double>(truncate_to_int(static_cast<double>(r) * panoval::sin(phi)));
        const double X = dx * panoval::cos(t) - dy * panoval::sin(t) + cx;
        const double Y = dy * panoval::cos(t) + dx * panoval::sin(t) + cy;
        const std::int32_t index = wrapping_add(wrapping_mul(truncate_to_int(Y), width), truncate_to_int(X));
        const bool is_in_buffer = index >= 0 && index < pixels;
        samples.push_back({index, is_in_buffer ? image[index] : 0, r});
    }

    double bins[256] = {};
    for (const Sample& sample : samples)
        bins[sample.value] += 1.0;
    for (double& bin : bins)
        bin = bin / static_cast<double>(N);
    const std::int32_t T = find_threshold(bins);
    seen.threshold = T;

    const std::int32_t c = truncate_to_int(std::sqrt((A / 2) * (A / 2) - (B / 2) * (B / 2)));
    const std::int32_t M = mean_inside(
        image, width, height, truncate_to_int(cx - c * panoval::cos(t)), truncate_to_int(cy - c * panoval::sin(t)),
        truncate_to_int(cx + c * panoval::cos(t)), truncate_to_int(cy + c * panoval::sin(t)), A);
    seen.inside_mean = M;

    if (!(T > 0))
        return 0;

    std::vector<int> flag;
    for (const Sample& sample : samples) {
        flag.push_back(sample.value > T && sample.value > 0.6 * M ? 1 : 0);
        if (sample.index >= 0 && sample.index < pixels)
            image[sample.index] = flag.back() == 1 ? 0 : 255;
    }

    const auto at = [](std::int64_t i) { return static_cast<std::size_t>(i); };
    std::int64_t s = -1;
    for (std::int64_t i = 0; i < N && s < 0; ++i)
        if (flag[at(i)] == 0 && flag[at((i + 1) % N)] == 1)
            s = i;
    if (s < 0)
        return 0;

    std::vector<EllipseRegion> records;
    const auto append = [&](std::int64_t i, std::int64_t size) {
        EllipseRegion record = {};
        record.cx = samples[at(i)].index % width;
        record.cy = samples[at(i)].index / width;
        record.major = record.minor = static_cast<double>(size);
        records.push_back(record);
    };
    const auto alpha = [&](std::int64_t i) {
        const double q = A / B;
        const double x = static_cast<double>(samples[at(i)].index % width) - static_cast<double>(width / 2);
        const double y = static_cast<double>(samples[at(i)].index / width) - static_cast<double>(height / 2);
        return panoval::atan2(q * (y * panoval::cos(t) - x * panoval::sin(t)),
                              x * panoval::cos(t) + y * panoval::sin(t));
    };
    std::int64_t start = -1;
    for (std::int64_t j = 0; j < N; ++j) {
        const std::int64_t k = (s + j) % N;
        const std::int64_t k1 = (k + 1) % N;
        if (flag[at(k)] == 0 && flag[at(k1)] == 1)
            start = k;
        if (flag[at(k)] == 1 && flag[at(k1)] == 0) {
            const std::int64_t end = k < s ? k + N : k;
            double delta = alpha(end % N) - alpha(start);
            if (delta < 0)
                delta += two_pi;
            seen.extents.push_back(delta);
            if (delta > 0.2 && delta < 1.2) {
                if (delta > 0.6) {
                    const std::int64_t h = (end - start) / 4;
                    append((start + h) % N, h);
                    append((end - h) % N, h);
                } else {
                    append(((start + end) / 2) % N, (end - start) / 2);
                }
            }
        }
    }
    if (records.empty())
        return 0;
    *regions = static_cast<EllipseRegion*>(std::malloc(records.size() * sizeof(EllipseRegion)));
    std::memcpy(*regions, records.data(), records.size() * sizeof(EllipseRegion));
    return static_cast<std::uint32_t>(records.size());
}

} // namespace panoval::reference
