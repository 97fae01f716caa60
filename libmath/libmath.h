/* SPDX-License-Identifier: MIT */
/**
 * libmath: the five least-squares and dense-matrix routines that the main library imports.
 *
 * A shared library of its own, so that a host can put its own implementation under the same names in its place. All
 * matrices are contiguous arrays of doubles, row by row; the caller owns everything. Results are 1, 0 for a singular
 * matrix, or -1 for a heap without memory for the factors; outputs are then as for a singular one. A matrix with a
 * value that is not finite counts as singular. Nothing is printed or thrown. Sizes of 0 or less touch nothing. The same
 * input gives the same bits on every machine.
 *
 * Singular means: with rows and columns scaled by powers of two to a largest value near 1, a pivot of the
 * factorisation is below the last bit of the largest pivot.
 */
#ifndef LIBMATH_H
#define LIBMATH_H

#include <stdint.h>

#if defined(_WIN32) && defined(LIBMATH_BUILDING)
#define LIBMATH_API __declspec(dllexport)
#elif defined(_WIN32)
#define LIBMATH_API __declspec(dllimport)
#elif defined(__GNUC__)
#define LIBMATH_API __attribute__((visibility("default")))
#else
#define LIBMATH_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Replaces a by its inverse; a singular a stays as it is.
 *
 * a                   n x n, in and out
 * n                   rows; 0 or less: nothing happens, result 1
 * scratch1, scratch2  n 4-byte elements each, whose contents mean nothing; may be null here
 */
LIBMATH_API int32_t matrix_invert(double* a, int32_t n, int32_t* scratch1, int32_t* scratch2);

/**
 * Replaces a symmetric matrix by its inverse, which is symmetric to the last bit; a singular a stays as it is.
 *
 * a  n x n, in and out; only the elements on and below the diagonal are read
 * n  rows; 0 or less: nothing happens, result 1
 */
LIBMATH_API int32_t matrix_symmetric_invert(double* a, int32_t n);

/**
 * c = a * b. Each element is one running sum over the inner size, in ascending order from the first product. Returns 1.
 *
 * a                     rows x inner, in
 * b                     inner x columns, in
 * c                     rows x columns, out; neither a nor b
 * rows, inner, columns  an inner of 0 or less gives zeros; rows or columns of 0 or less write nothing
 */
LIBMATH_API int32_t matrix_mult(const double* a, const double* b, double* c, int32_t rows, int32_t inner,
                                int32_t columns);

/**
 * Adds one observation to normal equations. Returns 1.
 *
 * row     n doubles, in
 * n       unknowns; 0 or less: nothing happens
 * value   the observed value
 * normal  n x n, in and out; element (i, j) becomes normal(i, j) + (weight * row[i]) * row[j], rounded after each step
 * rhs     n doubles, in and out; element i becomes rhs[i] + (weight * value) * row[i], rounded after each step
 * weight  the observation's weight
 */
LIBMATH_API int32_t pnrml(const double* row, int32_t n, double value, double* normal, double* rhs, double weight);

/**
 * Solves normal * solution = rhs; with more rows than columns in the sense of least squares.
 *
 * normal         rows x columns; left as it is here, but a host's own implementation may change it
 * rhs            rows doubles; as normal
 * solution       columns doubles, out; where the result is not 1 all 0, or not-a-number where an input was not finite
 * rows, columns  fewer rows than columns count as singular; columns of 0 or less: nothing happens, result 1
 * work           at least 256 doubles of scratch; not touched here, may be null
 */
LIBMATH_API int32_t solve_lsq(double* normal, double* rhs, double* solution, int32_t rows, int32_t columns,
                              double* work);

#ifdef __cplusplus
}
#endif

#endif /* LIBMATH_H */
