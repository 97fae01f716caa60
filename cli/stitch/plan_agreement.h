// SPDX-License-Identifier: MIT
// What a plan has settled, beside the options of the run that takes it. A script may give a plan the options that it
// was made with; what says something else would do nothing, and is refused.
#pragma once

#include "cli/stitch/panorama_plan.h"
#include "cli/stitch/stitch.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace panoval::cli
{

// Those options, for help texts.
extern const char* const kSettledByPlan;

// The number of the picture of this name; a usage error where there is none.
std::size_t anchor_of(const std::string& name, const PanoramaPlan& plan);

// Ends in a usage error that names the first option which contradicts the plan that the options name. What the plan
// does not hold is not compared.
//
// json   a plan that the engine has taken
// notes  out: what is odd about a file of gains
void check_agreement(const StitchOptions& options, const nlohmann::json& json, const PanoramaPlan& plan,
                     std::vector<std::string>& notes);

} // namespace panoval::cli
