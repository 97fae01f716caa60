// SPDX-License-Identifier: MIT
// A plan as JSON text, and back.
#pragma once

#include "mosaic/plan.h"

#include <string>
#include <string_view>

namespace panoval::mosaic
{

// Bytes of names that are no UTF-8 are replaced.
std::string plan_to_json(const Plan& plan);

// Throws an Error (Failure::Plan) that names the first thing that does not fit. Keys that it does not know do no harm.
Plan plan_from_json(std::string_view text);

} // namespace panoval::mosaic
