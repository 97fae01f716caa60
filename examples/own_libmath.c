/* SPDX-License-Identifier: MIT */
/* A libmath of the host's own: as libmath.so.1 first on the library path (on Windows as libmath.dll beside the program)
   it takes the place of ours. It does what Panoval asks for: positive sizes, positive definite matrices. */
#define LIBMATH_BUILDING
#include "libmath/libmath.h"

#include <stdio.h>
#include <string.h>

static void add(double* row, double factor, const double* other, int32_t count)
{
    for (int32_t i = 0; i < count; ++i)
        row[i] += factor * other[i];
}

/* Gauss and Jordan in place; what is positive definite needs no rows exchanged. */
int32_t matrix_invert(double* a, int32_t n, int32_t* scratch1, int32_t* scratch2)
{
    (void)scratch1, (void)scratch2;
    fprintf(stderr, "own libmath inverts %d x %d\n", n, n);
    for (int32_t k = 0; k < n; ++k) {
        const double pivot = a[k * n + k];
        if (!(pivot > 0))
            return 0; /* ours leaves a singular matrix as it was */
        a[k * n + k] = 1;
        for (int32_t j = 0; j < n; ++j)
            a[k * n + j] /= pivot;
        for (int32_t i = 0; i < n; ++i)
            if (i != k) {
                const double factor = a[i * n + k];
                a[i * n + k] = 0;
                add(a + i * n, -factor, a + k * n, n);
            }
    }
    return 1;
}

int32_t matrix_symmetric_invert(double* a, int32_t n)
{
    for (int32_t i = 0; i < n * n; ++i) /* what is above the diagonal may be anything */
        a[i] = i / n < i % n ? a[i % n * n + i / n] : a[i];
    return matrix_invert(a, n, NULL, NULL);
}

int32_t matrix_mult(const double* a, const double* b, double* c, int32_t rows, int32_t inner, int32_t columns)
{
    memset(c, 0, (size_t)rows * (size_t)columns * sizeof *c);
    for (int32_t i = 0; i < rows * inner; ++i)
        add(c + i / inner * columns, a[i], b + i % inner * columns, columns);
    return 1;
}

int32_t pnrml(const double* row, int32_t n, double value, double* normal, double* rhs, double weight)
{
    for (int32_t i = 0; i < n; ++i)
        add(normal + i * n, weight * row[i], row, n);
    add(rhs, weight * value, row, n);
    return 1;
}

int32_t solve_lsq(double* normal, double* rhs, double* solution, int32_t rows, int32_t columns, double* work)
{
    (void)work;
    return rows == columns && matrix_symmetric_invert(normal, columns) == 1 &&
           matrix_mult(normal, rhs, solution, columns, columns, 1) == 1;
}
