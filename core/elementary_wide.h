// SPDX-License-Identifier: MIT
// The elementary functions with 300 bits, rounded once: what core/elementary.h asks where its quick results do not
// decide how to round. Slow (some microseconds), right for every argument that is described.
#pragma once

#include "core/double_double.h"

namespace panoval::elementary_wide
{

// exp(x) for |x| < 800.
double exp(double x) noexcept;

// log(x) for finite x > 0; close is the result within 2^-40 of itself.
double log(double x, double close) noexcept;

// x^y for finite x > 0 other than 1, where |y log x| < 800; close_log is log x within 2^-40 of itself.
double pow(double x, double y, double close_log) noexcept;

// For every finite x.
double sin(double x) noexcept;
double cos(double x) noexcept;

// The angle of (x, y), both finite and not zero, with the sign of y. close is the arctangent of the smaller magnitude
// by the larger one within 2^-40 of itself; where their quotient is below 2^-200 it is not asked for.
double atan2(double y, double x, double close) noexcept;

} // namespace panoval::elementary_wide
