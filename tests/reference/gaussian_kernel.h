// SPDX-License-Identifier: MIT
// The definition of the Gaussian kernel.
#pragma once

#include "core/elementary.h"

namespace panoval::reference
{

inline void gaussian_kernel(double* kernel, int size, double sigma)
{
    if (size < 1)
        return;
    const int c = size / 2;
    double sum = 0;
    for (int i = 0; i < size; ++i)
        for (int j = 0; j < size; ++j) {
            const int y = i - c;
            const int x = j - c;
            const int d = -(x * x + y * y);
            const double quotient = static_cast<double>(d) / ((sigma + sigma) * sigma);
            const double factor = 1.0 / ((sigma * 6.283185307179586) * sigma);
            const double value = panoval::exp(quotient) * factor;
            kernel[i * size + j] = value;
            sum = sum + value;
        }
    for (int i = 0; i < size * size; ++i)
        kernel[i] = kernel[i] / sum;
}

} // namespace panoval::reference
