// SPDX-License-Identifier: MIT
// A butterfly of two rows of complex numbers, as it is defined.
#pragma once

#include "mosaic/verdict/butterfly_rows.h"

#include <cstddef>

namespace panoval::reference
{

inline void combine_rows(const mosaic::ComplexRow& a, const mosaic::ComplexRow& b, const mosaic::Turn& turn,
                         std::size_t width)
{
    for (std::size_t x = 0; x < width; ++x) {
        const double real = b.real[x] * turn.cosine - b.imaginary[x] * turn.sine;
        const double imaginary = b.real[x] * turn.sine + b.imaginary[x] * turn.cosine;
        b.real[x] = a.real[x] - real;
        b.imaginary[x] = a.imaginary[x] - imaginary;
        a.real[x] += real;
        a.imaginary[x] += imaginary;
    }
}

} // namespace panoval::reference
