// SPDX-License-Identifier: MIT
// What the command prints: a table for people, comma-separated values, JSON. Every picture has its place in it, also
// one that could not be measured and one without targets.
#pragma once

#include "cli/base/common_options.h"
#include "cli/ellipses/ellipse_measure.h"

#include <vector>

namespace panoval::cli
{

struct ResultChoice {
    bool wants_ring = false;
    bool wants_covariance = false;
    bool wants_times = false;
};

// The names of a target's flags, e.g. "border".
std::vector<const char*> flag_names(std::int32_t flags);

void print_table(const Measurement& measurement, const ResultChoice& choice);
void print_csv(const std::vector<Measurement>& measurements, Method method, const ResultChoice& choice);
// What was kept of an earlier run comes from its files.
Json results_json(const std::vector<Measurement>& measurements, Method method, const ResultChoice& choice);

// The document as a file has it.
std::string json_text(const Json& json);

// Whether the file holds the whole results of this one picture, measured by this method.
bool is_stored_result(const std::string& name, const std::string& picture, Method method);

} // namespace panoval::cli
