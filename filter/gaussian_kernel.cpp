// SPDX-License-Identifier: MIT
// The square two-dimensional Gaussian kernel.
#include "core/elementary.h"
#include "core/numbers.h"
#include "panoval.h"

namespace
{

using panoval::wrapping_add;
using panoval::wrapping_mul;
using panoval::wrapping_sub;

constexpr double kTwoPi = 6.283185307179586;

} // namespace

extern "C" {

void GetGaussianKernel(double* kernel, std::int32_t size, double sigma)
{
    if (size < 1)
        return;
    const std::int32_t centre = size / 2;
    const auto count = static_cast<std::size_t>(size) * static_cast<std::size_t>(size);
    // The factor cancels in the division by the sum, but not in the last bits.
    const double factor = 1 / (sigma * kTwoPi * sigma);
    double sum = 0;
    double* element = kernel;
    for (std::int32_t i = 0; i < size; ++i)
        for (std::int32_t j = 0; j < size; ++j, ++element) {
            const std::int32_t y = i - centre;
            const std::int32_t x = j - centre;
            const std::int32_t exponent = wrapping_sub(0, wrapping_add(wrapping_mul(x, x), wrapping_mul(y, y)));
            *element = panoval::exp(exponent / ((sigma + sigma) * sigma)) * factor;
            sum += *element;
        }
    for (std::size_t k = 0; k < count; ++k)
        kernel[k] /= sum;
}

} // extern "C"
