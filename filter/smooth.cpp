// SPDX-License-Identifier: MIT
// Smoothing of 8-bit images with the 5 x 5 Gaussian kernel of sigma 1.
#include "core/numbers.h"
#include "panoval.h"

#include <cstring>

namespace
{

using panoval::to_count;

constexpr int kFrame = 2;

std::uint8_t smooth_pixel(const std::uint8_t* centre, std::ptrdiff_t stride, const double* kernel)
{
    double sum = 0;
    for (int dy = -kFrame; dy <= kFrame; ++dy)
        for (int dx = -kFrame; dx <= kFrame; ++dx)
            sum += centre[dy * stride + dx] * *kernel++;
    return panoval::low_byte(panoval::truncate_to_int(sum)); // a sum of positive terms: truncated is floored
}

} // namespace

extern "C" {

void smooth_image(const std::uint8_t* src, std::int32_t width, std::int32_t height, std::uint8_t* dst)
{
    double kernel[25];
    GetGaussianKernel(kernel, 5, 1.0);
    for (std::int32_t y = 0; y < height; ++y) {
        const auto row = static_cast<std::size_t>(y) * to_count(width);
        const bool is_frame = y < kFrame || y >= height - kFrame;
        for (std::int32_t x = 0; x < width; ++x) {
            const std::uint8_t* const centre = src + row + x;
            dst[row + static_cast<std::size_t>(x)] =
                is_frame || x < kFrame || x >= width - kFrame ? *centre : smooth_pixel(centre, width, kernel);
        }
    }
}

} // extern "C"
