// SPDX-License-Identifier: MIT
// The oval fit for callers that fit many outlines and bring their own scratch.
#pragma once

#include "panoval.h"

#include <cstddef>
#include <cstdint>

namespace panoval
{

// Doubles of scratch for each point.
inline constexpr std::size_t kOvalFitScratch = 2;

// As oval_fit, without an allocation.
std::int32_t fit_oval(std::int32_t count, const double* points, double* scratch, OvalFit* result);

} // namespace panoval
