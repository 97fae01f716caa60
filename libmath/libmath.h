/* SPDX-License-Identifier: MIT */
/**
 * libmath: the five least-squares and dense-matrix routines that the main library imports.
 *
 * A shared library of its own, so that a host can put its own implementation under the same names in its place. All
 * matrices are contiguous arrays of doubles, row by row; the caller owns everything. Results are 1, or 0 for a singular
 * matrix. Nothing is printed or thrown.
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
 * Replaces a by its inverse.
 *
 * a                   n x n, in and out
 * scratch1, scratch2  n 4-byte elements each, whose contents mean nothing
 */
LIBMATH_API int32_t matrix_invert(double* a, int32_t n, int32_t* scratch1, int32_t* scratch2);

/** Replaces a symmetric n x n matrix by its inverse. */
LIBMATH_API int32_t matrix_symmetric_invert(double* a, int32_t n);

/**
 * c = a * b.
 *
 * a  rows x inner, in
 * b  inner x columns, in
 * c  rows x columns, out; neither a nor b
 */
LIBMATH_API int32_t matrix_mult(const double* a, const double* b, double* c, int32_t rows, int32_t inner,
                                int32_t columns);

/**
 * Adds one observation to normal equations: normal += weight * row * row', rhs += weight * value * row.
 *
 * row     n doubles, in
 * normal  n x n, in and out; every cell is rounded after every observation
 * rhs     n doubles, in and out
 */
LIBMATH_API int32_t pnrml(const double* row, int32_t n, double value, double* normal, double* rhs, double weight);

/**
 * Solves normal * solution = rhs.
 *
 * normal    rows x columns; may be changed
 * rhs       rows doubles; may be changed
 * solution  columns doubles, out
 * work      at least 256 doubles of scratch
 */
LIBMATH_API int32_t solve_lsq(double* normal, double* rhs, double* solution, int32_t rows, int32_t columns,
                              double* work);

#ifdef __cplusplus
}
#endif

#endif /* LIBMATH_H */
