// SPDX-License-Identifier: MIT
// Another libmath, different on purpose: plain loops, Gauss-Jordan elimination, other associations. It uses the whole
// scratch that it is given, spoils the matrices that it may spoil, and keeps a record of its calls.
#include "tests/libmath/standin.h"
#include "libmath/libmath.h"

#include <cmath>
#include <cstddef>
#include <cstring>

namespace
{

using panoval::test::Observation;
using panoval::test::StandInState;

StandInState state = {};
bool starts_pass = true; // no observation since the last solve

std::size_t at(std::int32_t i, std::int32_t j, std::int32_t n)
{
    return static_cast<std::size_t>(i) * static_cast<std::size_t>(n) + static_cast<std::size_t>(j);
}

void swap_rows(double* a, std::int32_t i, std::int32_t j, std::int32_t n)
{
    for (std::int32_t k = 0; k < n; ++k) {
        const double kept = a[at(i, k, n)];
        a[at(i, k, n)] = a[at(j, k, n)];
        a[at(j, k, n)] = kept;
    }
}

// Gauss-Jordan elimination of a, with the same steps done to the m columns of b.
std::int32_t eliminate(double* a, std::int32_t n, double* b, std::int32_t m)
{
    for (std::int32_t p = 0; p < n; ++p) {
        std::int32_t best = p;
        for (std::int32_t i = p; i < n; ++i)
            if (std::fabs(a[at(i, p, n)]) > std::fabs(a[at(best, p, n)]))
                best = i;
        if (!(std::fabs(a[at(best, p, n)]) > 0))
            return 0;
        swap_rows(a, p, best, n);
        swap_rows(b, p, best, m);
        for (std::int32_t i = 0; i < n; ++i) {
            const double factor = a[at(i, p, n)] / a[at(p, p, n)];
            if (i == p)
                continue;
            for (std::int32_t k = p; k < n; ++k)
                a[at(i, k, n)] -= factor * a[at(p, k, n)];
            for (std::int32_t k = 0; k < m; ++k)
                b[at(i, k, m)] -= factor * b[at(p, k, m)];
        }
    }
    for (std::int32_t i = 0; i < n; ++i)
        for (std::int32_t k = 0; k < m; ++k)
            b[at(i, k, m)] /= a[at(i, i, n)];
    return 1;
}

std::int32_t invert(double* a, std::int32_t n)
{
    constexpr std::int32_t kMax = 64;
    static double inverse[kMax * kMax];
    if (n < 0 || n > kMax)
        return 0;
    for (std::int32_t i = 0; i < n; ++i)
        for (std::int32_t j = 0; j < n; ++j)
            inverse[at(i, j, n)] = i == j ? 1 : 0;
    const std::int32_t result = eliminate(a, n, inverse, n);
    for (std::int32_t i = 0; i < n * n; ++i)
        a[i] = inverse[i];
    return result;
}

bool is_zero(const double* values, std::int32_t count)
{
    for (std::int32_t i = 0; i < count; ++i)
        if (values[i] != 0)
            return false;
    return true;
}

} // namespace

extern "C" {

LIBMATH_API StandInState* standin_state()
{
    return &state;
}

LIBMATH_API int32_t matrix_invert(double* a, int32_t n, int32_t* scratch1, int32_t* scratch2)
{
    const std::int32_t call = state.calls[panoval::test::kMatrixInvert]++;
    bool was_zero = call == 0 || state.scratch_was_zero != 0;
    for (std::int32_t i = 0; i < n; ++i) {
        was_zero = was_zero && scratch1[i] == 0 && scratch2[i] == 0;
        scratch1[i] = scratch2[i] = -1;
    }
    state.scratch_was_zero = was_zero;
    return invert(a, n);
}

LIBMATH_API int32_t matrix_symmetric_invert(double* a, int32_t n)
{
    ++state.calls[panoval::test::kMatrixSymmetricInvert];
    return invert(a, n);
}

LIBMATH_API int32_t matrix_mult(const double* a, const double* b, double* c, int32_t rows, int32_t inner,
                                int32_t columns)
{
    ++state.calls[panoval::test::kMatrixMult];
    for (std::int32_t i = 0; i < rows; ++i)
        for (std::int32_t j = 0; j < columns; ++j) {
            double sum = 0;
            for (std::int32_t k = inner - 1; k >= 0; --k)
                sum += a[at(i, k, inner)] * b[at(k, j, columns)];
            c[at(i, j, columns)] = sum;
        }
    return 1;
}

LIBMATH_API int32_t pnrml(const double* row, int32_t n, double value, double* normal, double* rhs, double weight)
{
    const std::int32_t call = state.calls[panoval::test::kPnrml]++;
    if (call < StandInState::kMaxObservations && n == 5) {
        Observation& seen = state.observations[call];
        std::memcpy(seen.row, row, sizeof seen.row);
        seen.value = value;
        seen.weight = weight;
    }
    if (starts_pass)
        state.equations_were_zero =
            (call == 0 || state.equations_were_zero != 0) && is_zero(normal, n * n) && is_zero(rhs, n);
    starts_pass = false;
    for (std::int32_t i = n - 1; i >= 0; --i) {
        rhs[i] += weight * (value * row[i]);
        for (std::int32_t j = n - 1; j >= 0; --j)
            normal[at(i, j, n)] += weight * (row[i] * row[j]);
    }
    return 1;
}

LIBMATH_API int32_t solve_lsq(double* normal, double* rhs, double* solution, int32_t rows, int32_t columns,
                              double* work)
{
    constexpr std::int32_t kWork = 256;
    const std::int32_t call = state.calls[panoval::test::kSolveLsq]++;
    starts_pass = true;
    for (std::int32_t i = 0; i < kWork; ++i)
        work[i] = NAN;
    state.solution_was_zero = (call == 0 || state.solution_was_zero != 0) && is_zero(solution, columns);
    const std::int32_t result = eliminate(normal, rows, rhs, 1);
    const double* const source = call < state.answers ? state.answer[call] : rhs;
    for (std::int32_t i = 0; i < columns; ++i)
        solution[i] = source[i];
    for (std::int32_t i = 0; i < rows; ++i)
        normal[at(i, i, columns)] = rhs[i] = NAN;
    return state.result != 0 ? state.result : result;
}

} // extern "C"
