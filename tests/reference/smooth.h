// SPDX-License-Identifier: MIT
// The definition of smoothing: 25 products, added one by one in double in the kernel's order, and floored.
#pragma once

#include "tests/reference/gaussian_kernel.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace panoval::reference
{

inline void smooth_image(const std::uint8_t* src, int width, int height, std::uint8_t* dst)
{
    double kernel[25];
    gaussian_kernel(kernel, 5, 1.0);
    std::ptrdiff_t offsets[25];
    for (int dy = -2; dy <= 2; ++dy)
        for (int dx = -2; dx <= 2; ++dx)
            offsets[(dy + 2) * 5 + (dx + 2)] = static_cast<std::ptrdiff_t>(dy) * width + dx;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::ptrdiff_t index = static_cast<std::ptrdiff_t>(y) * width + x;
            if (y < 2 || y >= height - 2 || x < 2 || x >= width - 2) {
                dst[index] = src[index];
                continue;
            }
            double sum = 0.0;
            for (int k = 0; k < 25; ++k)
                sum = sum + static_cast<double>(src[index + offsets[k]]) * kernel[k];
            dst[index] = static_cast<std::uint8_t>(static_cast<std::uint32_t>(static_cast<int>(std::floor(sum))));
        }
}

} // namespace panoval::reference
