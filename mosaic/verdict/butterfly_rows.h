// SPDX-License-Identifier: MIT
// The kernel of Fourier transforms down the columns: one butterfly of two whole rows.
#pragma once

#include <cstddef>

namespace panoval::mosaic
{

// A complex factor of magnitude 1.
struct Turn {
    double cosine;
    double sine;
};

// A row of complex numbers.
struct ComplexRow {
    double* real;
    double* imaginary;
};

// a[x], b[x] become a[x] + turn b[x], a[x] - turn b[x] for x below width. The rows must not overlap.
void combine_rows(const ComplexRow& a, const ComplexRow& b, const Turn& turn, std::size_t width);

} // namespace panoval::mosaic
