// SPDX-License-Identifier: MIT
// The edge detector as its definition reads: whole images of doubles, every tap tested, every case of the direction
// table written out, a plain list for edge following. Needs at least 3 x 3 pixels.
#pragma once

#include "core/elementary.h"
#include "core/numbers.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace panoval::reference
{

struct CannyImages {
    std::vector<std::int16_t> smoothed;
    std::vector<std::int16_t> delta_x;
    std::vector<std::int16_t> delta_y;
    std::vector<std::int16_t> magnitude;
    std::vector<std::uint8_t> map;
    std::vector<std::uint8_t> edge;
};

inline std::int16_t as_int16(std::int32_t value)
{
    return static_cast<std::int16_t>(low_half(value));
}

// Empty when sigma has no kernel.
inline std::vector<double> canny_kernel(double sigma)
{
    const std::int32_t length = truncate_to_int(2 * std::ceil(2.5 * sigma) + 1);
    if (length < 1)
        return {};
    const std::int32_t centre = length / 2;
    std::vector<double> kernel(static_cast<std::size_t>(length));
    double sum = 0;
    for (std::int32_t i = 0; i < length; ++i) {
        const double x = i - centre;
        const double k = panoval::pow(2.71828, ((x * -0.5) * x) / (sigma * sigma)) / (std::sqrt(6.2831853) * sigma);
        kernel[static_cast<std::size_t>(i)] = k;
        sum += k;
    }
    for (double& k : kernel)
        k /= sum;
    return kernel;
}

inline std::vector<std::int16_t> canny_gaussian_smooth(const std::uint8_t* image, std::int32_t rows, std::int32_t cols,
                                                       double sigma)
{
    const std::vector<double> kernel = canny_kernel(sigma);
    const auto half = static_cast<std::int32_t>(kernel.size() / 2);
    const auto count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    const auto at = [cols](std::int32_t r, std::int32_t c) {
        return static_cast<std::size_t>(r) * static_cast<std::size_t>(cols) + static_cast<std::size_t>(c);
    };
    std::vector<double> buffer(count);
    for (std::int32_t r = 0; r < rows; ++r)
        for (std::int32_t c = 0; c < cols; ++c) {
            double dot = 0;
            double sum = 0;
            for (std::int32_t cc = -half; cc <= half; ++cc)
                if (c + cc >= 0 && c + cc < cols) {
                    const double k = kernel[static_cast<std::size_t>(half + cc)];
                    dot += static_cast<double>(image[at(r, c + cc)]) * k;
                    sum += k;
                }
            buffer[at(r, c)] = dot / sum;
        }
    std::vector<std::int16_t> smoothed(count);
    for (std::int32_t c = 0; c < cols; ++c)
        for (std::int32_t r = 0; r < rows; ++r) {
            double dot = 0;
            double sum = 0;
            for (std::int32_t rr = -half; rr <= half; ++rr)
                if (r + rr >= 0 && r + rr < rows) {
                    const double k = kernel[static_cast<std::size_t>(half + rr)];
                    dot += buffer[at(r + rr, c)] * k;
                    sum += k;
                }
            smoothed[at(r, c)] = as_int16(truncate_to_int(dot * 90.0 / sum + 0.5));
        }
    return smoothed;
}

inline void canny_derivatives(const std::int16_t* s, std::int32_t rows, std::int32_t cols, std::int16_t* delta_x,
                              std::int16_t* delta_y)
{
    for (std::int32_t r = 0; r < rows; ++r)
        for (std::int32_t c = 0; c < cols; ++c) {
            const std::ptrdiff_t pos = static_cast<std::ptrdiff_t>(r) * cols + c;
            const std::ptrdiff_t left = c == 0 ? pos : pos - 1;
            const std::ptrdiff_t right = c == cols - 1 ? pos : pos + 1;
            const std::ptrdiff_t above = r == 0 ? pos : pos - cols;
            const std::ptrdiff_t below = r == rows - 1 ? pos : pos + cols;
            delta_x[pos] = as_int16(s[right] - s[left]);
            delta_y[pos] = as_int16(s[below] - s[above]);
        }
}

inline void canny_magnitude(const std::int16_t* delta_x, const std::int16_t* delta_y, std::size_t count,
                            std::int16_t* magnitude)
{
    for (std::size_t i = 0; i < count; ++i) {
        const std::int32_t xx = delta_x[i] * delta_x[i];
        const std::int32_t yy = delta_y[i] * delta_y[i];
        magnitude[i] = as_int16(truncate_to_int(std::sqrt(static_cast<double>(xx) + static_cast<double>(yy)) + 0.5));
    }
}

// map holds rows x cols zeros at the start.
inline void canny_non_max_suppression(const std::int16_t* magnitude, const std::int16_t* delta_x,
                                      const std::int16_t* delta_y, std::int32_t rows, std::int32_t cols,
                                      std::uint8_t* map)
{
    const std::ptrdiff_t n = cols;
    std::int32_t gx = 0;
    std::int32_t gy = 0;
    double xperp = 0;
    double yperp = 0;
    for (std::int32_t r = 1; r <= rows - 3; ++r)
        for (std::int32_t c = 1; c <= cols - 3; ++c) {
            const std::ptrdiff_t pos = r * n + c;
            const std::int16_t* const z = magnitude + pos;
            const std::int32_t m = z[0];
            if (m != 0) {
                gx = delta_x[pos];
                gy = delta_y[pos];
                xperp = -gx / static_cast<double>(m);
                yperp = gy / static_cast<double>(m);
            } else if (gx < 0) {
                gy = delta_y[pos];
            }
            double mag1 = 0;
            double mag2 = 0;
            if (gx >= 0 && gy >= 0 && gx >= gy) {
                mag1 = (m - z[-1]) * xperp + (z[-n - 1] - z[-1]) * yperp;
                mag2 = (m - z[+1]) * xperp + (z[+n + 1] - z[+1]) * yperp;
            } else if (gx >= 0 && gy >= 0) {
                mag1 = (z[-n] - z[-n - 1]) * xperp + (z[-n] - m) * yperp;
                mag2 = (z[+n] - z[+n + 1]) * xperp + (z[+n] - m) * yperp;
            } else if (gx >= 0 && gx >= -gy) {
                mag1 = (m - z[-1]) * xperp + (z[-1] - z[+n - 1]) * yperp;
                mag2 = (m - z[+1]) * xperp + (z[+1] - z[-n + 1]) * yperp;
            } else if (gx >= 0) {
                mag1 = (z[+n] - z[+n - 1]) * xperp + (m - z[+n]) * yperp;
                mag2 = (z[-n] - z[-n + 1]) * xperp + (m - z[-n]) * yperp;
            } else if (gy >= 0 && -gx >= gy) {
                mag1 = (z[+1] - m) * xperp + (z[-n + 1] - z[+1]) * yperp;
                mag2 = (z[-1] - m) * xperp + (z[+n - 1] - z[-1]) * yperp;
            } else if (gy >= 0) {
                mag1 = (z[-n + 1] - z[-n]) * xperp + (z[-n] - m) * yperp;
                mag2 = (z[+n - 1] - z[+n]) * xperp + (z[+n] - m) * yperp;
            } else if (-gx > -gy) {
                mag1 = (z[+1] - m) * xperp + (z[+1] - z[+n + 1]) * yperp;
                mag2 = (z[-1] - m) * xperp + (z[-1] - z[-n - 1]) * yperp;
            } else {
                mag1 = (z[+n + 1] - z[+n]) * xperp + (m - z[+n]) * yperp;
                mag2 = (z[-n - 1] - z[-n]) * xperp + (m - z[-n]) * yperp;
            }
            map[pos] = mag1 > 0 || mag2 > 0 || mag2 == 0 ? 255 : 128;
        }
}

inline void canny_follow_edges(std::uint8_t* edge, const std::int16_t* magnitude, std::int16_t low, std::ptrdiff_t cols)
{
    const std::ptrdiff_t neighbours[8] = {1, -cols + 1, -cols, -cols - 1, -1, cols - 1, cols, cols + 1};
    std::deque<std::ptrdiff_t> queue = {0};
    while (!queue.empty()) {
        const std::ptrdiff_t p = queue.front();
        queue.pop_front();
        for (const std::ptrdiff_t offset : neighbours)
            if (edge[p + offset] == 128 && magnitude[p + offset] > low) {
                edge[p + offset] = 0;
                queue.push_back(p + offset);
            }
    }
}

struct CannyThresholds {
    std::int32_t high;
    std::int16_t low;
};

inline CannyThresholds canny_thresholds(const std::uint8_t* edge, const std::int16_t* magnitude, std::size_t count,
                                        double tlow, double thigh)
{
    std::vector<std::int32_t> histogram(32768);
    for (std::size_t i = 0; i < count; ++i)
        if (edge[i] == 128)
            ++histogram[static_cast<std::size_t>(magnitude[i])];
    std::int32_t total = 0;
    std::int32_t maxmag = 0;
    for (std::int32_t r = 1; r < 32768; ++r) {
        total += histogram[static_cast<std::size_t>(r)];
        if (histogram[static_cast<std::size_t>(r)] != 0)
            maxmag = r;
    }
    const std::int32_t highcount = truncate_to_int(total * thigh + 0.5);
    std::int32_t r = 1;
    std::int32_t acc = histogram[1];
    while (r < maxmag - 1 && acc < highcount) {
        ++r;
        acc += histogram[static_cast<std::size_t>(r)];
    }
    return {r, as_int16(truncate_to_int(r * tlow + 0.5))};
}

inline CannyThresholds canny_hysteresis(const std::int16_t* magnitude, const std::uint8_t* map, std::int32_t rows,
                                        std::int32_t cols, double tlow, double thigh, std::uint8_t* edge)
{
    const auto count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    for (std::int32_t r = 0; r < rows; ++r)
        for (std::int32_t c = 0; c < cols; ++c) {
            const std::ptrdiff_t pos = static_cast<std::ptrdiff_t>(r) * cols + c;
            const bool frame = r == 0 || r == rows - 1 || c == 0 || c == cols - 1;
            edge[pos] = map[pos] == 128 && !frame ? 128 : 255;
        }
    const CannyThresholds thresholds = canny_thresholds(edge, magnitude, count, tlow, thigh);
    for (std::size_t i = 0; i < count; ++i)
        if (edge[i] == 128 && magnitude[i] >= thresholds.high) {
            edge[i] = 0;
            canny_follow_edges(edge + i, magnitude + i, thresholds.low, cols);
        }
    for (std::size_t i = 0; i < count; ++i)
        if (edge[i] != 0)
            edge[i] = 255;
    return thresholds;
}

inline CannyImages canny(const std::uint8_t* image, std::int32_t rows, std::int32_t cols, double sigma, double tlow,
                         double thigh)
{
    const auto count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(cols);
    CannyImages images;
    images.smoothed = canny_gaussian_smooth(image, rows, cols, sigma);
    images.delta_x.resize(count);
    images.delta_y.resize(count);
    images.magnitude.resize(count);
    images.map.resize(count);
    images.edge.resize(count);
    canny_derivatives(images.smoothed.data(), rows, cols, images.delta_x.data(), images.delta_y.data());
    canny_magnitude(images.delta_x.data(), images.delta_y.data(), count, images.magnitude.data());
    canny_non_max_suppression(images.magnitude.data(), images.delta_x.data(), images.delta_y.data(), rows, cols,
                              images.map.data());
    canny_hysteresis(images.magnitude.data(), images.map.data(), rows, cols, tlow, thigh, images.edge.data());
    return images;
}

} // namespace panoval::reference
