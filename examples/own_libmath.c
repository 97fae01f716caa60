/* SPDX-License-Identifier: MIT */
/* A libmath of the host's own. Built as libmath.so.1 and first on the library path it takes the place of ours; on
   Windows as libmath.dll beside the program. */
#define LIBMATH_BUILDING
#include "libmath/libmath.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Gauss and Jordan, with the largest pivot of each column. */
int32_t matrix_invert(double* a, int32_t n, int32_t* scratch1, int32_t* scratch2)
{
    double* w = n > 0 ? calloc(2 * (size_t)n * (size_t)n, sizeof *w) : NULL; /* a and the identity beside it */
    int32_t i, j, k;
    (void)scratch1, (void)scratch2;
    fprintf(stderr, "own libmath inverts %d x %d\n", n, n);
    for (i = 0; i < n && w != NULL; ++i) {
        memcpy(w + 2 * i * n, a + i * n, (size_t)n * sizeof *w);
        w[2 * i * n + n + i] = 1;
    }
    for (k = 0; k < n && w != NULL; ++k) {
        int32_t best = k;
        for (i = k; i < n; ++i)
            best = fabs(w[2 * i * n + k]) > fabs(w[2 * best * n + k]) ? i : best;
        for (j = 0; j < 2 * n; ++j) {
            const double swap = w[2 * k * n + j];
            w[2 * k * n + j] = w[2 * best * n + j];
            w[2 * best * n + j] = swap;
        }
        for (i = 0; i < n && w[2 * k * n + k] != 0; ++i) {
            const double factor = i == k ? 1 - 1 / w[2 * k * n + k] : w[2 * i * n + k] / w[2 * k * n + k];
            for (j = 2 * n - 1; j >= k; --j)
                w[2 * i * n + j] -= factor * w[2 * k * n + j];
        }
    }
    for (i = 0; i < n && w != NULL; ++i)
        memcpy(a + i * n, w + 2 * i * n + n, (size_t)n * sizeof *w);
    free(w);
    return w != NULL || n <= 0 ? 1 : -1;
}

int32_t matrix_symmetric_invert(double* a, int32_t n)
{
    int32_t i, j;
    for (i = 0; i < n; ++i)
        for (j = 0; j < i; ++j)
            a[j * n + i] = a[i * n + j];
    return matrix_invert(a, n, NULL, NULL);
}

int32_t matrix_mult(const double* a, const double* b, double* c, int32_t rows, int32_t inner, int32_t columns)
{
    int32_t i, j, k;
    for (i = 0; i < rows; ++i)
        for (j = 0; j < columns; ++j)
            for (c[i * columns + j] = 0, k = 0; k < inner; ++k)
                c[i * columns + j] += a[i * inner + k] * b[k * columns + j];
    return 1;
}

int32_t pnrml(const double* row, int32_t n, double value, double* normal, double* rhs, double weight)
{
    int32_t i, j;
    for (i = 0; i < n; rhs[i] += weight * value * row[i], ++i)
        for (j = 0; j < n; ++j)
            normal[i * n + j] += weight * row[i] * row[j];
    return 1;
}

/* The least squares of normal * solution = rhs by their normal equations. */
int32_t solve_lsq(double* normal, double* rhs, double* solution, int32_t rows, int32_t columns, double* work)
{
    double* square = columns > 0 ? calloc((size_t)columns * (size_t)(columns + 1), sizeof *square) : NULL;
    double* right = square != NULL ? square + columns * columns : NULL;
    int32_t i, result = -1;
    (void)work;
    for (i = 0; i < rows && square != NULL; ++i)
        pnrml(normal + i * columns, columns, rhs[i], square, right, 1);
    if (square != NULL && (result = matrix_symmetric_invert(square, columns)) == 1)
        matrix_mult(square, right, solution, columns, columns, 1);
    free(square);
    return columns <= 0 ? 1 : result;
}
