// SPDX-License-Identifier: MIT
// The elementary functions: correctly rounded to the nearest double, and so the same on every system, compiler and
// processor. Special arguments (zeros, infinities, not-a-numbers) give what C's Annex F says, but errno and the
// floating- point exceptions are left alone. Rounding is to nearest, ties to even; other rounding modes are not served.
//
// Each function first computes the result as a sum of two doubles with a proved bound for its error. Where all values
// within that bound round alike, that is the result; else, about once in some thousand calls, elementary_wide.h
// decides.
#pragma once

namespace panoval
{

double exp(double x) noexcept;
double log(double x) noexcept; // to the base e

// Not a number for negative x and fractional y; a zero y gives 1, as does an x of 1.
double pow(double x, double y) noexcept;

double sin(double x) noexcept;
double cos(double x) noexcept;
double atan(double x) noexcept;

// The angle of the point (x, y), from -pi to pi. The sign of a zero y says from which side it comes.
double atan2(double y, double x) noexcept;

} // namespace panoval
