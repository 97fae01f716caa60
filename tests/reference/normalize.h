// SPDX-License-Identifier: MIT
// The division of sums by weights as it is defined, one sample after the other.
#pragma once

#include "panoval.h"

#include <cmath>
#include <cstddef>

namespace panoval::reference
{

inline void normalize_by_weight(const Matf* weight, Matf* sums)
{
    for (std::ptrdiff_t y = 0; y < sums->height; ++y)
        for (std::ptrdiff_t x = 0; x < sums->width; ++x)
            for (std::ptrdiff_t c = 0; c < sums->channels; ++c) {
                float* const sample = sums->data + (y * sums->width + x) * sums->channels + c;
                float s = *sample / (weight->data[y * weight->width + x] + 1e-5f);
                s = s + 0.5f;
                *sample = static_cast<float>(std::floor(static_cast<double>(s)));
            }
}

} // namespace panoval::reference
