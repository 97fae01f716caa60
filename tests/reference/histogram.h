// SPDX-License-Identifier: MIT
// Histogram and threshold as they are defined.
#pragma once

#include <cstdint>

namespace panoval::reference
{

inline std::int32_t histogram_count(const std::uint8_t* pixels, std::int32_t width, std::int32_t height,
                                    double** histogram)
{
    double* const p = *histogram;
    for (int i = 0; i < 256; ++i)
        p[i] = 0.0;
    const auto n = static_cast<std::int32_t>(static_cast<std::uint32_t>(width) * static_cast<std::uint32_t>(height));
    for (std::int32_t i = 0; i < n; ++i)
        p[pixels[i]] += 1.0;
    for (int i = 0; i < 256; ++i)
        p[i] = p[i] / static_cast<double>(n);
    return 1;
}

inline std::int32_t find_threshold(const double* p)
{
    double mu_t = 0;
    for (int i = 0; i < 256; ++i)
        mu_t += static_cast<double>(i) * p[i];

    double sigma[256] = {};
    double omega = 0;
    double mu = 0;
    for (int k = 0; k < 256; ++k) {
        omega += p[k];
        mu += static_cast<double>(k) * p[k];
        const double m1 = mu / omega;
        const double m2 = (mu_t - mu) / (1 - omega);
        sigma[k] = (1 - omega) * omega * (m2 - m1) * (m2 - m1);
    }

    double largest = 0.0;
    std::int32_t result = -1;
    for (int k = 0; k < 256; ++k)
        if (sigma[k] > largest) {
            largest = sigma[k];
            result = k;
        }
    return result;
}

} // namespace panoval::reference
