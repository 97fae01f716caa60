// SPDX-License-Identifier: MIT
// By how much two patches are displaced, from the phases of their spectra.
#pragma once

#include <cstddef>
#include <vector>

namespace panoval::mosaic
{

// The discrete Fourier transform of width x height complex numbers in place; both sizes are powers of two. Forward,
// without a factor. Its factors come from square roots and products alone, so that every system gets the same bits.
// turned: scratch, as large afterwards
void fourier_transform(std::vector<double>& real, std::vector<double>& imaginary, std::size_t width, std::size_t height,
                       std::vector<double>& turned);

// Memory for one pair of patches after the other.
struct PhaseScratch {
    std::vector<double> real; // of both patches' spectrum
    std::vector<double> imaginary;
    std::vector<double> cross_real; // of the product
    std::vector<double> cross_imaginary;
    std::vector<double> turned;
};

struct ShiftCandidate {
    int x = 0;
    int y = 0;
    double height = 0; // of the peak; 1 for a patch and its exact copy
};

struct PhaseCorrelation {
    std::vector<ShiftCandidate> peaks; // the highest first, at most 3
    double chance = 1;                 // standard deviation of the correlation of patches that have nothing in common
};

// Two patches of width x height numbers, row by row; where nothing is known, 0. They should have no mean to speak of.
// A peak (x, y) says: what the first patch has at a place the second one has at that place + (x, y). Shifts up to a
// third of the size are looked at.
PhaseCorrelation correlate_phases(const std::vector<float>& first, const std::vector<float>& second, std::size_t width,
                                  std::size_t height, PhaseScratch& scratch);

} // namespace panoval::mosaic
