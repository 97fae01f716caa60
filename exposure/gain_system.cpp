// SPDX-License-Identifier: MIT
// Least squares with two weights (Brown and Lowe, Automatic panoramic image stitching using invariant features, 2007):
// one pulls every gain towards 1, the other pulls the gained intensities of each overlapping pair towards each other.
#include "exposure/gain_system.h"

#include "core/numbers.h"
#include "libmath/libmath.h"

namespace panoval
{
namespace
{

constexpr double kWeightOfUnity = 100.0;
constexpr double kWeightOfAgreement = 0.02;

} // namespace

GainSystem build_gain_system(std::int32_t n, const std::int32_t* counts, const double* intensities)
{
    const std::size_t size = to_count(n);
    GainSystem system{allocate_zeroed<double>(size * size), allocate_zeroed<double>(size)};
    if (!system)
        return system;
    for (std::size_t i = 0; i < size; ++i)
        for (std::size_t j = 0; j < size; ++j) {
            const double count = counts[i * size + j];
            const double own = intensities[i * size + j];
            const double other = intensities[j * size + i];
            system.b[i] += kWeightOfUnity * count;
            system.a[i * size + i] += kWeightOfUnity * count;
            if (j == i)
                continue;
            system.a[i * size + i] += count * ((own * kWeightOfAgreement) * own);
            system.a[i * size + j] -= ((own * kWeightOfAgreement) * other) * count;
        }
    return system;
}

bool solve_general(GainSystem& system, std::int32_t n, double* gains)
{
    const auto scratch1 = allocate_zeroed<std::int32_t>(to_count(n));
    const auto scratch2 = allocate_zeroed<std::int32_t>(to_count(n));
    if (!scratch1 || !scratch2)
        return false;
    if (matrix_invert(system.a.get(), n, scratch1.get(), scratch2.get()) < 0)
        return false;
    (void)matrix_mult(system.a.get(), system.b.get(), gains, n, n, 1);
    return true;
}

bool solve_symmetric(GainSystem& system, std::int32_t n, double* gains)
{
    if (matrix_symmetric_invert(system.a.get(), n) < 0)
        return false;
    (void)matrix_mult(system.a.get(), system.b.get(), gains, n, n, 1);
    return true;
}

} // namespace panoval
